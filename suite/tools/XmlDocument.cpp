#include "host/XmlDocument.h"

#include <cstdarg>
#include <cstring>
#include <utility>

#include "host/KTText.h"
#include "suite/tools/KTScratch.h"
#include "suite/tools/KTWideFormat.h"
#include "suite/tools/XmlFile.h"
#include "suite/tools/XmlPath.h"
#include "suite/tools/XmlReader.h"
#include "suite/tools/XmlTree.h"
#include "suite/tools/XmlWriter.h"

namespace
{
using kt::XmlStore;
using kt::XmlTree;

constexpr std::string_view declarationText = R"(<?xml version="1.0" encoding="UTF-8"?>)";

using Node = XmlDocument::XmlNode;

Node* Writable(const Node* node) { return const_cast<Node*>(node); }

kt::XmlPiece Whole(const wchar_t* text) { return {text, static_cast<std::size_t>(KTWideChar::Length(text))}; }

Node* AppendNew(Node& parent, const wchar_t* tag)
{
    XmlStore& store = XmlStore::Of(&parent);
    Node* const child = XmlTree::NewNode(store, store.Intern(tag, KTWideChar::Length(tag)));
    XmlTree::Append(store, parent, child);
    return child;
}

const Node* FindFormatted(const Node& from, const wchar_t* format, std::va_list arguments)
{
    wchar_t path[256];
    constexpr std::size_t room = sizeof path / sizeof *path - 1;
    std::va_list again;
    va_copy(again, arguments);
    const std::size_t length = kt::FormatWide(path, room, format, arguments);
    const Node* found = nullptr;
    if (length <= room)
    {
        path[length] = L'\0';
        found = kt::FindPath(from, path);
    }
    else
    {
        const std::unique_ptr<wchar_t[]> whole(new wchar_t[length + 1]);
        kt::FormatWide(whole.get(), length, format, again);
        whole[length] = L'\0';
        found = kt::FindPath(from, whole.get());
    }
    va_end(again);
    return found;
}

void Deliver(KTNarrowString& out, kt::XmlStringOutput& output)
{
    (void)output.Flush();  // memory doesn't refuse
    out.Assign(output.text.data(), static_cast<int>(output.text.size()));
}
}  // namespace

struct XmlDocument::Content
{
    std::unique_ptr<XmlStore> store;  // null until there is a root
    XmlNode* root = nullptr;          // the store's
    KTWideString path;                // of the last Load

    void Discard()
    {
        root = nullptr;
        store.reset();
    }

    template <class Reading>
    bool Fill(Reading reading)
    {
        Discard();
        auto fresh = std::make_unique<XmlStore>();
        kt::XmlReader reader(*fresh);
        if (!reading(reader)) return false;
        store = std::move(fresh);
        root = reader.Root();
        return true;
    }

    // The new content is complete before the old one goes: `source` may lie in it.
    void CopyFrom(const XmlNode* source)
    {
        if (source == nullptr)
        {
            Discard();
            return;
        }
        auto fresh = std::make_unique<XmlStore>();
        root = XmlTree::Copy(*fresh, *source);
        store = std::move(fresh);
    }
};

XmlDocument::XmlDocument() : content(std::make_unique<Content>()) {}

XmlDocument::XmlDocument(const XmlDocument& other) : XmlDocument() { *this = other; }

XmlDocument::XmlDocument(const XmlNode& root) : XmlDocument() { content->CopyFrom(&root); }

XmlDocument::~XmlDocument() = default;

XmlDocument& XmlDocument::operator=(const XmlDocument& other)
{
    if (this == &other) return *this;
    content->CopyFrom(other.content->root);
    content->path = other.content->path;
    return *this;
}

bool XmlDocument::Load(const wchar_t* path)
{
    content->path = path;
    content->Discard();
    const kt::XmlInputFile file(content->path);
    return file.Good() && content->Fill([&](kt::XmlReader& reader) { return reader.ReadFile(file.Handle()); });
}

bool XmlDocument::Save()
{
    if (content->root == nullptr || content->path.Empty()) return false;
    return kt::ReplaceFile(content->path,
                           [this](kt::XmlOutput& output)
                           {
                               output.Put(declarationText);
                               output.Put('\n');
                               kt::WriteXml(output, *content->root, kt::XmlLayout::indented);
                               output.Put('\n');
                           });
}

void XmlDocument::Create(const wchar_t* rootTag)
{
    auto fresh = std::make_unique<XmlStore>();
    content->root = XmlTree::NewNode(*fresh, fresh->Intern(rootTag, KTWideChar::Length(rootTag)));
    content->store = std::move(fresh);
}

bool XmlDocument::Parse(const char* text)
{
    return content->Fill([text](kt::XmlReader& reader) { return reader.Read(text, std::strlen(text)); });
}

