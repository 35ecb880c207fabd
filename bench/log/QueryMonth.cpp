#include "bench/log/QueryMonth.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <numeric>
#include <random>

#include "host/KTText.h"
#include "log/KTBigEndian.h"
#include "log/KTEventFile.h"

namespace
{
namespace fs = std::filesystem;

constexpr std::int64_t day = 86'400;
constexpr std::int64_t monthLength = 31 * day;

void Must(bool good)
{
    if (good) return;
    std::perror("log");
    std::abort();
}

std::uint32_t Pack(const KTDateTime& date)
{
    const auto field = [](int value, int shift) { return static_cast<std::uint32_t>(value) << shift; };
    return field(date.Year() - 2000, 26) | field(date.Month(), 22) | field(date.Day(), 17) | field(date.Hour(), 12) |
           field(date.Minute(), 6) | field(date.Second(), 0);
}

void Append(std::string& bytes, const QueryMonth::Record& record, std::uint32_t annotation)
{
    std::uint8_t block[KTEventFile::recordSize] = {};
    kt::Put32(block, Pack(QueryMonth::Date(record.second)));
    kt::Put32(block + 4, record.id.Data1);
    kt::Put16(block + 8, record.id.Data2);
    kt::Put16(block + 10, record.id.Data3);
    std::copy(std::begin(record.id.Data4), std::end(record.id.Data4), block + 12);
    block[20] = static_cast<std::uint8_t>(record.value);
    kt::Put32(block + 21, annotation);
    block[25] = static_cast<std::uint8_t>(~std::accumulate(block, block + 25, 0U));
    bytes.append(reinterpret_cast<const char*>(block), sizeof block);
}
}  // namespace

QueryMonth::QueryMonth(int records, int eventCount, bool annotated) : events(static_cast<std::size_t>(eventCount))
{
    if (annotated) annotation = "Supply load 312 kW of 300 kW contracted";
    std::mt19937_64 random(20240301);
    const auto below = [&random](std::int64_t limit)
    { return static_cast<std::int64_t>(random() % static_cast<std::uint64_t>(limit)); };
    for (int occurrence = 0; occurrence < records / 3; ++occurrence)
    {
        std::vector<Record>& own = events[static_cast<std::size_t>(below(eventCount))];
        GUID id;
        const std::uint64_t words[2] = {random(), random()};
        std::memcpy(&id, words, sizeof id);
        const std::int64_t began = below(monthLength);
        own.push_back({began, id, 1});
        own.push_back({began + 1 + below(600), id, 4});
        own.push_back({began + 1 + below(600), id, 2});
        count += 3;
    }
    for (std::vector<Record>& own : events)
        std::stable_sort(own.begin(), own.end(), [](const Record& a, const Record& b) { return a.second < b.second; });
}

GUID QueryMonth::EventId(int event)
{
    GUID id;
    id.Data1 = static_cast<std::uint32_t>(event) + 1;
    return id;
}

KTDateTime QueryMonth::Date(std::int64_t second)
{
    return KTDateTime(2024, 3, 1, 0, 0, 0, 0, 0) + KTDateTimeSpan(second * 1'000'000);
}

std::string QueryMonth::EventXml(int event)
{
    char id[guidTextSize];
    return "<event><id>" + std::string(guidtoc(EventId(event), id)) + "</id><name>" + EventName(event) +
           "</name><condition>1 = 0</condition><notify>T</notify><record>T</record></event>";
}

fs::path QueryMonth::Path(const std::string& data, int event, int month)
{
    const std::string number = "0" + std::to_string(month);
    return data + "2024/" + number + "/" + EventName(event) + " " + number + "-2024.suc";
}

void QueryMonth::Write(const std::string& data) const
{
    for (int event = 0; event < static_cast<int>(events.size()); ++event)
    {
        const std::vector<Record>& own = events[static_cast<std::size_t>(event)];
        const auto april =
            std::find_if(own.begin(), own.end(), [](const Record& record) { return record.second >= monthLength; });
        WriteFile(Path(data, event, 3), {own.begin(), april});
        if (april != own.end()) WriteFile(Path(data, event, 4), {april, own.end()});
    }
}

void QueryMonth::WriteFile(const fs::path& path, const std::vector<Record>& records) const
{
    KTWideString wide;
    Utf8ToUtf16(wide, KTNarrowString(path.c_str()));
    Must(KTEventFile::Create(wide.Str(), KTEventFile::CNewFileTemplate("EVENTv2.70", 2000)));
    std::string side = std::string("ANNOTATIONv2.70") + '\0';
    std::string bytes;
    for (const Record& record : records)
    {
        Append(bytes, record, annotation.empty() ? 0 : static_cast<std::uint32_t>(side.size()));
        if (annotation.empty()) continue;
        side += {'\0', static_cast<char>(annotation.size() + 1)};
        side += annotation + '\0';
    }
    std::ofstream(path, std::ios::binary | std::ios::app) << bytes;
    if (!annotation.empty()) std::ofstream(fs::path(path).replace_extension("dat"), std::ios::binary) << side;
}

int QueryMonth::ReadAll(const std::string& data) const
{
    int good = 0;
    std::vector<std::uint8_t> bytes;
    for (int event = 0; event < static_cast<int>(events.size()); ++event)
    {
        const int file = open(Path(data, event, 3).c_str(), O_RDONLY | O_CLOEXEC);
        struct stat status
        {
        };
        Must(file >= 0 && fstat(file, &status) == 0);
        bytes.resize(static_cast<std::size_t>(status.st_size));
        Must(read(file, bytes.data(), bytes.size()) == status.st_size);
        close(file);
        for (std::size_t at = KTEventFile::headerSize; at < bytes.size(); at += KTEventFile::recordSize)
        {
            unsigned sum = 1;
            for (int i = 0; i < KTEventFile::recordSize; ++i) sum += bytes[at + static_cast<std::size_t>(i)];
            good += (sum & 0xFF) == 0 ? 1 : 0;
        }
    }
    return good;
}
