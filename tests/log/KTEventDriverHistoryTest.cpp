// What a query finds in an event's files, and which of them it opens for that.

#include <list>
#include <memory>

#include "HistoryFixture.h"
#include "support/TestClock.h"
#include "support/TestEvent.h"

namespace
{
class KTEventDriverHistory : public HistoryFixture
{
protected:
    void WriteWhole(unsigned occurrence, const KTDateTime& began, int seconds)
    {
        const KTDateTime ended = began + KTDateTimeSpan(std::int64_t{seconds} * 1'000'000);
        Write(occurrence, began, activation);
        Write(occurrence, ended, deactivation);
        Write(occurrence, ended, acknowledgement);
    }
};

// The operations on single files, within reach.
class OpenEvent : public KTEventDriver
{
public:
    using KTEventDriver::EventFileName;
    using KTEventDriver::id;
    using KTEventDriver::Load;
    using KTEventDriver::LoadIncomplete;
    using KTEventDriver::name;
    using KTEventDriver::notify;
    using KTEventDriver::SearchActivationBeforePeriod;
};

// The pump, and the path of its log of March 2024.
struct PumpInMarch
{
    PumpInMarch()
    {
        event.name = L"pump";
        event.id = TestId(9);
        event.EventFileName(path, Date(2024, 3, 1), 0);
    }

    OpenEvent event;
    wchar_t path[OpenEvent::pathSize];
};
}  // namespace

TEST_F(KTEventDriverHistory, WithoutFilesTheResultIsFalse)
{
    EXPECT_TRUE(Ask(Date(2024, 3, 1), Date(2024, 6, 1), true).empty());
    EXPECT_FALSE(result);
    EXPECT_TRUE(Opened().empty());
}

TEST_F(KTEventDriverHistory, APeriodWithinAMonthOpensOneFile)
{
    WriteWhole(1, Date(2024, 3, 5), 60);
    EXPECT_EQ(Ask(Date(2024, 3, 1), Date(2024, 3, 31)), Strings{"1: 60/60"});
    EXPECT_TRUE(result);
    EXPECT_EQ(Opened(), Strings{"03-2024"});
}

TEST_F(KTEventDriverHistory, TheSameFileIsOpenedAgainForWhatStayedIncomplete)
{
    Write(1, Date(2024, 3, 5), activation);
    Write(1, Date(2024, 3, 5, 0, 1), deactivation);
    Write(1, Date(2024, 3, 25), acknowledgement);
    File("pump", 2024, 4);
    EXPECT_EQ(Ask(Date(2024, 3, 1), Date(2024, 3, 20)), Strings{"1: 60/1728000"});
    EXPECT_EQ(Opened(), (Strings{"03-2024", "03-2024"}));
}

TEST_F(KTEventDriverHistory, TheNextMonthIsOpenedForWhatIsIncompleteStill)
{
    Write(1, Date(2024, 3, 5), activation);
    Write(1, Date(2024, 3, 25), acknowledgement);
    Write(1, Date(2024, 4, 5), deactivation);
    EXPECT_EQ(Ask(Date(2024, 3, 1), Date(2024, 3, 20)), Strings{"1: 2678400/1728000"});
    EXPECT_EQ(Opened(), (Strings{"03-2024", "03-2024", "04-2024"}));
}

TEST_F(KTEventDriverHistory, FromMonthToMonthBothAreReadAndTheSecondAgainForCompletions)
{
    Write(1, Date(2024, 3, 20), activation);
    Write(2, Date(2024, 4, 10), activation);
    Write(1, Date(2024, 4, 12), deactivation);
    Write(1, Date(2024, 4, 12), acknowledgement);
    Write(2, Date(2024, 4, 20), deactivation);
    Write(2, Date(2024, 4, 20), acknowledgement);
    EXPECT_EQ(Ask(Date(2024, 3, 15), Date(2024, 4, 15)), (Strings{"1: 1987200/1987200", "2: 864000/864000"}));
    EXPECT_EQ(Opened(), (Strings{"03-2024", "04-2024", "04-2024"}));
}

TEST_F(KTEventDriverHistory, AnEndAtMidnightOfTheFirstStillFindsWhatEndedThatDay)
{
    Write(1, Date(2024, 3, 31, 12), activation);
    Write(1, Date(2024, 4, 2, 12), deactivation);
    EXPECT_EQ(Ask(Date(2024, 3, 1), Date(2024, 4, 1)), Strings{"1: 172800/-"});
    EXPECT_EQ(Opened(), (Strings{"03-2024", "04-2024", "04-2024"})) << "the month of the end belongs to the period";
}

