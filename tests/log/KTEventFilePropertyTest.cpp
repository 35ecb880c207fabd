// The real reader and writer against the naive one, on random files and random orders of operations.

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <random>
#include <string>

#include "log/EventFileFixture.h"
#include "log/NaiveEventFile.h"

namespace
{
class Dice
{
public:
    explicit Dice(std::uint64_t seed) : random(seed) {}

    int Below(int end) { return static_cast<int>(random() % static_cast<std::uint64_t>(end)); }
    bool OneIn(int chances) { return Below(chances) == 0; }
    template <class Value>
    Value Of(std::initializer_list<Value> values)
    {
        return values.begin()[Below(static_cast<int>(values.size()))];
    }
    std::string Bytes(int count)
    {
        std::string bytes;
        for (int i = 0; i < count; ++i) bytes += Byte(static_cast<std::uint32_t>(random()));
        return bytes;
    }

private:
    std::mt19937_64 random;
};

// Seconds of a month as a packed date.
std::uint32_t Packed(std::uint32_t year, int second)
{
    const auto s = static_cast<std::uint32_t>(second);
    return PackedDate(year, 3, 1 + s / 86400 % 31, s / 3600 % 24, s / 60 % 60, s % 60);
}

// A month as a disk could hold it: ascending dates with runs of one second, records damaged at the ends and inside, dates
// that aren't any, an unsorted stretch, a torn tail, a header of any age or none.
struct RandomFile
{
    explicit RandomFile(Dice& dice)
    {
        const auto base =
            dice.Of<std::uint32_t>({0, 42, 79, 80, 95, 99, 100, 1900, 1999, 2000, 2000, 2000, 2024, 65535});
        records = HeaderBytes(base, dice.Of<std::string>({"EVENTv2.70", "EVENTv2.70", "ABC", "anything at all"}));
        if (dice.OneIn(40)) records = Damaged(records, static_cast<std::size_t>(dice.Below(14)));
        if (dice.OneIn(60)) records = records.substr(0, static_cast<std::size_t>(dice.Below(14)));
        count =
            dice.Of({0, 1, 2, 3, 5, 20, 155, 156, 157, 158, 159, 315, 700, dice.Below(3000), 2519, 2520, 2521, 5400});
        const int rate = dice.Of({0, 0, 3, 20, 200});  // one in so many is damaged
        const int badBegin = dice.Of({0, 0, 1, 3, count});
        const int badEnd = dice.Of({0, 0, 1, 2, 170});
        if (dice.OneIn(2)) side = annotationHeader;
        int second = 0;
        for (int i = 0; i < count; ++i)
        {
            second += dice.Of({0, 0, 1, 1, 60, 400});
            std::string record = Record(dice, second % (31 * 86400));
            const bool bad = i < badBegin || i >= count - badEnd || (rate > 0 && dice.OneIn(rate));
            if (bad) record = Damaged(record, static_cast<std::size_t>(dice.Below(26)));
            records += record;
        }
        if (dice.OneIn(2)) records += dice.Bytes(dice.Below(26));
    }

    std::string Record(Dice& dice, int second)
    {
        const int fate = dice.Below(300);
        std::uint32_t date = Packed(24, second);
        if (fate == 0) date = PackedDate(24, 15, 31, 31, 63, 63);
        if (fate == 1) date = Packed(24, dice.Below(31 * 86400));
        std::uint32_t annotation = 0;
        if (side && dice.OneIn(8))
        {
            annotation = static_cast<std::uint32_t>(side->size());
            *side += EntryBytes(std::string(static_cast<std::size_t>(dice.Of({1, 10, 60, 300, 5000})), 'a'));
            if (dice.OneIn(20)) annotation += static_cast<std::uint32_t>(dice.Below(100));
        }
        return RecordBytes(date, TestId(static_cast<unsigned>(dice.Below(1'000'000))),
                           static_cast<std::uint32_t>(dice.Of({1, 2, 4})), annotation);
    }

    std::string records;
    std::optional<std::string> side;
    int count = 0;
};

class Pair
{
public:
    Pair(FaultyFiles& memory, RandomFile& random) : files(memory), naive(random.records, random.side)
    {
        files.Put("a.suc", random.records);
        (void)files.Delete(L"a.dat");
        if (random.side) files.Put("a.dat", *random.side);
    }

