#include "timetable/KTTimeTableDay.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <bitset>
#include <list>
#include <vector>

#include "support/TestConfig.h"

namespace
{
KTDateTime At(int minuteOfDay, int second = 0) { return Date(2024, 3, 10, minuteOfDay / 60, minuteOfDay % 60, second); }

// A day table of the slots given as XML.
class DayTable
{
public:
    explicit DayTable(const std::string& slots)
    {
        loaded = document.Parse(TableXml("day", "{D}", "Day", slots).c_str()) && table.LoadXml(document.Root());
    }

    bool NeedCheck(int minuteOfDay) { return table.NeedCheck(At(minuteOfDay)); }

    XmlDocument document;
    KTTimeTableDay table;
    bool loaded = false;
};

std::string Clock(int minute)
{
    char text[16];
    KTFormat(text, sizeof text, "%02d:%02d", minute / 60, minute % 60);
    return text;
}

struct Slot
{
    int from;
    int to;
};

std::string SlotsXml(const std::vector<Slot>& slots)
{
    std::string xml;
    for (const Slot& slot : slots) xml += SlotXml(Clock(slot.from), Clock(slot.to));
    return xml;
}

// A list of slots in ascending order of their start, where a slot that comes late stands in front of every later one, and
// a look that stops at the first later start: slow, and by the definition of the order.
class ListOfSlots
{
public:
    void Add(Slot fresh)
    {
        if (fresh.from > fresh.to) return;
        bool linked = false;
        for (auto place = slots.begin(); place != slots.end(); ++place)
        {
            if (place->from <= fresh.from) continue;
            slots.insert(place, fresh);
            linked = true;
        }
        if (!linked) slots.push_back(fresh);
    }

    [[nodiscard]] bool NeedCheck(int minute) const
    {
        for (const Slot& slot : slots)
        {
            if (slot.from <= minute && minute < slot.to) return false;
            if (slot.from > minute) return true;
        }
        return true;
    }

private:
    std::list<Slot> slots;
};
}  // namespace

TEST(KTTimeTableDay, ASlotExcludesItsStartAndNotItsEnd)
{
    DayTable day(SlotXml("08:30", "10:00"));
    ASSERT_TRUE(day.loaded);
    const struct
    {
        const char* at;
        int minute;
        bool check;
    } rows[] = {
        {"before", 8 * 60 + 29, true},
        {"t equal to from is inside", 8 * 60 + 30, false},
        {"inside", 9 * 60, false},
        {"the last minute", 9 * 60 + 59, false},
        {"t equal to to is outside", 600, true},
        {"after", 10 * 60 + 1, true},
        {"the day's first", 0, true},
        {"the day's last", 23 * 60 + 59, true},
    };
    for (const auto& row : rows) EXPECT_EQ(day.NeedCheck(row.minute), row.check) << row.at;
}

TEST(KTTimeTableDay, SecondsDoNotCount)
{
    DayTable day(SlotXml("08:00", "10:00"));
    EXPECT_TRUE(day.table.NeedCheck(At(7 * 60 + 59, 59)));
    EXPECT_FALSE(day.table.NeedCheck(At(8 * 60, 0)));
    EXPECT_FALSE(day.table.NeedCheck(At(9 * 60 + 59, 59)));
    EXPECT_TRUE(day.table.NeedCheck(KTDateTime(2024, 3, 10, 10, 0, 0, 0, 1)));
}

TEST(KTTimeTableDay, TheDateDoesNotCount)
{
    DayTable day(SlotXml("08:00", "10:00"));
    for (const int dayOfMonth : {1, 10, 29}) EXPECT_FALSE(day.table.NeedCheck(Date(2024, 2, dayOfMonth, 9)));
}

TEST(KTTimeTableDay, ASlotFrom00To24ExcludesTheWholeDay)
{
    DayTable day(SlotXml("00:00", "24:00"));
    for (int minute = 0; minute < 1440; ++minute) ASSERT_FALSE(day.NeedCheck(minute)) << minute;
}

