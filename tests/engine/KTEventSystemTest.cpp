#include "engine/KTEventSystem.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <vector>

#include "engine/KTEventDriverGroup.h"
#include "support/TestEvent.h"
#include "timetable/KTTimeTable.h"

namespace
{
XmlDocument Parsed(const std::string& text)
{
    XmlDocument document;
    EXPECT_TRUE(document.Parse(text.c_str())) << text;
    return document;
}

// The documents of a registry, which the registry's content points into.
class KTEventSystemTest : public testing::Test
{
protected:
    void LoadEvents(const std::string& events, const std::string& groups = "")
    {
        events_ = Parsed("<main><eventsGroups>" + groups + "</eventsGroups><events>" + events + "</events></main>");
        EXPECT_TRUE(system.LoadXml(events_));
    }
    void LoadTables(const std::string& containers)
    {
        tables_ = Parsed("<main>" + containers + "</main>");
        EXPECT_TRUE(system.LoadTimeTableXml(tables_));
    }

    [[nodiscard]] std::vector<std::string> Names() const
    {
        std::vector<std::string> names;
        for (auto event = system.EventsBegin(); event != system.EventsEnd(); ++event)
            names.push_back(Utf8((*event)->Name()));
        return names;
    }
    [[nodiscard]] std::vector<std::string> GroupNames() const
    {
        std::vector<std::string> names;
        for (auto group = system.EventsGroupsBegin(); group != system.EventsGroupsEnd(); ++group)
            names.push_back(Utf8((*group)->Name()));
        return names;
    }

    TestConfig config;
    XmlDocument events_;
    XmlDocument tables_;
    KTEventSystem system;
};

using Strings = std::vector<std::string>;
}  // namespace

TEST_F(KTEventSystemTest, StartsEmptyWithTheFeedOff)
{
    EXPECT_EQ(&KTEventSystem::Get(), &system);
    EXPECT_EQ(system.EventsSize(), 0);
    EXPECT_EQ(system.EventsGroupsSize(), 0);
    EXPECT_EQ(system.GetRssMaxNumberOfItems(), 20);
    EXPECT_EQ(system.GetRssNumberOfItems(), 0);
    EXPECT_FALSE(system.GetRssActive());
}

TEST_F(KTEventSystemTest, KeepsWhatLoadsAndDropsTheRest)
{
    LoadEvents(EventXml(1, "good", "1=1") + EventXml(0, "null id", "1=1") + EventXml(2, "numeric", "1") +
                   EventXml(3, "also good", "TRUE") + "<event/>",
               GroupXml(4, "good") + GroupXml(0, "null id") + GroupXml(5, "") + GroupXml(6, "also good"));
    EXPECT_EQ(Names(), (Strings{"good", "also good"}));
    EXPECT_EQ(GroupNames(), (Strings{"good", "also good"}));
    EXPECT_EQ(system.EventsSize(), 2);
    EXPECT_EQ(system.EventsGroupsSize(), 2);
}

TEST_F(KTEventSystemTest, NoTagOfAChildIsLookedAt)
{
    LoadEvents(Element("whatever", IdElement(1) + Element("name", "e") + Element("condition", "TRUE")),
               Element("something", IdElement(2) + Element("name", "g")));
    LoadTables(Element("days", TableXml("sunday", "t", "t")));
    EXPECT_EQ(system.EventsSize(), 1);
    EXPECT_EQ(system.EventsGroupsSize(), 1);
    EXPECT_NE(system.LockTimeTable(L"t"), nullptr);
}

TEST_F(KTEventSystemTest, GroupsAndTablesAreThereWhenAnEventLoads)
{
    LoadTables(Element("days", TableXml("day", "T", "Nights")));
    // The events' container stands first in the document, and the groups load first all the same.
    events_ = Parsed(
        "<main><events>" +
        EventXml(1, "e", "TRUE",
                 Element("timeTable", "Nights") + Element("eventsGroups", Element("eventsGroup", Text(TestId(2))))) +
        "</events><eventsGroups>" + GroupXml(2, "g") + "</eventsGroups></main>");
    ASSERT_TRUE(system.LoadXml(events_));
    const KTEventDriver* const event = system.LockEvent(L"e");
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(event->TimeTable(), system.LockTimeTable(L"T"));
    ASSERT_EQ(event->Groups().size(), 1U);
    EXPECT_EQ(event->Groups()[0], system.LockEventsGroup(L"g"));
}