void XmlDocument::CreateXmlCode(KTNarrowString& out, bool declaration) const
{
    kt::XmlStringOutput output;
    if (declaration) output.Put(declarationText);
    if (content->root != nullptr) kt::WriteXml(output, *content->root, kt::XmlLayout::dense);
    Deliver(out, output);
}

XmlDocument::XmlNode* XmlDocument::Root() { return content->root; }
const XmlDocument::XmlNode* XmlDocument::Root() const { return content->root; }

XmlDocument::XmlNode* XmlDocument::Node(const wchar_t* path) { return Writable(std::as_const(*this).Node(path)); }

const XmlDocument::XmlNode* XmlDocument::Node(const wchar_t* path) const
{
    return content->root != nullptr ? kt::FindPath(*content->root, path) : nullptr;
}

XmlDocument::XmlNode& XmlDocument::XmlNode::operator=(const XmlNode& other)
{
    if (this != &other) XmlTree::Assign(XmlStore::Of(this), *this, other);
    return *this;
}

const KTWideString& XmlDocument::XmlNode::Tag() const { return *tag; }

const KTWideString& XmlDocument::XmlNode::Value() const { return XmlTree::Text(*this); }

KTWideString XmlDocument::XmlNode::Value(const wchar_t* path, const wchar_t* missing) const
{
    const XmlNode* const node = kt::FindPath(*this, path);
    return node != nullptr ? XmlTree::CopyOfText(*node) : KTWideString(missing);
}

void XmlDocument::XmlNode::SetValue(const wchar_t* value)
{
    XmlTree::SetWide(XmlStore::Of(this), *this, value, KTWideChar::Length(value));
}

void XmlDocument::XmlNode::SetValue(const wchar_t* childTag, const wchar_t* value)
{
    const XmlNode* const child = kt::FindChild(*this, Whole(childTag));
    (child != nullptr ? Writable(child) : NewChild(childTag))->SetValue(value);
}

XmlDocument::XmlNode* XmlDocument::XmlNode::Node(const wchar_t* path) { return Writable(kt::FindPath(*this, path)); }

const XmlDocument::XmlNode* XmlDocument::XmlNode::Node(const wchar_t* path) const { return kt::FindPath(*this, path); }

XmlDocument::XmlNode* XmlDocument::XmlNode::NodeV(const wchar_t* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    const XmlNode* const node = FindFormatted(*this, format, arguments);
    va_end(arguments);
    return Writable(node);
}

const XmlDocument::XmlNode* XmlDocument::XmlNode::NodeV(const wchar_t* format, ...) const
{
    std::va_list arguments;
    va_start(arguments, format);
    const XmlNode* const node = FindFormatted(*this, format, arguments);
    va_end(arguments);
    return node;
}

XmlDocument::XmlNode* XmlDocument::XmlNode::NewChild(const wchar_t* childTag) { return AppendNew(*this, childTag); }

void XmlDocument::XmlNode::RemoveChild(XmlNode* child)
{
    if (children == nullptr) return;
    for (auto place = children->begin(); place != children->end(); ++place)
    {
        if (*place != child) continue;
        children->erase(place);
        XmlTree::FreeNode(XmlStore::Of(this), child);
        return;
    }
}

bool XmlDocument::XmlNode::EraseTag(const wchar_t* childTag)
{
    const XmlNode* const child = kt::FindChild(*this, Whole(childTag));
    if (child == nullptr) return false;
    RemoveChild(Writable(child));
    return true;
}

void XmlDocument::XmlNode::Reset()
{
    XmlStore& store = XmlStore::Of(this);
    XmlTree::FreeChildren(store, *this);
    XmlTree::FreeText(store, *this);
}

int XmlDocument::XmlNode::Size() const { return static_cast<int>(XmlTree::Children(*this).size()); }

// A list is made here even for a leaf, so that an end taken now is still the end after a child has come.
XmlDocument::XmlNode::iterator XmlDocument::XmlNode::ChildsBegin()
{
    return XmlTree::Children(XmlStore::Of(this), *this).begin();
}
XmlDocument::XmlNode::iterator XmlDocument::XmlNode::ChildsEnd()
{
    return XmlTree::Children(XmlStore::Of(this), *this).end();
}
XmlDocument::XmlNode::const_iterator XmlDocument::XmlNode::ChildsBegin() const
{
    return XmlTree::Children(*this).begin();
}
XmlDocument::XmlNode::const_iterator XmlDocument::XmlNode::ChildsEnd() const { return XmlTree::Children(*this).end(); }

void XmlDocument::XmlNode::CreateXmlCode(KTNarrowString& out) const
{
    kt::XmlStringOutput output;
    kt::WriteXml(output, *this, kt::XmlLayout::dense);
    Deliver(out, output);
}

void XmlDocument::XmlNode::SaveXmlCode(std::FILE* stream) const
{
    kt::XmlStreamOutput output(stream);
    kt::WriteXml(output, *this, kt::XmlLayout::dense);
    (void)output.Flush();  // the stream keeps its own error
}