TEST_F(KTEventDriverHistory, WithoutNotificationTheDeactivationAloneCompletes)
{
    registry.Load({"pump"});
    Write(1, Date(2024, 3, 5), activation);
    Write(1, Date(2024, 3, 6), deactivation);
    File("pump", 2024, 4);
    EXPECT_EQ(Ask(Date(2024, 3, 1), Date(2024, 3, 20)), Strings{"1: 86400/-"});
    EXPECT_EQ(Opened(), Strings{"03-2024"});
}

TEST_F(KTEventDriverHistory, TheEndOfThePeriodBelongsToTheNext)
{
    for (const unsigned day : {1U, 2U, 3U}) WriteWhole(day, Date(2024, 3, static_cast<int>(day)), 60);
    EXPECT_EQ(Ask(Date(2024, 3, 1), Date(2024, 3, 3)), (Strings{"1: 60/60", "2: 60/60"}));
    EXPECT_EQ(Ask(Date(2024, 3, 1, 0, 0, 1), Date(2024, 3, 3, 0, 0, 1)), (Strings{"2: 60/60", "3: 60/60"}));
    EXPECT_TRUE(Ask(Date(2024, 3, 3), Date(2024, 3, 3)).empty());
    EXPECT_TRUE(result) << "there was a file to read";
    EXPECT_TRUE(Ask(Date(2024, 3, 3), Date(2024, 3, 1)).empty());
    EXPECT_TRUE(result) << "the same month";
    EXPECT_TRUE(Ask(Date(2024, 3, 3), Date(2024, 2, 1)).empty());
    EXPECT_FALSE(result);
}

TEST_F(KTEventDriverHistory, MissingMonthsAddNothing)
{
    WriteWhole(1, Date(2023, 11, 5), 60);
    WriteWhole(2, Date(2024, 2, 5), 60);
    EXPECT_EQ(Ask(Date(2023, 10, 1), Date(2024, 4, 1)), (Strings{"1: 60/60", "2: 60/60"}));
    EXPECT_TRUE(result);
    EXPECT_EQ(Opened(), (Strings{"11-2023", "02-2024"}));
    EXPECT_TRUE(Ask(Date(2023, 12, 1), Date(2024, 1, 20)).empty());
    EXPECT_FALSE(result);
}

TEST_F(KTEventDriverHistory, AnOccurrenceMayTakeThreeMonths)
{
    Write(1, Date(2023, 11, 30, 23, 59, 50), activation, "began");
    Write(1, Date(2023, 12, 1), acknowledgement);
    Write(1, Date(2024, 1, 1), deactivation);
    EXPECT_EQ(Ask(Date(2023, 11, 1), Date(2024, 2, 1)), Strings{"1: 2678410/10"});
    EXPECT_EQ(Ask(Date(2023, 11, 1), Date(2023, 12, 31)), Strings{"1: 2678410/10"});
    EXPECT_EQ(Opened(), (Strings{"11-2023", "12-2023", "12-2023", "01-2024"}));
}

TEST_F(KTEventDriverHistory, WhatEndsMoreThanAMonthAfterThePeriodIsNotFound)
{
    Write(1, Date(2024, 1, 31), activation);
    Write(1, Date(2024, 2, 1), acknowledgement);
    Write(1, Date(2024, 3, 1), deactivation);
    EXPECT_EQ(Ask(Date(2024, 1, 1), Date(2024, 1, 31, 1)), Strings{"1: -/86400"});
    EXPECT_EQ(Opened(), (Strings{"01-2024", "01-2024", "02-2024"}));
}

TEST_F(KTEventDriverHistory, ADeactivationWithoutItsActivationAddsNothing)
{
    Write(1, Date(2024, 3, 5), activation);
    Write(1, Date(2024, 3, 15), deactivation);
    Write(1, Date(2024, 3, 16), acknowledgement);
    EXPECT_TRUE(Ask(Date(2024, 3, 10), Date(2024, 3, 20)).empty());
    EXPECT_TRUE(result);
    EXPECT_EQ(Ask(Date(2024, 3, 10), Date(2024, 3, 20), true), Strings{"1: 864000/950400"})
        << "unless what was open before is wanted";
    EXPECT_EQ(Opened(), (Strings{"03-2024", "03-2024"}));
}