    bool Open(bool readOnly)
    {
        const bool opened = naive.Open(readOnly);
        EXPECT_EQ(file.Open(L"a.suc", readOnly), opened);
        EXPECT_EQ(file.IsOpen(), opened);
        if (!opened) return false;
        EXPECT_EQ(file.NRecords(), naive.count);
        EXPECT_EQ(file.BaseYear(), naive.baseYear);
        EXPECT_EQ(file.Version().Str(), naive.version);
        Same(file.BeginTime(), naive.begin);
        Same(file.EndTime(), naive.end);
        Compare();
        return true;
    }
    void Go(int index)
    {
        EXPECT_EQ(file.GoRecord(index), naive.GoRecord(index)) << index;
        Compare();
    }
    void Search(const KTDateTime& time, int direction)
    {
        EXPECT_EQ(file.SearchByTime(time, direction), naive.SearchByTime(time.OleDateTime().date, direction))
            << Text(time) << " " << direction;
        Compare();
    }
    void Annotation()
    {
        KTNarrowString text;
        file.EventAnnotation(text);
        EXPECT_EQ(text.Str(), naive.Annotation());
    }
    void NewRecord()
    {
        EXPECT_EQ(file.NewRecord(), naive.NewRecord());
        Compare();
    }
    void Set(Dice& dice, int second)
    {
        if (dice.OneIn(4)) return;
        const GUID id = TestId(static_cast<unsigned>(dice.Below(1000)));
        file.SetEventId(id);
        naive.SetId(id);
        const KTDateTime date(naive.baseYear + 24, 3, 1 + second / 86400 % 31, second / 3600 % 24, second / 60 % 60,
                              second % 60, dice.Below(500), 0);
        if (date.Valid())
        {
            file.SetDateValue(date);
            naive.SetDate(Packed(24, second));
        }
        const int value = dice.Below(300);
        file.SetEventValue(value);
        naive.SetValue(value);
        if (dice.OneIn(2)) return;
        const std::string text(static_cast<std::size_t>(dice.Of({0, 1, 30, 5000})), 't');
        file.SetEventAnnotation(KTNarrowString(text.c_str()));
        naive.SetAnnotation(text);
    }
    void Update()
    {
        EXPECT_EQ(file.Update(), naive.Update());
        Compare();
    }
    void Compare()
    {
        EXPECT_EQ(file.CurrentRecord(), naive.current);
        EXPECT_EQ(file.NRecords(), naive.count);
        EXPECT_EQ(file.IsDirty(), naive.dirty);
        EXPECT_EQ(file.EventId(), naive.Id());
        EXPECT_EQ(file.EventValue(), naive.Value());
        EXPECT_EQ(file.DateValue(), naive.Date());
        EXPECT_EQ(file.AnnotationOffset(), naive.AnnotationOffset());
    }
    static void Same(const KTDateTime& date, const std::optional<double>& naiveDate)
    {
        EXPECT_EQ(date.Valid(), naiveDate.has_value());
        EXPECT_EQ(date.OleDateTime().date, naiveDate.value_or(0));
    }
    KTDateTime RandomTime(Dice& dice)
    {
        if (dice.OneIn(20)) return dice.Of({KTDateTime(), Date(1899, 12, 30), Date(2100, 1, 1), Date(1950, 6, 1)});
        const int second = dice.Below(dice.Of({100, 31 * 86400, 20'000}));
        return {std::min(naive.baseYear + 24, 9999),
                3,
                1 + second / 86400,
                second / 3600 % 24,
                second / 60 % 60,
                second % 60,
                dice.Of({0, 0, 1, 999}),
                0};
    }

    FaultyFiles& files;
    NaiveEventFile naive;
    KTEventFile file{true};
};

TEST(EventFileProperty, ReadsAnyFileAsSingleReadsWould)
{
    FaultyFiles files;
    for (std::uint64_t seed = 1; seed <= 2000 && !testing::Test::HasFailure(); ++seed)
    {
        SCOPED_TRACE("seed " + std::to_string(seed));
        files.Trace();
        Dice dice(seed);
        RandomFile random(dice);
        Pair pair(files, random);
        if (!pair.Open(true)) continue;
        const int count = pair.naive.count;
        const int walks = dice.Below(4);
        if (walks == 1)
            for (int i = 0; i < count; ++i) pair.Go(i);
        if (walks == 2)
            for (int i = count - 1; i >= 0; --i) pair.Go(i);
        for (int i = 0; i < 60; ++i)
        {
            switch (dice.Below(5))
            {
                case 0:
                    pair.Go(dice.Below(count + 2) - 1);
                    break;
                case 1:
                    pair.Search(pair.RandomTime(dice), dice.Of({0, 1, 1, 2, 3}));
                    break;
                case 2:
                    for (int steps = dice.Below(200), at = dice.Below(count + 1); steps > 0; --steps) pair.Go(at++);
                    break;
                case 3:
                    for (int steps = dice.Below(200), at = dice.Below(count + 1); steps > 0; --steps) pair.Go(at--);
                    break;
                default:
                    pair.Annotation();
                    break;
            }
        }
        // What others append meanwhile isn't seen.
        random.records += random.Record(dice, 0);
        files.Put("a.suc", random.records);
        for (int i = std::max(count - 3, 0); i < count + 2; ++i) pair.Go(i);
    }
}

TEST(EventFileProperty, WritesWhatTheNaiveWriterWrites)
{
    FaultyFiles files;
    for (std::uint64_t seed = 1; seed <= 1000 && !testing::Test::HasFailure(); ++seed)
    {
        SCOPED_TRACE("seed " + std::to_string(seed));
        files.Trace();
        Dice dice(seed);
        RandomFile random(dice);
        Pair pair(files, random);
        if (!pair.Open(false)) continue;
        for (int i = 0; i < 40; ++i)
        {
            switch (dice.Below(7))
            {
                case 0:
                    pair.Go(dice.Below(pair.naive.count + 1));
                    break;
                case 1:
                    pair.Search(pair.RandomTime(dice), dice.Of({1, 2}));
                    break;
                case 2:
                    pair.Annotation();
                    break;
                case 3:
                    pair.Update();
                    break;
                case 4:
                    pair.Open(dice.OneIn(10));
                    break;
                default:
                    pair.NewRecord();
                    pair.Set(dice, dice.Below(31 * 86400));
                    if (!dice.OneIn(4)) pair.Update();
                    break;
            }
        }
        EXPECT_EQ(files.Content("a.suc"), random.records);
        EXPECT_EQ(files.Content("a.dat"), random.side.value_or("missing"));
    }
}

// Undamaged and sorted, the search means something simple.
TEST(EventFileProperty, ASearchFindsTheDateOrTheRecordBehindIt)
{
    FaultyFiles files;
    for (std::uint64_t seed = 1; seed <= 300; ++seed)
    {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Dice dice(seed);
        std::vector<int> seconds;
        std::string bytes = HeaderBytes();
        for (int i = 0, second = 100; i < 1 + dice.Below(400); ++i)
        {
            seconds.push_back(second += dice.Of({0, 1, 2, 50}));
            bytes += RecordBytes(Packed(24, second), TestId(1), 1);
        }
        files.Put("a.suc", bytes);
        KTEventFile file(true);
        ASSERT_TRUE(file.Open(L"a.suc", true));
        for (int target = seconds.front() - 2; target <= seconds.back() + 2; target += dice.Of({1, 1, 7}))
        {
            const KTDateTime time =
                Date(2024, 3, 1 + target / 86400, target / 3600 % 24, target / 60 % 60, target % 60);
            const auto behind = std::lower_bound(seconds.begin(), seconds.end(), target);
            const bool equal = behind != seconds.end() && *behind == target;
            for (const int direction : {1, 2})
            {
                const int found = file.SearchByTime(time, direction);
                if (equal)
                    ASSERT_TRUE(found >= 0 && seconds[static_cast<std::size_t>(found)] == target);
                else if (target > seconds.back())
                    ASSERT_EQ(found, direction == 2 ? static_cast<int>(seconds.size()) - 1 : -1);
                else if (target < seconds.front())
                    ASSERT_EQ(found, direction == 1 ? 0 : -1);
                else
                    ASSERT_EQ(found, behind - seconds.begin());
            }
        }
    }
}
}  // namespace
