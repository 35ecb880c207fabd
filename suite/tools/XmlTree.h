// The inside of a document's nodes, for the files that read, copy and write them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "host/XmlDocument.h"
#include "suite/tools/XmlStore.h"

namespace kt
{
/// What stands behind XmlNode's fields. No operation recurses: a document may be a million elements deep.
///
/// A node's text is a word: 0 for the empty text, the address of NUL-terminated UTF-8 as the reader met it, or that of a
/// WideText plus 1. A document keeps UTF-8 until somebody wants a text by reference, since most texts are read once, by
/// value, and a wide element has 4 bytes.
///
/// Errors:  what takes memory throws std::bad_alloc.
struct XmlTree
{
    using Node = XmlDocument::XmlNode;

    /// A wide text, with its characters behind it.
    struct WideText
    {
        KTWideString text;   // borrows those characters
        const char* narrow;  // what it was made of, or null
    };

    static Node* NewNode(XmlStore& store, const KTWideString* tag);

    /// With all below it; it must not hang in a list any more.
    static void FreeNode(XmlStore& store, Node* node) noexcept;
    static void FreeChildren(XmlStore& store, Node& node) noexcept;

    static void Append(XmlStore& store, Node& parent, Node* child);
    static Node::ChildList& Children(XmlStore& store, Node& node);
    static const Node::ChildList& Children(const Node& node);
    static bool HasChildren(const Node& node) { return node.children != nullptr && !node.children->empty(); }

    /// UTF-8 without NUL, already known to be good.
    static void SetNarrow(XmlStore& store, Node& node, const char* text, std::size_t length);
    static void SetWide(XmlStore& store, Node& node, const wchar_t* text, int length);
    static void FreeText(XmlStore& store, Node& node) noexcept;

    /// Null where the text has no such form; the empty text has neither.
    static const char* Narrow(const Node& node);
    static const KTWideString* Wide(const Node& node);

    static const KTWideString& Text(const Node& node);  // makes the wide form
    static KTWideString CopyOfText(const Node& node);   // leaves the node as it is
    static bool TextIs(const Node& node, const wchar_t* text, std::size_t length);
    static bool HasText(const Node& node) { return node.text.load(std::memory_order_relaxed) != 0; }

    static const KTWideString* Tag(const Node& node) { return node.tag; }

    /// A copy in `store` of a node of this or another store, with all below it.
    static Node* Copy(XmlStore& store, const Node& source);

    /// Tag, text and children of `source`, which is another node and may lie above or below `node`.
    static void Assign(XmlStore& store, Node& node, const Node& source);

private:
    static constexpr std::uintptr_t wideBit = 1;
    static WideText* NewWide(XmlStore& store, int length);
    static std::size_t SizeOfWide(int length);
    static void ReplaceText(XmlStore& store, Node& node, std::uintptr_t word) noexcept;
    static void FreeWord(XmlStore& store, std::uintptr_t word) noexcept;
    static void CopyContent(XmlStore& store, Node& target, const Node& source);
    static wchar_t* CharactersOf(WideText* text) { return reinterpret_cast<wchar_t*>(text + 1); }
    static const WideText* WideOf(std::uintptr_t word) { return reinterpret_cast<const WideText*>(word & ~wideBit); }
};
}  // namespace kt