TEST_F(KTEventDriverHistory, TheSearchBeforePassesAnAcknowledgement)
{
    Write(1, Date(2024, 3, 5), activation, "text");
    Write(1, Date(2024, 3, 6), acknowledgement);
    Write(2, Date(2024, 3, 25), activation);
    EXPECT_EQ(Ask(Date(2024, 3, 10), Date(2024, 3, 20), true), Strings{"1: -/-"})
        << "the acknowledgement lies before the period and isn't read";
    Write(1, Date(2024, 3, 26), deactivation);
    EXPECT_EQ(Ask(Date(2024, 3, 10), Date(2024, 3, 20), true), Strings{"1: 1814400/-"});
}

TEST_F(KTEventDriverHistory, TheSearchBeforeEndsAtADeactivation)
{
    Write(1, Date(2024, 3, 4), activation);
    Write(2, Date(2024, 3, 5), activation);
    Write(2, Date(2024, 3, 6), deactivation);
    Write(2, Date(2024, 3, 7), acknowledgement);
    Write(3, Date(2024, 3, 25), activation);
    EXPECT_TRUE(Ask(Date(2024, 3, 10), Date(2024, 3, 20), true).empty());
}

TEST_F(KTEventDriverHistory, TheSearchBeforePassesOtherValuesAndDamagedRecords)
{
    Write(1, Date(2024, 3, 4), activation);
    Write(2, Date(2024, 3, 5), deactivation);
    Write(3, Date(2024, 3, 6), 7);
    Write(4, Date(2024, 3, 25), activation);
    File("pump", 2024, 3).records[1].damaged = true;
    EXPECT_EQ(Ask(Date(2024, 3, 10), Date(2024, 3, 20), true), Strings{"1: -/-"});
}

TEST_F(KTEventDriverHistory, WhatBeganAtTheBeginIsInThePeriodAndNotBeforeIt)
{
    WriteWhole(1, Date(2024, 3, 10), 60);
    Write(2, Date(2024, 3, 25), activation);
    EXPECT_EQ(Ask(Date(2024, 3, 10), Date(2024, 3, 20), true), Strings{"1: 60/60"});
}

// The month before is looked at only when its file reaches beyond the begin, which it hardly ever does.
TEST_F(KTEventDriverHistory, TheSearchBeforeHardlyEverFindsAnythingInTheMonthBefore)
{
    Write(1, Date(2024, 2, 20), activation);
    EXPECT_TRUE(Ask(Date(2024, 3, 10), Date(2024, 3, 20), true).empty());
    EXPECT_EQ(Opened(), Strings{"02-2024"});
    EXPECT_FALSE(result) << "no file of the period";
    File("pump", 2024, 2).records.push_back({NaiveFile::Pack(Date(2024, 3, 11)), TestId(2), activation});
    EXPECT_EQ(Ask(Date(2024, 3, 10), Date(2024, 3, 20), true), Strings{"1: -/-"});
    EXPECT_EQ(Opened(), Strings{"02-2024"});
}

TEST_F(KTEventDriverHistory, TheSearchBeforeLooksNoFurtherBackThanAMonth)
{
    for (const int month : {12, 11})
        File("pump", 2023, month).records = {
            {NaiveFile::Pack(Date(2023, month, 5)), TestId(static_cast<unsigned>(month)), activation},
            {NaiveFile::Pack(Date(2025, 1, 1)), TestId(99), activation}};
    EXPECT_EQ(Ask(Date(2024, 1, 10), Date(2024, 1, 20), true), Strings{"12: -/-"}) << "over the turn of the year";
    EXPECT_TRUE(Ask(Date(2024, 2, 10), Date(2024, 2, 20), true).empty());
}

