// From text to a tree.
#pragma once

#include <cstddef>
#include <string>

#include "suite/tools/XmlTree.h"

struct XML_ParserStruct;

namespace kt
{
/// Reads one document, piece by piece, into a store.
///
/// UTF-8, UTF-16 with a byte order mark, ISO-8859-1 and US-ASCII, as the document says. Attributes, comments and
/// processing instructions are passed over. Nothing outside the document is read: one that refers to outer entities is
/// refused, and so is one whose inner entities multiply.
///
/// Errors:  false at the first thing that isn't XML 1.0, or when memory is short; the reader is then of no more use.
/// Threads: one.
/// Memory:  the nodes are the store's.
class XmlReader
{
public:
    explicit XmlReader(XmlStore& into);
    XmlReader(const XmlReader&) = delete;
    XmlReader& operator=(const XmlReader&) = delete;
    ~XmlReader();

    /// The whole document from memory.
    [[nodiscard]] bool Read(const char* text, std::size_t length);

    /// The whole document from an open file of KTFiles.
    [[nodiscard]] bool ReadFile(int file);

    /// The root after a successful reading.
    [[nodiscard]] XmlDocument::XmlNode* Root() const { return root; }

    /// After a reading that failed: what stopped it, "line 4: mismatched tag".
    [[nodiscard]] std::string Fault() const;

private:
    struct Handlers;
    struct Level
    {
        XmlDocument::XmlNode* node;
        std::size_t textStart;  // of its own text in `text`
    };

    void Start(const char* tag);
    void End();
    const KTWideString* TagOf(const char* tag);
    void Fail();

    XmlStore& store;
    XML_ParserStruct* parser;  // owned; null when memory was short
    XmlDocument::XmlNode* root = nullptr;
    std::vector<Level> levels;  // the open elements, outermost first
    std::vector<char> text;     // theirs, one behind the other
    int entities = 0;           // declared so far
    bool failed = false;
};
}  // namespace kt
