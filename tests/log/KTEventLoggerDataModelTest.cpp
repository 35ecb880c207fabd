// The rows of a query against a slow and obvious list, whatever is added in whatever order.

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "NaiveRows.h"

namespace
{
struct Step
{
    unsigned event = 0;
    unsigned occurrence = 0;
    KTDateTime time;
    int value = 1;
    std::string annotation;
    bool notify = false;
    bool look = false;  // at the rows, after the step
};

void showValue(const Step& step, std::ostream& out)
{
    out << "event " << step.event << " occurrence " << step.occurrence << " value " << step.value << " at "
        << Text(step.time) << (step.notify ? " notifies" : "") << (step.look ? ", look" : "");
}

std::vector<std::string> Backwards(KTEventLoggerData& data)
{
    std::vector<std::string> all;
    for (auto row = data.RecordGroup().End(); row != data.RecordGroup().Begin();) all.push_back(Describe(**--row));
    return {all.rbegin(), all.rend()};
}

std::multiset<std::string> Incomplete(const NaiveRows& model, unsigned event)
{
    std::multiset<std::string> ids;
    for (const NaiveRows::Row& row : model.rows)
        if (row.event == TestId(event) && !row.IsComplete()) ids.insert(Text(row.occurrence));
    return ids;
}

std::multiset<std::string> Incomplete(KTEventLoggerData& data, unsigned event)
{
    std::list<GUID> ids;
    data.RecordGroup().AppendIncomplete(TestId(event), ids);
    std::multiset<std::string> texts;
    for (const GUID& id : ids) texts.insert(Text(id));
    return texts;
}

// Few seconds, so that equal dates meet, and none at all now and then.
rc::Gen<KTDateTime> Times()
{
    const auto time = [](int number)
    { return number < 0 ? KTDateTime() : KTDateTime(2024, 3, 10, 8, 0, number / 2, number % 2 * 500, 0); };
    return rc::gen::map(rc::gen::inRange(-1, 24), time);
}

rc::Gen<Step> Steps()
{
    return rc::gen::build<Step>(
        rc::gen::set(&Step::event, rc::gen::inRange(0U, 4U)),
        rc::gen::set(&Step::occurrence, rc::gen::inRange(0U, 30U)), rc::gen::set(&Step::time, Times()),
        rc::gen::set(&Step::value, rc::gen::weightedElement<int>({{10, 1}, {4, 2}, {4, 4}, {1, 0}, {1, 3}})),
        rc::gen::set(&Step::annotation, rc::gen::element<std::string>("", "a", "longer")), rc::gen::set(&Step::notify),
        rc::gen::set(&Step::look, rc::gen::weightedElement<bool>({{3, false}, {1, true}})));
}

void Compare(const std::vector<Step>& steps)
{
    NaiveRows model;
    KTEventLoggerData data;
    for (const Step& step : steps)
    {
        const NaiveRows::Row* const expected =
            model.Add(TestId(step.event), TestId(step.occurrence), step.time, step.value, step.annotation, step.notify);
        const auto* const row = data.AddRecord(TestId(step.event), TestId(step.occurrence), step.time, step.value,
                                               KTNarrowString(step.annotation.c_str()), step.notify);
        RC_ASSERT((row != nullptr) == (expected != nullptr));
        if (row != nullptr) RC_ASSERT(Describe(*row) == expected->Description());
        if (step.look) RC_ASSERT(Descriptions(data) == model.Descriptions());
    }
    RC_ASSERT(Descriptions(data) == model.Descriptions());
    RC_ASSERT(Backwards(data) == model.Descriptions());
    RC_ASSERT(Totals(data) == model.Totals());
    for (unsigned event = 0; event < 5; ++event) RC_ASSERT(Incomplete(data, event) == Incomplete(model, event));
}
}  // namespace

RC_GTEST_PROP(KTEventLoggerDataModel, RowsAndTotalsAreThoseOfAList, ())
{
    Compare(*rc::gen::container<std::vector<Step>>(Steps()));
}

RC_GTEST_PROP(KTEventLoggerDataModel, ManyRowsAreThoseOfAListToo, ())
{
    Compare(*rc::gen::resize(400, rc::gen::container<std::vector<Step>>(Steps())));
}

// Event after event, each from the beginning of the period: how a query really adds.
TEST(KTEventLoggerDataModel, EventsOneAfterTheOtherAreThoseOfAList)
{
    NaiveRows model;
    KTEventLoggerData data;
    unsigned occurrence = 0;
    for (unsigned event = 0; event < 20; ++event)
        for (int second = 0; second < 50; ++second)
        {
            const KTDateTime time = Date(2024, 3, 10, 8, 0, second / (1 + static_cast<int>(event % 3)));
            model.Add(TestId(event), TestId(++occurrence), time, 1, "", false);
            data.AddRecord(TestId(event), TestId(occurrence), time, 1, KTNarrowString(), false);
        }
    EXPECT_EQ(Descriptions(data), model.Descriptions());
}

// Each of these orders made a list with a cursor walk over all rows again and again: minutes for what takes a moment.
TEST(KTEventLoggerDataModel, NoOrderOfAddingIsSlow)
{
    constexpr int rows = 200'000;
    const struct
    {
        const char* what;
        int (*second)(int row);
        bool look;
    } orders[] = {
        {"ascending", [](int row) { return row; }, false},
        {"descending", [](int row) { return rows - row; }, false},
        {"back and forth", [](int row) { return row % 2 == 0 ? row : rows - row; }, false},
        {"series after series", [](int row) { return row % 1000; }, false},
        {"all equal", [](int) { return 7; }, false},
        {"scattered, with a look after each", [](int row) { return static_cast<int>(row * 7919LL % rows); }, true},
    };
    for (const auto& order : orders)
    {
        KTEventLoggerData data;
        for (int row = 0; row < rows; ++row)
        {
            data.AddRecord(TestId(1), TestId(static_cast<unsigned>(row)),
                           Date(2024, 1, 1) + KTDateTimeSpan(std::int64_t{order.second(row)} * 1'000'000), 1,
                           KTNarrowString(), true);
            if (order.look && data.RecordGroup().Begin() == data.RecordGroup().End()) FAIL();
        }
        KTDateTime last;
        int count = 0;
        for (auto row = data.RecordGroup().Begin(); row != data.RecordGroup().End(); ++row, ++count)
        {
            ASSERT_GE((*row)->Time(), last) << order.what;
            last = (*row)->Time();
        }
        EXPECT_EQ(count, rows) << order.what;
    }
}
