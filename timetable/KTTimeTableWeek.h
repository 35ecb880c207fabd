// A table for each day of the week.
#pragma once

#include <cstdint>

#include "timetable/KTTimeTable.h"

/// A week table: `day1` (Sunday) to `day7` (Saturday) name the tables in force. A day without one is always checked.
class KTTimeTableWeek : public KTTimeTable
{
public:
    bool LoadXml(const XmlDocument::XmlNode* element) override;
    bool NeedCheck(const KTDateTime& when) override { return FollowAndCheck(when); }

protected:
    bool HandsOn(const KTDateTime& when, KTTimeTable*& table) override;

private:
    KTTimeTable* dayTable = nullptr;             // not owned: the table for dayOfWeek
    std::uint8_t dayOfWeek = 0;                  // what dayTable was looked up for; 0 is no day
    const XmlDocument::XmlNode* node = nullptr;  // not owned: the document outlives us
};
