#include "engine/KTEventDriver.h"

#include "DriverFixture.h"
#include "host/KTEvaluator.h"
#include "support/TestZone.h"

namespace
{
using KTEventDriverTest = DriverFixture;

// A compiled expression, whatever its kind.
KTEvaluator* Compiled(const wchar_t* text)
{
    auto* const evaluator = new KTEvaluator(text);
    EXPECT_GE(evaluator->AnalizeExpression(), 0);
    return evaluator;
}
}  // namespace

TEST_F(KTEventDriverTest, StartsInactiveWithEverythingEmpty)
{
    EXPECT_FALSE(event.IsEnabled());
    EXPECT_EQ(event.ActivedSeconds(), 0);
    EXPECT_EQ(event.Id(), nullGuid);
    EXPECT_TRUE(event.Name().Empty());
    EXPECT_TRUE(event.Description().Empty());
    EXPECT_TRUE(event.Annotation().Empty());
    EXPECT_FALSE(event.Notify());
    EXPECT_FALSE(event.Record());
    EXPECT_FALSE(event.RssActivate());
    EXPECT_FALSE(event.RssDeactivate());
    EXPECT_FALSE(event.RssAcknowledge());
    EXPECT_EQ(event.Node(), nullptr);
    EXPECT_EQ(event.delayToActivate, 0U);
    EXPECT_EQ(event.delayToDeactivate, 0U);
    EXPECT_FALSE(event.activationTime.Valid());
}

TEST_F(KTEventDriverTest, TellsItsRuntimeClass)
{
    EXPECT_STREQ(event.GetRuntimeClass()->name, "KTEventDriver");
    EXPECT_TRUE(event.IsKindOf(&KTEventDriver::classKTEventDriver));
    EXPECT_TRUE(event.IsKindOf(&CObject::classCObject));
}

TEST_F(KTEventDriverTest, WithoutAConditionIsNeverActive)
{
    EXPECT_FALSE(event.NeedCheck(KTDateTime::LTC()));
    EXPECT_FALSE(event.CheckEvent());
    Scan();
    EXPECT_FALSE(event.IsEnabled());
    EXPECT_TRUE(event.Occurrences().empty());
}

TEST_F(KTEventDriverTest, AsksItsTimeTableForTheScansInstant)
{
    Load();
    const KTDateTime now = Date(2024, 5, 6, 7, 8, 9);
    EXPECT_TRUE(event.Work(now));
    ASSERT_EQ(table.asked.size(), 1U);
    EXPECT_EQ(table.asked[0], now);
    table.open = false;
    EXPECT_FALSE(event.NeedCheck(now));
    event.timeTable = nullptr;
    EXPECT_TRUE(event.NeedCheck(now));
}

TEST_F(KTEventDriverTest, WithoutADelayBecomesActiveAtTheFirstScanAtWhichItHolds)
{
    Load();
    ScanWith(0);
    EXPECT_FALSE(event.IsEnabled());
    ScanWith(1);
    EXPECT_TRUE(event.IsEnabled());
    ASSERT_EQ(event.Occurrences().size(), 1U);
    ScanWith(1);
    EXPECT_EQ(event.Occurrences().size(), 1U);
    ScanWith(0);
    EXPECT_FALSE(event.IsEnabled());
}

TEST_F(KTEventDriverTest, OnlyALogicalResultOfExactlyOneIsTrue)
{
    const struct
    {
        const wchar_t* condition;
        bool holds;
    } rows[] = {
        {L"[T.C]=1", true},
        {L"TRUE", true},
        {L"[T.C]=2", false},
        {L"FALSE", false},
        {L"[T.C]", false},  // numeric: 1.0, and still not logical
        {L"2", false},
        {L"1", false},
        {L"[T.C]+1", false},
        {L"[T.gone]=1", false},  // an unknown variable
        {L"[gone.C]=1", false},  // an unknown device
        {L"[T.none]=1", false},  // a variable without value
        {L"1/0=1", false},       // a division by zero
        {L"NOT ([T.none]=1)", false},
    };
    Load();
    plant.Set(L"C", 1.0);
    for (const auto& row : rows)
    {
        delete std::exchange(event.conditionEvaluator, Compiled(row.condition));
        EXPECT_EQ(event.CheckEvent(), row.holds) << Utf8(KTWideString(row.condition));
    }
}

