#include "publish/KTEventReply.h"

#include "host/KTHttp.h"
#include "host/KTText.h"

namespace
{
void AppendElement(KTNarrowString& out, const char* tag, const char* content)
{
    out += '<';
    out += tag;
    out += '>';
    out += content;
    out += "</";
    out += tag;
    out += '>';
}
}  // namespace

void KTEventReply::Open(KTHttpResponse& response, const char* root)
{
    response.Write("<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>", -1);
    KTNarrowString head("<", true);
    head += root;
    head += '>';
    response.Write(head);
}

void KTEventReply::Close(KTHttpResponse& response, const char* root)
{
    KTNarrowString tail("</", true);
    tail += root;
    tail += '>';
    response.Write(tail);
}

void KTEventReply::AppendEvent(KTNarrowString& out, const GUID& id, const KTWideString& name,
                               const KTWideString& description, const KTNarrowString& escapedAnnotation)
{
    char guid[guidTextSize];
    KTNarrowString text;
    AppendElement(out, "id", guidtoc(id, guid));
    Escape(text, name);
    AppendElement(out, "name", text.Str());
    Escape(text, description);
    AppendElement(out, "description", text.Str());
    AppendElement(out, "annotation", escapedAnnotation.Str());
}

void KTEventReply::AppendDate(KTNarrowString& out, const char* tag, const KTDateTime& utc)
{
    KTNarrowString text;
    DateTime2String(text, utc, false, false);
    AppendElement(out, tag, text.Str());
}

void KTEventReply::Escape(KTNarrowString& out, const KTWideString& text)
{
    KTNarrowString plain;
    Utf16ToUtf8(plain, text);
    Text2Xml(out, plain);
}
