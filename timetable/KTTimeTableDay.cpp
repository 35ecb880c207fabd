#include "timetable/KTTimeTableDay.h"

#include "host/KTText.h"

namespace
{
// A bound is its first two and its last two characters, whatever stands between: 08:30, 0830 and 08x30 are the same, and
// a text of two characters serves as both. False when it is too short or out of the day.
bool ParseBound(const KTWideString& text, int& minute)
{
    if (text.Length() < 2) return false;
    KTWideString part;
    KTWideString::SubString(part, text, 0, 2);
    const auto hours = static_cast<unsigned>(_wtoi(part.Str()));
    KTWideString::SubString(part, text, text.Length() - 2, 2);
    const auto minutes = static_cast<unsigned>(_wtoi(part.Str()));
    // Unsigned, so that a negative number fails too.
    if (hours > 24 || minutes > 59 || (hours == 24 && minutes != 0)) return false;
    minute = static_cast<int>(hours * 60 + minutes);
    return true;
}
}  // namespace

bool KTTimeTableDay::LoadXml(const XmlDocument::XmlNode* node)
{
    if (!KTTimeTable::LoadXml(node)) return false;
    excluded.reset();
    for (auto child = node->ChildsBegin(); child != node->ChildsEnd(); ++child)
    {
        if (!((*child)->Tag() == L"slot")) continue;
        int from = 0;
        int to = 0;
        if (!ParseBound((*child)->Value(L"from", L""), from)) continue;
        if (!ParseBound((*child)->Value(L"to", L""), to)) continue;
        for (int minute = from; minute < to; ++minute) excluded.set(static_cast<std::size_t>(minute));
    }
    return true;
}

bool KTTimeTableDay::NeedCheck(const KTDateTime& when)
{
    return !excluded.test(static_cast<std::size_t>(when.Hour() * 60 + when.Minute()));
}