TEST_F(KTEventSystemTest, MissingContainersOfTablesAreSkipped)
{
    LoadTables(Element("calendars", TableXml("calendar", "c", "c")));
    EXPECT_NE(system.LockTimeTable(L"c"), nullptr);
    XmlDocument empty;
    EXPECT_TRUE(system.LoadTimeTableXml(empty));
}

TEST_F(KTEventSystemTest, TablesStandInTheOrderOfDaysWeeksCalendars)
{
    // All bear one name; the first of the order is found, whatever the order of the document.
    LoadTables(Element("calendars", TableXml("calendar", "c", "same")) +
               Element("weeks", TableXml("week", "w", "same")) + Element("days", TableXml("day", "d", "same")));
    EXPECT_EQ(system.LockTimeTable(L"same"), system.LockTimeTable(L"d"));
    system.Reset();
    LoadTables(Element("calendars", TableXml("calendar", "c", "same")) +
               Element("weeks", TableXml("week", "w", "same")));
    EXPECT_EQ(system.LockTimeTable(L"same"), system.LockTimeTable(L"w"));
}

TEST_F(KTEventSystemTest, OfTwoTablesTheEarlierWinsEvenWhereTheLaterMatchesByItsId)
{
    LoadTables(Element("days", TableXml("day", "1", "X") + TableXml("day", "X", "2") + TableXml("day", "1", "3")));
    EXPECT_EQ(system.LockTimeTable(L"X")->id, L"1");
    EXPECT_EQ(system.LockTimeTable(L"1")->name, L"X");
    EXPECT_EQ(system.LockTimeTable(L"2")->id, L"X");
    EXPECT_EQ(system.LockTimeTable(L"3")->id, L"1");
}

TEST_F(KTEventSystemTest, LookupsAreExactAndCaseSensitive)
{
    LoadTables(Element("days", TableXml("day", "{Ab}", "Night")));
    LoadEvents(EventXml(1, "Pump", "TRUE"), GroupXml(2, "Water"));
    EXPECT_NE(system.LockEvent(L"Pump"), nullptr);
    EXPECT_NE(system.LockEventsGroup(L"Water"), nullptr);
    EXPECT_NE(system.LockTimeTable(L"{Ab}"), nullptr);
    EXPECT_NE(system.LockTimeTable(L"Night"), nullptr);
    EXPECT_NE(system.LockEvent(TestId(1)), nullptr);
    EXPECT_NE(system.LockEventsGroup(TestId(2)), nullptr);
    for (const wchar_t* other : {L"pump", L"PUMP", L"Pum", L"Pumps", L" Pump", L""})
        EXPECT_EQ(system.LockEvent(other), nullptr) << Utf8(KTWideString(other));
    for (const wchar_t* other : {L"water", L"Wate", L"Waters", L""}) EXPECT_EQ(system.LockEventsGroup(other), nullptr);
    for (const wchar_t* other : {L"{AB}", L"night", L"Nigh", L"Nights", L"Ab", L""})
        EXPECT_EQ(system.LockTimeTable(other), nullptr);
    EXPECT_EQ(system.LockEvent(TestId(2)), nullptr);
    EXPECT_EQ(system.LockEventsGroup(TestId(1)), nullptr);
    EXPECT_EQ(system.LockEvent(nullGuid), nullptr);
}

TEST_F(KTEventSystemTest, AnEventAndATableAndAGroupNamedAlikeDoNotClash)
{
    LoadTables(Element("days", TableXml("day", "x", "Same")));
    LoadEvents(EventXml(1, "Same", "TRUE"), GroupXml(1, "Same"));
    EXPECT_EQ(system.LockEvent(L"Same")->Id(), TestId(1));
    EXPECT_EQ(system.LockEventsGroup(L"Same")->Id(), TestId(1));
    EXPECT_EQ(system.LockTimeTable(L"Same")->id, L"x");
}

TEST_F(KTEventSystemTest, OfTwoWithOneNameOrIdentityBothStayAndTheFirstIsFound)
{
    LoadEvents(EventXml(1, "twin", "TRUE", Element("description", "first")) +
                   EventXml(1, "twin", "TRUE", Element("description", "second")),
               GroupXml(2, "g") + GroupXml(3, "g") + GroupXml(2, "h"));
    EXPECT_EQ(system.EventsSize(), 2);
    EXPECT_EQ(system.EventsGroupsSize(), 3);
    EXPECT_EQ(system.LockEvent(L"twin")->Description(), L"first");
    EXPECT_EQ(system.LockEvent(TestId(1))->Description(), L"first");
    EXPECT_EQ(system.LockEventsGroup(L"g")->Id(), TestId(2));
    EXPECT_EQ(system.LockEventsGroup(TestId(2))->Name(), L"g");
    // In the order of names the twins are equal, and the first of the vector is the one found.
    system.Sort();
    system.SortEventsGroups();
    EXPECT_EQ(system.LockEvent(L"twin"), *system.EventsBegin());
    EXPECT_EQ(system.LockEvent(TestId(1)), *system.EventsBegin());
    EXPECT_EQ(system.LockEventsGroup(L"g"), *system.EventsGroupsBegin());
}

