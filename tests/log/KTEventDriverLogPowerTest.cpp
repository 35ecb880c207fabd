// A power cut at every single operation of a long run of records, with every kind of loss: what was reported stands.

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "log/EventLogFixture.h"

namespace
{
struct Change
{
    unsigned id;
    KTDateTime date;
    int status;
    std::string annotation;
};

// What is read of a record.
struct Seen
{
    GUID id;
    KTDateTime date;
    int status = 0;
    std::string annotation;
};

class EventLogPower : public EventLog
{
protected:
    // State changes over three months, some a second apart, some with texts of up to several blocks.
    static std::vector<Change> Run()
    {
        std::vector<Change> run;
        KTDateTime date = Date(2024, 3, 31, 22);
        for (unsigned i = 0; i < 40; ++i)
        {
            KTDateTimeSpan pause;
            pause.SetDateTimeSpan(i % 13 == 12 ? 20 : 0, 0, 0, i % 3 == 0 ? 0 : 1 + static_cast<int>(i) * 7, 0, 0);
            date = date + pause;
            const std::string text =
                i % 2 == 0 ? "" : "text " + std::to_string(i) + std::string(i % 5 == 1 ? 5000 : i, '.');
            run.push_back({i + 1, date, i % 3 == 0 ? 1 : (i % 3 == 1 ? 4 : 2), text});
        }
        return run;
    }
    bool Save(const Change& change)
    {
        KTEventDriver::tagSEventRT occurrence;
        occurrence.id = TestId(change.id);
        occurrence.activationDate = occurrence.deactivationDate = occurrence.acknowledgeDate = change.date;
        occurrence.annotation = change.annotation.c_str();
        return event.SaveEvent(&occurrence, change.status);
    }
    // Everything that stands in the log, by the number of its change; `damaged` counts the records that fail.
    std::map<std::uint32_t, Seen> ReadAll(int& damaged)
    {
        std::map<std::uint32_t, Seen> all;
        damaged = 0;
        for (const std::string& path : files.Paths())
        {
            if (!path.ends_with(".suc")) continue;
            KTEventFile file(true);
            if (!file.Open(Wide(path).Str(), true)) continue;
            for (int i = 0; i < file.NRecords(); ++i)
            {
                if (!file.GoRecord(i))
                {
                    ++damaged;
                    continue;
                }
                Seen seen;
                seen.id = file.EventId();
                file.DateValue(seen.date);
                seen.status = static_cast<int>(file.EventValue());
                KTNarrowString text;
                file.EventAnnotation(text);
                seen.annotation = text.Str();
                EXPECT_TRUE(all.emplace(seen.id.Data1, seen).second) << "a record stands twice";
            }
        }
        return all;
    }
    static bool Holds(const std::map<std::uint32_t, Seen>& all, const Change& change)
    {
        const auto found = all.find(change.id);
        if (found == all.end()) return false;
        const Seen& seen = found->second;
        return seen.id == TestId(change.id) && seen.date == change.date && seen.status == change.status;
    }
    void Reset()
    {
        files.Clear();
        files.Put("/data/lock", "");
    }

    FaultyFiles::Random random{20240310};
};

TEST_F(EventLogPower, WhatWasReportedStandsWhereverThePowerFails)
{
    const std::vector<Change> run = Run();
    const int before = files.Operations();
    for (const Change& change : run) ASSERT_TRUE(Save(change));
    const int operations = files.Operations() - before;
    ASSERT_GT(operations, 300);
    Reset();

    for (int cut = 1; cut <= operations; ++cut)
        for (const FaultyFiles::Loss loss : {FaultyFiles::Loss::all, FaultyFiles::Loss::none, FaultyFiles::Loss::some,
                                             FaultyFiles::Loss::some, FaultyFiles::Loss::some})
        {
            SCOPED_TRACE("cut at operation " + std::to_string(cut) + ", loss " +
                         std::to_string(static_cast<int>(loss)));
            files.CutPower(cut);
            std::size_t reported = 0;
            while (reported < run.size() && Save(run[reported])) ++reported;
            ASSERT_TRUE(files.PowerIsOut());
            files.Restart(loss, random);

            int damaged = 0;
            const auto after = ReadAll(damaged);
            for (std::size_t i = 0; i < reported; ++i) ASSERT_TRUE(Holds(after, run[i])) << i;
            // Besides those there can only be the record that was being written.
            ASSERT_LE(after.size() + static_cast<std::size_t>(damaged), reported + 1);

            // The next writer goes on; a record that was cut off is simply written again.
            const std::size_t next = reported + (after.contains(static_cast<std::uint32_t>(reported + 1)) ? 1 : 0);
            for (std::size_t i = next; i < run.size(); ++i) ASSERT_TRUE(Save(run[i])) << i;
            const auto all = ReadAll(damaged);
            for (std::size_t i = 0; i < run.size(); ++i)
                ASSERT_TRUE(Holds(all, run[i]) || (i >= reported && i < next)) << i;
            ASSERT_LE(damaged, 1);
            Reset();
        }
}

// A process that dies loses nothing that it gave to the system: no record is without its text, since that went out first.
TEST_F(EventLogPower, WithoutLossEveryRecordHasItsText)
{
    const std::vector<Change> run = Run();
    const int before = files.Operations();
    for (const Change& change : run) ASSERT_TRUE(Save(change));
    const int operations = files.Operations() - before;
    Reset();
    for (int cut = 1; cut <= operations; ++cut)
    {
        SCOPED_TRACE("cut at operation " + std::to_string(cut));
        files.CutPower(cut);
        for (const Change& change : run)
            if (!Save(change)) break;
        files.Restart(FaultyFiles::Loss::none, random);
        int damaged = 0;
        for (const auto& [number, seen] : ReadAll(damaged))
            ASSERT_EQ(seen.annotation, run[number - 1].annotation) << number;
        ASSERT_EQ(damaged, 0);
        Reset();
    }
}

// Only the record is committed: after a power cut its text may be gone, and reads as empty.
TEST_F(EventLogPower, AfterALossTheTextsOfCommittedRecordsMayBeEmpty)
{
    ASSERT_TRUE(Save({1, Date(2024, 3, 10), 1, "one"}) && Save({2, Date(2024, 3, 10), 2, "two"}));
    files.Restart(FaultyFiles::Loss::all, random);
    int damaged = 0;
    const auto all = ReadAll(damaged);
    EXPECT_EQ(all.size(), 2U);
    for (const auto& [number, seen] : all) EXPECT_EQ(seen.annotation, "");
    EXPECT_EQ(damaged, 0);
}
}  // namespace
