// An event's files as lists of what was written, and a query over them, slow and obvious.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "NaiveRows.h"

/// One month of one event.
struct NaiveFile
{
    struct Record
    {
        std::uint32_t packed = 0;
        GUID id;
        int value = 1;
        std::uint32_t annotation = 0;  // offset in the side file
        bool damaged = false;          // its checksum is wrong
    };

    bool damagedHeader = false;
    std::vector<Record> records;
    std::size_t tail = 0;  // bytes of a torn record behind the last
    std::string side;      // the whole side file
    bool hasSide = false;

    static std::uint32_t Pack(const KTDateTime& date)
    {
        const auto field = [](int value, int shift) { return static_cast<std::uint32_t>(value) << shift; };
        return field(date.Year() - 2000, 26) | field(date.Month(), 22) | field(date.Day(), 17) |
               field(date.Hour(), 12) | field(date.Minute(), 6) | field(date.Second(), 0);
    }

    static KTDateTime Unpack(std::uint32_t packed)
    {
        const auto field = [packed](int shift, std::uint32_t mask)
        { return static_cast<int>((packed >> shift) & mask); };
        return {2000 + field(26, 63), field(22, 15), field(17, 31), field(12, 31), field(6, 63), field(0, 63), 0, 0};
    }

    /// The offset of the new entry, or 0 for no text.
    std::uint32_t AddText(const std::string& text)
    {
        if (text.empty()) return 0;
        if (!hasSide) side = std::string("ANNOTATIONv2.70") + '\0';
        hasSide = true;
        const auto offset = static_cast<std::uint32_t>(side.size());
        side += static_cast<char>((text.size() + 1) >> 8);
        side += static_cast<char>(text.size() + 1);
        side += text + '\0';
        return offset;
    }

    [[nodiscard]] std::vector<std::uint8_t> Bytes() const
    {
        std::vector<std::uint8_t> bytes = {'E', 'V', 'E', 'N', 'T', 'v', '2', '.', '7', '0', 0x07, 0xD0, 0x00, 0x69};
        if (damagedHeader) bytes[12] = 1;
        for (const Record& record : records)
        {
            const std::size_t begin = bytes.size();
            Put(bytes, record.packed, 4);
            Put(bytes, record.id.Data1, 4);
            Put(bytes, record.id.Data2, 2);
            Put(bytes, record.id.Data3, 2);
            bytes.insert(bytes.end(), std::begin(record.id.Data4), std::end(record.id.Data4));
            Put(bytes, static_cast<std::uint32_t>(record.value), 1);
            Put(bytes, record.annotation, 4);
            unsigned sum = 0;
            for (std::size_t i = begin; i < bytes.size(); ++i) sum += bytes[i];
            bytes.push_back(static_cast<std::uint8_t>(record.damaged ? 1 + ~sum : ~sum));
        }
        bytes.insert(bytes.end(), tail, 0x55);
        return bytes;
    }

private:
    static void Put(std::vector<std::uint8_t>& bytes, std::uint32_t number, int count)
    {
        for (int i = count - 1; i >= 0; --i) bytes.push_back(static_cast<std::uint8_t>(number >> (8 * i)));
    }
};

/// Reads one file with a cursor.
class NaiveReader
{
public:
    explicit NaiveReader(const NaiveFile& itsFile) : file(itsFile)
    {
        for (int i = 0; i < Count(); ++i)
        {
            if (Record(i).damaged) continue;
            if (first < 0) first = i;
            last = i;
        }
    }

    [[nodiscard]] int Count() const { return static_cast<int>(file.records.size()); }
    [[nodiscard]] const NaiveFile::Record& Record(int i) const { return file.records[static_cast<std::size_t>(i)]; }
    [[nodiscard]] bool Go(int i) const { return !Record(i).damaged; }
    [[nodiscard]] KTDateTime Date(int i) const { return NaiveFile::Unpack(Record(i).packed); }

    /// As it is compared: no real date is the zero of OLE dates.
    [[nodiscard]] double Ole(int i) const { return Date(i).Valid() ? Date(i).OleDateTime().date : 0.0; }

    /// In direction 1.
    [[nodiscard]] int Search(const KTDateTime& time) const
    {
        if (first < 0) return -1;
        const double target = time.OleDateTime().date;
        if (target < EndOle(first)) return first;
        if (target > EndOle(last)) return -1;
        int low = first;
        int high = last;
        int middle = low;
        while (high - low > 1)
        {
            middle = (low + high) / 2;
            if (target > Ole(middle))
                low = middle;
            else if (target == Ole(middle))
                return middle;
            else
                high = middle;
        }
        if (Go(low) && Ole(low) == target) return low;
        if (Go(high) && Ole(high) == target) return high;
        if (Go(high) && Ole(high) <= target) return high;
        if (Go(middle) && Ole(middle) <= target) return high;
        return Go(low) && Ole(low) <= target ? high : -1;
    }

    std::string Annotation(int i)
    {
        const std::uint32_t offset = Record(i).annotation;
        if (offset == remembered) return text;
        text.clear();
        if (offset == 0 || !file.hasSide || offset + 2 > file.side.size()) return text;
        const auto size = static_cast<std::size_t>(static_cast<std::uint8_t>(file.side[offset])) * 256 +
                          static_cast<std::uint8_t>(file.side[offset + 1]);
        if (offset + 2 + size > file.side.size()) return text;
        text = file.side.substr(offset + 2, size).c_str();  // up to the first zero
        remembered = offset;
        return text;
    }

private:
    // Begin and end of the file are dates that may be none, and their OLE form is then zero too.
    [[nodiscard]] double EndOle(int i) const { return Date(i).OleDateTime().date; }

