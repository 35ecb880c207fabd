// The occurrences of an event: their status, their dates, their acknowledgement and their end.
#include "DriverFixture.h"
#include "support/TestResponse.h"
#include "support/TestZone.h"

namespace
{
using KTEventDriverOccurrence = DriverFixture;
}

TEST_F(KTEventDriverOccurrence, WithoutNotifyTheStatusGoes457AndTheOccurrenceIsFreedInTheSameScan)
{
    Load();
    NoteActions();
    auto* const occurrence = event.MakeOccurrence();
    EXPECT_EQ(occurrence->status, 4);
    EXPECT_TRUE(event.SetStatus(occurrence, 1));
    EXPECT_EQ(occurrence->status, 5);
    EXPECT_TRUE(event.SetStatus(occurrence, 2));
    EXPECT_EQ(occurrence->status, 7);
    Scan();
    EXPECT_TRUE(event.Occurrences().empty());
    Happened();

    ScanWith(1);
    EXPECT_EQ(Statuses(), std::vector<int>{5});
    EXPECT_FALSE(event.Occurrences().front()->acknowledgeDate.Valid());
    ScanWith(0);
    EXPECT_TRUE(event.Occurrences().empty());
    EXPECT_EQ(Happened(), (Strings{"phase 0", "status 1 gives 5", "phase 2", "status 2 gives 7"}))
        << "acknowledge actions never run";
}

TEST_F(KTEventDriverOccurrence, WithNotifyTheOccurrenceWaitsForBothEnds)
{
    Load("<notify>T</notify>");
    NoteActions();
    ScanWith(1);
    ScanWith(0);
    EXPECT_EQ(Statuses(), std::vector<int>{3});
    Scan();
    EXPECT_EQ(Statuses(), std::vector<int>{3});
    const GUID id = event.Occurrences().front()->id;
    EXPECT_TRUE(Acknowledge(id));
    EXPECT_EQ(Statuses(), std::vector<int>{7}) << "it waits for the sweep";
    EXPECT_TRUE(Acknowledge(id)) << "again as often as asked, and nothing happens";
    Scan();
    EXPECT_TRUE(event.Occurrences().empty());
    EXPECT_FALSE(Acknowledge(id));
    EXPECT_EQ(Happened(),
              (Strings{"phase 0", "status 1 gives 1", "phase 2", "status 2 gives 3", "phase 3", "status 4 gives 7"}));
}

TEST_F(KTEventDriverOccurrence, AnAcknowledgementMayComeFirst)
{
    Load("<notify>T</notify>");
    NoteActions();
    ScanWith(1);
    EXPECT_TRUE(Acknowledge(event.Occurrences().front()->id));
    EXPECT_EQ(Statuses(), std::vector<int>{5});
    ScanWith(0);
    EXPECT_TRUE(event.Occurrences().empty()) << "swept in the very scan";
    EXPECT_EQ(Happened(),
              (Strings{"phase 0", "status 1 gives 1", "phase 3", "status 4 gives 5", "phase 2", "status 2 gives 7"}));
}

