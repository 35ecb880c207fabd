#include "timetable/KTTimeTableCalendar.h"

#include <gtest/gtest.h>

#include "support/TestTables.h"

namespace
{
const std::string tablesOfDays = TableXml("day", "{morning}", "Morning", SlotXml("00:00", "12:00")) +
                                 TableXml("day", "{evening}", "Evening", SlotXml("12:00", "24:00")) +
                                 TableXml("day", "{all}", "All", SlotXml("00:00", "24:00"));

std::string Year(int year, const std::string& months)
{
    return Element("year", Element("year", std::to_string(year)) + months);
}
std::string Month(int month, const std::string& days) { return Element("month" + std::to_string(month), days); }
std::string Day(int day, const std::string& table) { return Element("day" + std::to_string(day), table); }

class KTTimeTableCalendarTest : public testing::Test
{
protected:
    void Load(const std::string& years)
    {
        tables = std::make_unique<TestTables>(tablesOfDays, "", TableXml("calendar", "C", "Calendar", years));
        calendar = tables->Find("C");
        ASSERT_NE(calendar, nullptr);
    }

    [[nodiscard]] bool Sleeps(const KTDateTime& when) const { return !calendar->NeedCheck(when); }

    std::unique_ptr<TestTables> tables;
    KTTimeTable* calendar = nullptr;
};
}  // namespace

TEST_F(KTTimeTableCalendarTest, FindsTheTableByYearMonthAndDay)
{
    Load(Year(2023, Month(12, Day(31, "{evening}"))) +
         Year(2024, Month(1, Day(1, "{morning}")) + Month(2, Day(29, "{all}"))));
    const struct
    {
        KTDateTime when;
        bool sleeps;
    } rows[] = {
        {Date(2023, 12, 31, 11, 59, 59), false}, {Date(2023, 12, 31, 12), true},
        {Date(2023, 12, 31, 23, 59, 59), true},  {Date(2024, 1, 1), true},
        {Date(2024, 1, 1, 12), false},           {Date(2024, 1, 2), false},
        {Date(2024, 2, 29, 18), true},           {Date(2024, 2, 28, 18), false},
        {Date(2024, 3, 1, 18), false},           {Date(2023, 1, 1), false},
        {Date(2024, 12, 31, 18), false},
    };
    for (const auto& row : rows) EXPECT_EQ(Sleeps(row.when), row.sleeps) << Text(row.when);
}

TEST_F(KTTimeTableCalendarTest, ADateThatTheDocumentDoesNotHoldIsAlwaysChecked)
{
    Load(Year(2024, Month(3, Day(10, "{all}") + Day(12, "{gone}") + Day(13, ""))));
    EXPECT_TRUE(Sleeps(Date(2024, 3, 10, 9)));
    EXPECT_FALSE(Sleeps(Date(2025, 3, 10, 9))) << "a year that the document doesn't hold";
    EXPECT_FALSE(Sleeps(Date(2024, 4, 10, 9))) << "no such month";
    EXPECT_FALSE(Sleeps(Date(2024, 3, 11, 9))) << "no such day";
    EXPECT_FALSE(Sleeps(Date(2024, 3, 12, 9))) << "an entry that names no table";
    EXPECT_FALSE(Sleeps(Date(2024, 3, 13, 9))) << "an entry that names nothing";
}

TEST_F(KTTimeTableCalendarTest, ACalendarWithoutEntriesIsAlwaysChecked)
{
    Load("");
    EXPECT_FALSE(Sleeps(Date(2024, 3, 10, 9)));
}

TEST_F(KTTimeTableCalendarTest, NamesATableByIdOrName)
{
    Load(Year(2024, Month(3, Day(10, "All") + Day(11, "{all}") + Day(12, "all"))));
    EXPECT_TRUE(Sleeps(Date(2024, 3, 10)));
    EXPECT_TRUE(Sleeps(Date(2024, 3, 11)));
    EXPECT_FALSE(Sleeps(Date(2024, 3, 12))) << "case counts";
}

TEST_F(KTTimeTableCalendarTest, OfTwoYearsOfOneNumberTheFirstCounts)
{
    Load(Year(2024, Month(3, Day(10, "{morning}"))) + Year(2024, Month(3, Day(10, "{evening}") + Day(11, "{all}"))));
    EXPECT_TRUE(Sleeps(Date(2024, 3, 10, 6)));
    EXPECT_FALSE(Sleeps(Date(2024, 3, 10, 18)));
    EXPECT_FALSE(Sleeps(Date(2024, 3, 11, 6)));
}

