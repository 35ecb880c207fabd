#include "log/KTEventLoggerData.h"

#include <gtest/gtest.h>

#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "TestRegistry.h"

namespace
{
using Data = KTEventLoggerData;
using Record = Data::CDataRecord;
using Strings = std::vector<std::string>;

constexpr int activation = 1;
constexpr int deactivation = 2;
constexpr int acknowledgement = 4;

const GUID eventA = TestId(1001);
const GUID eventB = TestId(1002);

KTDateTime At(int second) { return Date(2024, 3, 10, 8, second / 60, second % 60); }

Record* Add(Data& data, unsigned occurrence, int second, int value = activation, const GUID& event = eventA,
            bool notify = true, const char* annotation = "")
{
    return data.AddRecord(event, TestId(occurrence), At(second), value, KTNarrowString(annotation), notify);
}

std::vector<unsigned> Order(Data& data)
{
    std::vector<unsigned> numbers;
    for (auto row = data.RecordGroup().Begin(); row != data.RecordGroup().End(); ++row)
        numbers.push_back((*row)->RecordId().Data1);
    return numbers;
}

// "event: enabled, disabled, acknowledged, duration".
Strings Totals(Data& data)
{
    Strings all;
    Data::CRecordGroupTotalized& totals = data.RecordGroupTotalized();
    for (auto total = totals.Begin(); total != totals.End(); ++total)
        all.push_back(std::to_string((*total)->EventId().Data1) + ": " + std::to_string((*total)->EnableCount()) +
                      ", " + std::to_string((*total)->DisableCount()) + ", " + std::to_string((*total)->AckCount()) +
                      ", " + std::to_string((*total)->Duration()));
    return all;
}

using Numbers = std::vector<unsigned>;
}  // namespace

TEST(KTEventLoggerData, StartsWithAnEmptyGroup)
{
    Data data;
    EXPECT_EQ(data.Info().NVariables(), 0);
    EXPECT_EQ(data.RecordGroup().Begin(), data.RecordGroup().End());
    EXPECT_EQ(data.RecordGroup().Info(), &data.Info());
    EXPECT_EQ(data.RecordGroupTotalized().Begin(), data.RecordGroupTotalized().End());
    EXPECT_EQ(data.RecordGroupTotalized().Info(), &data.Info());
}

TEST(KTEventLoggerData, AnEmptySelectionGivesAnEmptyGroupAndTrue)
{
    TestRegistry registry({"a"});
    Data data;
    EXPECT_TRUE(data.SelectData(Date(2024, 1, 1), Date(2024, 2, 1), false));
    data.Setup(KTEventLoggerInfo());
    EXPECT_TRUE(data.SelectData(Date(2024, 1, 1), Date(2024, 2, 1), true));
    EXPECT_TRUE(Order(data).empty());
}

TEST(KTEventLoggerData, SetupLocksACopyOfTheSelection)
{
    TestRegistry registry({"a"});
    KTEventLoggerInfo selection;
    selection.AddVariable(TestId(7));
    selection.AddVariable(TestId(1));
    Data data;
    data.Setup(selection);
    ASSERT_EQ(data.Info().NVariables(), 1) << "an event that is gone is left out";
    EXPECT_EQ((*data.Info().EventsBegin())->Driver(), &registry.Event(1));
    EXPECT_EQ(selection.NVariables(), 2);
    for (auto variable = selection.EventsBegin(); variable != selection.EventsEnd(); ++variable)
        EXPECT_FALSE((*variable)->IsLocked());
}

TEST(KTEventLoggerData, AnEventWithoutFilesIsFalseAndTheOthersAreStillAsked)
{
    class Asking : public Data
    {
    public:
        bool Load(const KTDateTime& begin, const KTDateTime& end, bool searchBefore) override
        {
            asked = Text(begin) + " " + Text(end) + (searchBefore ? " before" : "");
            return Data::Load(begin, end, searchBefore);
        }
        std::string asked;
    };
    TestRegistry registry({"a"});
    KTEventLoggerInfo selection;
    selection.AddVariable(TestId(1));
    Asking data;
    data.Setup(selection);
    EXPECT_FALSE(data.SelectData(Date(2024, 1, 1), Date(2024, 1, 2), true));
    EXPECT_EQ(data.asked, "2024-01-01 00:00:00.000000 2024-01-02 00:00:00.000000 before");
}