TEST_F(KTEventDriverHistory, ARowFromBeforeThePeriodStandsAtItsOwnDate)
{
    Write(1, Date(2024, 3, 5), activation, "text");
    WriteWhole(2, Date(2024, 3, 12), 60);
    Write(1, Date(2024, 3, 15), deactivation);
    EXPECT_EQ(Ask(Date(2024, 3, 10), Date(2024, 3, 20), true), (Strings{"1: 864000/-", "2: 60/60"}));
    KTEventLoggerData data;
    EXPECT_TRUE(registry.Event(1).Load(data, Date(2024, 3, 10), Date(2024, 3, 20), true));
    const auto* const row = *data.RecordGroup().Begin();
    EXPECT_EQ(row->Time(), Date(2024, 3, 5));
    EXPECT_EQ(row->Annotation(), "text");
    EXPECT_EQ(row->EventId(), TestId(1));
    EXPECT_TRUE(row->Notify());
}

TEST_F(KTEventDriverHistory, OfActivationsWithinASecondTheLaterStandsFirst)
{
    for (const unsigned occurrence : {1U, 2U, 3U}) WriteWhole(occurrence, Date(2024, 3, 5), 0);
    WriteWhole(4, Date(2024, 3, 5, 0, 0, 1), 0);
    EXPECT_EQ(Ask(Date(2024, 3, 1), Date(2024, 3, 20)), (Strings{"3: 0/0", "2: 0/0", "1: 0/0", "4: 0/0"}));
}

// The search for the begin may end in the middle of a run of equal dates; what stands before that isn't read.
TEST_F(KTEventDriverHistory, ARunOfEqualDatesAtTheBeginMayLoseItsFirstRecords)
{
    for (const unsigned occurrence : {1U, 2U, 3U, 4U}) Write(occurrence, Date(2024, 3, 5), activation);
    EXPECT_EQ(Ask(Date(2024, 3, 5), Date(2024, 3, 6)), (Strings{"4: -/-", "3: -/-", "2: -/-"}));
    EXPECT_EQ(Ask(Date(2024, 3, 4, 23, 59, 59), Date(2024, 3, 6)), (Strings{"4: -/-", "3: -/-", "2: -/-", "1: -/-"}));
}

TEST_F(KTEventDriverHistory, DamagedRecordsAreLeftOut)
{
    WriteWhole(1, Date(2024, 3, 5), 60);
    WriteWhole(2, Date(2024, 3, 6), 60);
    WriteWhole(3, Date(2024, 3, 7), 60);
    NaiveFile& file = File("pump", 2024, 3);
    for (const std::size_t record : {0U, 4U, 8U}) file.records[record].damaged = true;
    file.tail = 25;
    EXPECT_EQ(Ask(Date(2024, 3, 1), Date(2024, 3, 20)), (Strings{"2: -/60", "3: 60/-"}));
}

TEST_F(KTEventDriverHistory, AFileWithoutAGoodRecordIsAFile)
{
    Write(1, Date(2024, 3, 5), activation);
    File("pump", 2024, 3).records[0].damaged = true;
    EXPECT_TRUE(Ask(Date(2024, 3, 1), Date(2024, 3, 20), true).empty());
    EXPECT_TRUE(result);
    File("pump", 2024, 3).damagedHeader = true;
    EXPECT_TRUE(Ask(Date(2024, 3, 1), Date(2024, 3, 20), true).empty());
    EXPECT_FALSE(result) << "one whose header is damaged isn't";
}

TEST_F(KTEventDriverHistory, AnImpossibleDateIsBeforeEveryPeriod)
{
    WriteWhole(1, Date(2024, 3, 5), 60);
    WriteWhole(2, Date(2024, 3, 6), 60);
    File("pump", 2024, 3).records[3].packed = NaiveFile::Pack(Date(2024, 3, 6)) & ~(31U << 17);  // day 0
    EXPECT_EQ(Ask(Date(2024, 3, 1), Date(2024, 3, 20)), Strings{"1: 60/60"});
}

TEST_F(KTEventDriverHistory, TheAnnotationIsThatOfTheActivation)
{
    Write(1, Date(2024, 3, 5), activation, "P &gt; 3 kW");
    Write(1, Date(2024, 3, 6), deactivation, "not this");
    Write(2, Date(2024, 3, 7), activation);
    Write(2, Date(2024, 3, 8), deactivation, "nor this");
    Store();
    KTEventLoggerData data;
    registry.Event(1).Load(data, Date(2024, 3, 1), Date(2024, 3, 20), false);
    auto row = data.RecordGroup().Begin();
    EXPECT_EQ((*row++)->Annotation(), "P &gt; 3 kW");
    EXPECT_TRUE((*row)->Annotation().Empty());
}