TEST_F(KTEventSystemTest, AfterSortingTheFirstInTheNewOrderIsFound)
{
    // One identity under two names: first "b", and after sorting "A".
    LoadEvents(EventXml(1, "b", "TRUE") + EventXml(1, "A", "TRUE"), GroupXml(2, "b") + GroupXml(2, "A"));
    EXPECT_EQ(system.LockEvent(TestId(1))->Name(), L"b");
    EXPECT_EQ(system.LockEventsGroup(TestId(2))->Name(), L"b");
    system.Sort();
    system.SortEventsGroups();
    EXPECT_EQ(system.LockEvent(TestId(1))->Name(), L"A");
    EXPECT_EQ(system.LockEventsGroup(TestId(2))->Name(), L"A");
}

TEST_F(KTEventSystemTest, SortsByNameIgnoringCase)
{
    LoadEvents(EventXml(1, "delta", "TRUE") + EventXml(2, "Alpha", "TRUE") + EventXml(3, "charlie", "TRUE") +
                   EventXml(4, "Bravo", "TRUE") + EventXml(5, "\xC3\x89t\xC3\xA9", "TRUE") + EventXml(6, "", "TRUE") +
                   EventXml(7, "alpha2", "TRUE") + EventXml(8, "\xC3\xA9s", "TRUE"),
               GroupXml(1, "z") + GroupXml(2, "Y") + GroupXml(3, "x"));
    system.Sort();
    EXPECT_EQ(Names(), (Strings{"", "Alpha", "alpha2", "Bravo", "charlie", "delta", "\xC3\xA9s", "\xC3\x89t\xC3\xA9"}));
    EXPECT_EQ(GroupNames(), (Strings{"z", "Y", "x"})) << "groups are sorted apart";
    system.SortEventsGroups();
    EXPECT_EQ(GroupNames(), (Strings{"x", "Y", "z"}));
}

TEST_F(KTEventSystemTest, AnEventOfAnotherCaseIsNotFoundThoughSortingIgnoredIt)
{
    LoadEvents(EventXml(1, "Pump", "TRUE") + EventXml(2, "pump", "TRUE"));
    system.Sort();
    EXPECT_EQ(system.LockEvent(L"PUMP"), nullptr);
    EXPECT_EQ(system.LockEvent(L"pump")->Id(), TestId(2));
    EXPECT_EQ(system.LockEvent(L"Pump")->Id(), TestId(1));
}

TEST_F(KTEventSystemTest, AnEventWithoutANameIsKeptAndFound)
{
    LoadEvents(EventXml(1, "", "TRUE"));
    ASSERT_EQ(system.EventsSize(), 1);
    EXPECT_EQ(system.LockEvent(L""), *system.EventsBegin());
}

TEST_F(KTEventSystemTest, ResetEmptiesTheRegistry)
{
    LoadTables(Element("days", TableXml("day", "t", "t")));
    LoadEvents(EventXml(1, "e", "TRUE"), GroupXml(2, "g"));
    system.Reset();
    EXPECT_EQ(system.EventsSize(), 0);
    EXPECT_EQ(system.EventsGroupsSize(), 0);
    EXPECT_EQ(system.EventsBegin(), system.EventsEnd());
    EXPECT_EQ(system.EventsGroupsBegin(), system.EventsGroupsEnd());
    EXPECT_EQ(system.LockEvent(L"e"), nullptr);
    EXPECT_EQ(system.LockEvent(TestId(1)), nullptr);
    EXPECT_EQ(system.LockEventsGroup(L"g"), nullptr);
    EXPECT_EQ(system.LockEventsGroup(TestId(2)), nullptr);
    EXPECT_EQ(system.LockTimeTable(L"t"), nullptr);
    system.Reset();
    EXPECT_EQ(system.EventsSize(), 0);
}