TEST(KTEventLoggerData, AnActivationIsARow)
{
    Data data;
    Record* const row = Add(data, 5, 10, activation, eventB, true, "load &lt; 3");
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(row->EventId(), eventB);
    EXPECT_EQ(row->RecordId(), TestId(5));
    EXPECT_EQ(row->Time(), At(10));
    EXPECT_EQ(row->Annotation(), "load &lt; 3");
    EXPECT_EQ(row->AckOffset(), 0xFFFFFFFFU);
    EXPECT_EQ(row->DisableOffset(), 0xFFFFFFFFU);
    EXPECT_TRUE(row->Notify());
    ASSERT_NE(data.RecordGroup().Begin(), data.RecordGroup().End());
    EXPECT_EQ(*data.RecordGroup().Begin(), row);
}

TEST(KTEventLoggerData, RowsStandInTheOrderOfTheirDatesTheNewestOfEqualOnesFirst)
{
    Data data;
    const struct
    {
        unsigned occurrence;
        int second;
        Numbers order;
    } rows[] = {
        {1, 10, {1}},
        {2, 20, {1, 2}},
        {3, 20, {1, 3, 2}},        // the same second: the one added later stands first
        {4, 10, {4, 1, 3, 2}},     // before where the last one went
        {5, 10, {5, 4, 1, 3, 2}},  // the same again
        {6, 15, {5, 4, 1, 6, 3, 2}},
        {7, 20, {5, 4, 1, 6, 7, 3, 2}},
        {8, 30, {5, 4, 1, 6, 7, 3, 2, 8}},
        {9, 5, {9, 5, 4, 1, 6, 7, 3, 2, 8}},
    };
    Data atOnce;
    for (const auto& row : rows)
    {
        Add(data, row.occurrence, row.second);
        EXPECT_EQ(Order(data), row.order);
        Add(atOnce, row.occurrence, row.second);
    }
    EXPECT_EQ(Order(atOnce), std::end(rows)[-1].order) << "the same without a look in between";
}

TEST(KTEventLoggerData, RowsWithinASecondAreOrderedToo)
{
    Data data;
    const KTNarrowString none;
    data.AddRecord(eventA, TestId(1), KTDateTime(2024, 3, 10, 8, 0, 0, 500, 1), 1, none, false);
    data.AddRecord(eventA, TestId(2), KTDateTime(2024, 3, 10, 8, 0, 0, 500, 0), 1, none, false);
    data.AddRecord(eventA, TestId(3), KTDateTime(), 1, none, false);
    EXPECT_EQ(Order(data), (Numbers{3, 2, 1})) << "an invalid date is before every other";
}

TEST(KTEventLoggerData, IteratorsAreThoseOfAList)
{
    Data data;
    Add(data, 1, 10);
    Add(data, 3, 30);
    Data::CRecordGroup& group = data.RecordGroup();
    auto at = group.Begin();
    Add(data, 2, 20);
    EXPECT_EQ((*at)->RecordId(), TestId(1));
    EXPECT_EQ((*++at)->RecordId(), TestId(2)) << "what comes while somebody walks is met";
    const auto second = at++;
    EXPECT_EQ((*at)->RecordId(), TestId(3));
    EXPECT_EQ((*second)->RecordId(), TestId(2));
    EXPECT_EQ(++at, group.End());
    Add(data, 4, 40);
    EXPECT_EQ((*--at)->RecordId(), TestId(4));
    EXPECT_EQ((*at--)->RecordId(), TestId(4));
    EXPECT_EQ((*at)->RecordId(), TestId(3));
    EXPECT_EQ(std::distance(group.Begin(), group.End()), 4);
}

TEST(KTEventLoggerData, RowsKeepTheirAddress)
{
    Data data;
    std::vector<Record*> rows;
    for (unsigned number = 1; number <= 3000; ++number)
        rows.push_back(Add(data, number, static_cast<int>(number % 700)));
    EXPECT_EQ(Order(data).size(), rows.size());
    for (unsigned number = 1; number <= rows.size(); ++number) EXPECT_EQ(rows[number - 1]->RecordId(), TestId(number));
}

