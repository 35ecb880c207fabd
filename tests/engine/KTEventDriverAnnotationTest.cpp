// Expanding the codes of annotations.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "engine/KTEventDriverGroup.h"
#include "engine/KTEventSystem.h"
#include "host/KTNumberFormat.h"
#include "support/TestClock.h"
#include "support/TestDriver.h"
#include "support/TestEvent.h"
#include "support/TestTables.h"

namespace
{
std::string ArgumentXml(const std::string& value, const std::string& format = "", const std::string& thousands = "")
{
    return Element("argument", Element("value", value) + (format.empty() ? "" : Element("format", format)) +
                                   (thousands.empty() ? "" : Element("thousandSeparator", thousands)));
}

std::string GroupReference(unsigned number) { return Element("eventsGroup", Text(TestId(number))); }

// An event with one of everything that a code can show. Group 2 is one that nobody has, argument 3 is empty.
class KTEventDriverAnnotation : public testing::Test
{
protected:
    KTEventDriverAnnotation() : tables(TableXml("day", "{night}", "Night shift"))
    {
        EXPECT_TRUE(groups.Parse(("<main><eventsGroups>" + GroupXml(11, "Water &amp; air") + GroupXml(13, "Cold") +
                                  "</eventsGroups><events/></main>")
                                     .c_str()));
        tables.system.LoadXml(groups);
        plant.Set(L"P", 1234.567);
        plant.Set(L"N", -3.0);
        EXPECT_TRUE(plant.Register());
        Load(Element("description", "Draws &lt;too&gt; much") + Element("delayToActivate", "2") +
             Element("delayToDeactivate", "600") + Element("timeTable", "{night}") +
             Element("conditionStop", "[T.P] &lt; 5") +
             Element("eventsGroups", GroupReference(11) + GroupReference(12) + GroupReference(13)) +
             Element("arguments", ArgumentXml("[T.P]", "02.01", "T") + ArgumentXml("[T.N] * 2", ".") + ArgumentXml("") +
                                      ArgumentXml("night shift") + ArgumentXml("[T.P] &gt; 5") +
                                      ArgumentXml("[T.none] + 1")));
    }

    void Load(const std::string& more) { ASSERT_TRUE(event.LoadText(EventXml(1, "Pump &amp; fan", "[T.P]=1", more))); }
    void LoadArguments(const std::string& xml) { Load(Element("arguments", xml)); }

    std::string Expand(const std::string& text) { return Expand(event, text); }
    static std::string Expand(KTEventDriver& from, const std::string& text)
    {
        KTWideString out(L"what was there before");
        EXPECT_TRUE(from.ParseAnnotation(out, Wide(text)));
        return Utf8(out);
    }
    std::string ExpandArgument(const std::string& value, const std::string& format = "",
                               const std::string& thousands = "")
    {
        LoadArguments(ArgumentXml(value, format, thousands));
        return Expand("%a1");
    }

    TestTables tables;
    XmlDocument groups;
    TestDriver plant{L"T", {L"P", L"N", L"none"}};
    TestEvent event;
};
}  // namespace

TEST_F(KTEventDriverAnnotation, ExpandsEachCode)
{
    const struct
    {
        const char* text;
        const char* expanded;
    } rows[] = {
        {"", ""},
        {"no code", "no code"},
        {"100%%", "100%"},
        {"%%%%", "%%"},
        {"%a1", "1,234.6"},
        {"%a2", "-6"},
        {"%b", "2"},  // 2000 ms in memory
        {"%c", "[T.P]=1"},
        {"%d", "Night shift"},
        {"%e", "600"},
        {"%g1", "Water & air"},
        {"%g3", "Cold"},
        {"%n", "Pump & fan"},
        {"%s", "[T.P] < 5"},
        {"%t", "Draws <too> much"},
        {"%n: %a1 kW in %g1 (%b s)", "Pump & fan: 1,234.6 kW in Water & air (2 s)"},
        {"%n%n%a2%a2%%%b", "Pump & fanPump & fan-6-6%2"},
        {"é泵\xF0\x9F\x92\xA7%n泵", "é泵\xF0\x9F\x92\xA7Pump & fan泵"},
    };
    for (const auto& row : rows) EXPECT_EQ(Expand(row.text), row.expanded) << row.text;
}

