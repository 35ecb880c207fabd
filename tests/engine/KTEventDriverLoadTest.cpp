// Building an event from its element.
#include <gtest/gtest.h>

#include "engine/KTEventDriverGroup.h"
#include "engine/KTEventSystem.h"
#include "host/KTEvaluator.h"
#include "support/TestEvent.h"
#include "support/TestTables.h"

namespace
{
class KTEventDriverLoad : public testing::Test
{
protected:
    KTEventDriverLoad() : tables(TableXml("day", "{night}", "Night") + TableXml("day", "{other}", "{night}"))
    {
        const std::string groups = GroupXml(11, "Water") + GroupXml(12, "Air") + GroupXml(13, "water");
        EXPECT_TRUE(document.Parse(("<main><eventsGroups>" + groups + "</eventsGroups><events/></main>").c_str()));
        tables.system.LoadXml(document);
    }

    /// An event of identity and condition, and `more`.
    bool Load(const std::string& more) { return event.LoadText(EventXml(1, "e", "TRUE", more)); }
    KTEventDriverGroup* Group(const wchar_t* name) { return tables.system.LockEventsGroup(name); }

    TestTables tables;
    XmlDocument document;
    TestEvent event;
};

std::string GroupReferences(std::initializer_list<unsigned> numbers)
{
    std::string references;
    for (const unsigned number : numbers) references += Element("eventsGroup", Text(TestId(number)));
    return Element("eventsGroups", references);
}
}  // namespace

TEST_F(KTEventDriverLoad, AnEventOfIdentityAndConditionHasNothingElse)
{
    ASSERT_TRUE(event.LoadText(Element("event", IdElement(1) + Element("condition", "TRUE"))));
    EXPECT_EQ(event.Id(), TestId(1));
    EXPECT_TRUE(event.Name().Empty());
    EXPECT_TRUE(event.Description().Empty());
    EXPECT_TRUE(event.annotationTemplate.Empty());
    EXPECT_TRUE(event.Annotation().Empty());
    EXPECT_FALSE(event.Notify());
    EXPECT_FALSE(event.Record());
    EXPECT_FALSE(event.RssActivate());
    EXPECT_FALSE(event.RssDeactivate());
    EXPECT_FALSE(event.RssAcknowledge());
    EXPECT_EQ(event.delayToActivate, 0U);
    EXPECT_EQ(event.delayToDeactivate, 0U);
    EXPECT_EQ(event.TimeTable(), nullptr);
    EXPECT_NE(event.conditionEvaluator, nullptr);
    EXPECT_EQ(event.conditionStopEvaluator, nullptr);
    EXPECT_TRUE(event.Groups().empty());
    EXPECT_TRUE(event.arguments.empty());
    for (const auto& list : event.actionLists) EXPECT_TRUE(list.empty());
    EXPECT_NE(event.Node(), nullptr);
    EXPECT_TRUE(event.Occurrences().empty());
}

TEST_F(KTEventDriverLoad, TakesItsTexts)
{
    ASSERT_TRUE(event.LoadText(EventXml(7, " Pump &lt;1&gt; ", "TRUE",
                                        "<description>A &amp; B</description><annotation>%n is on</annotation>")));
    EXPECT_EQ(event.Id(), TestId(7));
    EXPECT_EQ(event.Name(), L" Pump <1> ");
    EXPECT_EQ(event.Description(), L"A & B");
    EXPECT_EQ(event.annotationTemplate, L"%n is on");
    EXPECT_TRUE(event.Annotation().Empty()) << "expanded only at the activation";
}

TEST_F(KTEventDriverLoad, IsRefusedWithoutIdentity)
{
    const struct
    {
        const char* why;
        std::string id;
        bool kept;
    } rows[] = {
        {"good", IdElement(1), true},
        {"missing", "", false},
        {"empty", "<id/>", false},
        {"null", IdElement(0), false},
        {"malformed", "<id>{00000001-0000-0000-0000-00000000000}</id>", false},
        {"no identifier at all", "<id>pump</id>", false},
        {"lower case, no braces", "<id>6f9619ff-8b86-d011-b42d-00cf4fc964ff</id>", true},
    };
    for (const auto& row : rows)
    {
        TestEvent fresh;
        EXPECT_EQ(fresh.LoadText(Element("event", row.id + "<name>e</name><condition>TRUE</condition>")), row.kept)
            << row.why;
    }
}

