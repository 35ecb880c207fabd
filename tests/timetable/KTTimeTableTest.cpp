#include "timetable/KTTimeTable.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <set>
#include <vector>

#include "support/TestTables.h"

namespace
{
const std::string wholeDay = SlotXml("00:00", "24:00");
const KTDateTime sundayNoon = Date(2024, 3, 10, 12);

// A week whose every day names the same table.
std::string WeekOf(const std::string& name, const std::string& table)
{
    std::string days;
    for (int day = 1; day <= 7; ++day) days += Element("day" + std::to_string(day), table);
    return TableXml("week", name, name, days);
}

// W0 names W1, W1 names W2 and so on; the last one names `end`.
std::string Chain(int length, const std::string& end)
{
    std::string weeks;
    for (int i = 0; i < length; ++i)
        weeks += WeekOf("W" + std::to_string(i), i + 1 < length ? "W" + std::to_string(i + 1) : end);
    return weeks;
}
}  // namespace

TEST(KTTimeTable, TakesIdAndNameAndWantsBoth)
{
    const struct
    {
        const char* xml;
        bool kept;
        const wchar_t* id;
        const wchar_t* name;
    } rows[] = {
        {"<t><id>one</id><name>two</name></t>", true, L"one", L"two"},
        {"<t><id>one</id></t>", false, L"one", L""},
        {"<t><name>two</name></t>", false, L"", L"two"},
        {"<t/>", false, L"", L""},
    };
    for (const auto& row : rows)
    {
        XmlDocument document;
        ASSERT_TRUE(document.Parse(row.xml));
        KTTimeTable table;
        EXPECT_EQ(table.LoadXml(document.Root()), row.kept) << row.xml;
        EXPECT_EQ(table.id, row.id) << row.xml;
        EXPECT_EQ(table.name, row.name) << row.xml;
    }
}

TEST(KTTimeTable, TheBaseItselfNeverChecks) { EXPECT_FALSE(KTTimeTable().NeedCheck(sundayNoon)); }

TEST(KTTimeTable, AWeekThatNamesItselfCountsAsNoTable)
{
    TestTables tables(TableXml("day", "D", "D", wholeDay), WeekOf("A", "A"));
    EXPECT_TRUE(tables.Find("A")->NeedCheck(sundayNoon));
}

TEST(KTTimeTable, ACalendarEntryThatNamesItsOwnTableCountsAsNoTable)
{
    TestTables tables(
        "", "", TableXml("calendar", "C", "C", "<year><year>2024</year><month3><day10>C</day10></month3></year>"));
    EXPECT_TRUE(tables.Find("C")->NeedCheck(sundayNoon));
}

TEST(KTTimeTable, CirclesOfEveryLengthCountAsNoTable)
{
    for (const int length : {1, 2, 3, 4, 5, 7, 8, 9, 16, 17, 100})
    {
        TestTables tables("", Chain(length, "W0"));
        for (int start = 0; start < length; ++start)
            EXPECT_TRUE(tables.Find("W" + std::to_string(start))->NeedCheck(sundayNoon))
                << length << ", from " << start;
    }
}

TEST(KTTimeTable, ARoadIntoACircleOfOthersCountsAsNoTable)
{
    for (const int road : {1, 2, 3, 10, 33})
        for (const int circle : {1, 2, 3, 8})
        {
            TestTables tables("", Chain(road + circle, "W" + std::to_string(road)));
            EXPECT_TRUE(tables.Find("W0")->NeedCheck(sundayNoon)) << road << " into " << circle;
        }
}

TEST(KTTimeTable, ACircleOfAWeekAndACalendarCountsAsNoTable)
{
    TestTables tables(
        "", WeekOf("W", "C"),
        TableXml("calendar", "C", "C", "<year><year>2024</year><month3><day10>W</day10></month3></year>"));
    EXPECT_TRUE(tables.Find("W")->NeedCheck(sundayNoon));
    EXPECT_TRUE(tables.Find("C")->NeedCheck(sundayNoon));
}

TEST(KTTimeTable, AChainOfHundredThousandWeeksReachesItsDay)
{
    constexpr int length = 100'000;
    const std::string day = TableXml("day", "D", "D", wholeDay);
    {
        TestTables tables(day, Chain(length, "D"));
        EXPECT_FALSE(tables.Find("W0")->NeedCheck(sundayNoon));
        EXPECT_FALSE(tables.Find("W0")->NeedCheck(sundayNoon)) << "the second look, over cached tables";
    }
    TestTables ring(day, Chain(length, "W1"));
    EXPECT_TRUE(ring.Find("W0")->NeedCheck(sundayNoon));
}

TEST(KTTimeTable, ATableOfAnotherKindIsAskedLikeAnyOther)
{
    // A week may name a calendar, which may name a week, which names a day.
    TestTables tables(
        TableXml("day", "D", "D", wholeDay), WeekOf("W1", "C") + WeekOf("W2", "D"),
        TableXml("calendar", "C", "C", "<year><year>2024</year><month3><day10>W2</day10></month3></year>"));
    EXPECT_FALSE(tables.Find("W1")->NeedCheck(sundayNoon));
    EXPECT_TRUE(tables.Find("W1")->NeedCheck(Date(2024, 3, 11, 12))) << "the calendar has no entry for Monday";
}

RC_GTEST_PROP(KTTimeTable, FollowsAnyWebOfWeeksAsAWalkWithAListOfTheVisitedDoes, ())
{
    // Table i names table next[i]; -1 names the excluding day, -2 a day without slots, -3 nothing.
    const auto count = *rc::gen::inRange(1, 40);
    const auto next =
        *rc::gen::container<std::vector<int>>(static_cast<std::size_t>(count), rc::gen::inRange(-3, count));
    std::string weeks;
    for (int i = 0; i < count; ++i)
    {
        const int to = next[static_cast<std::size_t>(i)];
        const char* const ends[] = {"shut", "open", "nowhere"};
        weeks += WeekOf("W" + std::to_string(i), to < 0 ? ends[-to - 1] : "W" + std::to_string(to));
    }
    TestTables tables(TableXml("day", "shut", "shut", wholeDay) + TableXml("day", "open", "open"), weeks);
    for (int start = 0; start < count; ++start)
    {
        std::set<int> visited;
        int place = start;
        while (place >= 0 && visited.insert(place).second) place = next[static_cast<std::size_t>(place)];
        RC_ASSERT(tables.Find("W" + std::to_string(start))->NeedCheck(sundayNoon) == (place != -1));
    }
}
