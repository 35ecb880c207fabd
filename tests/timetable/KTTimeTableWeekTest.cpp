#include "timetable/KTTimeTableWeek.h"

#include <gtest/gtest.h>

#include "support/TestTables.h"

namespace
{
// One table a weekday, which excludes the hour of its number: 1 on Sunday to 7 on Saturday.
std::string HourTables()
{
    std::string days;
    for (int day = 1; day <= 7; ++day)
    {
        const std::string digit = std::to_string(day);
        days += TableXml("day", "{" + digit + "}", "Day " + digit,
                         SlotXml("0" + digit + ":00", "0" + std::to_string(day + 1) + ":00"));
    }
    return days;
}

KTDateTime OfMarch(int day, int hour, int minute = 0, int second = 0)
{
    return Date(2024, 3, day, hour, minute, second);
}

bool Sleeps(KTTimeTable* table, const KTDateTime& when) { return !table->NeedCheck(when); }

// Changes what a weekday of the first week names.
void Rename(TestTables& tables, const wchar_t* day, const wchar_t* table)
{
    tables.document.Root()->Node(L"weeks/week")->SetValue(day, table);
}
}  // namespace

TEST(KTTimeTableWeek, Day1IsSundayAndDay7Saturday)
{
    std::string entries;
    for (int day = 1; day <= 7; ++day) entries += Element("day" + std::to_string(day), "{" + std::to_string(day) + "}");
    TestTables tables(HourTables(), TableXml("week", "W", "Week", entries));
    KTTimeTable* const week = tables.Find("W");
    ASSERT_NE(week, nullptr);
    for (int day = 1; day <= 7; ++day)
        for (int hour = 0; hour < 24; ++hour)  // 10 March 2024 was a Sunday
            EXPECT_EQ(Sleeps(week, OfMarch(9 + day, hour)), hour == day) << "day" << day << ", hour " << hour;
}

TEST(KTTimeTableWeek, NamesATableByIdOrName)
{
    TestTables tables(HourTables(), TableXml("week", "W", "Week", Element("day1", "Day 3") + Element("day2", "{3}")));
    EXPECT_TRUE(Sleeps(tables.Find("W"), OfMarch(10, 3)));
    EXPECT_TRUE(Sleeps(tables.Find("W"), OfMarch(11, 3)));
}

TEST(KTTimeTableWeek, ADayWithoutATableIsAlwaysChecked)
{
    TestTables tables(HourTables(),
                      TableXml("week", "W", "Week", Element("day1", "{1}") + Element("day2", "{gone}") + "<day3/>"));
    for (int hour = 0; hour < 24; ++hour)
    {
        EXPECT_FALSE(Sleeps(tables.Find("W"), OfMarch(11, hour))) << "names no table";
        EXPECT_FALSE(Sleeps(tables.Find("W"), OfMarch(12, hour))) << "names nothing";
        EXPECT_FALSE(Sleeps(tables.Find("W"), OfMarch(13, hour))) << "has no entry";
    }
}

TEST(KTTimeTableWeek, ChangesAtTheFirstScanOfTheNewDay)
{
    TestTables tables(TableXml("day", "D", "D", SlotXml("00:00", "24:00")),
                      TableXml("week", "W", "Week", Element("day2", "D")));
    KTTimeTable* const week = tables.Find("W");
    EXPECT_FALSE(Sleeps(week, OfMarch(10, 23, 59, 59)));
    EXPECT_TRUE(Sleeps(week, OfMarch(11, 0))) << "the new table applies to that very scan";
    EXPECT_TRUE(Sleeps(week, OfMarch(11, 23, 59, 59)));
    EXPECT_FALSE(Sleeps(week, OfMarch(12, 0)));
}

TEST(KTTimeTableWeek, LooksInTheDocumentOncePerDay)
{
    TestTables tables(HourTables(), TableXml("week", "W", "Week", Element("day1", "{1}")));
    KTTimeTable* const week = tables.Find("W");
    EXPECT_TRUE(Sleeps(week, OfMarch(10, 1)));
    Rename(tables, L"day1", L"{5}");
    EXPECT_TRUE(Sleeps(week, OfMarch(10, 1))) << "the same day";
    EXPECT_TRUE(Sleeps(week, OfMarch(17, 1))) << "the same day of the week, with no other looked at in between";
    EXPECT_FALSE(Sleeps(week, OfMarch(18, 5)));
    EXPECT_TRUE(Sleeps(week, OfMarch(17, 5))) << "looked up again after another day";
}

TEST(KTTimeTableWeek, LoadingAgainForgetsTheDay)
{
    TestTables tables(HourTables(), TableXml("week", "W", "Week", Element("day1", "{1}")));
    KTTimeTable* const week = tables.Find("W");
    EXPECT_TRUE(Sleeps(week, OfMarch(10, 1)));
    Rename(tables, L"day1", L"{5}");
    ASSERT_TRUE(week->LoadXml(tables.document.Root()->Node(L"weeks/week")));
    EXPECT_TRUE(Sleeps(week, OfMarch(10, 5)));
}

TEST(KTTimeTableWeek, IsRefusedWithoutIdOrName)
{
    TestTables tables("", TableXml("week", "", "Nameless id") + TableXml("week", "W", "") + TableXml("week", "V", "V"));
    EXPECT_EQ(tables.Find("Nameless id"), nullptr);
    EXPECT_EQ(tables.Find("W"), nullptr);
    EXPECT_NE(tables.Find("V"), nullptr);
}

TEST(KTTimeTableWeek, WithoutAnElementIsAlwaysChecked)
{
    KTTimeTableWeek week;
    EXPECT_TRUE(week.NeedCheck(OfMarch(10, 12)));
}