TEST_F(KTEventDriverAnnotation, WhatIsNoCodeStaysPercentSignIncluded)
{
    const char* const texts[] = {"%x",   "%f%h%z", "%N %A1 %B %G1", "% n", "%1",     "%(n)",    "%\t%\n",
                                 "a%ä!", "%泵",    "5%-7%-",        "%.",  "%\x7F ", "50% of%u"};
    for (const char* text : texts) EXPECT_EQ(Expand(text), text);
}

TEST_F(KTEventDriverAnnotation, APercentSignAtTheEndVanishes)
{
    EXPECT_EQ(Expand("50 %"), "50 ");
    EXPECT_EQ(Expand("%"), "");
    EXPECT_EQ(Expand("%%%"), "%");
    EXPECT_EQ(Expand("%x%"), "%x");
    EXPECT_EQ(Expand("%a9%"), "%a9");
    EXPECT_EQ(Expand("%n%"), "Pump & fan");
}

TEST_F(KTEventDriverAnnotation, ACodeIsReadOnceAndItsTextIsNotLookedAtAgain)
{
    ASSERT_TRUE(event.LoadText(EventXml(1, "%b%%a1", "TRUE", "<description>100%</description>")));
    EXPECT_EQ(Expand("%n"), "%b%%a1");
    EXPECT_EQ(Expand("%t%b"), "100%0");
    EXPECT_EQ(Expand("%%n"), "%n");
    EXPECT_EQ(Expand("%%%n"), "%%b%%a1");
}

TEST_F(KTEventDriverAnnotation, AnArgumentThatIsNotThereStays)
{
    const char* const texts[] = {"%a", "%a %n", "%ab", "%a0", "%a00", "%a7", "%a07 7", "%a3", "%a-1", "%a+1", "%a 1"};
    for (const std::string text : texts) EXPECT_EQ(Expand(text), text == "%a %n" ? "%a Pump & fan" : text);
    LoadArguments(ArgumentXml("1") + ArgumentXml("2"));
    EXPECT_EQ(Expand("%a3"), "%a3") << "of two arguments";
    EXPECT_EQ(Expand("%a1%a3%a2"), "1%a32");
    Load("");
    EXPECT_EQ(Expand("%a1"), "%a1") << "of none";
    LoadArguments(Element("argument", "") + "<argument><value/></argument>");
    EXPECT_EQ(Expand("%a1 %a2"), "%a1 %a2") << "without a value";
    event.arguments = {nullptr};
    EXPECT_EQ(Expand("%a1"), "%a1");
}

TEST_F(KTEventDriverAnnotation, AllDigitsBehindTheLetterAreTheNumber)
{
    std::string twelve;
    for (int i = 1; i <= 12; ++i) twelve += ArgumentXml(std::to_string(100 + i));
    LoadArguments(twelve);
    const struct
    {
        const char* text;
        const char* expanded;
    } rows[] = {
        {"%a12", "112"},
        {"%a1 2", "101 2"},
        {"%a1%%2", "101%2"},
        {"%a13", "%a13"},
        {"%a120", "%a120"},
        {"%a012", "112"},
        {"%a000000000000000000000000000000000000000001.", "101."},
        {"%a1,5", "101,5"},
        {"%a1\xEF\xBC\x92", "101\xEF\xBC\x92"},                // a full-width 2 is no digit here
        {"%a\xD9\xA1", "%a\xD9\xA1"},                          // nor is an Arabic 1
        {"%a4294967297", "%a4294967297"},                      // 2^32 + 1
        {"%a18446744073709551617", "%a18446744073709551617"},  // 2^64 + 1
        {"%a340282366920938463463374607431768211457", "%a340282366920938463463374607431768211457"},  // 2^128 + 1
        {"%g18446744073709551617", "%g18446744073709551617"},
    };
    for (const auto& row : rows) EXPECT_EQ(Expand(row.text), row.expanded) << row.text;
}

