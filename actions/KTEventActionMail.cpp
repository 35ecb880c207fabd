#include "actions/KTEventActionMail.h"

#include "actions/KTEventActionMailQueue.h"
#include "engine/KTEventDriver.h"
#include "engine/KTEventObserver.h"
#include "host/KTCorvaneSetup.h"
#include "host/KTNumberFormat.h"
#include "host/KTText.h"

namespace
{
constexpr wchar_t elementTag[] = L"mail";

void AppendDate(KTWideString& out, const KTDateTime& date)
{
    using Order = KTLocaleInformation::DateOrder;
    const KTLocaleInformation& locale = LocaleInformationWide();
    const int separator = locale.dateSeparator;
    const int year = date.Year();
    const int month = date.Month();
    const int day = date.Day();
    wchar_t text[64];
    if (locale.dateOrder == Order::mdy)
        KTFormat(text, 64, L"%d%c%d%c%04d", month, separator, day, separator, year);
    else if (locale.dateOrder == Order::dmy)
        KTFormat(text, 64, L"%d%c%d%c%04d", day, separator, month, separator, year);
    else
        KTFormat(text, 64, L"%04d%c%d%c%d", year, separator, month, separator, day);
    out += text;
}

void AppendTime(KTWideString& out, const KTDateTime& date)
{
    const int separator = LocaleInformationWide().timeSeparator;
    wchar_t text[64];
    KTFormat(text, 64, L"%d%c%02d%c%02d", date.Hour(), separator, date.Minute(), separator, date.Second());
    out += text;
}

void AppendPhase(KTWideString& out, int phase, const KTWideString& eventName)
{
    static constexpr int textIds[KTEventAction::phases] = {34154, 34157, 34156, 34155};
    if (phase < 0 || phase >= KTEventAction::phases) return;
    KTWideString format;
    KTLoadString(textIds[phase], format);
    std::vector<wchar_t> text(static_cast<std::size_t>(format.Length() + eventName.Length() + 1));
    KTFormat(text.data(), static_cast<int>(text.size()), format.Str(), eventName.Str());
    out += text.data();
}

KTNarrowString Subject(const KTDateTime& now, int phase, const KTWideString& eventName)
{
    KTWideString subject(KTWideString::growSmall);
    subject += KTCorvaneSetup::Get().ProgramName();
    subject += L" - ";
    AppendDate(subject, now);
    subject += L' ';
    AppendTime(subject, now);
    subject += L" - ";
    AppendPhase(subject, phase, eventName);
    KTNarrowString narrow;
    Utf16ToUtf8(narrow, subject);
    return narrow;
}
}  // namespace

int KTEventActionMail::mailQueueUsers = 0;
KTEventActionMailQueue* KTEventActionMail::mailQueue = nullptr;

KTEventActionMail::KTEventActionMail(CObject* event) : KTEventAction(event)
{
    // No lock: actions are made and destroyed only while a configuration loads or goes.
    if (mailQueueUsers++ == 0) mailQueue = new KTEventActionMailQueue;
}

KTEventActionMail::~KTEventActionMail()
{
    if (--mailQueueUsers > 0) return;
    delete mailQueue;
    mailQueue = nullptr;
}

bool KTEventActionMail::LoadXml(const XmlDocument::XmlNode* node)
{
    if (KTWideChar::Compare(node->Tag().Str(), elementTag) != 0) return false;
    if (!KTEventAction::LoadXml(node)) return false;
    message = node->Value(L"message", L"");
    addresses.clear();
    for (auto child = node->ChildsBegin(); child != node->ChildsEnd(); ++child)
    {
        if (KTWideChar::Compare((*child)->Tag().Str(), L"address") != 0) continue;
        KTNarrowString address;
        Utf16ToUtf8(address, (*child)->Value());
        if (!address.Empty()) addresses.push_back(address);
    }
    return !addresses.empty();
}

bool KTEventActionMail::Execute(int phase)
{
    const KTDateTime now = KTDateTime::LTC();
    auto* const event = static_cast<KTEventDriver*>(Parent());
    const KTNarrowString subject = Subject(now, phase, event->Name());
    // Expanded now, with the values of this moment, and not when the mail goes out.
    KTWideString expanded;
    (void)event->ParseAnnotation(expanded, message);  // always true
    KTNarrowString text;
    Utf16ToUtf8(text, expanded);
    KTEventObserver* const observer = KTEventObserver::Installed();
    if (observer != nullptr && observer->TakesMail(*event, phase, addresses, subject, text)) return true;
    return mailQueue->Add(addresses, subject.Str(), text.Str());
}

bool KTEventActionMail::ProcessHttpServiceEventsActions(KTNarrowString& /*fragment*/) { return false; }
