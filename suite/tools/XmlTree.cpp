#include "suite/tools/XmlTree.h"

#include <cstring>
#include <new>
#include <vector>

#include "suite/tools/KTScratch.h"
#include "suite/tools/KTUnicode.h"

namespace
{
using kt::XmlTree;
using Node = XmlDocument::XmlNode;

// Elements of the wide form of good UTF-8.
int WideLength(const char* text)
{
    int length = 0;
    for (; *text != '\0'; ++text)
    {
        const auto byte = static_cast<unsigned char>(*text);
        // One element a character, two for the longest form; the bytes that follow a first one don't count.
        length += (byte & 0xC0) == 0x80 ? 0 : (byte >= 0xF0 ? 2 : 1);
    }
    return length;
}

void Widen(wchar_t* out, const char* text)
{
    const char* const end = text + std::strlen(text);
    while (text != end) out = kt::PutWide(out, kt::NextUtf8(text, end));
}
}  // namespace

Node* XmlTree::NewNode(XmlStore& store, const KTWideString* tag) { return new (store.Take(sizeof(Node))) Node(tag); }

void XmlTree::FreeNode(XmlStore& store, Node* node) noexcept
{
    FreeChildren(store, *node);
    FreeText(store, *node);
    store.Give(node, sizeof(Node));
    store.Change();
}

void XmlTree::FreeChildren(XmlStore& store, Node& node) noexcept
{
    if (node.children == nullptr) return;
    store.Change();
    // Whatever hangs below a node joins the list of those still to go, so depth costs nothing.
    Node::ChildList waiting{XmlAllocator<Node*>(&store)};
    waiting.splice(waiting.end(), *node.children);
    while (!waiting.empty())
    {
        Node* const next = waiting.front();
        waiting.pop_front();
        if (next->children != nullptr)
        {
            waiting.splice(waiting.begin(), *next->children);
            store.Give(next->children, sizeof(Node::ChildList));
        }
        FreeText(store, *next);
        store.Give(next, sizeof(Node));
    }
}

void XmlTree::Append(XmlStore& store, Node& parent, Node* child)
{
    Children(store, parent).push_back(child);
    store.Change();
}

Node::ChildList& XmlTree::Children(XmlStore& store, Node& node)
{
    if (node.children == nullptr)
        node.children = new (store.Take(sizeof(Node::ChildList))) Node::ChildList(XmlAllocator<Node*>(&store));
    return *node.children;
}

const Node::ChildList& XmlTree::Children(const Node& node)
{
    static const auto* const none = new Node::ChildList(XmlAllocator<Node*>(nullptr));  // lives as long as any document
    return node.children != nullptr ? *node.children : *none;
}

void XmlTree::SetNarrow(XmlStore& store, Node& node, const char* text, std::size_t length)
{
    std::uintptr_t word = 0;
    if (length > 0)
    {
        auto* const place = static_cast<char*>(store.Take(length + 1));
        std::memcpy(place, text, length);
        place[length] = '\0';
        word = reinterpret_cast<std::uintptr_t>(place);
    }
    ReplaceText(store, node, word);
}

void XmlTree::SetWide(XmlStore& store, Node& node, const wchar_t* text, int length)
{
    std::uintptr_t word = 0;
    if (length > 0)
    {
        WideText* const wide = NewWide(store, length);
        std::memcpy(CharactersOf(wide), text, static_cast<std::size_t>(length) * sizeof(wchar_t));
        wide->text.Attach(CharactersOf(wide));
        word = reinterpret_cast<std::uintptr_t>(wide) | wideBit;
    }
    // The text may be the node's own: it went into its new place before the old one goes.
    ReplaceText(store, node, word);
}

void XmlTree::FreeText(XmlStore& store, Node& node) noexcept { ReplaceText(store, node, 0); }

void XmlTree::ReplaceText(XmlStore& store, Node& node, std::uintptr_t word) noexcept
{
    FreeWord(store, node.text.exchange(word, std::memory_order_release));
    store.Change();
}

void XmlTree::FreeWord(XmlStore& store, std::uintptr_t word) noexcept
{
    if (word == 0) return;
    if ((word & wideBit) == 0)
    {
        auto* const text = reinterpret_cast<char*>(word);
        store.Give(text, std::strlen(text) + 1);
        return;
    }
    const WideText* const wide = WideOf(word);
    if (wide->narrow != nullptr) FreeWord(store, reinterpret_cast<std::uintptr_t>(wide->narrow));
    store.Give(const_cast<WideText*>(wide), SizeOfWide(wide->text.Length()));
}

std::size_t XmlTree::SizeOfWide(int length)
{
    return sizeof(WideText) + (static_cast<std::size_t>(length) + 1) * sizeof(wchar_t);
}

XmlTree::WideText* XmlTree::NewWide(XmlStore& store, int length)
{
    auto* const wide = new (store.Take(SizeOfWide(length))) WideText{KTWideString(), nullptr};
    CharactersOf(wide)[length] = L'\0';
    return wide;
}