TEST_F(KTEventDriverTest, AFailedEvaluationLeavesAnInactiveEventInactiveAndClearsItsDelay)
{
    Load("<delayToActivate>5</delayToActivate>");
    ScanWith(1);
    EXPECT_NE(event.delayOnCounter, 0U);
    Pass(4000);
    ScanWith(noValue);
    EXPECT_EQ(event.delayOnCounter, 0U);
    Pass(4000);
    ScanWith(1);
    EXPECT_FALSE(event.IsEnabled());
}

TEST_F(KTEventDriverTest, AFailedEvaluationBeginsToDeactivateAnActiveEvent)
{
    Load("<delayToDeactivate>2</delayToDeactivate>");
    ScanWith(1);
    ScanWith(noValue);
    EXPECT_TRUE(event.IsEnabled());
    EXPECT_NE(event.delayOffCounter, 0U);
    Pass(2000);
    Scan();
    EXPECT_FALSE(event.IsEnabled());
}

TEST_F(KTEventDriverTest, AnActiveEventWithAStopConditionHoldsUntilThatIsTrue)
{
    const struct
    {
        const char* what;
        double condition;
        double stop;
        bool stays;
    } rows[] = {
        {"both false", 0, 0, true},
        {"only the condition", 1, 0, true},
        {"the condition fails", noValue, 0, true},
        {"the stop condition fails", 0, noValue, true},
        {"both fail", noValue, noValue, true},
        {"stop while the condition holds", 1, 1, false},
        {"stop while the condition fails", noValue, 1, false},
        {"a stop value that isn't 1", 0, 2, true},
    };
    for (const auto& row : rows)
    {
        TestEvent fresh;
        ASSERT_TRUE(fresh.LoadText(EventXml(1, "e", "[T.C]=1", "<conditionStop>[T.S]=1</conditionStop>")));
        plant.Set(L"C", 1.0);
        plant.Set(L"S", 0.0);
        EXPECT_TRUE(fresh.Work(KTDateTime::LTC()));
        ASSERT_TRUE(fresh.IsEnabled());
        plant.Set(L"C", row.condition);
        plant.Set(L"S", row.stop);
        EXPECT_TRUE(fresh.Work(KTDateTime::LTC()));
        EXPECT_EQ(fresh.IsEnabled(), row.stays) << row.what;
    }
}

TEST_F(KTEventDriverTest, AStopExpressionThatIsNotLogicalKeepsTheEventActive)
{
    Load("<conditionStop>[T.S]=1</conditionStop>");
    ScanWith(1);
    delete std::exchange(event.conditionStopEvaluator, Compiled(L"1"));
    ScanWith(0);
    EXPECT_TRUE(event.IsEnabled());
}

TEST_F(KTEventDriverTest, AStopConditionCannotPreventAnActivation)
{
    Load("<conditionStop>[T.S]=1</conditionStop>");
    plant.Set(L"S", 1.0);
    ScanWith(1);
    EXPECT_TRUE(event.IsEnabled()) << "the stop expression is consulted only while active";
    Scan();
    EXPECT_FALSE(event.IsEnabled());
    Scan();
    EXPECT_TRUE(event.IsEnabled());
}

TEST_F(KTEventDriverTest, TheDelayToActivateIsCountedFromTheFirstScanAtWhichItHeld)
{
    Load("<delayToActivate>5</delayToActivate>");
    Pass(7777);
    ScanWith(1);
    EXPECT_EQ(event.delayOnCounter, GetTickCount());
    const std::uint32_t began = event.delayOnCounter;
    Pass(4999);
    Scan();
    EXPECT_FALSE(event.IsEnabled());
    EXPECT_EQ(event.delayOnCounter, began);
    Pass(1);
    Scan();
    EXPECT_TRUE(event.IsEnabled());
    EXPECT_EQ(event.delayOnCounter, began) << "stays as it is on success";
    ScanWith(0);
    EXPECT_EQ(event.delayOnCounter, 0U);
}

TEST_F(KTEventDriverTest, OneFalseScanClearsTheDelayToActivate)
{
    Load("<delayToActivate>5</delayToActivate>");
    ScanWith(1);
    Pass(4000);
    ScanWith(0);
    EXPECT_EQ(event.delayOnCounter, 0U);
    Pass(4000);
    ScanWith(1);
    Pass(4999);
    Scan();
    EXPECT_FALSE(event.IsEnabled());
    Pass(1);
    Scan();
    EXPECT_TRUE(event.IsEnabled());
}