TEST_F(KTEventDriverLoad, AnEmptyNameIsKept)
{
    EXPECT_TRUE(event.LoadText(EventXml(1, "", "TRUE")));
    EXPECT_TRUE(event.Name().Empty());
}

TEST_F(KTEventDriverLoad, WantsALogicalCondition)
{
    const struct
    {
        const char* xml;
        bool kept;
    } rows[] = {
        {"", false},                               // missing
        {"<condition/>", false},                   // empty
        {"<condition>1</condition>", false},       // numeric
        {"<condition>[A.B]</condition>", false},   // numeric too
        {"<condition>[A.B]=</condition>", false},  // a syntax error
        {"<condition>pump is on</condition>", false},
        {"<condition>[A.B]=1</condition>", true},  // nobody knows A.B yet
        {"<condition>TRUE</condition>", true},
        {"<condition> TRUE\n AND [A.B] &lt; 3 </condition>", true},
        {"<Condition>TRUE</Condition>", false},  // another tag
    };
    for (const auto& row : rows)
    {
        TestEvent fresh;
        EXPECT_EQ(fresh.LoadText(Element("event", IdElement(1) + row.xml)), row.kept) << row.xml;
        EXPECT_EQ(fresh.conditionEvaluator != nullptr, row.kept) << row.xml;
    }
}

TEST_F(KTEventDriverLoad, DropsAStopConditionThatIsNotLogicalAndStays)
{
    const struct
    {
        const char* xml;
        bool stop;
    } rows[] = {
        {"", false},
        {"<conditionStop/>", false},
        {"<conditionStop>1</conditionStop>", false},
        {"<conditionStop>[A.B]+</conditionStop>", false},
        {"<conditionStop>[A.B]=1</conditionStop>", true},
    };
    for (const auto& row : rows)
    {
        TestEvent fresh;
        ASSERT_TRUE(fresh.LoadText(EventXml(1, "e", "TRUE", row.xml))) << row.xml;
        EXPECT_EQ(fresh.conditionStopEvaluator != nullptr, row.stop) << row.xml;
    }
}

TEST_F(KTEventDriverLoad, WritesTheModeWordsOfItsEvaluators)
{
    ASSERT_TRUE(Load("<conditionStop>FALSE</conditionStop>"));
    for (const KTEvaluator* evaluator : {event.conditionEvaluator, event.conditionStopEvaluator})
    {
        EXPECT_EQ(evaluator->mode, 4);
        EXPECT_EQ(evaluator->polaca.mode, 4);
    }
    EXPECT_EQ(event.conditionEvaluator->Text(), L"TRUE");
    EXPECT_EQ(event.conditionStopEvaluator->Text(), L"FALSE");
}