TEST(KTTimeTableDay, ADayWithoutSlotsNeverExcludes)
{
    DayTable day("");
    ASSERT_TRUE(day.loaded);
    for (int minute = 0; minute < 1440; ++minute) ASSERT_TRUE(day.NeedCheck(minute)) << minute;
}

TEST(KTTimeTableDay, OverlappingSlotsBothExclude)
{
    // At 11:00 the first slot is over, and the second still holds.
    DayTable day(SlotXml("08:00", "10:00") + SlotXml("09:00", "12:00"));
    EXPECT_FALSE(day.NeedCheck(9 * 60 + 30));
    EXPECT_FALSE(day.NeedCheck(11 * 60));
    EXPECT_TRUE(day.NeedCheck(12 * 60));
}

TEST(KTTimeTableDay, AnEmptySlotExcludesNothingAndHidesNothing)
{
    DayTable day(SlotXml("09:00", "09:00") + SlotXml("08:00", "10:00"));
    EXPECT_FALSE(day.NeedCheck(9 * 60));
    DayTable empty(SlotXml("09:00", "09:00"));
    EXPECT_TRUE(empty.NeedCheck(9 * 60));
}

TEST(KTTimeTableDay, ReadsABoundByItsFirstTwoAndItsLastTwoCharacters)
{
    // Each text as the start of a slot to 24:00; the minute at which the slot begins, or -1 for a dropped slot.
    const struct
    {
        const char* text;
        int minute;
    } rows[] = {
        {"08:30", 510},  {"0830", 510},   {"08x30", 510}, {"08 h 30", 510}, {"12", 12 * 60 + 12}, {"8:05", 485},
        {"8:5", 480},    {"ab:30", 30},   {"12:cd", 720}, {"xy", 0},        {" 8:30", 510},       {"+8:30", 510},
        {"24:00", 1440}, {"23:59", 1439}, {"00:00", 0},   {"24", -1},       {"24:30", -1},        {"24:01", -1},
        {"25:00", -1},   {"12:60", -1},   {"99:99", -1},  {"-1:30", -1},    {"12:-1", -1},        {"", -1},
        {"8", -1},       {"-0:30", 30},
    };
    for (const auto& row : rows)
    {
        DayTable day(SlotXml(row.text, "24:00"));
        ASSERT_TRUE(day.loaded) << row.text;
        int first = -1;
        for (int minute = 1439; minute >= 0; --minute)
            if (!day.NeedCheck(minute)) first = minute;
        // A slot that starts at its end excludes nothing.
        EXPECT_EQ(first, row.minute == 1440 ? -1 : row.minute) << '"' << row.text << '"';
    }
}

TEST(KTTimeTableDay, DropsABadSlotAndKeepsTheOthers)
{
    const char* const badSlots[] = {
        "<slot><from>24:30</from><to>24:00</to></slot>",  // a start out of the day
        "<slot><from>00:00</from><to>24:30</to></slot>",  // an end out of the day
        "<slot><from>00:00</from><to>12:75</to></slot>",  // minutes out of the hour
        "<slot><from>22:00</from><to>06:00</to></slot>",  // a start behind its end
        "<slot><from>0</from><to>24:00</to></slot>",      // a start of one character
        "<slot><from>00:00</from><to>9</to></slot>",      // an end of one character
        "<slot><to>24:00</to></slot>",                    // no start
        "<slot><from>00:00</from></slot>",                // no end
        "<slot/>",                                        // nothing at all
        "<Slot><from>00:00</from><to>24:00</to></Slot>",  // another tag
        "<from>00:00</from><to>24:00</to>",               // bounds without a slot
    };
    for (const char* bad : badSlots)
    {
        DayTable day(SlotXml("08:00", "09:00") + bad + SlotXml("10:00", "11:00"));
        ASSERT_TRUE(day.loaded) << bad;
        for (int minute = 0; minute < 1440; ++minute)
        {
            const bool inside = (480 <= minute && minute < 540) || (600 <= minute && minute < 660);
            ASSERT_EQ(day.NeedCheck(minute), !inside) << bad << " at " << Clock(minute);
        }
    }
}

