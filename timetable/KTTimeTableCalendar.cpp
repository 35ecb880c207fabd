#include "timetable/KTTimeTableCalendar.h"

#include "engine/KTEventSystem.h"

bool KTTimeTableCalendar::LoadXml(const XmlDocument::XmlNode* element)
{
    if (!KTTimeTable::LoadXml(element)) return false;
    node = element;
    dayTable = nullptr;
    year = 0;
    month = 0;
    day = 0;
    return true;
}

bool KTTimeTableCalendar::HandsOn(const KTDateTime& when, KTTimeTable*& table)
{
    const int y = when.Year();
    const int m = when.Month();
    const int d = when.Day();
    if (y != year || m != month || d != day)
    {
        year = static_cast<std::uint16_t>(y);
        month = static_cast<std::uint8_t>(m);
        day = static_cast<std::uint8_t>(d);
        dayTable = LookUp(y, m, d);
    }
    table = dayTable;
    return true;
}

KTTimeTable* KTTimeTableCalendar::LookUp(int y, int m, int d) const
{
    if (node == nullptr) return nullptr;
    const XmlDocument::XmlNode* entry = node->NodeV(L"/year?year=%d?", y);
    if (entry != nullptr) entry = entry->NodeV(L"month%d", m);
    if (entry != nullptr) entry = entry->NodeV(L"day%d", d);
    return entry == nullptr ? nullptr : KTEventSystem::Get().LockTimeTable(entry->Value().Str());
}