TEST_F(KTEventDriverLoad, DelaysAreSecondsInTheDocumentAndMillisecondsInMemory)
{
    const struct
    {
        const char* text;
        std::uint32_t milliseconds;
    } rows[] = {
        {"2", 2000},
        {"0", 0},
        {"", 0},
        {"3600", 3'600'000},
        {"abc", 0},
        {"12abc", 12'000},
        {" 7", 7000},
        {"1.9", 1000},
        {"-1", 0U - 1000U},
        {"+5", 5000},
        {"-0", 0},
        {"4294967", 4'294'967'000U},
        {"4294968", 704},  // the product is kept as 32 unsigned bits
        {"99999999999", 0x7FFFFFFFU * 1000U},
    };
    for (const auto& row : rows)
    {
        TestEvent on;
        ASSERT_TRUE(on.LoadText(EventXml(1, "e", "TRUE", Element("delayToActivate", row.text))));
        EXPECT_EQ(on.delayToActivate, row.milliseconds) << row.text;
        EXPECT_EQ(on.delayToDeactivate, 0U);
        TestEvent off;
        ASSERT_TRUE(off.LoadText(EventXml(1, "e", "TRUE", Element("delayToDeactivate", row.text))));
        EXPECT_EQ(off.delayToDeactivate, row.milliseconds) << row.text;
        EXPECT_EQ(off.delayToActivate, 0U);
    }
}

TEST_F(KTEventDriverLoad, ANegativeDelayBecomesOneOfCloseToFiftyDays)
{
    ASSERT_TRUE(Load("<delayToActivate>-5</delayToActivate>"));
    EXPECT_EQ(event.delayToActivate, 4'294'962'296U);
}

TEST_F(KTEventDriverLoad, AFlagIsTrueOnlyForTheExactT)
{
    const struct
    {
        const char* tag;
        bool (TestEvent::*flag)() const;
    } flags[] = {
        {"notify", &TestEvent::Notify},
        {"record", &TestEvent::Record},
        {"rssActivate", &TestEvent::RssActivate},
        {"rssDeactivate", &TestEvent::RssDeactivate},
        {"rssAcknowledge", &TestEvent::RssAcknowledge},
    };
    for (const auto& flag : flags)
    {
        for (const char* text : {"T", "F", "", "t", "TRUE", "true", "1", " T", "T ", "TT"})
        {
            TestEvent fresh;
            ASSERT_TRUE(fresh.LoadText(EventXml(1, "e", "TRUE", Element(flag.tag, text))));
            for (const auto& each : flags)
                EXPECT_EQ((fresh.*each.flag)(), each.tag == flag.tag && text == std::string("T"))
                    << flag.tag << "=" << text << ", " << each.tag;
        }
    }
}

TEST_F(KTEventDriverLoad, FindsItsTimeTableByIdOrName)
{
    const struct
    {
        const char* text;
        const wchar_t* found;  // its id
    } rows[] = {
        {"{night}", L"{night}"},  // the earlier by its id, before the later by its name
        {"Night", L"{night}"},   {"{other}", L"{other}"}, {"night", nullptr}, {"", nullptr}, {"gone", nullptr},
    };
    for (const auto& row : rows)
    {
        TestEvent fresh;
        ASSERT_TRUE(fresh.LoadText(EventXml(1, "e", "TRUE", Element("timeTable", row.text))));
        if (row.found == nullptr)
        {
            EXPECT_EQ(fresh.TimeTable(), nullptr) << row.text;
            EXPECT_TRUE(fresh.NeedCheck(Date(2024, 1, 1))) << "without a table it is always checked";
            continue;
        }
        ASSERT_NE(fresh.TimeTable(), nullptr) << row.text;
        EXPECT_EQ(fresh.TimeTable()->id, row.found) << row.text;
    }
}

TEST_F(KTEventDriverLoad, AGroupThatIsGoneKeepsItsPlace)
{
    ASSERT_TRUE(Load(GroupReferences({12, 99, 0, 11})));
    ASSERT_EQ(event.Groups().size(), 4U);
    EXPECT_EQ(event.Groups()[0], Group(L"Air"));
    EXPECT_EQ(event.Groups()[1], nullptr);
    EXPECT_EQ(event.Groups()[2], nullptr);
    EXPECT_EQ(event.Groups()[3], Group(L"Water"));
}

TEST_F(KTEventDriverLoad, OfAGroupReferenceOnlyTheTextCounts)
{
    ASSERT_TRUE(Load(Element(
        "eventsGroups", Element("whatever", Text(TestId(11))) + "<eventsGroup/>" + Element("eventsGroup", "Water"))));
    ASSERT_EQ(event.Groups().size(), 3U);
    EXPECT_EQ(event.Groups()[0], Group(L"Water"));
    EXPECT_EQ(event.Groups()[1], nullptr);
    EXPECT_EQ(event.Groups()[2], nullptr) << "a name isn't a reference";
}

TEST_F(KTEventDriverLoad, IsInTheGroupsThatItNames)
{
    ASSERT_TRUE(Load(GroupReferences({99, 11, 12})));
    EXPECT_TRUE(event.IsInGroup(KTWideString(L"Water")));
    EXPECT_TRUE(event.IsInGroup(KTWideString(L"Air")));
    EXPECT_FALSE(event.IsInGroup(KTWideString(L"water"))) << "case counts";
    EXPECT_FALSE(event.IsInGroup(KTWideString(L"Wate")));
    EXPECT_FALSE(event.IsInGroup(KTWideString(L"Waters")));
    EXPECT_FALSE(event.IsInGroup(KTWideString())) << "a group that didn't resolve has no name";
}

TEST_F(KTEventDriverLoad, WithoutGroupsIsInNone)
{
    ASSERT_TRUE(Load(""));
    EXPECT_FALSE(event.IsInGroup(KTWideString(L"Water")));
    EXPECT_FALSE(event.IsInGroup(KTWideString()));
}

TEST_F(KTEventDriverLoad, KeepsEachArgumentInItsPlace)
{
    ASSERT_TRUE(
        Load("<arguments><argument><value>1</value></argument><other/><argument><value>3</value></argument>"
             "</arguments>"));
    ASSERT_EQ(event.arguments.size(), 3U);
    EXPECT_EQ(event.arguments[0]->Value(L"value", L""), L"1");
    EXPECT_EQ(event.arguments[1]->Tag(), L"other");
    EXPECT_EQ(event.arguments[2]->Value(L"value", L""), L"3");
}

TEST_F(KTEventDriverLoad, LoadingAgainReplacesAllButTheActions)
{
    ASSERT_TRUE(
        Load("<conditionStop>TRUE</conditionStop><arguments><a/></arguments><notify>T</notify>"
             "<timeTable>Night</timeTable><delayToActivate>5</delayToActivate>" +
             GroupReferences({11})));
    event.Add(0, [](int) { return true; });
    XmlDocument second;
    ASSERT_TRUE(second.Parse(EventXml(2, "f", "FALSE", GroupReferences({12, 13})).c_str()));
    ASSERT_TRUE(event.LoadXml(second.Root()));
    EXPECT_EQ(event.Id(), TestId(2));
    EXPECT_EQ(event.Name(), L"f");
    EXPECT_EQ(event.Node(), second.Root());
    EXPECT_EQ(event.conditionEvaluator->Text(), L"FALSE");
    EXPECT_EQ(event.conditionStopEvaluator, nullptr);
    EXPECT_TRUE(event.arguments.empty());
    EXPECT_FALSE(event.Notify());
    EXPECT_EQ(event.TimeTable(), nullptr);
    EXPECT_EQ(event.delayToActivate, 0U);
    EXPECT_EQ(event.Groups(), (std::vector<KTEventDriverGroup*>{Group(L"Air"), Group(L"water")}));
    EXPECT_EQ(event.actionLists[0].size(), 1U);
}

TEST_F(KTEventDriverLoad, ASecondLoadThatIsRefusedLeavesNoCondition)
{
    ASSERT_TRUE(Load("<conditionStop>TRUE</conditionStop>"));
    XmlDocument nameless;
    ASSERT_TRUE(nameless.Parse("<event><condition>TRUE</condition></event>"));
    EXPECT_FALSE(event.LoadXml(nameless.Root()));
    EXPECT_EQ(event.conditionEvaluator, nullptr);
    EXPECT_EQ(event.conditionStopEvaluator, nullptr);
    EXPECT_FALSE(event.NeedCheck(Date(2024, 1, 1)));
}

TEST_F(KTEventDriverLoad, AnUnknownActionElementIsSkipped)
{
    ASSERT_TRUE(
        Load("<actions><activate><dance/><Beep/></activate></actions><clientActions><while><sing/></while>"
             "</clientActions>"));
    for (const auto& list : event.actionLists) EXPECT_TRUE(list.empty());
}
