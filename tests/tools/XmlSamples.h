// Small helpers that the tests of XML share.
#pragma once

#include <string>

#include "host/XmlDocument.h"

inline std::string CodeOf(const XmlDocument& document)
{
    KTNarrowString out("old");
    document.CreateXmlCode(out, false);
    return {out.Str(), static_cast<std::size_t>(out.Length())};
}

inline std::string CodeOf(const XmlDocument::XmlNode& node)
{
    KTNarrowString out("old");
    node.CreateXmlCode(out);
    return {out.Str(), static_cast<std::size_t>(out.Length())};
}

inline XmlDocument Parsed(const std::string& text)
{
    XmlDocument document;
    if (!document.Parse(text.c_str())) document.Create(L"this-did-not-parse");
    return document;
}

/// `<a><a>…</a></a>`, that many levels.
inline std::string Nested(int depth)
{
    std::string text;
    for (int i = 0; i < depth; ++i) text += "<a>";
    for (int i = 0; i < depth; ++i) text += "</a>";
    return text;
}