TEST_F(KTEventSystemTest, ResetDeletesEachEventOnce)
{
    static int deleted = 0;
    class Counted : public TestEvent
    {
    public:
        ~Counted() override { ++deleted; }
    };
    LoadEvents(EventXml(1, "a", "TRUE") + EventXml(2, "b", "TRUE"));
    // Whoever puts an event of his own into the registry gives it away.
    for (auto event = system.EventsBegin(); event != system.EventsEnd(); ++event)
    {
        delete *event;
        *event = new Counted;
    }
    deleted = 0;
    system.Reset();
    EXPECT_EQ(deleted, 2);
}

TEST_F(KTEventSystemTest, LoadingTwiceAddsToWhatIsThere)
{
    LoadEvents(EventXml(1, "a", "TRUE"), GroupXml(1, "g"));
    const XmlDocument more = Parsed("<main><eventsGroups>" + GroupXml(2, "h") + "</eventsGroups><events>" +
                                    EventXml(2, "b", "TRUE") + "</events></main>");
    EXPECT_TRUE(system.LoadXml(more));
    EXPECT_EQ(Names(), (Strings{"a", "b"}));
    EXPECT_EQ(GroupNames(), (Strings{"g", "h"}));
    EXPECT_NE(system.LockEvent(L"a"), nullptr);
    EXPECT_NE(system.LockEvent(L"b"), nullptr);
    system.Reset();  // before `more` goes
}

TEST_F(KTEventSystemTest, ParkingEventsLoadOnlyWithParking)
{
    const XmlDocument parking =
        Parsed("<zenpark><events>" + Element("eventTime", IdElement(1) + Element("name", "b")) +
               Element("eventError", IdElement(2) + Element("name", "a")) + "</events></zenpark>");
    EXPECT_TRUE(system.LoadParkingXml(parking));
    EXPECT_EQ(system.EventsSize(), 0);
    config.SetParking(true);
    EXPECT_TRUE(system.LoadParkingXml(parking));
    // The error event first, whatever the order of the document.
    EXPECT_EQ(Names(), (Strings{"a", "b"}));
    EXPECT_EQ(system.LockEvent(L"a")->Id(), TestId(2));
    EXPECT_EQ(system.LockEvent(TestId(1))->Name(), L"b");
    system.Reset();  // before `parking` goes
}

// Copies share what the original owns, pointer by pointer.

TEST_F(KTEventSystemTest, ACopySharesTheContentAndDeletesNothing)
{
    LoadTables(Element("days", TableXml("day", "t", "t")));
    LoadEvents(EventXml(1, "e", "TRUE"), GroupXml(2, "g"));
    {
        const KTEventSystem copy(system);
        EXPECT_EQ(copy.EventsSize(), 1);
        EXPECT_EQ(copy.EventsGroupsSize(), 1);
        EXPECT_EQ(*copy.EventsBegin(), *system.EventsBegin());
        EXPECT_EQ(*copy.EventsGroupsBegin(), *system.EventsGroupsBegin());
        KTEventSystem other(copy);
        EXPECT_EQ(other.LockEvent(L"e"), system.LockEvent(L"e"));
        EXPECT_EQ(other.LockEvent(TestId(1)), system.LockEvent(L"e"));
        EXPECT_EQ(other.LockEventsGroup(L"g"), system.LockEventsGroup(L"g"));
        EXPECT_EQ(other.LockTimeTable(L"t"), system.LockTimeTable(L"t"));
        other.Reset();
        EXPECT_EQ(other.EventsSize(), 0);
        EXPECT_EQ(copy.EventsSize(), 1);
    }
    EXPECT_EQ(system.LockEvent(L"e")->Name(), L"e");
    EXPECT_EQ(&KTEventSystem::Get(), &system) << "a copy isn't the registry";
}

TEST_F(KTEventSystemTest, AnAssignedSystemSharesTheContentAndDropsItsOwn)
{
    LoadEvents(EventXml(1, "e", "TRUE"), GroupXml(2, "g"));
    const XmlDocument document =
        Parsed("<main><eventsGroups/><events>" + EventXml(3, "own", "TRUE") + "</events></main>");
    KTEventSystem other;
    other.LoadXml(document);
    other = system;
    EXPECT_EQ(other.LockEvent(L"own"), nullptr);
    EXPECT_EQ(other.LockEvent(L"e"), *system.EventsBegin());
    EXPECT_EQ(other.LockEventsGroup(L"g"), *system.EventsGroupsBegin());
}

TEST_F(KTEventSystemTest, AssignedToItselfNothingChanges)
{
    LoadEvents(EventXml(1, "e", "TRUE"));
    KTEventSystem& same = system;
    system = same;
    EXPECT_EQ(system.LockEvent(L"e")->Name(), L"e");
}

