#include "timetable/KTTimeTableWeek.h"

#include "engine/KTEventSystem.h"

bool KTTimeTableWeek::LoadXml(const XmlDocument::XmlNode* element)
{
    if (!KTTimeTable::LoadXml(element)) return false;
    node = element;
    dayTable = nullptr;
    dayOfWeek = 0;
    return true;
}

bool KTTimeTableWeek::HandsOn(const KTDateTime& when, KTTimeTable*& table)
{
    const int today = when.DayOfWeek();
    if (today != dayOfWeek)
    {
        dayOfWeek = static_cast<std::uint8_t>(today);
        dayTable = nullptr;
        if (node != nullptr)
            if (const XmlDocument::XmlNode* day = node->NodeV(L"/day%d", today))
                dayTable = KTEventSystem::Get().LockTimeTable(day->Value().Str());
    }
    table = dayTable;
    return true;
}