TEST_F(KTEventDriverAnnotation, AnArgumentIsWrittenByItsFormat)
{
    const struct
    {
        const char* value;
        const char* format;
        const char* thousands;
        const char* expanded;
    } rows[] = {
        {"[T.P]", "", "", "1234.567"},  // no format: at most 3 decimals
        {"[T.P] / 7", "", "", "176.367"},
        {"[T.P] / 7", ".", "", "176.366714285714"},
        {"[T.P]", ".0", "", "1235"},
        {"[T.P]", ".2", "", "1234.57"},
        {"2.5", ".2", "", "2.5"},
        {"2.5", ".02", "", "2.50"},
        {"2.5", "03.02", "", "002.50"},
        {"2.5", "3.02", "", "2.50"},
        {"[T.P]", "0&lt;.01", "T", "000,000,001,234.6"},  // twelve digits
        {"[T.P]", ".1", "T", "1,234.6"},
        {"[T.P]", ".1", "F", "1234.6"},
        {"[T.P]", ".1", "t", "1234.6"},  // only the exact T
        {"[T.P]", ".1", "TRUE", "1234.6"},
        {"[T.P]", ".1", " T", "1234.6"},
        {"-0.04", ".1", "", "0"},
        {"1 / 3", "x.y", "", "0.333333333333333"},
        {"IF([T.N] &lt; 0, [T.P], 0)", ".1", "", "1234.6"},
        {" [T.N] ", "", "", "-3"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(ExpandArgument(row.value, row.format, row.thousands), row.expanded)
            << row.value << " as " << row.format << ' ' << row.thousands;
}

TEST_F(KTEventDriverAnnotation, ANumberHasTheSeparatorsOfTheSettings)
{
    const KTLocaleInformation before = LocaleInformationWide();
    LocaleInformationWide().decimalSeparator = L',';
    LocaleInformationWide().thousandSeparator = L'.';
    EXPECT_EQ(Expand("%a1 %b"), "1.234,6 2");
    LocaleInformationWide() = before;
}

TEST_F(KTEventDriverAnnotation, ALogicalArgumentAndAPlainWordAreShownAsWritten)
{
    EXPECT_EQ(Expand("%a4"), "night shift");
    EXPECT_EQ(Expand("%a5"), "[T.P] > 5");
    const char* const asWritten[] = {"TRUE", "[T.P]=1", "NOT [T.P]", "BIT([T.P], 1)", "pump",
                                     "[T.P", "1 +",     " ",         "50%b %n"};
    for (const char* value : asWritten) EXPECT_EQ(ExpandArgument(value, "02.01", "T"), value);
    EXPECT_EQ(ExpandArgument("pump 7 &amp; 8"), "pump 7 & 8");
    EXPECT_EQ(ExpandArgument(std::string(5000, '1')), std::string(5000, '1')) << "too long for an expression";
}

TEST_F(KTEventDriverAnnotation, AnArgumentThatCannotBeReadIsShownAsWritten)
{
    EXPECT_EQ(Expand("%a6"), "[T.none] + 1");
    const char* const asWritten[] = {"[T.none]", "[T.other]", "[X.P]", "[P]", "[F@1:T.P]", "1 / 0", "SQRT([T.N])"};
    for (const char* value : asWritten) EXPECT_EQ(ExpandArgument(value, "02.01"), value);
}

TEST_F(KTEventDriverAnnotation, AnArgumentShowsTheValueOfTheMoment)
{
    EXPECT_EQ(Expand("%a1"), "1,234.6");
    plant.Set(L"P", 7.0);
    EXPECT_EQ(Expand("%a1 %a1"), "07.0 07.0");
    plant.Clear(L"P");
    EXPECT_EQ(Expand("%a1"), "[T.P]");
    plant.Set(L"P", 8.25);
    EXPECT_EQ(Expand("%a1"), "08.3");
    plant.Unregister();
    EXPECT_EQ(Expand("%a1"), "[T.P]");
    ASSERT_TRUE(plant.Register());
    EXPECT_EQ(Expand("%a1"), "08.3");
    LoadArguments(ArgumentXml("[T.later]"));
    EXPECT_EQ(Expand("%a1"), "[T.later]");
    plant.Add(L"later");
    plant.Set(L"later", 6.0);
    EXPECT_EQ(Expand("%a1"), "6");
    TestDriver late{L"LATE", {L"V"}};
    late.Set(L"V", 5.0);
    LoadArguments(ArgumentXml("[LATE.V]"));
    EXPECT_EQ(Expand("%a1"), "[LATE.V]");
    ASSERT_TRUE(late.Register());
    EXPECT_EQ(Expand("%a1"), "5");
}

TEST_F(KTEventDriverAnnotation, ThereMayBeManyArguments)
{
    constexpr int many = 100;
    std::string all;
    std::string codes;
    std::string expanded;
    for (int i = 1; i <= many; ++i)
    {
        all += ArgumentXml(i % 3 == 0 ? "word " + std::to_string(i) : std::to_string(i) + " * [T.P]");
        codes += "%a" + std::to_string(i) + ";";
        expanded += (i % 3 == 0 ? "word " + std::to_string(i) : std::to_string(i * 2)) + ";";
    }
    LoadArguments(all);
    plant.Set(L"P", 2.0);
    EXPECT_EQ(Expand(codes), expanded);
    EXPECT_EQ(Expand(codes), expanded) << "once more";
}

TEST_F(KTEventDriverAnnotation, AGroupThatIsGoneStaysAndKeepsItsPlace)
{
    EXPECT_EQ(Expand("%g1 %g2 %g3 %g4"), "Water & air %g2 Cold %g4");
    EXPECT_EQ(Expand("%g %g0 %g02 %g03 %gx"), "%g %g0 %g02 Cold %gx");
    Load("");
    EXPECT_EQ(Expand("%g1"), "%g1") << "of none";
    KTEventDriverGroup nameless;
    event.groups = {&nameless};
    EXPECT_EQ(Expand("%g1"), "%g1");
}

TEST_F(KTEventDriverAnnotation, WithoutATimeTableAWordStandsInItsPlace)
{
    Load("");
    EXPECT_EQ(Expand("%d"), "No time table");
    Load(Element("timeTable", "{gone}"));
    EXPECT_EQ(Expand("%d"), "No time table");
}

TEST_F(KTEventDriverAnnotation, WithoutAStopConditionOrADescriptionThereIsNothing)
{
    Load("");
    EXPECT_EQ(Expand("<%s>"), "<>");
    EXPECT_EQ(Expand("<%t>"), "<>");
    EXPECT_EQ(Expand("%s"), "");
    Load("<conditionStop>no condition</conditionStop>");
    EXPECT_EQ(event.conditionStopEvaluator, nullptr);
    EXPECT_EQ(Expand("%s"), "no condition") << "as the document has it, good or bad";
}

TEST_F(KTEventDriverAnnotation, DelaysAreWholeSeconds)
{
    const struct
    {
        std::uint32_t milliseconds;
        const char* seconds;
    } rows[] = {{0, "0"},
                {999, "0"},
                {1000, "1"},
                {2000, "2"},
                {2999, "2"},
                {0xFFFFFFFF, "4294967"},
                {86400000, "86400"},
                {0U - 1000U, "4294966"}};
    for (const auto& row : rows)
    {
        event.delayToActivate = row.milliseconds;
        event.delayToDeactivate = 0;
        EXPECT_EQ(Expand("%b/%e"), row.seconds + std::string("/0"));
        std::swap(event.delayToActivate, event.delayToDeactivate);
        EXPECT_EQ(Expand("%b/%e"), std::string("0/") + row.seconds);
    }
}

TEST_F(KTEventDriverAnnotation, TextsAreReadFromTheDocumentAsItStands)
{
    XmlDocument document;
    ASSERT_TRUE(document.Parse(
        EventXml(1, "old", "FALSE",
                 "<description>old text</description>" + Element("arguments", ArgumentXml("1.25", ".1", "F")))
            .c_str()));
    TestEvent edited;
    ASSERT_TRUE(edited.LoadXml(document.Root()));
    EXPECT_EQ(Expand(edited, "%n %c [%s] %t %a1"), "old FALSE [] old text 1.3");
    XmlDocument::XmlNode* const root = document.Root();
    root->SetValue(L"name", L"new");
    root->SetValue(L"condition", L"not even one");
    root->SetValue(L"conditionStop", L"TRUE");
    root->SetValue(L"description", L"new text");
    XmlDocument::XmlNode* const argument = root->Node(L"arguments/argument");
    argument->SetValue(L"value", L"1250.25");
    EXPECT_EQ(Expand(edited, "%n %c [%s] %t %a1"), "new not even one [TRUE] new text 1250.3");
    argument->SetValue(L"format", L".02");
    EXPECT_EQ(Expand(edited, "%a1"), "1250.25");
    argument->SetValue(L"thousandSeparator", L"T");
    EXPECT_EQ(Expand(edited, "%a1"), "1,250.25");
    argument->SetValue(L"value", L"a word");
    EXPECT_EQ(Expand(edited, "%a1"), "a word");
    argument->SetValue(L"value", L"");
    EXPECT_EQ(Expand(edited, "%a1"), "%a1");
    EXPECT_EQ(edited.Name(), L"old") << "the fields are those of the load";
}

TEST_F(KTEventDriverAnnotation, TheOutputIsReplacedAndMayBeTheTemplate)
{
    KTWideString text(L"%n and %n");
    EXPECT_TRUE(event.ParseAnnotation(text, text));
    EXPECT_EQ(text, L"Pump & fan and Pump & fan");
    EXPECT_TRUE(event.ParseAnnotation(text, KTWideString()));
    EXPECT_TRUE(text.Empty());
}

TEST_F(KTEventDriverAnnotation, AnEventThatWasNeverLoadedHasEmptyTexts)
{
    TestEvent fresh;
    EXPECT_EQ(Expand(fresh, "<%n%c%s%t> %a1 %g1 %b %e %d"), "<> %a1 %g1 0 0 No time table");
}

TEST_F(KTEventDriverAnnotation, IsExpandedAtTheActivationAndFrozenInTheOccurrence)
{
    TestClock clock;
    Load(Element("annotation", "%n &lt; %a1") + Element("arguments", ArgumentXml("[T.P]")));
    plant.Set(L"P", 1.0);
    ASSERT_TRUE(event.Work(KTDateTime::LTC()));
    ASSERT_TRUE(event.IsEnabled());
    EXPECT_EQ(event.Annotation(), L"Pump & fan < 1");
    ASSERT_EQ(event.Occurrences().size(), 1U);
    EXPECT_STREQ(event.Occurrences().front()->annotation.Str(), "Pump &amp; fan &lt; 1");
}

TEST_F(KTEventDriverAnnotation, TemplatesMayBeOfAnySize)
{
    constexpr int many = 200'000;
    std::string codes;
    std::string expanded;
    for (int i = 0; i < many; ++i)
    {
        codes += "%n,%a2,%g2;";
        expanded += "Pump & fan,-6,%g2;";
    }
    EXPECT_TRUE(Expand(codes) == expanded);
    const std::string digits(3'000'000, '9');
    EXPECT_TRUE(Expand("%a" + digits + "%g" + digits) == "%a" + digits + "%g" + digits);
    EXPECT_TRUE(Expand("%a" + std::string(3'000'000, '0') + "2") == "-6");
    EXPECT_TRUE(Expand(std::string(2'000'000, '%')) == std::string(1'000'000, '%'));
    EXPECT_TRUE(Expand(std::string(2'000'001, '%')) == std::string(1'000'000, '%'));
}

TEST_F(KTEventDriverAnnotation, CodesThatStandForMoreThanAnyoneCanReadStay)
{
    // 32 Mi characters: a long description, shown more often than memory would hold.
    constexpr std::size_t length = 1U << 20;
    constexpr std::size_t shown = 32;
    Load(Element("description", std::string(length, 'd')));
    std::string codes;
    for (std::size_t i = 0; i < shown + 3; ++i) codes += "%t ";
    KTWideString out;
    EXPECT_TRUE(event.ParseAnnotation(out, Wide(codes + "and %% %n")));
    const std::wstring_view text(out.Str(), static_cast<std::size_t>(out.Length()));
    constexpr std::size_t all = shown * (length + 1);
    ASSERT_GE(text.size(), all);
    EXPECT_TRUE(text.substr(all) == L"%t %t %t and %% %n");
    EXPECT_EQ(text[all - 2], L'd');
}

TEST_F(KTEventDriverAnnotation, ThreadsExpandTheSameEventAtOnce)
{
    constexpr int threads = 4;
    constexpr int rounds = 2000;
    std::atomic<bool> done = false;
    std::atomic<int> wrong = 0;
    plant.Set(L"P", 1.0);
    const std::string tail = " Water & air Night shift 2 Pump & fan [T.P]=1 Draws <too> much night shift [T.none] + 1";
    std::vector<std::thread> crew;
    for (int i = 0; i < threads; ++i)
        crew.emplace_back(
            [&]
            {
                KTWideString out;
                const KTWideString text(L"%a1 %g1 %d %b %n %c %t %a4 %a6");
                for (int round = 0; round < rounds; ++round)
                {
                    event.ParseAnnotation(out, text);
                    const std::string shown = Utf8(out);
                    if (shown != "01.0" + tail && shown != "1,000.0" + tail && shown != "[T.P]" + tail) ++wrong;
                }
            });
    std::thread meter(
        [&]
        {
            for (int i = 0; !done; ++i) plant.Set(L"P", i % 3 == 0 ? 1000.0 : i % 3 == 1 ? TestDriver::none : 1.0);
        });
    for (std::thread& thread : crew) thread.join();
    done = true;
    meter.join();
    EXPECT_EQ(wrong, 0);
}