// Offsets that come again are in no file of ours, and the text then depends on what was read before.
TEST_F(KTEventDriverHistory, ATextWhoseOffsetComesAgainIsTheRememberedOne)
{
    const struct
    {
        const char* what;
        std::uint32_t offsets[3];  // of an activation, its deactivation and the next activation
        const char* text;          // of the second activation
    } rows[] = {
        {"remembered", {16, 16, 16}, "first"},
        {"no longer known after a record without text", {16, 0, 16}, ""},
        {"nor after one that can't be read", {16, 9999, 16}, ""},
        {"read again after another", {16, 24, 16}, "first"},
        {"read for the deactivation", {16, 24, 24}, "second"},
        {"the first of all", {0, 24, 24}, "second"},
        {"none", {16, 24, 0}, ""},
        {"behind what can't be read", {9999, 0, 24}, "second"},
    };
    for (const auto& row : rows)
    {
        NaiveFile& file = File("pump", 2024, 3) = NaiveFile();
        ASSERT_EQ(file.AddText("first"), 16U);
        ASSERT_EQ(file.AddText("second"), 24U);
        file.records = {{NaiveFile::Pack(Date(2024, 3, 5)), TestId(1), activation, row.offsets[0]},
                        {NaiveFile::Pack(Date(2024, 3, 6)), TestId(1), deactivation, row.offsets[1]},
                        {NaiveFile::Pack(Date(2024, 3, 7)), TestId(2), activation, row.offsets[2]}};
        Store();
        KTEventLoggerData data;
        registry.Event(1).Load(data, Date(2024, 3, 1), Date(2024, 3, 20), false);
        ASSERT_NE(data.RecordGroup().Begin(), data.RecordGroup().End());
        EXPECT_EQ((*--data.RecordGroup().End())->Annotation(), row.text) << row.what;
    }
}

TEST_F(KTEventDriverHistory, ALostSideFileLosesTheTextsAlone)
{
    Write(1, Date(2024, 3, 5), activation, "text");
    WriteWhole(2, Date(2024, 3, 6), 60);
    File("pump", 2024, 3).hasSide = false;
    EXPECT_EQ(Ask(Date(2024, 3, 1), Date(2024, 3, 20)), (Strings{"1: -/-", "2: 60/60"}));
}

TEST_F(KTEventDriverHistory, CompletionsBehindThePeriodAlsoServeRowsThatNobodyWaitsFor)
{
    registry.Load({"pump"});  // without notification
    Write(1, Date(2024, 3, 5), activation);
    Write(1, Date(2024, 3, 6), deactivation);
    Write(2, Date(2024, 3, 7), activation);
    Write(1, Date(2024, 3, 25), acknowledgement);
    Write(2, Date(2024, 3, 26), deactivation);
    Write(1, Date(2024, 3, 27), deactivation);
    EXPECT_EQ(Ask(Date(2024, 3, 1), Date(2024, 3, 20)), (Strings{"1: 86400/1728000", "2: 1641600/-"}))
        << "the last record isn't read: nobody waited any more";
}

TEST_F(KTEventDriverHistory, ARowWhoseIdCameTwiceWaitsInVain)
{
    registry.Load({"pump"});
    Write(1, Date(2024, 3, 5), activation);
    Write(1, Date(2024, 3, 6), activation);
    Write(1, Date(2024, 3, 25), deactivation);
    Write(1, Date(2024, 3, 26), deactivation);
    Write(1, Date(2024, 3, 27), deactivation);
    EXPECT_EQ(Ask(Date(2024, 3, 1), Date(2024, 3, 20)), (Strings{"1: 1814400/-", "1: -/-"}))
        << "each completion takes one of the two out of the list, so the third isn't read";
    EXPECT_EQ(Opened(), (Strings{"03-2024", "03-2024"}));
}

TEST_F(KTEventDriverHistory, EventsStandInOneListInTheOrderOfTheirDates)
{
    registry.Load({"b", "a"});
    WriteOf("a", 1, Date(2024, 3, 5), activation);
    WriteOf("a", 1, Date(2024, 3, 9), deactivation);
    WriteOf("b", 2, Date(2024, 3, 4), activation);
    WriteOf("b", 3, Date(2024, 3, 6), activation);
    WriteOf("b", 3, Date(2024, 3, 7), deactivation);
    EXPECT_EQ(Ask(Date(2024, 3, 1), Date(2024, 3, 20)), (Strings{"2: -/-", "1: 345600/-", "3: 86400/-"}));
    EXPECT_TRUE(result);
    history.files.erase(NaiveHistory::Path("a", {2024, 3}));
    EXPECT_EQ(Ask(Date(2024, 3, 1), Date(2024, 3, 20)), (Strings{"2: -/-", "3: 86400/-"}));
    EXPECT_FALSE(result) << "one event has no file";
}