TEST(KTEventLoggerData, ACompletionSetsItsDelayAndReturnsTheRow)
{
    Data data;
    Record* const row = Add(data, 1, 10);
    EXPECT_EQ(Add(data, 1, 25, deactivation, eventB, false, "not looked at"), row);
    EXPECT_EQ(row->DisableOffset(), 15U);
    EXPECT_EQ(row->AckOffset(), 0xFFFFFFFFU);
    EXPECT_EQ(Add(data, 1, 100, acknowledgement), row);
    EXPECT_EQ(row->AckOffset(), 90U);
    EXPECT_EQ(Add(data, 1, 30, deactivation), row);
    EXPECT_EQ(row->DisableOffset(), 20U) << "a later one of the same kind overwrites";
    EXPECT_EQ(row->EventId(), eventA);
    EXPECT_TRUE(row->Notify());
    EXPECT_TRUE(row->Annotation().Empty());
    EXPECT_EQ(Order(data).size(), 1U);
}

TEST(KTEventLoggerData, ADelayIsInWholeSecondsAndMayGoBack)
{
    Data data;
    const KTNarrowString none;
    const KTDateTime began(2024, 3, 10, 8, 0, 0, 600, 0);
    const struct
    {
        const char* what;
        KTDateTime ended;
        std::uint32_t offset;
    } rows[] = {
        {"cut", KTDateTime(2024, 3, 10, 8, 0, 2, 500, 0), 1},
        {"at once", began, 0},
        {"just before", KTDateTime(2024, 3, 10, 8, 0, 0, 0, 0), 0},
        {"two seconds before", KTDateTime(2024, 3, 10, 7, 59, 58, 600, 0), 0xFFFFFFFE},
        {"one second before can't be told from none", KTDateTime(2024, 3, 10, 7, 59, 59, 600, 0), 0xFFFFFFFF},
        {"no date", KTDateTime(), 0},
        {"longer than 31 bits hold", KTDateTime(9999, 1, 1, 0, 0, 0, 0, 0), 0x7FFFFFFF},
    };
    for (const auto& row : rows)
    {
        Data one;
        one.AddRecord(eventA, TestId(1), began, activation, none, true);
        Record* const completed = one.AddRecord(eventA, TestId(1), row.ended, deactivation, none, true);
        ASSERT_NE(completed, nullptr) << row.what;
        EXPECT_EQ(completed->DisableOffset(), row.offset) << row.what;
    }
}

TEST(KTEventLoggerData, ACompletionWithoutItsRowIsDropped)
{
    Data data;
    EXPECT_EQ(Add(data, 1, 10, deactivation), nullptr);
    Add(data, 1, 20);
    EXPECT_EQ(Add(data, 2, 30, acknowledgement), nullptr);
    EXPECT_EQ(Order(data), Numbers{1});
    EXPECT_EQ((*data.RecordGroup().Begin())->DisableOffset(), 0xFFFFFFFFU);
}

TEST(KTEventLoggerData, ARowWithoutADateIsNotCompleted)
{
    Data data;
    const KTNarrowString none;
    Record* const row = data.AddRecord(eventA, TestId(1), KTDateTime(), activation, none, true);
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(Add(data, 1, 30, deactivation), nullptr);
    EXPECT_EQ(row->DisableOffset(), 0xFFFFFFFFU);
}

TEST(KTEventLoggerData, OtherValuesAddNothing)
{
    Data data;
    Add(data, 1, 10);
    for (const int value : {0, 3, 5, 6, 7, 8, 255, -1}) EXPECT_EQ(Add(data, 1, 20, value), nullptr) << value;
    EXPECT_EQ(Order(data), Numbers{1});
    EXPECT_FALSE((*data.RecordGroup().Begin())->IsComplete());
}

TEST(KTEventLoggerData, ASecondRowOfOneIdIsARowButTheFirstIsCompleted)
{
    Data data;
    Record* const first = Add(data, 1, 10);
    Record* const second = Add(data, 1, 5);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(second, first);
    EXPECT_EQ(Add(data, 1, 30, deactivation), first);
    EXPECT_EQ(first->DisableOffset(), 20U);
    EXPECT_EQ(second->DisableOffset(), 0xFFFFFFFFU);
    EXPECT_EQ(*data.RecordGroup().Begin(), second);
}

