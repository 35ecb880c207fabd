// The children of one element by the text of a key, for paths such as "event?id=%s?".
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "suite/tools/XmlPath.h"

namespace kt
{
/// The children of one tag below one parent, by the text of their child of one key.
///
/// Threads: not synchronised.
/// Memory:  owns its table, not the nodes.
class XmlIndex
{
public:
    XmlIndex(const XmlDocument::XmlNode& itsParent, const XmlStep& step);

    [[nodiscard]] bool Serves(const XmlDocument::XmlNode& itsParent, const XmlStep& step) const;

    /// The first child that the step selects, or null.
    [[nodiscard]] const XmlDocument::XmlNode* Find(const XmlStep& step) const;

    void Build();
    void Forget();
    [[nodiscard]] bool Built() const { return !slots.empty(); }

    std::uint64_t version = 0;  // of the store, when this was last right
    std::size_t looked = 0;     // children that searches without it have looked at since

private:
    struct Slot
    {
        const XmlDocument::XmlNode* child = nullptr;
        const XmlDocument::XmlNode* key = nullptr;  // its first child of that tag
        std::uint32_t hash = 0;
    };

    void Insert(const XmlDocument::XmlNode& child, const XmlDocument::XmlNode& keyNode);

    const XmlDocument::XmlNode* parent;  // not owned: compared before it is used, and rebuilt after any change
    std::wstring tag;
    std::wstring key;
    std::vector<Slot> slots;  // open addressing, each text once; a power of two
};

/// The indexes of a document. One is built when searches without it have cost more than it does, so that a document
/// that changes between its searches never pays for one.
class XmlIndexes
{
public:
    /// Null while a search is cheaper without.
    const XmlIndex* Find(const XmlDocument::XmlNode& parent, const XmlStep& step, std::uint64_t version);

    /// Somebody has searched without, and has looked at so many children.
    void Count(const XmlDocument::XmlNode& parent, const XmlStep& step, std::uint64_t version, std::size_t looked);

private:
    static constexpr std::size_t limit = 8;  // a document is searched by few keys at a time

    XmlIndex& Of(const XmlDocument::XmlNode& parent, const XmlStep& step, std::uint64_t version);

    std::vector<XmlIndex> indexes;
    std::size_t oldest = 0;  // the one to go when there are too many
};
}  // namespace kt
