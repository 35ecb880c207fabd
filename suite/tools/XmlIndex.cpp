#include "suite/tools/XmlIndex.h"

#include <cstring>
#include <random>

#include "suite/tools/KTUnicode.h"

namespace
{
using kt::XmlPiece;
using kt::XmlTree;
using Node = XmlDocument::XmlNode;

constexpr std::size_t worthBuilding = 4;  // times the children, which is about what building costs

bool Equals(const std::wstring& text, const XmlPiece& piece)
{
    return text.size() == piece.length && text.compare(0, piece.length, piece.at, piece.length) == 0;
}

// Differs from run to run: a document mustn't be able to choose texts that all fall on one place.
std::uint64_t Seed()
{
    static const std::uint64_t seed = std::uint64_t{std::random_device()()} << 32 | std::random_device()();
    return seed;
}

class Hash
{
public:
    void Add(wchar_t unit)
    {
        state = (state ^ static_cast<std::uint32_t>(unit)) * 0x9E3779B97F4A7C15U;
        state ^= state >> 32;
    }
    [[nodiscard]] std::uint32_t Value() const { return static_cast<std::uint32_t>(state); }

private:
    std::uint64_t state = Seed();
};

std::uint32_t HashOf(const XmlPiece& text)
{
    Hash hash;
    for (std::size_t i = 0; i < text.length; ++i) hash.Add(text.at[i]);
    return hash.Value();
}

std::uint32_t HashOf(const Node& node)
{
    if (const KTWideString* const wide = XmlTree::Wide(node); wide != nullptr)
        return HashOf(XmlPiece{wide->Str(), static_cast<std::size_t>(wide->Length())});
    Hash hash;
    const char* narrow = XmlTree::Narrow(node);
    if (narrow == nullptr) return hash.Value();
    const char* const end = narrow + std::strlen(narrow);
    while (narrow != end)
    {
        wchar_t units[2];
        const wchar_t* const unitsEnd = kt::PutWide(units, kt::NextUtf8(narrow, end));
        for (const wchar_t* unit = units; unit != unitsEnd; ++unit) hash.Add(*unit);
    }
    return hash.Value();
}

bool SameText(const Node& a, const Node& b)
{
    const char* const left = XmlTree::Narrow(a);
    const char* const right = XmlTree::Narrow(b);
    if (left != nullptr && right != nullptr) return std::strcmp(left, right) == 0;
    const KTWideString copy = XmlTree::CopyOfText(a);
    return XmlTree::TextIs(b, copy.Str(), static_cast<std::size_t>(copy.Length()));
}
}  // namespace

kt::XmlIndex::XmlIndex(const Node& itsParent, const XmlStep& step)
    : parent(&itsParent), tag(step.tag.at, step.tag.length), key(step.key.at, step.key.length)
{
}

bool kt::XmlIndex::Serves(const Node& itsParent, const XmlStep& step) const
{
    return parent == &itsParent && Equals(tag, step.tag) && Equals(key, step.key);
}

const Node* kt::XmlIndex::Find(const XmlStep& step) const
{
    const std::uint32_t hash = HashOf(step.value);
    const std::size_t mask = slots.size() - 1;
    for (std::size_t at = hash & mask; slots[at].child != nullptr; at = (at + 1) & mask)
        if (slots[at].hash == hash && XmlTree::TextIs(*slots[at].key, step.value.at, step.value.length))
            return slots[at].child;
    return nullptr;
}

void kt::XmlIndex::Build()
{
    const Node::ChildList& children = XmlTree::Children(*parent);
    std::size_t size = 64;
    while (size < children.size() * 2) size *= 2;
    slots.assign(size, Slot());
    for (const Node* const child : children)
    {
        if (!TagIs(*child, {tag.data(), tag.size()})) continue;
        const Node* const keyNode = FindChild(*child, {key.data(), key.size()});
        if (keyNode != nullptr) Insert(*child, *keyNode);
    }
}

void kt::XmlIndex::Insert(const Node& child, const Node& keyNode)
{
    const std::uint32_t hash = HashOf(keyNode);
    const std::size_t mask = slots.size() - 1;
    std::size_t at = hash & mask;
    for (; slots[at].child != nullptr; at = (at + 1) & mask)
        if (slots[at].hash == hash && SameText(*slots[at].key, keyNode)) return;  // the first of several wins
    slots[at] = {&child, &keyNode, hash};
}

void kt::XmlIndex::Forget()
{
    slots.clear();
    slots.shrink_to_fit();
    looked = 0;
}

const kt::XmlIndex* kt::XmlIndexes::Find(const Node& parent, const XmlStep& step, std::uint64_t version)
{
    XmlIndex& index = Of(parent, step, version);
    if (index.Built()) return &index;
    if (index.looked < worthBuilding * XmlTree::Children(parent).size()) return nullptr;
    index.Build();
    return &index;
}

void kt::XmlIndexes::Count(const Node& parent, const XmlStep& step, std::uint64_t version, std::size_t looked)
{
    Of(parent, step, version).looked += looked;
}

kt::XmlIndex& kt::XmlIndexes::Of(const Node& parent, const XmlStep& step, std::uint64_t version)
{
    XmlIndex* index = nullptr;
    for (XmlIndex& candidate : indexes)
        if (candidate.Serves(parent, step)) index = &candidate;
    if (index == nullptr && indexes.size() < limit) index = &indexes.emplace_back(parent, step);
    if (index == nullptr)
    {
        index = &indexes[oldest];
        oldest = (oldest + 1) % limit;
        *index = XmlIndex(parent, step);
    }
    if (index->version != version)
    {
        index->Forget();
        index->version = version;
    }
    return *index;
}