// An event waits for its own rows only: another's incomplete one must not make it open more files.
TEST_F(KTEventDriverHistory, AnEventWaitsOnlyForItsOwnRows)
{
    registry.Load({"a", "b"});
    WriteOf("a", 1, Date(2024, 3, 5), activation);
    WriteOf("b", 2, Date(2024, 3, 5), activation);
    WriteOf("b", 2, Date(2024, 3, 6), deactivation);
    EXPECT_EQ(Ask(Date(2024, 3, 1), Date(2024, 3, 20)), (Strings{"2: 86400/-", "1: -/-"}));
    EXPECT_EQ(Opened(), (Strings{"03-2024", "03-2024", "03-2024"})) << "twice for a, once for b";
}

TEST_F(KTEventDriverHistory, RowsOfAnEarlierLoadWaitToo)
{
    Write(1, Date(2024, 3, 5), activation);
    Write(1, Date(2024, 4, 25), deactivation);
    Write(1, Date(2024, 4, 25), acknowledgement);
    Store();
    KTEventLoggerData data;
    EXPECT_TRUE(registry.Event(1).Load(data, Date(2024, 3, 1), Date(2024, 3, 20), false));
    EXPECT_TRUE(registry.Event(1).Load(data, Date(2024, 4, 1), Date(2024, 4, 2), false));
    EXPECT_EQ(Brief(**data.RecordGroup().Begin()), "1: 4406400/4406400");
}

TEST_F(KTEventDriverHistory, APeriodAtTheEndsOfTheCalendarEnds)
{
    Write(1, Date(2024, 3, 5), activation);
    const KTDateTime none;
    const struct
    {
        KTDateTime begin;
        KTDateTime end;
        std::size_t rows;
    } periods[] = {
        {none, none, 0},
        {none, Date(2024, 4, 1), 0},
        {Date(2024, 3, 1), none, 0},
        {Date(1, 1, 1), Date(1, 2, 1), 0},
        {Date(1, 12, 1), Date(2, 1, 1), 0},
        {Date(9999, 11, 30), Date(9999, 12, 31, 23, 59, 59), 0},
        {Date(1, 1, 1), Date(9999, 12, 31), 1},
    };
    for (const auto& period : periods)
        for (const bool searchBefore : {false, true})
        {
            EXPECT_EQ(Ask(period.begin, period.end, searchBefore).size(), period.rows)
                << Text(period.begin) << " to " << Text(period.end);
            EXPECT_EQ(result, period.rows > 0);
        }
}

TEST_F(KTEventDriverHistory, TheCompletionOfAnotherEventsRowLeavesThePendingListAsItIs)
{
    Write(1, Date(2024, 3, 5), deactivation);
    Write(2, Date(2024, 3, 6), deactivation);
    Store();
    PumpInMarch pump;
    OpenEvent& event = pump.event;
    const wchar_t* const path = pump.path;
    KTEventLoggerData data;
    data.AddRecord(TestId(8), TestId(1), Date(2024, 3, 1), 1, KTNarrowString(), false);
    data.AddRecord(TestId(9), TestId(1), Date(2024, 3, 1), 1, KTNarrowString(), false);
    data.AddRecord(TestId(9), TestId(2), Date(2024, 3, 1), 1, KTNarrowString(), false);
    std::list<GUID> pending{TestId(1), TestId(2)};
    EXPECT_TRUE(event.LoadIncomplete(data, Date(2024, 3, 2), path, pending));
    EXPECT_EQ(pending, std::list<GUID>{TestId(1)}) << "the row that the index knows is the other event's";
}

