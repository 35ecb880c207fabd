#include "suite/tools/XmlWriter.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "host/KTFiles.h"
#include "suite/tools/KTUnicode.h"
#include "suite/tools/XmlTree.h"

namespace
{
using kt::XmlOutput;
using kt::XmlTree;
using Node = XmlDocument::XmlNode;

// Deeper levels aren't shifted any further: a document a million deep would otherwise be half a billion blanks a line.
constexpr std::size_t deepestIndent = 20;

// What stands for a character that markup takes, or null. A carriage return would be read back as a line end.
const char* EscapeOf(char32_t c)
{
    switch (c)
    {
        case U'&':
            return "&amp;";
        case U'<':
            return "&lt;";
        case U'>':
            return "&gt;";
        case U'\r':
            return "&#13;";
        default:
            return nullptr;
    }
}

void PutNarrow(XmlOutput& output, const char* text)
{
    for (;;)
    {
        const std::size_t plain = std::strcspn(text, "&<>\r");
        output.Put(std::string_view(text, plain));
        text += plain;
        if (*text == '\0') return;
        output.Put(EscapeOf(static_cast<unsigned char>(*text++)));
    }
}

void PutCodePoint(XmlOutput& output, char32_t c)
{
    char bytes[4];
    const char* const end = kt::PutUtf8(bytes, c);
    output.Put(std::string_view(bytes, static_cast<std::size_t>(end - bytes)));
}

void PutWide(XmlOutput& output, const KTWideString& text)
{
    const wchar_t* at = text.Str();
    const wchar_t* const end = at + text.Length();
    while (at != end)
    {
        const char32_t c = kt::NextWide(at, end);
        if (const char* const escape = EscapeOf(c); escape != nullptr)
            output.Put(escape);
        else if (c == 0xFFFE || c == 0xFFFF)
            PutCodePoint(output, kt::replacement);
        else if (c >= 0x20 || c == U'\t' || c == U'\n')
            PutCodePoint(output, c);
    }
}

void PutTag(XmlOutput& output, const Node& node)
{
    const KTWideString& tag = *XmlTree::Tag(node);
    const wchar_t* at = tag.Str();
    const wchar_t* const end = at + tag.Length();
    while (at != end) PutCodePoint(output, kt::NextWide(at, end));
}

void PutText(XmlOutput& output, const Node& node)
{
    if (const char* const narrow = XmlTree::Narrow(node); narrow != nullptr)
        PutNarrow(output, narrow);
    else if (const KTWideString* const wide = XmlTree::Wide(node); wide != nullptr)
        PutWide(output, *wide);
}

constexpr bool IsBlank(char32_t c) { return c == U' ' || c == U'\t' || c == U'\n' || c == U'\r'; }

// Whether a reader will find a text: beside children, white space alone is the layout of the document.
bool WritesText(const Node& node)
{
    if (!XmlTree::HasText(node) || !XmlTree::HasChildren(node)) return XmlTree::HasText(node);
    if (const char* const narrow = XmlTree::Narrow(node); narrow != nullptr)
        return narrow[std::strspn(narrow, " \t\n\r")] != '\0';
    const KTWideString& wide = *XmlTree::Wide(node);
    const wchar_t* const end = wide.Str() + wide.Length();
    return !std::all_of(wide.Str(), end, [](wchar_t c) { return IsBlank(static_cast<char32_t>(c)); });
}

void PutLine(XmlOutput& output, std::size_t depth)
{
    output.Put('\n');
    output.Fill(' ', 2 * std::min(depth, deepestIndent));
}

// The start of an element with its text; true when its children and its end are still to come.
bool Open(XmlOutput& output, const Node& node)
{
    output.Relieve();
    output.Put('<');
    PutTag(output, node);
    const bool children = XmlTree::HasChildren(node);
    if (!children && !XmlTree::HasText(node))
    {
        output.Put("/>");
        return false;
    }
    output.Put('>');
    if (WritesText(node)) PutText(output, node);
    return true;
}

void Close(XmlOutput& output, const Node& node)
{
    output.Put("</");
    PutTag(output, node);
    output.Put('>');
}
}  // namespace

bool kt::XmlOutput::Flush()
{
    good = good && Write(buffer);
    buffer.clear();
    return good;
}

bool kt::XmlFileOutput::Write(std::string_view piece)
{
    const std::ptrdiff_t written = KTFiles::Get().WriteAt(file, length, piece.data(), piece.size());
    length += written;
    return written == static_cast<std::ptrdiff_t>(piece.size());
}

void kt::WriteXml(XmlOutput& output, const Node& root, XmlLayout layout)
{
    struct Level
    {
        const Node* node;
        Node::const_iterator next;
        bool lines;  // its children stand on lines of their own
    };
    std::vector<Level> levels;
    const auto enter = [&](const Node& node)
    {
        if (!Open(output, node)) return;
        if (!XmlTree::HasChildren(node))
        {
            Close(output, node);
            return;
        }
        // In an element with a text of its own, blanks between the children would become part of that text.
        levels.push_back({&node, XmlTree::Children(node).begin(), layout == XmlLayout::indented && !WritesText(node)});
    };

    enter(root);
    while (!levels.empty())
    {
        Level& level = levels.back();
        const bool more = level.next != XmlTree::Children(*level.node).end();
        if (level.lines) PutLine(output, more ? levels.size() : levels.size() - 1);
        if (more)
        {
            enter(**level.next++);
            continue;
        }
        Close(output, *level.node);
        levels.pop_back();
    }
}
