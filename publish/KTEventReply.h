// The XML of the services' replies.
#pragma once

#include "host/KTDateTime.h"
#include "host/KTGuid.h"
#include "host/KTString.h"

class KTHttpResponse;

/// Pieces of the reply documents: UTF-8, no white space between elements.
///
/// Errors:  none; what the response does with a piece is the response's business.
/// Threads: stateless.
struct KTEventReply
{
    /// The XML line and the opening tag, each a piece of its own, and the closing tag.
    static void Open(KTHttpResponse& response, const char* root);
    static void Close(KTHttpResponse& response, const char* root);

    /// `<id>`, `<name>`, `<description>` and `<annotation>`, the last from text that is escaped already.
    static void AppendEvent(KTNarrowString& out, const GUID& id, const KTWideString& name,
                            const KTWideString& description, const KTNarrowString& escapedAnnotation);

    /// `<tag>DDMMYYYYhhmmss</tag>` of a UTC date.
    static void AppendDate(KTNarrowString& out, const char* tag, const KTDateTime& utc);

    /// UTF-8, escaped for use as element content.
    static void Escape(KTNarrowString& out, const KTWideString& text);
};