TEST_F(KTEventDriverOccurrence, ANewActivationAddsASecondOccurrence)
{
    Load("<notify>T</notify>");
    ScanWith(1);
    ScanWith(0);
    const KTDateTime firstEnd = event.Occurrences().front()->deactivationDate;
    Pass(10'000);
    ScanWith(1);
    EXPECT_EQ(Statuses(), (std::vector<int>{3, 1})) << "oldest first";
    EXPECT_FALSE(event.Occurrences().front()->id == event.Occurrences().back()->id);
    Happened();
    Pass(10'000);
    ScanWith(0);
    EXPECT_EQ(Statuses(), (std::vector<int>{3, 3}));
    EXPECT_EQ(event.Occurrences().front()->deactivationDate, firstEnd) << "the old one is left alone";
    EXPECT_EQ(Happened(), Strings{"status 2 gives 3"}) << "one change, not two";
    const GUID second = event.Occurrences().back()->id;
    EXPECT_TRUE(Acknowledge(second));
    Scan();
    EXPECT_EQ(Statuses(), std::vector<int>{3});
    EXPECT_FALSE(Acknowledge(second));
}

TEST_F(KTEventDriverOccurrence, ADeactivationReachesEveryOpenOccurrenceFromTheOldestOn)
{
    Load("<notify>T</notify>");
    ScanWith(1);
    // A second open occurrence: whoever activates by hand beside the scan.
    event.SetStatus(event.MakeOccurrence(), 1);
    std::vector<GUID> closed;
    TestObserver order(
        [&](const KTEventDriver&, const KTEventDriver::tagSEventRT& occurrence, int status)
        {
            EXPECT_EQ(status, 2);
            closed.push_back(occurrence.id);
        });
    const std::vector<GUID> oldestFirst{event.Occurrences().front()->id, event.Occurrences().back()->id};
    ScanWith(0);
    EXPECT_EQ(closed, oldestFirst);
    EXPECT_EQ(Statuses(), (std::vector<int>{3, 3}));
}

TEST_F(KTEventDriverOccurrence, TheSweepFreesEachFinishedOccurrenceAndNoOther)
{
    Load("<notify>T</notify>");
    std::vector<GUID> ids;
    for (int i = 0; i < 5; ++i)
    {
        ScanWith(1);
        ScanWith(0);
        ids.push_back(event.Occurrences().back()->id);
    }
    for (const std::size_t i : {0U, 2U, 4U}) EXPECT_TRUE(Acknowledge(ids[i]));
    EXPECT_EQ(Statuses(), (std::vector<int>{7, 3, 7, 3, 7}));
    table.open = false;
    Scan();  // a closed table too ends in a sweep
    ASSERT_EQ(Statuses(), (std::vector<int>{3, 3}));
    EXPECT_EQ(event.Occurrences().front()->id, ids[1]);
    EXPECT_EQ(event.Occurrences().back()->id, ids[3]);
}

TEST_F(KTEventDriverOccurrence, AnAcknowledgementOfAnUnknownIdentifierIsFalse)
{
    Load("<notify>T</notify>");
    EXPECT_FALSE(Acknowledge(TestId(5)));
    ScanWith(1);
    EXPECT_FALSE(Acknowledge(TestId(5)));
    EXPECT_FALSE(Acknowledge(TestId(1))) << "the event's own isn't the occurrence's";
    EXPECT_EQ(Statuses(), std::vector<int>{1});
}

TEST_F(KTEventDriverOccurrence, SetsEachStatusOnceAndInOrder)
{
    const struct
    {
        int before;
        int status;
        bool result;
        int after;
    } rows[] = {
        {0, 1, true, 1},  {4, 1, true, 5},  {1, 1, false, 1}, {5, 1, false, 5}, {3, 1, false, 3},     {7, 1, false, 7},
        {0, 2, false, 0}, {4, 2, false, 4}, {1, 2, true, 3},  {5, 2, true, 7},  {3, 2, false, 3},     {7, 2, false, 7},
        {0, 4, false, 0}, {1, 4, true, 5},  {3, 4, true, 7},  {5, 4, false, 5}, {7, 4, false, 7},     {4, 4, false, 4},
        {1, 0, false, 1}, {1, 8, false, 1}, {0, 3, false, 0}, {1, 6, false, 1}, {1, 0x100, false, 1}, {7, 8, false, 7},
    };
    Load("<notify>T</notify>");
    for (const auto& row : rows)
    {
        auto* const occurrence = event.MakeOccurrence();
        occurrence->status = row.before;
        Happened();
        EXPECT_EQ(event.SetStatus(occurrence, row.status), row.result) << row.before << " and " << row.status;
        EXPECT_EQ(occurrence->status, row.after) << row.before << " and " << row.status;
        EXPECT_EQ(Happened().size(), row.result ? 1U : 0U) << "told of exactly the changes";
    }
}

TEST_F(KTEventDriverOccurrence, DatesEachChangeInUtcAtItsMoment)
{
    TestZone zone(testZoneOfMadrid);
    Load("<notify>T</notify>");
    clock->SetUtc(Date(2024, 7, 1, 10));
    ScanWith(1);
    const auto& occurrence = *event.Occurrences().front();
    EXPECT_EQ(Text(occurrence.activationDate), "2024-07-01 10:00:00.000000");
    EXPECT_EQ(Text(event.activationTime), "2024-07-01 12:00:00.000000") << "the event's own time is local";
    EXPECT_FALSE(occurrence.deactivationDate.Valid());
    EXPECT_FALSE(occurrence.acknowledgeDate.Valid());
    Pass(1500);
    EXPECT_TRUE(Acknowledge(occurrence.id));
    EXPECT_EQ(Text(occurrence.acknowledgeDate), "2024-07-01 10:00:01.500000");
    EXPECT_FALSE(occurrence.deactivationDate.Valid());
    Pass(1500);
    TestObserver last([](const KTEventDriver&, const KTEventDriver::tagSEventRT& ended, int)
                      { EXPECT_EQ(Text(ended.deactivationDate), "2024-07-01 10:00:03.000000"); });
    ScanWith(0);
    EXPECT_TRUE(event.Occurrences().empty());
}

TEST_F(KTEventDriverOccurrence, ADateThatIsThereAlreadyStays)
{
    Load("<notify>T</notify>");
    NoteActions();
    const KTDateTime old = Date(2001, 1, 1);
    auto* const occurrence = event.MakeOccurrence();
    occurrence->activationDate = old;
    occurrence->deactivationDate = old;
    occurrence->acknowledgeDate = old;
    for (const int status : {1, 2, 4}) EXPECT_TRUE(event.SetStatus(occurrence, status));
    EXPECT_EQ(occurrence->activationDate, old);
    EXPECT_EQ(occurrence->deactivationDate, old);
    EXPECT_EQ(occurrence->acknowledgeDate, old);
    EXPECT_EQ(Happened(), (Strings{"status 1 gives 1", "status 2 gives 3", "status 4 gives 7"}))
        << "and one that was acknowledged before runs no actions";
}

TEST_F(KTEventDriverOccurrence, AcknowledgeActionsRunAfterTheDateAndBeforeTheStatus)
{
    Load("<notify>T</notify>");
    ScanWith(1);
    event.Add(3,
              [&](int phase)
              {
                  EXPECT_EQ(phase, 3);
                  EXPECT_TRUE(event.Occurrences().front()->acknowledgeDate.Valid());
                  EXPECT_EQ(event.Occurrences().front()->status, 1);
                  happened.push_back("action");
                  return true;
              });
    Happened();
    EXPECT_TRUE(Acknowledge(event.Occurrences().front()->id));
    EXPECT_EQ(Happened(), (Strings{"action", "status 4 gives 5"}));
}

TEST_F(KTEventDriverOccurrence, DeactivationActionsRunBeforeTheOccurrencesChange)
{
    Load("<notify>T</notify>");
    ScanWith(1);
    event.Add(2,
              [&](int)
              {
                  EXPECT_EQ(Statuses(), std::vector<int>{1});
                  EXPECT_FALSE(event.Occurrences().front()->deactivationDate.Valid());
                  return true;
              });
    ScanWith(0);
    EXPECT_EQ(Statuses(), std::vector<int>{3});
}

TEST_F(KTEventDriverOccurrence, TheAnnotationOfAnOccurrenceIsFrozen)
{
    Load("<notify>T</notify><annotation>a &lt; b &amp; \"c\" \xC3\xA9</annotation>");
    ScanWith(1);
    EXPECT_EQ(event.Annotation(), L"a < b & \"c\" \x00E9");
    const auto& occurrence = *event.Occurrences().front();
    EXPECT_EQ(occurrence.annotation, "a &lt; b &amp; &quot;c&quot; \xC3\xA9");
    ScanWith(0);
    EXPECT_TRUE(event.Annotation().Empty());
    EXPECT_EQ(occurrence.annotation, "a &lt; b &amp; &quot;c&quot; \xC3\xA9");
    event.annotationTemplate = L"next";
    ScanWith(1);
    EXPECT_EQ(event.Occurrences().back()->annotation, "next");
    EXPECT_EQ(occurrence.annotation, "a &lt; b &amp; &quot;c&quot; \xC3\xA9");
}

TEST_F(KTEventDriverOccurrence, EachOccurrenceHasAFreshIdentifier)
{
    Load("<notify>T</notify>");
    for (int i = 0; i < 50; ++i)
    {
        ScanWith(1);
        ScanWith(0);
    }
    const std::vector<KTEventDriver::tagSEventRT*> all(event.Occurrences().begin(), event.Occurrences().end());
    ASSERT_EQ(all.size(), 50U);
    for (std::size_t i = 0; i < all.size(); ++i)
    {
        EXPECT_FALSE(all[i]->id == nullGuid);
        for (std::size_t j = 0; j < i; ++j) ASSERT_FALSE(all[i]->id == all[j]->id);
    }
}

TEST_F(KTEventDriverOccurrence, WhenTheMutexCannotBeTakenNothingChanges)
{
    Load("<notify>T</notify>");
    ScanWith(1);
    const GUID id = event.Occurrences().front()->id;
    TestResponse response;
    bool ran = false;
    // An action runs under the event's mutex: what it asks of its own event can't be had.
    event.Add(1,
              [&](int)
              {
                  ran = true;
                  plant.Set(L"C", 0.0);
                  EXPECT_FALSE(event.Work(KTDateTime::LTC()));
                  EXPECT_FALSE(event.ProcessHttpServiceAck(id));
                  EXPECT_FALSE(event.ProcessHttpServiceAck(event.Occurrences().front()));
                  EXPECT_FALSE(event.ProcessHttpServiceEventsNotified(response));
                  KTEventDriver::OccurrenceIndex index;
                  event.IndexOccurrences(index);
                  EXPECT_TRUE(index.empty());
                  return true;
              });
    ScanWith(1);
    EXPECT_TRUE(ran);
    EXPECT_TRUE(event.IsEnabled());
    EXPECT_EQ(Statuses(), std::vector<int>{1});
    EXPECT_TRUE(response.pieces.empty());
    EXPECT_TRUE(Acknowledge(id)) << "afterwards it can";
}

TEST_F(KTEventDriverOccurrence, IndexesItsOccurrencesForManyAcknowledgements)
{
    Load("<notify>T</notify>");
    ScanWith(1);
    ScanWith(0);
    ScanWith(1);
    KTEventDriver::OccurrenceIndex index;
    event.IndexOccurrences(index);
    ASSERT_EQ(index.size(), 2U);
    for (auto* occurrence : event.Occurrences())
    {
        const auto found = index.find(occurrence->id);
        ASSERT_NE(found, index.end());
        EXPECT_EQ(found->second.event, &event);
        EXPECT_EQ(found->second.occurrence, occurrence);
    }
}

// The road of one event with a delay of 2 s, scan by scan.
TEST_F(KTEventDriverOccurrence, TheRoadOfOneEvent)
{
    Load("<delayToActivate>2</delayToActivate><notify>T</notify><annotation>why</annotation>");
    NoteActions();
    ScanWith(1);
    EXPECT_TRUE(Happened().empty());
    Pass(1005);
    Scan();
    EXPECT_TRUE(Happened().empty());
    Pass(1005);
    Scan();
    EXPECT_EQ(Happened(), (Strings{"phase 0", "status 1 gives 1"}));
    Pass(1005);
    Scan();
    EXPECT_EQ(Happened(), Strings{"phase 1"});
    Pass(1005);
    ScanWith(0);
    EXPECT_EQ(Happened(), (Strings{"phase 2", "status 2 gives 3"}));
    EXPECT_EQ(event.Occurrences().size(), 1U);
    EXPECT_TRUE(Acknowledge(event.Occurrences().front()->id));
    EXPECT_EQ(Happened(), (Strings{"phase 3", "status 4 gives 7"}));
    Scan();
    EXPECT_TRUE(event.Occurrences().empty());
    EXPECT_TRUE(Happened().empty());
}
