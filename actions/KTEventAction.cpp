#include "actions/KTEventAction.h"

#include <span>

#include "actions/KTEventActionMail.h"
#include "host/KTGuid.h"
#include "host/KTText.h"

namespace
{
using Factory = std::unique_ptr<KTEventAction> (*)(CObject* event);

struct Kind
{
    const wchar_t* tag;
    Factory make;
};

template <class Action>
std::unique_ptr<KTEventAction> Make(CObject* event)
{
    return std::make_unique<Action>(event);
}

// One row a kind, in the order in which the tags are tried.
std::span<const Kind> Kinds()
{
    static constexpr Kind kinds[] = {
        {L"mail", Make<KTEventActionMail>},
    };
    return kinds;
}
}  // namespace

KTEventAction::KTEventAction(CObject* event) : parent(event)
{
    GUID guid;
    char text[guidTextSize] = {};
    NewGUID(guid);
    id = guidtoc(guid, text);
}

bool KTEventAction::LoadXml(const XmlDocument::XmlNode* node)
{
    const KTWideString text = node->Value(L"id", L"");
    if (!text.Empty()) Utf16ToUtf8(id, text);
    return true;
}

bool KTEventAction::ProcessHttpServiceEventsActions(KTNarrowString& fragment)
{
    fragment += "<id>";
    fragment += id;
    fragment += "</id>";
    return true;
}

std::unique_ptr<KTEventAction> KTEventAction::Create(const wchar_t* tag, CObject* event)
{
    for (const Kind& kind : Kinds())
        if (KTWideChar::Compare(kind.tag, tag) == 0) return kind.make(event);
    return nullptr;
}