TEST(KTEventLoggerData, ARowIsCompleteWhenNothingIsToCome)
{
    const struct
    {
        bool notify;
        std::vector<int> seen;
        bool complete;
    } rows[] = {
        {true, {}, false},
        {true, {deactivation}, false},
        {true, {acknowledgement}, false},
        {true, {acknowledgement, deactivation}, true},
        {false, {}, false},
        {false, {acknowledgement}, false},
        {false, {deactivation}, true},
        {false, {deactivation, acknowledgement}, true},
    };
    for (const auto& row : rows)
    {
        Data data;
        const Record* const record = Add(data, 1, 10, activation, eventA, row.notify);
        for (const int value : row.seen) Add(data, 1, 20, value);
        EXPECT_EQ(record->IsComplete(), row.complete) << row.notify << " " << row.seen.size();
    }
}

TEST(KTEventLoggerData, ARowsCopyLivesOnWithItsOwnAnnotation)
{
    auto data = std::make_unique<Data>();
    Record* const row = Add(*data, 1, 10, activation, eventA, true, "first");
    Record copy = *row;
    Record moved = std::move(*row);
    row->SetAnnotation(KTNarrowString("changed"));
    EXPECT_EQ(row->Annotation(), "changed");
    row->SetAckOffset(3);
    row->SetDisableOffset(4);
    row->SetNotify(false);
    EXPECT_EQ(row->AckOffset(), 3U);
    EXPECT_EQ(row->DisableOffset(), 4U);
    EXPECT_FALSE(row->Notify());
    data.reset();
    EXPECT_EQ(copy.Annotation(), "first");
    EXPECT_EQ(moved.Annotation(), "first");
    EXPECT_EQ(copy.AckOffset(), 0xFFFFFFFFU);
    copy = moved;
    EXPECT_EQ(copy.RecordId(), TestId(1));
}

