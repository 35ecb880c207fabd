// What reading a month of records costs, against a read of each record by itself.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <numeric>
#include <string>
#include <vector>

#include "host/KTText.h"
#include "log/KTEventFile.h"

namespace
{
namespace fs = std::filesystem;
using Steady = std::chrono::steady_clock;

constexpr int records = 31 * 24 * 60;  // one a minute for a month

void Must(bool good)
{
    if (!good) std::abort();
}

KTDateTime DateOf(int index)
{
    KTDateTimeSpan span;
    span.SetDateTimeSpan(0, 0, index, 0, 0, 0);
    return KTDateTime(2024, 3, 1, 0, 0, 0, 0, 0) + span;
}

// The bytes as they stand, without a commit for each record.
void WriteMonth(const std::string& path)
{
    const KTEventFile::CNewFileTemplate current("EVENTv2.70", 2000);
    KTWideString wide;
    Utf8ToUtf16(wide, KTNarrowString(path.c_str()));
    Must(KTEventFile::Create(wide.Str(), current));
    std::ofstream file(path, std::ios::binary | std::ios::app);
    for (int i = 0; i < records; ++i)
    {
        const KTDateTime date = DateOf(i);
        const std::uint32_t packed = (24U << 26) | (3U << 22) | (static_cast<std::uint32_t>(date.Day()) << 17) |
                                     (static_cast<std::uint32_t>(date.Hour()) << 12) |
                                     (static_cast<std::uint32_t>(date.Minute()) << 6);
        std::uint8_t record[KTEventFile::recordSize] = {
            static_cast<std::uint8_t>(packed >> 24), static_cast<std::uint8_t>(packed >> 16),
            static_cast<std::uint8_t>(packed >> 8), static_cast<std::uint8_t>(packed)};
        record[25] = static_cast<std::uint8_t>(~std::accumulate(record, record + 25, 0U));
        file.write(reinterpret_cast<const char*>(record), sizeof record);
    }
}

double Nanoseconds(const std::function<void()>& work)
{
    double best = 1e18;
    for (int i = 0; i < 7; ++i)
    {
        const auto begin = Steady::now();
        work();
        best = std::min(best, std::chrono::duration<double, std::nano>(Steady::now() - begin).count());
    }
    return best;
}

void Print(const char* name, double nanoseconds, double single)
{
    std::printf("reading/%-14s %10.1f ns a record, %8.1f ns by single reads, %5.1f times as fast\n", name, nanoseconds,
                single, single / nanoseconds);
}
}  // namespace

int main()
{
    const std::string path =
        (fs::temp_directory_path() / ("corvane-reading-" + std::to_string(getpid()) + ".suc")).string();
    WriteMonth(path);
    KTWideString wide;
    Utf8ToUtf16(wide, KTNarrowString(path.c_str()));
    const int bare = open(path.c_str(), O_RDONLY);
    const auto single = [bare](int index)
    {
        char record[KTEventFile::recordSize];
        Must(pread(bare, record, sizeof record,
                   KTEventFile::headerSize + std::int64_t{index} * KTEventFile::recordSize) == KTEventFile::recordSize);
    };
    const auto walk = [](const auto& visit, bool forward)
    {
        for (int i = 0; i < records; ++i) visit(forward ? i : records - 1 - i);
    };
    for (const bool forward : {true, false})
    {
        const double ours = Nanoseconds(
            [&]
            {
                KTEventFile file(true);
                Must(file.Open(wide.Str(), true));
                walk([&](int index) { Must(file.GoRecord(index)); }, forward);
            });
        const double theirs = Nanoseconds([&] { walk(single, forward); });
        Print(forward ? "forward" : "backward", ours / records, theirs / records);
    }
    // A search opens the file, as a query does; single reads need the header, both ends and the 16 steps.
    constexpr int searches = 1000;
    const double ours = Nanoseconds(
        [&]
        {
            for (int i = 0; i < searches; ++i)
            {
                KTEventFile file(true);
                Must(file.Open(wide.Str(), true) && file.SearchByTime(DateOf(i * 44 + 1), 1) == i * 44 + 1);
            }
        });
    const double theirs = Nanoseconds(
        [&]
        {
            for (int i = 0; i < searches; ++i)
            {
                const int file = open(path.c_str(), O_RDONLY);
                for (int step = 0; step < 19; ++step) single(step * 2000);
                close(file);
            }
        });
    std::printf("reading/%-14s %10.1f ns a search, %8.1f ns by single reads, %5.1f times as fast\n", "open_and_search",
                ours / searches, theirs / searches, theirs / ours);
    close(bare);
    fs::remove(path);
    return 0;
}