const char* XmlTree::Narrow(const Node& node)
{
    const std::uintptr_t word = node.text.load(std::memory_order_acquire);
    if ((word & wideBit) != 0) return WideOf(word)->narrow;
    return reinterpret_cast<const char*>(word);
}

const KTWideString* XmlTree::Wide(const Node& node)
{
    const std::uintptr_t word = node.text.load(std::memory_order_acquire);
    return (word & wideBit) != 0 ? &WideOf(word)->text : nullptr;
}

const KTWideString& XmlTree::Text(const Node& node)
{
    static const auto* const none = new KTWideString();
    std::uintptr_t word = node.text.load(std::memory_order_acquire);
    if (word == 0) return *none;
    if ((word & wideBit) != 0) return WideOf(word)->text;

    XmlStore& store = XmlStore::Of(&node);
    const std::lock_guard guard(store.SharedMutex());
    word = node.text.load(std::memory_order_acquire);
    if ((word & wideBit) != 0) return WideOf(word)->text;  // another reader was faster
    const auto* const narrow = reinterpret_cast<const char*>(word);
    WideText* const wide = NewWide(store, WideLength(narrow));
    Widen(CharactersOf(wide), narrow);
    wide->text.Attach(CharactersOf(wide));
    wide->narrow = narrow;  // stays: another reader may be on it
    node.text.store(reinterpret_cast<std::uintptr_t>(wide) | wideBit, std::memory_order_release);
    return wide->text;
}

KTWideString XmlTree::CopyOfText(const Node& node)
{
    KTWideString copy;
    if (const KTWideString* const wide = Wide(node); wide != nullptr)
        copy = *wide;
    else if (const char* narrow = Narrow(node); narrow != nullptr)
    {
        const std::size_t bytes = std::strlen(narrow);
        Scratch<wchar_t> scratch(bytes);
        wchar_t* p = scratch.Data();
        const char* const end = narrow + bytes;
        while (narrow != end) p = PutWide(p, NextUtf8(narrow, end));
        copy.Assign(scratch.Data(), static_cast<int>(p - scratch.Data()));
    }
    return copy;
}

bool XmlTree::TextIs(const Node& node, const wchar_t* text, std::size_t length)
{
    if (const KTWideString* const wide = Wide(node); wide != nullptr)
        return static_cast<std::size_t>(wide->Length()) == length &&
               std::memcmp(wide->Str(), text, length * sizeof(wchar_t)) == 0;
    const char* narrow = Narrow(node);
    if (narrow == nullptr) return length == 0;
    // Element by element, so that an ill-formed text on the other side equals nothing.
    const char* const end = narrow + std::strlen(narrow);
    const wchar_t* const textEnd = text + length;
    while (narrow != end)
    {
        wchar_t units[2];
        const wchar_t* const unitsEnd = PutWide(units, NextUtf8(narrow, end));
        for (const wchar_t* unit = units; unit != unitsEnd; ++unit)
            if (text == textEnd || *text++ != *unit) return false;
    }
    return text == textEnd;
}

void XmlTree::CopyContent(XmlStore& store, Node& target, const Node& source)
{
    if (const char* const narrow = Narrow(source); narrow != nullptr)
        SetNarrow(store, target, narrow, std::strlen(narrow));
    else if (const KTWideString* const wide = Wide(source); wide != nullptr)
        SetWide(store, target, wide->Str(), wide->Length());
}

Node* XmlTree::Copy(XmlStore& store, const Node& source)
{
    struct Level
    {
        Node::const_iterator next;
        Node::const_iterator end;
        Node* target;
    };
    const auto copyOne = [&store](const Node& from)
    {
        const KTWideString& tag = *from.tag;
        Node* const node = NewNode(store, store.Intern(tag.Str(), tag.Length()));
        CopyContent(store, *node, from);
        return node;
    };

    Node* const root = copyOne(source);
    std::vector<Level> levels;
    if (HasChildren(source)) levels.push_back({source.children->begin(), source.children->end(), root});
    while (!levels.empty())
    {
        Level& level = levels.back();
        if (level.next == level.end)
        {
            levels.pop_back();
            continue;
        }
        const Node& from = **level.next++;
        Node* const node = copyOne(from);
        Append(store, *level.target, node);
        if (HasChildren(from)) levels.push_back({from.children->begin(), from.children->end(), node});
    }
    return root;
}

void XmlTree::Assign(XmlStore& store, Node& node, const Node& source)
{
    // The copy is complete before anything goes: `source` may lie below `node`, or `node` below `source`.
    Node* const copy = Copy(store, source);
    FreeChildren(store, node);
    FreeText(store, node);
    if (node.children != nullptr) store.Give(node.children, sizeof(Node::ChildList));
    node.tag = copy->tag;
    node.text.store(copy->text.load(std::memory_order_relaxed), std::memory_order_release);
    node.children = copy->children;
    store.Give(copy, sizeof(Node));
    store.Change();
}
