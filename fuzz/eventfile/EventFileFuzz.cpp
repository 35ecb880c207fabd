// Any bytes as the two files of an event's month: open, walk, search, read the annotations, append.
//
// The first byte chooses how, the next two say where the record file ends and the annotation file begins.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "log/KTEventFile.h"
#include "support/FaultyFiles.h"

namespace
{
constexpr const wchar_t* path = L"/log/a.suc";
constexpr int headerSize = KTEventFile::headerSize;
constexpr int recordSize = KTEventFile::recordSize;

void Must(bool good)
{
    if (!good) std::abort();
}

bool IsSound(const std::string& block)
{
    std::uint8_t sum = 1;
    for (const char c : block) sum = static_cast<std::uint8_t>(sum + static_cast<std::uint8_t>(c));
    return sum == 0;
}

// What the bytes say without any reader.
struct Bytes
{
    [[nodiscard]] int Records() const
    {
        return records.size() < headerSize ? 0 : static_cast<int>((records.size() - headerSize) / recordSize);
    }
    [[nodiscard]] bool HasHeader() const { return records.size() >= headerSize; }
    [[nodiscard]] bool HeaderIsSound() const { return HasHeader() && IsSound(records.substr(0, headerSize)); }
    [[nodiscard]] bool RecordIsSound(int index) const
    {
        return IsSound(records.substr(static_cast<std::size_t>(headerSize + index * recordSize), recordSize));
    }

    std::string records;
    std::string texts;
};

void Walk(KTEventFile& file, const Bytes& bytes)
{
    Must(file.NRecords() == bytes.Records());
    Must(file.TailSize() == static_cast<int>((bytes.records.size() - headerSize) % recordSize));
    KTNarrowString text;
    for (int index = 0; index < file.NRecords(); ++index)
    {
        Must(file.GoRecord(index) == bytes.RecordIsSound(index));
        KTDateTime date;
        file.DateValue(date);
        Must(date.Valid() || file.DateValue() == 0.0);
        Must(file.EventValue() >= 0 && file.EventValue() <= 255);
        file.EventAnnotation(text);
        Must(text.Length() <= static_cast<int>(bytes.texts.size()));
        (void)file.ReadAnnotation(file.AnnotationOffset(), text);
    }
    Must(!file.GoRecord(-1) && !file.GoRecord(file.NRecords()));
    (void)file.GoFirst();
    (void)file.GoLast();
}

void Search(KTEventFile& file, const KTDateTime& date)
{
    for (const int direction : {0, 1, 2, 3})
    {
        const int index = file.SearchByTime(date, direction);
        Must(index >= -1 && index < file.NRecords());
    }
}

void SearchEverywhere(KTEventFile& file)
{
    Search(file, KTDateTime());
    Search(file, {1, 1, 1, 0, 0, 0, 0, 0});
    Search(file, {9999, 12, 31, 23, 59, 59, 0, 0});
    const int records = file.NRecords();
    for (int index = 0; index < records; ++index)
    {
        KTDateTime date;
        (void)file.GoRecord(index);
        file.DateValue(date);
        Search(file, date);
        KTDateTimeSpan second;
        second.SetDateTimeSpan(0, 0, 0, 1, 0, 0);
        Search(file, date + second);
    }
}

// What is appended stands there afterwards, whatever stood before, unless it is older.
void Append(const Bytes& bytes, bool batched, const KTDateTime& date)
{
    KTEventFile file(true);
    Must(file.Open(path, false));
    GUID id;
    id.Data1 = 7;
    int appended = 0;
    if (batched) file.BeginBatch();
    for (int i = 0; i < 2; ++i)
    {
        Must(file.NewRecord());
        file.SetEventId(id);
        file.SetDateValue(date);
        file.SetEventValue(4);
        file.SetEventAnnotation(KTNarrowString("appended"));
        // The date as the file's base year lets it stand.
        const bool older = file.EndTime().Valid() && file.DateValue() < file.EndTime().OleDateTime().date;
        Must(file.Update() == !older);
        appended += older ? 0 : 1;
    }
    Must(file.EndBatch() == batched);
    Must(file.Open(path, true));
    Must(file.NRecords() == bytes.Records() + appended);
    if (appended == 0) return;
    Must(file.TailSize() == 0 && file.GoLast());
    Must(file.EventId() == id && file.EventValue() == 4);
    KTNarrowString text;
    file.EventAnnotation(text);
    Must(text == "appended");
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 3) return 0;
    const int choice = data[0];
    const std::size_t cut = std::min<std::size_t>(data[1] * 256U + data[2], size - 3);
    const Bytes bytes{{data + 3, data + 3 + cut}, {data + 3 + cut, data + size}};

    FaultyFiles files;
    files.Put("/log/a.suc", bytes.records);
    if ((choice & 1) != 0) files.Put("/log/a.dat", bytes.texts);
    KTEventFile file(true);
    if (file.OpenDamaged(path))
    {
        Walk(file, bytes);
        SearchEverywhere(file);
    }
    Must(file.IsOpen() == bytes.HasHeader());
    Must(file.HeaderIsSound() == bytes.HeaderIsSound());
    const bool sound = bytes.HeaderIsSound();
    Must(file.Open(path, true) == sound);
    file.Close();
    const KTDateTime late(2063, 12, 31, 0, 0, 0, 0, 0);
    const KTDateTime early(2007, 3, 15, 0, 0, 0, 0, 0);
    if (sound) Append(bytes, (choice & 2) != 0, (choice & 4) != 0 ? late : early);
    return 0;
}