TEST(KTTimeTableDay, IsRefusedWithoutIdOrName)
{
    const struct
    {
        const char* xml;
        bool kept;
    } rows[] = {
        {"<day><id>a</id><name>b</name></day>", true}, {"<day><name>b</name></day>", false},
        {"<day><id/><name>b</name></day>", false},     {"<day><id>a</id></day>", false},
        {"<day><id>a</id><name></name></day>", false}, {"<day/>", false},
    };
    for (const auto& row : rows)
    {
        XmlDocument document;
        ASSERT_TRUE(document.Parse(row.xml));
        EXPECT_EQ(KTTimeTableDay().LoadXml(document.Root()), row.kept) << row.xml;
    }
}

TEST(KTTimeTableDay, KeepsIdAndNameAsTheyStand)
{
    DayTable day("<color>FFFFFF</color>");
    EXPECT_EQ(day.table.id, L"{D}");  // not converted to an identifier
    EXPECT_EQ(day.table.name, L"Day");
}

RC_GTEST_PROP(KTTimeTableDay, AgreesWithABooleanForEachMinute, ())
{
    const auto slots = *rc::gen::container<std::vector<Slot>>(
        rc::gen::map(rc::gen::pair(rc::gen::inRange(0, 1441), rc::gen::inRange(0, 1441)),
                     [](const std::pair<int, int>& bounds) {
                         return Slot{bounds.first, bounds.second};
                     }));
    std::bitset<1440> excluded;
    for (const Slot& slot : slots)
        for (int minute = slot.from; minute < slot.to; ++minute) excluded.set(static_cast<std::size_t>(minute));
    DayTable day(SlotsXml(slots));
    RC_LOG() << SlotsXml(slots) << '\n';
    RC_ASSERT(day.loaded);
    for (int minute = 0; minute < 1440; ++minute)
        if (day.NeedCheck(minute) == excluded.test(static_cast<std::size_t>(minute)))
            RC_FAIL("differs at " + Clock(minute));
}

RC_GTEST_PROP(KTTimeTableDay, AgreesWithASortedListThatIsLeftAtTheFirstLaterSlot, ())
{
    // A slot out of order stands in the list once for each later one, so that descending slots double it each time: at
    // most ten.
    const auto count = *rc::gen::inRange<std::size_t>(0, 11);
    const auto slots = *rc::gen::container<std::vector<Slot>>(
        count, rc::gen::map(rc::gen::pair(rc::gen::inRange(0, 60), rc::gen::inRange(0, 60)),
                            [](const std::pair<int, int>& bounds) {
                                return Slot{bounds.first, bounds.second};
                            }));
    ListOfSlots list;
    for (const Slot& slot : slots) list.Add(slot);
    DayTable day(SlotsXml(slots));
    RC_LOG() << SlotsXml(slots) << '\n';
    RC_ASSERT(day.loaded);
    for (int minute = 0; minute < 64; ++minute)
        if (day.NeedCheck(minute) != list.NeedCheck(minute)) RC_FAIL("differs at " + Clock(minute));
}

TEST(KTTimeTableDay, AgreesWithTheListForSlotsInDescendingOrder)
{
    std::vector<Slot> slots;
    ListOfSlots list;
    for (int from = 140; from > 0; from -= 10)
    {
        slots.push_back({from, from + 5});
        list.Add(slots.back());
    }
    DayTable day(SlotsXml(slots));
    for (int minute = 0; minute < 200; ++minute) EXPECT_EQ(day.NeedCheck(minute), list.NeedCheck(minute)) << minute;
}
