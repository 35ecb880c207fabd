// Any bytes as the log of two events, and every kind of question to it.
//
// The input is a row of files: a byte that says which (bits 0 to 2 the month, from November 2023 to June 2024; bit 3 the
// event; bit 4 the annotations instead of the records; bit 5 sets every checksum right), two bytes with the length, the
// content.

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "engine/KTEventDriver.h"
#include "host/KTCorvaneSetup.h"
#include "log/KTEventFile.h"
#include "log/KTEventLoggerData.h"
#include "tests/support/MemoryFiles.h"

namespace
{
constexpr int months = 8;
const std::array<const wchar_t*, 2> names = {L"pump", L"valve"};

void Must(bool good)
{
    if (!good) std::abort();
}

// One that reads the files of the fuzzer.
class Event : public KTEventDriver
{
public:
    Event(int number, bool notifies)
    {
        name = names[static_cast<std::size_t>(number)];
        id.Data1 = static_cast<std::uint32_t>(number) + 1;
        notify = notifies;
    }
};

KTDateTime MonthOf(int number)
{
    KTDateTime date;
    number += 10;  // months since January 2023
    date.SetDate(2023 + number / 12, number % 12 + 1, 1);
    return date;
}

void Seal(MemoryFiles::Bytes& bytes, std::size_t begin, std::size_t size)
{
    if (begin + size > bytes.size()) return;
    const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(begin);
    const auto last = first + static_cast<std::ptrdiff_t>(size) - 1;
    *last = static_cast<std::uint8_t>(~std::accumulate(first, last, 0U));
}

void SealAll(MemoryFiles::Bytes& bytes)
{
    Seal(bytes, 0, KTEventFile::headerSize);
    for (std::size_t at = KTEventFile::headerSize; at < bytes.size(); at += KTEventFile::recordSize)
        Seal(bytes, at, KTEventFile::recordSize);
}

void Store(MemoryFiles& files, const std::uint8_t* data, std::size_t size)
{
    constexpr std::size_t head = 3;
    while (size >= head)
    {
        const unsigned which = data[0];
        const std::size_t length = std::min<std::size_t>(data[1] * 256U + data[2], size - head);
        auto bytes = std::make_shared<MemoryFiles::Bytes>(data + head, data + head + length);
        const bool annotations = (which & 16) != 0;
        if ((which & 32) != 0 && !annotations) SealAll(*bytes);
        wchar_t path[KTEventDriver::pathSize];
        Event((which & 8) != 0 ? 1 : 0, false).EventFileName(path, MonthOf(which % months), annotations ? 1 : 0);
        files.files[MemoryFiles::Name(path)] = std::move(bytes);
        data += head + length;
        size -= head + length;
    }
}

// What every answer is, whatever the files hold.
void Check(KTEventLoggerData& data)
{
    KTDateTime last;
    int rows = 0;
    for (auto row = data.RecordGroup().Begin(); row != data.RecordGroup().End(); ++row, ++rows)
    {
        Must((*row)->Time() >= last);
        last = (*row)->Time();
        Must((*row)->Annotation().Length() < 65536);
    }
    int counted = 0;
    auto& totals = data.RecordGroupTotalized();
    for (auto total = totals.Begin(); total != totals.End(); ++total) counted += (*total)->EnableCount();
    Must(counted == rows);
}

std::string Describe(KTEventLoggerData& data)
{
    std::string text;
    char id[guidTextSize];
    for (auto row = data.RecordGroup().Begin(); row != data.RecordGroup().End(); ++row)
        text += std::string(guidtoc((*row)->RecordId(), id)) + (*row)->Annotation().Str() +
                std::to_string((*row)->AckOffset()) + std::to_string((*row)->DisableOffset());
    return text;
}

void Ask(Event& pump, Event& valve, const KTDateTime& begin, const KTDateTime& end, bool searchBefore)
{
    const auto ask = [&]
    {
        auto data = std::make_unique<KTEventLoggerData>();
        (void)pump.Load(*data, begin, end, searchBefore);  // with and without files
        (void)valve.Load(*data, begin, end, searchBefore);
        Check(*data);
        return Describe(*data);
    };
    Must(ask() == ask());
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    KTSetupData setup;
    setup.dataPath = L"/log/";
    KTCorvaneSetup::Get().Configure(setup);
    MemoryFiles files;
    Store(files, data, size);
    Event pump(0, true);
    Event valve(1, false);
    const KTDateTime inMarch(2024, 3, 15, 12, 0, 0, 0, 0);
    const KTDateTime inApril(2024, 4, 15, 12, 0, 0, 0, 0);
    for (const bool searchBefore : {false, true})
    {
        Ask(pump, valve, inMarch, inApril, searchBefore);
        Ask(pump, valve, MonthOf(0), MonthOf(7), searchBefore);
        Ask(pump, valve, MonthOf(4), MonthOf(4), searchBefore);
    }
    Must(files.AllClosed());
    return 0;
}