TEST(KTEventLoggerData, AnnotationsOfAnyLengthAreKept)
{
    Data data;
    std::vector<std::string> texts;
    for (int length : {0, 1, 100, 16'000, 16'500, 65'534, 20, 63'000, 100'000})
        texts.emplace_back(static_cast<std::size_t>(length), static_cast<char>('a' + texts.size()));
    unsigned number = 0;
    for (const std::string& text : texts)
    {
        ++number;
        Add(data, number, static_cast<int>(number), activation, eventA, true, text.c_str());
    }
    auto row = data.RecordGroup().Begin();
    for (const std::string& text : texts) EXPECT_EQ((*row++)->Annotation(), text.c_str());
}

TEST(KTEventLoggerData, TotalsAreCountedAnEventInTheOrderOfAppearance)
{
    Data data;
    Add(data, 1, 30, activation, eventA);
    Add(data, 2, 40, activation, eventA);
    Add(data, 3, 35, activation, eventB);
    Add(data, 4, 20, activation, eventB);
    Add(data, 1, 50, deactivation);
    Add(data, 2, 45, deactivation);
    Add(data, 2, 46, acknowledgement);
    Add(data, 4, 80, acknowledgement);
    EXPECT_EQ(Totals(data), (Strings{"1002: 2, 0, 1, 0", "1001: 2, 2, 1, 25"}));
    const auto* const first = *data.RecordGroupTotalized().Begin();
    EXPECT_TRUE(first->Notify());
    EXPECT_EQ(*data.RecordGroupTotalized().Begin(), first) << "made once";
}

TEST(KTEventLoggerData, WithoutNotificationNoAcknowledgementIsCounted)
{
    Data data;
    Add(data, 1, 10, activation, eventA, false);
    Add(data, 1, 20, acknowledgement);
    Add(data, 1, 30, deactivation);
    EXPECT_EQ(Totals(data), Strings{"1001: 1, 1, 0, 20"});
    EXPECT_FALSE((*data.RecordGroupTotalized().Begin())->Notify());
}

TEST(KTEventLoggerData, WhetherAcknowledgementsCountIsForTheFirstOccurrenceToSay)
{
    for (const bool firstNotifies : {true, false})
    {
        Data data;
        Add(data, 1, 10, activation, eventA, firstNotifies);
        Add(data, 2, 20, activation, eventA, !firstNotifies);
        for (const unsigned number : {1U, 2U}) Add(data, number, 30, acknowledgement);
        EXPECT_EQ(Totals(data), Strings{firstNotifies ? "1001: 2, 0, 2, 0" : "1001: 2, 0, 0, 0"});
    }
}

TEST(KTEventLoggerData, ATotalTakesOnlyItsOwnEvent)
{
    Data::CDataRecordTotalized total(eventA, true);
    EXPECT_EQ(total.EventId(), eventA);
    EXPECT_FALSE(total.AddDataRecord(nullptr));
    const Record other(eventB, TestId(1), At(0));
    EXPECT_FALSE(total.AddDataRecord(&other));
    EXPECT_EQ(total.EnableCount() + total.DisableCount() + total.AckCount() + total.Duration(), 0);
    Record own(eventA, TestId(1), At(0));
    own.SetDisableOffset(0xFFFFFFFE);  // two seconds back
    EXPECT_TRUE(total.AddDataRecord(&own));
    EXPECT_EQ(total.DisableCount(), 1);
    EXPECT_EQ(total.Duration(), -2);
    own.SetDisableOffset(0x7FFFFFFF);
    EXPECT_TRUE(total.AddDataRecord(&own));
    EXPECT_TRUE(total.AddDataRecord(&own));
    EXPECT_EQ(total.Duration(), -4) << "the sum keeps 32 bits";
}

TEST(KTEventLoggerData, TheTotalsStandUntilTheNextSelection)
{
    Data data;
    Add(data, 1, 10);
    EXPECT_EQ(Totals(data), Strings{"1001: 1, 0, 0, 0"});
    Add(data, 2, 20);
    EXPECT_EQ(Totals(data), Strings{"1001: 1, 0, 0, 0"}) << "not made again";
    EXPECT_TRUE(data.SelectData(At(0), At(1), false));
    EXPECT_TRUE(Totals(data).empty());
}

// A row of the first query must not be completed by the second: it is gone.
TEST(KTEventLoggerData, AnObjectThatServesASecondQueryBeginsAfresh)
{
    Data data;
    for (unsigned number = 1; number <= 1000; ++number) Add(data, number, 10, activation, eventA, true, "text");
    EXPECT_EQ(Order(data).size(), 1000U);
    EXPECT_TRUE(data.SelectData(At(0), At(1), false));
    EXPECT_EQ(data.RecordGroup().Begin(), data.RecordGroup().End());
    EXPECT_EQ(Add(data, 7, 30, deactivation), nullptr);
    Add(data, 8, 20);
    Add(data, 7, 20);
    EXPECT_EQ(Order(data), (Numbers{7, 8}));
    EXPECT_EQ(Add(data, 7, 30, deactivation), *data.RecordGroup().Begin());
}

TEST(KTEventLoggerData, ACopyOfAGroupIsEmptyWithTheSameSelection)
{
    Data data;
    Data other;
    Add(data, 1, 10, activation, eventA, true, "text");
    const Data::CRecordGroup copy(data.RecordGroup());
    EXPECT_EQ(copy.Begin(), copy.End());
    EXPECT_EQ(copy.Info(), &data.Info());
    Data::CRecordGroup assigned(&other.Info());
    const KTNarrowString none;
    assigned.AddRecord(eventA, TestId(1), At(0), 1, none, true);
    assigned = data.RecordGroup();
    EXPECT_EQ(assigned.Begin(), assigned.End());
    EXPECT_EQ(assigned.Info(), &data.Info());

    Data::CRecordGroupTotalized totals(data.RecordGroupTotalized());
    EXPECT_EQ(totals.Begin(), totals.End());
    EXPECT_EQ(totals.Info(), &data.Info());
    EXPECT_NE(totals.AddRecord(*data.RecordGroup().Begin()), nullptr);
    EXPECT_EQ(totals.AddRecord(nullptr), nullptr);
    totals = other.RecordGroupTotalized();
    EXPECT_EQ(totals.Begin(), totals.End());
    EXPECT_EQ(totals.Info(), &other.Info());
}

TEST(KTEventLoggerData, ACopyShowsTheSameRows)
{
    auto data = std::make_unique<Data>();
    Add(*data, 1, 10, activation, eventA, true, "text");
    Totals(*data);
    Data copy(*data);
    Data assigned;
    assigned = *data;
    EXPECT_EQ(&copy.RecordGroup(), &data->RecordGroup());
    EXPECT_EQ(&copy.RecordGroupTotalized(), &data->RecordGroupTotalized());
    data.reset();
    EXPECT_EQ(Order(copy), Numbers{1}) << "and they outlive the one that was copied";
    EXPECT_EQ((*assigned.RecordGroup().Begin())->Annotation(), "text");
}