TEST_F(KTTimeTableCalendarTest, ChangesAtTheFirstScanOfTheNewDate)
{
    Load(Year(2023, Month(12, Day(31, "{all}"))) + Year(2024, Month(1, Day(2, "{all}"))));
    EXPECT_TRUE(Sleeps(Date(2023, 12, 31, 23, 59, 59)));
    EXPECT_FALSE(Sleeps(Date(2024, 1, 1))) << "midnight of a new year";
    EXPECT_FALSE(Sleeps(Date(2024, 1, 1, 23, 59, 59)));
    EXPECT_TRUE(Sleeps(Date(2024, 1, 2)));
}

TEST_F(KTTimeTableCalendarTest, LooksAgainWhenAnyPartOfTheDateChanges)
{
    // The same day of another month, and the same day and month of another year.
    Load(Year(2024, Month(3, Day(10, "{all}"))));
    EXPECT_TRUE(Sleeps(Date(2024, 3, 10)));
    EXPECT_FALSE(Sleeps(Date(2024, 4, 10)));
    EXPECT_TRUE(Sleeps(Date(2024, 3, 10)));
    EXPECT_FALSE(Sleeps(Date(2025, 3, 10)));
    EXPECT_TRUE(Sleeps(Date(2024, 3, 10)));
}

TEST_F(KTTimeTableCalendarTest, LooksInTheDocumentOncePerDate)
{
    Load(Year(2024, Month(3, Day(10, "{morning}"))));
    XmlDocument::XmlNode* const month = tables->document.Root()->Node(L"calendars/calendar/year/month3");
    ASSERT_NE(month, nullptr);
    EXPECT_TRUE(Sleeps(Date(2024, 3, 10, 6)));
    month->SetValue(L"day10", L"{evening}");
    EXPECT_TRUE(Sleeps(Date(2024, 3, 10, 7))) << "the same date";
    EXPECT_FALSE(Sleeps(Date(2024, 3, 11, 6)));
    EXPECT_FALSE(Sleeps(Date(2024, 3, 10, 6))) << "looked up again after another date";
    EXPECT_TRUE(Sleeps(Date(2024, 3, 10, 18)));
}

TEST_F(KTTimeTableCalendarTest, LoadingAgainForgetsTheDate)
{
    Load(Year(2024, Month(3, Day(10, "{morning}"))));
    EXPECT_TRUE(Sleeps(Date(2024, 3, 10, 6)));
    tables->document.Root()->Node(L"calendars/calendar/year/month3")->SetValue(L"day10", L"{evening}");
    ASSERT_TRUE(calendar->LoadXml(tables->document.Root()->Node(L"calendars/calendar")));
    EXPECT_FALSE(Sleeps(Date(2024, 3, 10, 6)));
    EXPECT_TRUE(Sleeps(Date(2024, 3, 10, 18)));
}

TEST_F(KTTimeTableCalendarTest, GoesThroughAWeek)
{
    TestTables mixed(tablesOfDays,
                     TableXml("week", "W", "W", Element("day1", "{morning}") + Element("day2", "{evening}")),
                     TableXml("calendar", "C", "C", Year(2024, Month(3, Day(10, "W") + Day(11, "W") + Day(12, "W")))));
    EXPECT_FALSE(mixed.Find("C")->NeedCheck(Date(2024, 3, 10, 6)));
    EXPECT_TRUE(mixed.Find("C")->NeedCheck(Date(2024, 3, 10, 18)));
    EXPECT_FALSE(mixed.Find("C")->NeedCheck(Date(2024, 3, 11, 18)));
    EXPECT_TRUE(mixed.Find("C")->NeedCheck(Date(2024, 3, 12, 18))) << "the week has no table for Tuesday";
}

TEST(KTTimeTableCalendar, IsRefusedWithoutIdOrName)
{
    TestTables tables("", "",
                      TableXml("calendar", "", "X") + TableXml("calendar", "Y", "") + TableXml("calendar", "Z", "Z"));
    EXPECT_EQ(tables.Find("X"), nullptr);
    EXPECT_EQ(tables.Find("Y"), nullptr);
    EXPECT_NE(tables.Find("Z"), nullptr);
}

TEST(KTTimeTableCalendar, WithoutAnElementIsAlwaysChecked)
{
    KTTimeTableCalendar calendar;
    EXPECT_TRUE(calendar.NeedCheck(Date(2024, 3, 10)));
}
