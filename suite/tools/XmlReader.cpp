#include "suite/tools/XmlReader.h"

#include <expat.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

#include "host/KTFiles.h"
#include "suite/tools/KTScratch.h"
#include "suite/tools/KTUnicode.h"

namespace
{
constexpr int pieceSize = 256 * 1024;                 // bytes read at once
constexpr std::size_t textLimit = 256 * 1024 * 1024;  // bytes of one text, so that its wide form stays below 32 bits
// Entities that name entities make the parser recurse once a level; no document of ours declares any.
constexpr int entityLimit = 256;

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
}  // namespace

namespace kt
{
/// What the parser calls. Nothing may be thrown through it: it is C.
struct XmlReader::Handlers
{
    static void XMLCALL Start(void* reader, const XML_Char* tag, const XML_Char**)
    {
        auto& self = *static_cast<XmlReader*>(reader);
        Guarded(self, [&] { self.Start(tag); });
    }
    static void XMLCALL End(void* reader, const XML_Char*)
    {
        auto& self = *static_cast<XmlReader*>(reader);
        Guarded(self, [&] { self.End(); });
    }
    static void XMLCALL Characters(void* reader, const XML_Char* characters, int length)
    {
        auto& self = *static_cast<XmlReader*>(reader);
        Guarded(self, [&] { self.text.insert(self.text.end(), characters, characters + length); });
    }
    static void XMLCALL Entity(void* reader, const XML_Char*, int, const XML_Char*, int, const XML_Char*,
                               const XML_Char*, const XML_Char*, const XML_Char*)
    {
        auto& self = *static_cast<XmlReader*>(reader);
        if (++self.entities > entityLimit) self.Fail();
    }
    // A text that would be missing without a word: the document says more than can be known.
    static int XMLCALL OuterEntity(XML_Parser, const XML_Char*, const XML_Char*, const XML_Char*, const XML_Char*)
    {
        return XML_STATUS_ERROR;
    }
    static void XMLCALL Skipped(void* reader, const XML_Char*, int) { static_cast<XmlReader*>(reader)->Fail(); }

    template <class Work>
    static void Guarded(XmlReader& self, Work work)
    {
        if (self.failed) return;
        try
        {
            work();
        }
        catch (const std::bad_alloc&)
        {
            self.Fail();
        }
    }
};

XmlReader::XmlReader(XmlStore& into) : store(into), parser(XML_ParserCreate(nullptr))
{
    if (parser == nullptr) return;
    XML_SetUserData(parser, this);
    XML_SetElementHandler(parser, Handlers::Start, Handlers::End);
    XML_SetCharacterDataHandler(parser, Handlers::Characters);
    XML_SetEntityDeclHandler(parser, Handlers::Entity);
    XML_SetExternalEntityRefHandler(parser, Handlers::OuterEntity);
    XML_SetSkippedEntityHandler(parser, Handlers::Skipped);
}

XmlReader::~XmlReader()
{
    if (parser != nullptr) XML_ParserFree(parser);
}

void XmlReader::Fail()
{
    failed = true;
    (void)XML_StopParser(parser, XML_FALSE);
}

const KTWideString* XmlReader::TagOf(const char* tag)
{
    const std::size_t length = std::strlen(tag);
    Scratch<wchar_t> scratch(length);
    wchar_t* p = scratch.Data();
    for (const char* const end = tag + length; tag != end;) p = PutWide(p, NextUtf8(tag, end));
    return store.Intern(scratch.Data(), static_cast<int>(p - scratch.Data()));
}

void XmlReader::Start(const char* tag)
{
    XmlDocument::XmlNode* const node = XmlTree::NewNode(store, TagOf(tag));
    if (levels.empty())
        root = node;
    else
        XmlTree::Append(store, *levels.back().node, node);
    levels.push_back({node, text.size()});
}

void XmlReader::End()
{
    const Level level = levels.back();
    const char* const begin = text.data() + level.textStart;
    const std::size_t length = text.size() - level.textStart;
    if (length > textLimit)
    {
        Fail();
        return;
    }
    // Between child elements, white space is the layout of the document.
    const bool layout = XmlTree::HasChildren(*level.node) && std::all_of(begin, begin + length, IsBlank);
    if (!layout) XmlTree::SetNarrow(store, *level.node, begin, length);
    text.resize(level.textStart);
    levels.pop_back();
}

bool XmlReader::Read(const char* document, std::size_t length)
{
    if (parser == nullptr) return false;
    for (;;)
    {
        const std::size_t piece = std::min<std::size_t>(length, std::numeric_limits<int>::max() / 2);
        const bool last = piece == length;
        if (XML_Parse(parser, document, static_cast<int>(piece), last) != XML_STATUS_OK || failed) return false;
        if (last) return true;
        document += piece;
        length -= piece;
    }
}

bool XmlReader::ReadFile(int file)
{
    if (parser == nullptr) return false;
    for (std::int64_t offset = 0;;)
    {
        void* const room = XML_GetBuffer(parser, pieceSize);
        if (room == nullptr) return false;
        const std::ptrdiff_t got = KTFiles::Get().ReadAt(file, offset, room, pieceSize);
        if (got < 0) return false;
        if (XML_ParseBuffer(parser, static_cast<int>(got), got == 0) != XML_STATUS_OK || failed) return false;
        if (got == 0) return true;
        offset += got;
    }
}

std::string XmlReader::Fault() const
{
    if (parser == nullptr) return "out of memory";
    const XML_Error code = XML_GetErrorCode(parser);
    if (code == XML_ERROR_NONE) return "it can't be read";
    // Our own refusals stop the parser, which then knows no better reason.
    const char* const reason =
        code == XML_ERROR_ABORTED ? "refused for its entities or its size" : XML_ErrorString(code);
    return "line " + std::to_string(XML_GetCurrentLineNumber(parser)) + ": " + reason;
}
}  // namespace kt
