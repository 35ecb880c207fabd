// Queries over random histories against a slow and obvious reading of the same files.

#include <random>

#include "HistoryFixture.h"

namespace
{
// Writes the history of a few events as it may have come about, good and bad.
class Chronicle
{
public:
    Chronicle(unsigned seed, NaiveHistory& itsHistory) : random(seed), history(itsHistory) {}

    int Below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(random); }
    bool OneIn(int number) { return Below(number) == 0; }

    void WriteEvent(const std::string& name)
    {
        now = Date(2023, 11 + Below(2), 1 + Below(28)) + Seconds(Below(86'400));
        crafted = OneIn(5);
        for (int count = Below(60); count > 0; --count) Step(name);
        for (auto& [path, file] : history.files) Damage(file);
        std::erase_if(history.files, [this](const auto&) { return OneIn(12); });  // months go missing
    }

    KTDateTime Moment()
    {
        if (!moments.empty() && !OneIn(3))
            return moments[static_cast<std::size_t>(Below(static_cast<int>(moments.size())))] + Seconds(Below(3) - 1);
        return OneIn(2) ? Date(2023, 11 + Below(2), 1) : Date(2024, 1 + Below(8), 1 + Below(28));
    }

private:
    static KTDateTimeSpan Seconds(int seconds) { return KTDateTimeSpan(std::int64_t{seconds} * 1'000'000); }

    // One change: a new occurrence, or the end or acknowledgement of one of the last few.
    void Step(const std::string& name)
    {
        constexpr int pauses[] = {0, 0, 1, 1, 2, 60, 3600, 3600, 86'400, 86'400, 300'000, 1'700'000, 4'000'000};
        now = now + Seconds(pauses[Below(static_cast<int>(std::size(pauses)))]);
        if (OneIn(25)) now = now + Seconds(-Below(200'000));  // somebody set the clock back
        const int kind = Below(10);
        int value = kind < 3 ? 1 : (kind < 7 ? 2 : 4);
        if (OneIn(30)) value = Below(256);
        if (value == 1 && !OneIn(20)) ++last;
        const unsigned occurrence = last - static_cast<unsigned>(value == 1 ? 0 : Below(3));
        Record(name, occurrence, value);
    }

    void Record(const std::string& name, unsigned occurrence, int value)
    {
        NaiveFile& file = history.File(name, {now.Year(), now.Month()});
        const std::uint32_t packed = NaiveFile::Pack(now);
        moments.push_back(now);
        // A writer refuses what is older than the last record; a crafted file holds it.
        if (!crafted && !file.records.empty() && packed < file.records.back().packed) return;
        NaiveFile::Record record{packed, TestId(occurrence), value};
        if (!OneIn(3))
            record.annotation =
                file.AddText("text " + std::to_string(last) + std::string(static_cast<std::size_t>(Below(90)), '.'));
        if (crafted && OneIn(6)) record.annotation = static_cast<std::uint32_t>(Below(200));
        if (crafted && OneIn(3) && !file.records.empty()) record.annotation = AnOldOffset(file);
        if (crafted && OneIn(10)) record.packed = static_cast<std::uint32_t>(random());
        file.records.push_back(record);
    }

    std::uint32_t AnOldOffset(const NaiveFile& file)
    {
        const int newest = static_cast<int>(file.records.size()) - 1;
        return file.records[static_cast<std::size_t>(std::max(newest - Below(4), 0))].annotation;
    }

    void Damage(NaiveFile& file)
    {
        if (OneIn(40)) file.damagedHeader = true;
        if (OneIn(40)) file.hasSide = false;
        if (OneIn(10)) file.tail = static_cast<std::size_t>(Below(26));
        if (OneIn(20) && !file.side.empty()) file.side.resize(file.side.size() - static_cast<std::size_t>(Below(16)));
        for (NaiveFile::Record& record : file.records) record.damaged = record.damaged || OneIn(30);
    }

    std::mt19937 random;
    NaiveHistory& history;
    KTDateTime now;
    bool crafted = false;
    unsigned last = 0;
    std::vector<KTDateTime> moments;
};

class KTEventDriverHistoryModel : public HistoryFixture
{
protected:
    // Two events may bear one name, and one of the selection is gone.
    void RunOne(unsigned seed)
    {
        history.files.clear();
        Chronicle chronicle(seed, history);
        const std::vector<std::vector<std::string>> casts = {{"a"}, {"a", "b", "c"}, {"a", "b", "a"}};
        const std::vector<std::string>& names = casts[static_cast<std::size_t>(chronicle.Below(3))];
        const bool notify = chronicle.OneIn(2);
        registry.Load(names, notify ? "<notify>T</notify>" : "");
        for (const char* name : {"a", "b", "c"}) chronicle.WriteEvent(name);

        KTEventLoggerInfo selection;
        std::vector<NaiveHistory::Event> events;
        selection.AddVariable(TestId(50));
        for (unsigned number = static_cast<unsigned>(names.size()); number > 0; --number)
        {
            selection.AddVariable(TestId(number));
            events.push_back({TestId(number), names[number - 1], notify});
        }
        for (int query = 0; query < 8; ++query)
        {
            const KTDateTime begin = chronicle.Moment();
            const KTDateTime end = chronicle.Moment();
            Compare(selection, events, begin, end, chronicle.OneIn(2));
        }
    }

    void Compare(const KTEventLoggerInfo& selection, const std::vector<NaiveHistory::Event>& events,
                 const KTDateTime& begin, const KTDateTime& end, bool searchBefore)
    {
        SCOPED_TRACE(Text(begin) + " to " + Text(end) + (searchBefore ? " and before" : ""));
        Store();
        history.opened.clear();
        NaiveRows rows;
        const bool expected = history.Select(rows, events, begin, end, searchBefore);
        KTEventLoggerData data;
        data.Setup(selection);
        EXPECT_EQ(data.SelectData(begin, end, searchBefore), expected);
        EXPECT_EQ(Descriptions(data), rows.Descriptions());
        EXPECT_EQ(Totals(data), rows.Totals());
        EXPECT_TRUE(files.AllClosed());
        Strings opened;
        for (const std::string& path : files.opened)
            if (path.ends_with(".suc")) opened.push_back(path.substr(registry.config.Data().string().size() + 1));
        EXPECT_EQ(opened, history.opened);
        found += rows.rows.size();
        completed += static_cast<std::size_t>(
            std::count_if(rows.rows.begin(), rows.rows.end(), [](const auto& row) { return row.IsComplete(); }));
    }

    std::size_t found = 0;
    std::size_t completed = 0;
};
}  // namespace

TEST_F(KTEventDriverHistoryModel, FindsWhatANaiveReadingFinds)
{
    for (unsigned seed = 1; seed <= 400 && !HasFailure(); ++seed)
    {
        SCOPED_TRACE("seed " + std::to_string(seed));
        RunOne(seed);
    }
    EXPECT_GT(found, 5000U) << "or nothing was compared";
    EXPECT_GT(completed, 1000U);
}
