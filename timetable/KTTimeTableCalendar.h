// A table for single dates.
#pragma once

#include <cstdint>

#include "timetable/KTTimeTable.h"

/// A calendar table: year, month and day name the table in force. A date without one is always checked.
class KTTimeTableCalendar : public KTTimeTable
{
public:
    bool LoadXml(const XmlDocument::XmlNode* element) override;
    bool NeedCheck(const KTDateTime& when) override { return FollowAndCheck(when); }

protected:
    bool HandsOn(const KTDateTime& when, KTTimeTable*& table) override;

private:
    [[nodiscard]] KTTimeTable* LookUp(int y, int m, int d) const;

    KTTimeTable* dayTable = nullptr;  // not owned: the table for the cached date
    std::uint16_t year = 0;           // what dayTable was looked up for
    std::uint8_t month = 0;
    std::uint8_t day = 0;
    const XmlDocument::XmlNode* node = nullptr;  // not owned: the document outlives us
};
