// Tree documents: a named value is a child element with that tag and its text.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <list>
#include <memory>

#include "host/KTString.h"

namespace kt
{
class XmlStore;
struct XmlTree;

void* TakeFromXmlStore(XmlStore* store, std::size_t size);
void GiveToXmlStore(XmlStore* store, void* place, std::size_t size) noexcept;

/// Takes the room for a document's lists from the document's own store, which goes as a whole.
template <class T>
class XmlAllocator
{
public:
    using value_type = T;

    explicit XmlAllocator(XmlStore* where) noexcept : store(where) {}
    template <class Other>
    XmlAllocator(const XmlAllocator<Other>& other) noexcept : store(other.Store())
    {
    }

    T* allocate(std::size_t count) { return static_cast<T*>(TakeFromXmlStore(store, count * sizeof(T))); }
    void deallocate(T* place, std::size_t count) noexcept { GiveToXmlStore(store, place, count * sizeof(T)); }

    [[nodiscard]] XmlStore* Store() const noexcept { return store; }
    template <class Other>
    bool operator==(const XmlAllocator<Other>& other) const noexcept
    {
        return store == other.Store();
    }

private:
    XmlStore* store;  // not owned: the document's
};
}  // namespace kt

/// A document of elements, read from UTF-8 XML 1.0. Attributes, comments and processing instructions are passed over.
///
/// The text of an element without child elements is kept exactly; with child elements, text of white space alone is none.
///
/// Paths:   steps separated by `/`; a leading `/` means the same as none. `tag` finds the first child with that tag,
///          `tag?key=value?` the first child with that tag whose own child `key` has exactly that text. The value ends at
///          the closing `?`, so it may hold `/`.
/// Errors:  Load and Parse are false on any syntax error, and the document is then empty. Null from Node is an ordinary
///          answer.
/// Threads: not synchronised; while nobody changes it, any number of threads may read.
/// Memory:  owns its nodes, and each node owns its children; node pointers stay good until the node is removed or the
///          document changes as a whole.
class XmlDocument
{
public:
    class XmlNode;

    XmlDocument();
    XmlDocument(const XmlDocument& other);  // deep; the path is copied too
    explicit XmlDocument(const XmlNode& root);
    ~XmlDocument();
    XmlDocument& operator=(const XmlDocument& other);

    /// Remembers the path even when it fails, so that Create and Save can follow.
    bool Load(const wchar_t* path);

    /// Writes to the remembered path: beside it first, synced, then renamed over it, so that a reader meets the old or the
    /// new document and never half of one. An existing file keeps its mode, a new one gets 0640. False when nothing was
    /// loaded or created, no path is known, or the disk refuses; the old file stands then.
    bool Save();

    /// Discards the content and makes a root with that tag; the remembered path is kept.
    void Create(const wchar_t* rootTag);

    /// NUL-terminated UTF-8.
    bool Parse(const char* text);

    /// Replaces `out`.
    void CreateXmlCode(KTNarrowString& out, bool declaration) const;

    XmlNode* Root();
    [[nodiscard]] const XmlNode* Root() const;

    /// From the root; null without a root.
    XmlNode* Node(const wchar_t* path);
    [[nodiscard]] const XmlNode* Node(const wchar_t* path) const;

private:
    struct Content;
    std::unique_ptr<Content> content;
};

/// One element: a tag, its own text and its children in document order.
///
/// Threads: not synchronised, as its document; while nobody changes it, any number of threads may read.
/// Memory:  lives in a document; removed nodes are freed with their subtree. Texts and iterators that it has handed out are
///          good until the node is changed or freed.
class XmlDocument::XmlNode
{
public:
    using ChildList = std::list<XmlNode*, kt::XmlAllocator<XmlNode*>>;
    using iterator = ChildList::iterator;
    using const_iterator = ChildList::const_iterator;

    XmlNode(const XmlNode&) = delete;
    XmlNode& operator=(const XmlNode& other);  // deep copy of tag, text and children

    [[nodiscard]] const KTWideString& Tag() const;
    [[nodiscard]] const KTWideString& Value() const;

    /// The text of the node that the path finds, or `missing` when there is none; a present empty node gives the empty text.
    [[nodiscard]] KTWideString Value(const wchar_t* path, const wchar_t* missing) const;

    void SetValue(const wchar_t* text);
    void SetValue(const wchar_t* tag, const wchar_t* text);  // of that child, made if missing

    XmlNode* Node(const wchar_t* path);
    [[nodiscard]] const XmlNode* Node(const wchar_t* path) const;

    /// The path is formatted as KTFormat does it, then looked up.
    XmlNode* NodeV(const wchar_t* format, ...);
    const XmlNode* NodeV(const wchar_t* format, ...) const;

    XmlNode* NewChild(const wchar_t* tag);
    void RemoveChild(XmlNode* child);
    bool EraseTag(const wchar_t* tag);
    void Reset();

    [[nodiscard]] int Size() const;
    iterator ChildsBegin();
    iterator ChildsEnd();
    [[nodiscard]] const_iterator ChildsBegin() const;
    [[nodiscard]] const_iterator ChildsEnd() const;

    void CreateXmlCode(KTNarrowString& out) const;  // replaces `out`
    void SaveXmlCode(std::FILE* stream) const;

private:
    friend class XmlDocument;
    friend struct kt::XmlTree;
    explicit XmlNode(const KTWideString* itsTag) noexcept : tag(itsTag) {}
    ~XmlNode() = default;

    const KTWideString* tag;  // not owned: the store's, one for each different tag
    mutable std::atomic<std::uintptr_t> text{
        0};                         // owned: see kt::XmlTree; Value() makes the wide form at the first call
    ChildList* children = nullptr;  // owned; null until there is a child
};