TEST_F(KTEventDriverHistory, EachCompletedRowLeavesThePendingListOnce)
{
    Write(1, Date(2024, 3, 5), deactivation);
    Write(2, Date(2024, 3, 6), deactivation);
    Write(3, Date(2024, 3, 7), deactivation);
    Write(4, Date(2024, 3, 8), deactivation);
    Store();
    PumpInMarch pump;
    OpenEvent& event = pump.event;
    const wchar_t* const path = pump.path;
    KTEventLoggerData data;
    for (const unsigned occurrence : {1U, 2U, 3U, 5U})
        data.AddRecord(TestId(9), TestId(occurrence), Date(2024, 3, 1), 1, KTNarrowString(), occurrence == 3);
    std::list<GUID> pending;
    for (const unsigned occurrence : {2U, 7U, 2U, 1U, 3U, 5U}) pending.push_back(TestId(occurrence));
    EXPECT_TRUE(event.LoadIncomplete(data, Date(2024, 3, 5), path, pending));
    EXPECT_EQ(pending, (std::list<GUID>{TestId(7), TestId(2), TestId(3), TestId(5)}))
        << "the first of the two, and no row that waits for its acknowledgement";
    EXPECT_TRUE(event.LoadIncomplete(data, Date(2024, 3, 6), path, pending));
    EXPECT_EQ(pending, (std::list<GUID>{TestId(7), TestId(3), TestId(5)}));
    EXPECT_TRUE(event.LoadIncomplete(data, Date(2024, 3, 9), path, pending));
    EXPECT_EQ(pending.size(), 3U);
    EXPECT_FALSE(event.LoadIncomplete(data, Date(2024, 3, 1), L"/nowhere.suc", pending));
}

TEST_F(KTEventDriverHistory, OneFileOfAPeriodTellsWhetherItCouldBeOpened)
{
    WriteWhole(1, Date(2024, 3, 5), 60);
    Store();
    OpenEvent event;
    event.name = L"pump";
    wchar_t path[OpenEvent::pathSize];
    KTEventLoggerData data;
    event.EventFileName(path, Date(2024, 3, 1), 0);
    EXPECT_TRUE(event.Load(data, Date(2024, 3, 1), Date(2024, 3, 2), path));
    EXPECT_TRUE(event.Load(data, Date(2024, 3, 6), Date(2024, 3, 7), path)) << "nothing of the period is in it";
    EXPECT_EQ(data.RecordGroup().Begin(), data.RecordGroup().End());
    EXPECT_TRUE(event.Load(data, Date(2024, 3, 5), Date(2024, 3, 7), path));
    EXPECT_EQ(Brief(**data.RecordGroup().Begin()), "1: 60/60");
    EXPECT_FALSE(event.Load(data, Date(2024, 3, 1), Date(2024, 3, 2), L""));
    EXPECT_TRUE(event.SearchActivationBeforePeriod(data, Date(2024, 3, 1))) << "also where nothing is found";
}

// From the state machine through the files to the rows.
TEST_F(KTEventDriverHistory, WhatAnEventRecordsIsWhatAQueryFinds)
{
    TestClock clock(Date(2024, 1, 31, 23, 59, 50));
    TestEvent event;
    ASSERT_TRUE(event.LoadText(EventXml(1, "pump", "1=1", "<notify>T</notify><record>T</record>")));
    files.files.clear();
    event.annotationText = L"P > 3";
    auto* const occurrence = event.MakeOccurrence();
    const GUID id = occurrence->id;
    EXPECT_TRUE(event.SetStatus(occurrence, 1));
    clock->Advance(std::chrono::seconds(20));
    EXPECT_TRUE(event.SetStatus(occurrence, 2));
    clock->Advance(std::chrono::hours(24 * 29));
    EXPECT_TRUE(event.SetStatus(occurrence, 4));
    files.opened.clear();

    KTEventLoggerData data;
    EXPECT_TRUE(event.Load(data, Date(2024, 1, 1), Date(2024, 2, 1), false));
    ASSERT_NE(data.RecordGroup().Begin(), data.RecordGroup().End());
    const auto* const row = *data.RecordGroup().Begin();
    EXPECT_EQ(row->RecordId(), id);
    EXPECT_EQ(row->EventId(), TestId(1));
    EXPECT_EQ(row->Time(), Date(2024, 1, 31, 23, 59, 50));
    EXPECT_EQ(row->Annotation(), "P &gt; 3");
    EXPECT_EQ(row->DisableOffset(), 20U);
    EXPECT_EQ(row->AckOffset(), 20U + 29 * 86'400);
    EXPECT_EQ(Opened(), (Strings{"01-2024", "02-2024", "02-2024", "03-2024"}));
}