TEST_F(KTEventDriverTest, AFlickerDuringTheDelayToDeactivateStartsItFromTheBeginning)
{
    Load("<delayToDeactivate>5</delayToDeactivate>");
    ScanWith(1);
    ScanWith(0);
    EXPECT_EQ(event.delayOffCounter, GetTickCount());
    Pass(4999);
    ScanWith(1);
    EXPECT_EQ(event.delayOffCounter, 0U) << "cleared at the next true scan";
    Pass(1);
    ScanWith(0);
    Pass(4999);
    Scan();
    EXPECT_TRUE(event.IsEnabled());
    Pass(1);
    Scan();
    EXPECT_FALSE(event.IsEnabled());
}

TEST_F(KTEventDriverTest, TheDelayToDeactivateCounterStaysAfterADeactivationUntilTheNextTrueScan)
{
    Load("<delayToDeactivate>5</delayToDeactivate><delayToActivate>1</delayToActivate>");
    ScanWith(1);
    Pass(1000);
    Scan();
    ScanWith(0);
    Pass(5000);
    Scan();
    EXPECT_FALSE(event.IsEnabled());
    EXPECT_NE(event.delayOffCounter, 0U);
    ScanWith(1);
    EXPECT_EQ(event.delayOffCounter, 0U) << "cleared although the event isn't active yet";
    EXPECT_FALSE(event.IsEnabled());
}

TEST_F(KTEventDriverTest, DelaysSurviveTheWrapOfTheTickCounter)
{
    for (const std::uint32_t start : {0xFFFFFFFFU, 0xFFFFF000U, 0xFFFFEC79U})
    {
        KTVirtualClock nearWrap(Date(2024, 1, 1), start);
        KTClock* const before = KTClock::Install(&nearWrap);
        TestEvent fresh;
        ASSERT_TRUE(fresh.LoadText(EventXml(1, "e", "TRUE", "<delayToActivate>5</delayToActivate>")));
        EXPECT_TRUE(fresh.Work(KTDateTime::LTC()));
        EXPECT_EQ(fresh.delayOnCounter, start);
        nearWrap.Advance(std::chrono::milliseconds(4999));
        EXPECT_TRUE(fresh.Work(KTDateTime::LTC()));
        EXPECT_FALSE(fresh.IsEnabled()) << start;
        nearWrap.Advance(std::chrono::milliseconds(1));
        EXPECT_TRUE(fresh.Work(KTDateTime::LTC()));
        EXPECT_TRUE(fresh.IsEnabled()) << start;
        KTClock::Install(before);
    }
}

TEST_F(KTEventDriverTest, ATickCountOfExactlyZeroReadsAsACounterThatIsNotRunning)
{
    KTVirtualClock atWrap(Date(2024, 1, 1), 0);
    KTClock* const before = KTClock::Install(&atWrap);
    Load("<delayToActivate>2</delayToActivate><delayToDeactivate>2</delayToDeactivate>");
    ScanWith(1);  // at tick 0
    EXPECT_EQ(event.delayOnCounter, 0U);
    atWrap.Advance(std::chrono::milliseconds(1500));
    Scan();
    EXPECT_EQ(event.delayOnCounter, 1500U) << "the delay begins only here";
    atWrap.Advance(std::chrono::milliseconds(1999));
    Scan();
    EXPECT_FALSE(event.IsEnabled());
    atWrap.Advance(std::chrono::milliseconds(1));
    Scan();
    EXPECT_TRUE(event.IsEnabled());

    atWrap.Advance(std::chrono::milliseconds(0x100000000 - 3500));  // tick 0 again
    ASSERT_EQ(GetTickCount(), 0U);
    ScanWith(0);
    EXPECT_EQ(event.delayOffCounter, 0U);
    atWrap.Advance(std::chrono::milliseconds(1));
    Scan();
    EXPECT_EQ(event.delayOffCounter, 1U);
    EXPECT_TRUE(event.IsEnabled());
    KTClock::Install(before);
}

TEST_F(KTEventDriverTest, TheHostMayResetTheDelayCounters)
{
    Load("<delayToActivate>5</delayToActivate><delayToDeactivate>5</delayToDeactivate>");
    ScanWith(1);
    Pass(4999);
    event.ResetDelayONCounter();
    Pass(1);
    Scan();
    EXPECT_FALSE(event.IsEnabled());
    Pass(5000);
    Scan();
    EXPECT_TRUE(event.IsEnabled());
    ScanWith(0);
    Pass(4999);
    event.ResetDelayOFFCounter();
    EXPECT_EQ(event.delayOffCounter, 0U);
    Pass(1);
    Scan();
    EXPECT_TRUE(event.IsEnabled());
}

