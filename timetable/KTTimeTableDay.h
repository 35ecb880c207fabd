// Slots of a day in which events aren't looked at.
#pragma once

#include <bitset>

#include "timetable/KTTimeTable.h"

/// A day table. A slot's start is inside, its end outside.
///
/// Units: minutes of the local day, 0 to 1439; seconds don't count.
class KTTimeTableDay : public KTTimeTable
{
public:
    static constexpr int minutesOfDay = 24 * 60;

    /// A bad slot (an unreadable bound, or a start behind its end) is dropped; the table stands.
    bool LoadXml(const XmlDocument::XmlNode* node) override;
    bool NeedCheck(const KTDateTime& when) override;

private:
    // A minute a bit instead of a list of slots: overlapping slots need no order, and a look costs the same whatever the
    // document holds.
    std::bitset<minutesOfDay> excluded;
};