    const NaiveFile& file;
    int first = -1;
    int last = -1;
    std::string text;
    std::uint32_t remembered = 0;
};

/// All files of some events, and queries over them.
class NaiveHistory
{
public:
    struct Event
    {
        GUID id;
        std::string name;  // events of one name share their files
        bool notify = false;
    };

    using Month = std::pair<int, int>;  // year and month

    static std::string Path(const std::string& name, Month month)
    {
        char text[64];
        std::snprintf(text, sizeof text, "%04d/%02d/", month.first, month.second);
        std::string path = text + name;
        std::snprintf(text, sizeof text, " %02d-%04d.suc", month.second, month.first);
        return path + text;
    }

    NaiveFile& File(const std::string& name, Month month) { return files[Path(name, month)]; }

    bool Select(NaiveRows& rows, const std::vector<Event>& events, const KTDateTime& begin, const KTDateTime& end,
                bool searchBefore)
    {
        bool all = true;
        for (const Event& event : events) all = Load(rows, event, begin, end, searchBefore) && all;
        return all;
    }

    std::map<std::string, NaiveFile> files;  // below the data directory
    std::vector<std::string> opened;

private:
    static Month MonthOf(const KTDateTime& date) { return {date.Year(), date.Month()}; }
    static Month After(Month month)
    {
        return month.second == 12 ? Month{month.first + 1, 1} : Month{month.first, month.second + 1};
    }
    static Month Before(Month month)
    {
        return month.second == 1 ? Month{month.first - 1, 12} : Month{month.first, month.second - 1};
    }
    static KTDateTime FirstDay(Month month) { return Date(month.first, month.second, 1); }

    const NaiveFile* Open(const Event& event, Month month)
    {
        const std::string path = Path(event.name, month);
        const auto found = files.find(path);
        if (found == files.end()) return nullptr;
        opened.push_back(path);
        return found->second.damagedHeader ? nullptr : &found->second;
    }

    bool Load(NaiveRows& rows, const Event& event, const KTDateTime& begin, const KTDateTime& end, bool searchBefore)
    {
        bool result = false;
        if (searchBefore) SearchBefore(rows, event, begin);
        for (Month month = MonthOf(begin); FirstDay(month) <= end; month = After(month))
            if (LoadMonth(rows, event, begin, end, month)) result = true;
        std::list<GUID> pending;
        for (const NaiveRows::Row& row : rows.rows)
            if (row.event == event.id && !row.IsComplete()) pending.push_back(row.occurrence);
        if (!pending.empty()) LoadIncomplete(rows, event, end, MonthOf(end), pending);
        const Month next = After(MonthOf(end));
        if (!pending.empty()) LoadIncomplete(rows, event, FirstDay(next), next, pending);
        return result;
    }

    bool LoadMonth(NaiveRows& rows, const Event& event, const KTDateTime& begin, const KTDateTime& end, Month month)
    {
        const NaiveFile* const file = Open(event, month);
        if (file == nullptr) return false;
        NaiveReader reader(*file);
        const int from = reader.Search(begin);
        for (int i = from; from >= 0 && i < reader.Count(); ++i)
        {
            if (!reader.Go(i) || reader.Date(i) < begin) continue;
            if (reader.Date(i) >= end) break;
            const std::string annotation = reader.Annotation(i);
            const NaiveFile::Record& record = reader.Record(i);
            rows.Add(event.id, record.id, reader.Date(i), record.value, annotation, event.notify);
        }
        return true;
    }

    void LoadIncomplete(NaiveRows& rows, const Event& event, const KTDateTime& from, Month month,
                        std::list<GUID>& pending)
    {
        const NaiveFile* const file = Open(event, month);
        if (file == nullptr) return;
        NaiveReader reader(*file);
        const int first = reader.Search(from);
        for (int i = first; first >= 0 && i < reader.Count(); ++i)
        {
            if (!reader.Go(i) || reader.Date(i) < from) continue;
            const NaiveFile::Record& record = reader.Record(i);
            if (record.value != 2 && record.value != 4) continue;
            const NaiveRows::Row* const row =
                rows.Add(event.id, record.id, reader.Date(i), record.value, reader.Annotation(i), event.notify);
            if (row == nullptr || !row->IsComplete() || !(row->event == event.id)) continue;
            for (auto place = pending.begin(); place != pending.end(); ++place)
            {
                if (!(*place == row->occurrence)) continue;
                pending.erase(place);
                break;
            }
            if (pending.empty()) return;
        }
    }

    void SearchBefore(NaiveRows& rows, const Event& event, const KTDateTime& begin)
    {
        for (const Month& month : {MonthOf(begin), Before(MonthOf(begin))})
        {
            const NaiveFile* const file = Open(event, month);
            if (file == nullptr) continue;
            NaiveReader reader(*file);
            for (int i = reader.Search(begin); i >= 0; --i)
            {
                if (!reader.Go(i) || reader.Date(i) >= begin) continue;
                const NaiveFile::Record& record = reader.Record(i);
                if (record.value == 2) return;
                if (record.value != 1) continue;
                rows.Add(event.id, record.id, reader.Date(i), 1, reader.Annotation(i), event.notify);
                return;
            }
        }
    }
};