TEST_F(KTEventDriverTest, ATableThatClosesDuringTheActivationDelayDoesNotStopItsCount)
{
    Load("<delayToActivate>5</delayToActivate>");
    ScanWith(1);
    const std::uint32_t began = event.delayOnCounter;
    table.open = false;
    Pass(3000);
    ScanWith(0);  // nobody looks at the condition now
    EXPECT_EQ(event.delayOnCounter, began);
    Pass(3000);
    Scan();
    EXPECT_FALSE(event.IsEnabled());
    table.open = true;
    ScanWith(1);
    EXPECT_TRUE(event.IsEnabled()) << "the delay has passed meanwhile";
}

TEST_F(KTEventDriverTest, ATableThatOpensOnAFalseConditionClearsTheDelay)
{
    Load("<delayToActivate>5</delayToActivate>");
    ScanWith(1);
    table.open = false;
    Pass(6000);
    Scan();
    table.open = true;
    ScanWith(0);
    EXPECT_EQ(event.delayOnCounter, 0U);
    ScanWith(1);
    EXPECT_FALSE(event.IsEnabled());
}

TEST_F(KTEventDriverTest, AClosedTableDeactivatesAtOnceAndLeavesAnnotationAndTime)
{
    Load("<delayToDeactivate>60</delayToDeactivate><notify>T</notify><annotation>why</annotation>");
    KTWideString seen;
    bool valid = false;
    event.Add(2,
              [&](int)
              {
                  seen = event.annotationText;
                  valid = event.activationTime.Valid();
                  happened.push_back(event.actived ? "still active" : "inactive");
                  return true;
              });
    ScanWith(1);
    Happened();
    table.open = false;
    Scan();
    EXPECT_FALSE(event.IsEnabled());
    EXPECT_EQ(seen, L"why");
    EXPECT_TRUE(valid);
    EXPECT_EQ(event.Annotation(), L"why");
    EXPECT_TRUE(event.activationTime.Valid());
    Pass(5000);
    EXPECT_EQ(event.ActivedSeconds(), 0) << "all the same";
    EXPECT_EQ(Happened(), (Strings{"inactive", "status 2 gives 3"}));
}

TEST_F(KTEventDriverTest, AClosedTableEndsADelayToDeactivateToo)
{
    Load("<delayToDeactivate>60</delayToDeactivate>");
    ScanWith(1);
    ScanWith(0);
    EXPECT_TRUE(event.IsEnabled());
    table.open = false;
    Scan();
    EXPECT_FALSE(event.IsEnabled());
}

TEST_F(KTEventDriverTest, AClosedTableLeavesAnInactiveEventAlone)
{
    Load();
    NoteActions();
    table.open = false;
    ScanWith(1);
    EXPECT_FALSE(event.IsEnabled());
    EXPECT_TRUE(happened.empty());
    EXPECT_TRUE(event.Occurrences().empty());
}