TEST_F(KTEventSystemTest, ACopyAssignedBackLeavesTheOriginalWhole)
{
    // As a host does that saves the registry, changes it and restores it.
    LoadTables(Element("days", TableXml("day", "t", "t")));
    LoadEvents(EventXml(1, "e", "TRUE"), GroupXml(2, "g"));
    KTEventSystem saved(system);
    system = saved;
    ASSERT_EQ(system.EventsSize(), 1);
    EXPECT_EQ(system.LockEvent(L"e")->Name(), L"e");
    EXPECT_EQ(system.LockEventsGroup(L"g")->Name(), L"g");
    EXPECT_EQ(system.LockTimeTable(L"t")->name, L"t");

    const XmlDocument more = Parsed("<main><eventsGroups/><events>" + EventXml(3, "late", "TRUE") + "</events></main>");
    system.LoadXml(more);
    system = saved;
    EXPECT_EQ(Names(), Strings{"e"});
    EXPECT_EQ(system.LockEvent(L"e")->Name(), L"e");
    system.Reset();
}

TEST_F(KTEventSystemTest, WhatACopyLoadsBelongsToTheCopy)
{
    LoadEvents(EventXml(1, "e", "TRUE"));
    const XmlDocument more = Parsed("<main><eventsGroups>" + GroupXml(2, "g") + "</eventsGroups><events>" +
                                    EventXml(3, "late", "TRUE") + "</events></main>");
    const XmlDocument table = Parsed("<main><days>" + TableXml("day", "t", "t") + "</days></main>");
    {
        KTEventSystem copy(system);
        copy.LoadTimeTableXml(table);
        copy.LoadXml(more);
        EXPECT_EQ(copy.EventsSize(), 2);
        EXPECT_NE(copy.LockTimeTable(L"t"), nullptr);
    }
    EXPECT_EQ(Names(), Strings{"e"});
}

// Lookups against a walk from the front, which is what they stand for.
RC_GTEST_FIXTURE_PROP(KTEventSystemTest, FindsWhatAWalkFromTheFrontFinds, ())
{
    const char* const names[] = {"a", "A", "b", "B", "ab", ""};
    const auto picks = *rc::gen::container<std::vector<std::pair<int, unsigned>>>(
        rc::gen::pair(rc::gen::inRange(0, 6), rc::gen::inRange(1U, 5U)));
    std::string events;
    std::string groups;
    std::string days;
    for (const auto& [name, id] : picks)
    {
        const std::string text = names[static_cast<std::size_t>(name)];
        events += EventXml(id, text, "TRUE");
        groups += GroupXml(id, text);
        // Ids of some are names of others.
        days += TableXml("day", names[id], text);
    }
    LoadTables(Element("days", days));
    LoadEvents(events, groups);
    const bool sorted = *rc::gen::arbitrary<bool>();
    if (sorted)
    {
        system.Sort();
        system.SortEventsGroups();
    }
    for (const char* name : names)
    {
        const KTWideString wanted = Wide(name);
        KTEventDriver* event = nullptr;
        for (auto place = system.EventsBegin(); place != system.EventsEnd() && event == nullptr; ++place)
            if ((*place)->Name() == wanted) event = *place;
        RC_ASSERT(system.LockEvent(wanted.Str()) == event);
        KTEventDriverGroup* group = nullptr;
        for (auto place = system.EventsGroupsBegin(); place != system.EventsGroupsEnd() && group == nullptr; ++place)
            if ((*place)->Name() == wanted) group = *place;
        RC_ASSERT(system.LockEventsGroup(wanted.Str()) == group);
        // Tables can't be walked from outside: the first of the document that matches, if it loaded.
        const KTTimeTable* const table = system.LockTimeTable(wanted.Str());
        std::string expected;
        for (const auto& [itsName, id] : picks)
        {
            const std::string text = names[static_cast<std::size_t>(itsName)];
            if (text.empty() || !(text == name || std::string(names[id]) == name)) continue;
            expected = std::string(names[id]) + "/" + text;
            break;
        }
        RC_ASSERT((table == nullptr ? "" : Utf8(table->id) + "/" + Utf8(table->name)) == expected);
    }
    for (unsigned id = 0; id < 6; ++id)
    {
        KTEventDriver* event = nullptr;
        for (auto place = system.EventsBegin(); place != system.EventsEnd() && event == nullptr; ++place)
            if ((*place)->Id() == TestId(id)) event = *place;
        RC_ASSERT(system.LockEvent(TestId(id)) == event);
    }
}