// The three ways out differ in what the deactivation actions find.
TEST_F(KTEventDriverTest, DeactivationActionsFindTheAnnotationExceptWithoutADelay)
{
    enum Way
    {
        closedTable,
        noDelay,
        afterADelay
    };
    const struct
    {
        const char* what;
        Way way;
        const wchar_t* seen;
        const wchar_t* left;
        bool timeLeft;
    } rows[] = {
        {"a closed table", closedTable, L"why", L"why", true},
        {"no delay", noDelay, L"", L"", false},
        {"after a delay", afterADelay, L"why", L"", false},
    };
    for (const auto& row : rows)
    {
        TestEvent fresh;
        const std::string delay = row.way == afterADelay ? "<delayToDeactivate>2</delayToDeactivate>" : "";
        ASSERT_TRUE(fresh.LoadText(EventXml(1, "e", "[T.C]=1", delay + "<annotation>why</annotation>")));
        fresh.timeTable = &table;
        KTWideString seen(L"not run");
        bool validThen = false;
        bool activeThen = true;
        std::uint32_t counterThen = 1;
        fresh.Add(2,
                  [&](int)
                  {
                      seen = fresh.annotationText;
                      validThen = fresh.activationTime.Valid();
                      activeThen = fresh.actived;
                      counterThen = fresh.delayOnCounter;
                      fresh.delayOnCounter = 77;
                      return true;
                  });
        table.open = true;
        plant.Set(L"C", 1.0);
        EXPECT_TRUE(fresh.Work(KTDateTime::LTC()));
        fresh.delayOnCounter = 55;  // as a delay to activate leaves it
        table.open = row.way != closedTable;
        plant.Set(L"C", 0.0);
        EXPECT_TRUE(fresh.Work(KTDateTime::LTC()));
        if (row.way == afterADelay)
        {
            EXPECT_EQ(seen, L"not run");
            EXPECT_EQ(fresh.delayOnCounter, 0U) << "cleared as soon as the delay begins";
            Pass(2000);
            EXPECT_TRUE(fresh.Work(KTDateTime::LTC()));
        }
        EXPECT_EQ(seen, row.seen) << row.what;
        EXPECT_TRUE(validThen) << row.what << ": the time is still there for the actions";
        EXPECT_FALSE(activeThen) << row.what;
        EXPECT_EQ(counterThen, 0U) << row.what;
        EXPECT_EQ(fresh.Annotation(), row.left) << row.what;
        EXPECT_EQ(fresh.activationTime.Valid(), row.timeLeft) << row.what;
        EXPECT_EQ(fresh.delayOnCounter, 0U) << row.what << ": cleared behind the actions too";
    }
}

TEST_F(KTEventDriverTest, ActivationActionsRunBeforeTheEventIsActiveAndBeforeItsOccurrence)
{
    Load("<annotation>why</annotation><notify>T</notify>");
    event.Add(0,
              [&](int phase)
              {
                  EXPECT_EQ(phase, 0);
                  EXPECT_FALSE(event.IsEnabled());
                  EXPECT_TRUE(event.Occurrences().empty());
                  EXPECT_EQ(event.Annotation(), L"why") << "the annotation is expanded already";
                  EXPECT_EQ(Text(event.activationTime), Text(KTDateTime::LTC()));
                  event.delayOffCounter = 77;
                  event.annotationText = L"<changed>";
                  happened.push_back("action");
                  return true;
              });
    ScanWith(1);
    EXPECT_EQ(Happened(), (Strings{"action", "status 1 gives 1"}));
    EXPECT_EQ(event.delayOffCounter, 0U) << "cleared behind the actions";
    ASSERT_EQ(event.Occurrences().size(), 1U);
    EXPECT_EQ(event.Occurrences().front()->annotation, "&lt;changed&gt;") << "frozen after the actions, escaped";
}

TEST_F(KTEventDriverTest, WhileActionsRunAtEachLaterTrueScanAndPauseWhileTheDelayRuns)
{
    Load("<delayToDeactivate>5</delayToDeactivate>");
    NoteActions();
    ScanWith(1);
    EXPECT_EQ(Happened(), (Strings{"phase 0", "status 1 gives 5"})) << "not at the scan of the activation";
    Scan();
    EXPECT_EQ(Happened(), Strings{"phase 1"});
    Scan();
    EXPECT_EQ(Happened(), Strings{"phase 1"});
    ScanWith(0);
    EXPECT_TRUE(Happened().empty());
    Pass(1000);
    Scan();
    EXPECT_TRUE(Happened().empty());
    ScanWith(1);
    EXPECT_EQ(Happened(), Strings{"phase 1"}) << "resumed";
    ScanWith(0);
    Pass(5000);
    Scan();
    EXPECT_EQ(Happened(), (Strings{"phase 2", "status 2 gives 7"}));
}

TEST_F(KTEventDriverTest, TheDeactivationDelayIsClearedBehindTheWhileActions)
{
    Load("<delayToDeactivate>5</delayToDeactivate>");
    std::uint32_t seen = 0;
    event.Add(1,
              [&](int)
              {
                  seen = event.delayOffCounter;
                  return true;
              });
    ScanWith(1);
    ScanWith(0);
    const std::uint32_t running = event.delayOffCounter;
    ScanWith(1);
    EXPECT_EQ(seen, running);
    EXPECT_EQ(event.delayOffCounter, 0U);
}

TEST_F(KTEventDriverTest, ActionsRunInOrderWhateverTheyReturnEachWithAYieldBehindIt)
{
    Load();
    for (const bool result : {true, false, true})
        event.Add(0,
                  [this, result](int)
                  {
                      happened.push_back(result ? "good" : "bad");
                      return result;
                  });
    ObservedClock seen;
    seen.onSleep = [this](std::uint32_t milliseconds) { happened.push_back("sleep " + std::to_string(milliseconds)); };
    EXPECT_TRUE(event.ExecuteActions(0));
    EXPECT_EQ(Happened(), (Strings{"good", "sleep 0", "bad", "sleep 0", "good", "sleep 0"}));
    EXPECT_TRUE(event.ExecuteActions(1));
    EXPECT_TRUE(Happened().empty()) << "an empty list does nothing";
}

TEST_F(KTEventDriverTest, ClientActionsAreNeverRun)
{
    Load("<notify>T</notify>");
    for (std::size_t list = 4; list < 8; ++list)
        event.actionLists[list].push_back(new TestAction(&event, Note("client ")));
    ScanWith(1);
    Scan();
    ASSERT_TRUE(Acknowledge(event.Occurrences().front()->id));
    ScanWith(0);
    EXPECT_EQ(Happened(), (Strings{"status 1 gives 1", "status 4 gives 5", "status 2 gives 7"}));
}

TEST_F(KTEventDriverTest, TheAnnotationIsExpandedThroughTheVirtualOperation)
{
    class Expanding : public TestEvent
    {
    public:
        bool ParseAnnotation(KTWideString& out, const KTWideString& text) override
        {
            out = L"expanded ";
            out += text;
            return false;  // ignored
        }
    };
    Expanding expanding;
    ASSERT_TRUE(expanding.LoadText(EventXml(1, "e", "TRUE", "<annotation>t</annotation>")));
    EXPECT_TRUE(expanding.Work(KTDateTime::LTC()));
    EXPECT_EQ(expanding.Annotation(), L"expanded t");
}

TEST_F(KTEventDriverTest, AsksThroughTheVirtualOperationsInTheirOrder)
{
    class Asked : public TestEvent
    {
    public:
        bool NeedCheck(const KTDateTime&) override
        {
            calls += "need ";
            return need;
        }
        bool CheckEvent() override
        {
            calls += "check ";
            return true;
        }

        std::string calls;
        bool need = true;
    };
    Asked asked;
    EXPECT_TRUE(asked.Work(KTDateTime::LTC()));
    EXPECT_EQ(asked.calls, "need check ");
    EXPECT_TRUE(asked.IsEnabled());
    asked.calls.clear();
    asked.need = false;
    EXPECT_TRUE(asked.Work(KTDateTime::LTC()));
    EXPECT_EQ(asked.calls, "need ");
}

TEST_F(KTEventDriverTest, CountsTheSecondsOfItsActivity)
{
    Load();
    EXPECT_EQ(event.ActivedSeconds(), 0);
    ScanWith(1);
    EXPECT_EQ(event.ActivedSeconds(), 0);
    Pass(999);
    EXPECT_EQ(event.ActivedSeconds(), 0) << "whole seconds";
    Pass(1);
    EXPECT_EQ(event.ActivedSeconds(), 1);
    Pass(86'400'000);
    EXPECT_EQ(event.ActivedSeconds(), 86'401);
    ScanWith(0);
    EXPECT_EQ(event.ActivedSeconds(), 0);
}

TEST_F(KTEventDriverTest, TheRepeatedHourOfAutumnCounts)
{
    // On 27 October 2024 the clocks of Madrid go back from 3:00 to 2:00, at 1:00 UTC.
    TestZone zone(testZoneOfMadrid);
    clock->SetUtc(Date(2024, 10, 27, 0, 30));
    Load();
    ScanWith(1);
    Pass(3'600'000);
    EXPECT_EQ(Text(KTDateTime::LTC()), Text(event.activationTime)) << "the same time on the wall";
    EXPECT_EQ(event.ActivedSeconds(), 3600);
}

TEST_F(KTEventDriverTest, ACorrectedWallClockDoesNotTouchTheDelays)
{
    Load("<delayToActivate>5</delayToActivate>");
    ScanWith(1);
    clock->SetUtc(Date(2030, 1, 1));
    Scan();
    EXPECT_FALSE(event.IsEnabled());
    clock->SetUtc(Date(2010, 1, 1));
    Pass(5000);
    Scan();
    EXPECT_TRUE(event.IsEnabled());
}
