// The reading of an event's log for a query.

#include <algorithm>
#include <cstring>
#include <iterator>

#include "engine/KTEventDriver.h"
#include "log/KTEventFile.h"
#include "log/KTEventLoggerData.h"

namespace
{
constexpr int recordFile = 0;  // of EventFileName
constexpr int onOrAfter = 1;   // of SearchByTime
constexpr int recordsAhead = 8;

// Invalid beyond the calendar's ends, which is where every walk over months has to stop.
KTDateTime FirstOfMonth(int year, int month)
{
    KTDateTime date;
    date.SetDate(year, month, 1);
    return date;
}

KTDateTime MonthOf(const KTDateTime& date) { return FirstOfMonth(date.Year(), date.Month()); }

KTDateTime MonthAfter(const KTDateTime& date)
{
    return date.Month() == 12 ? FirstOfMonth(date.Year() + 1, 1) : FirstOfMonth(date.Year(), date.Month() + 1);
}

KTDateTime MonthBefore(const KTDateTime& date)
{
    return date.Month() == 1 ? FirstOfMonth(date.Year() - 1, 12) : FirstOfMonth(date.Year(), date.Month() - 1);
}

bool Less(const GUID& a, const GUID& b) { return std::memcmp(&a, &b, sizeof a) < 0; }

// A list of identifiers from which the first of equal ones goes, without a walk over the list.
class PendingRows
{
public:
    explicit PendingRows(std::list<GUID>& identifiers) : list(identifiers) {}

    void EraseFirst(const GUID& id)
    {
        if (entries.empty()) Build();
        const auto run =
            std::lower_bound(entries.begin(), entries.end(), id,
                             [](const Entry& entry, const GUID& sought) { return Less(entry.id, sought); });
        if (run == entries.end() || !(run->id == id)) return;
        const auto entry = run + run->erased;
        if (entry == entries.end() || !(entry->id == id)) return;
        list.erase(entry->place);
        ++run->erased;
    }

private:
    struct Entry
    {
        GUID id;
        std::list<GUID>::iterator place;
        std::ptrdiff_t erased = 0;  // of the entries with this id; kept by the first of them
    };

    void Build()
    {
        entries.reserve(list.size());
        for (auto place = list.begin(); place != list.end(); ++place) entries.push_back({*place, place});
        std::stable_sort(entries.begin(), entries.end(),
                         [](const Entry& a, const Entry& b) { return Less(a.id, b.id); });
    }

    std::list<GUID>& list;
    std::vector<Entry> entries;  // by id, then as in the list; empty until something is erased
};
}  // namespace

bool KTEventDriver::Load(KTEventLoggerData& data, const KTDateTime& begin, const KTDateTime& end, bool searchBefore)
{
    wchar_t path[pathSize];
    bool result = false;
    // Before the period's records, so that one of them can complete what this finds.
    if (searchBefore) (void)SearchActivationBeforePeriod(data, begin);
    for (KTDateTime month = MonthOf(begin); month.Valid() && month <= end; month = MonthAfter(month))
    {
        EventFileName(path, month, recordFile);
        if (Load(data, begin, end, path)) result = true;
    }
    std::list<GUID> pending;
    data.RecordGroup().AppendIncomplete(id, pending);
    if (!pending.empty())
    {
        EventFileName(path, end, recordFile);
        (void)LoadIncomplete(data, end, path, pending);  // what isn't completed there stays as it is
    }
    if (!pending.empty())
    {
        const KTDateTime month = MonthAfter(end);
        EventFileName(path, month, recordFile);
        (void)LoadIncomplete(data, month, path, pending);  // the search ends here
    }
    return result;
}

bool KTEventDriver::Load(KTEventLoggerData& data, const KTDateTime& begin, const KTDateTime& end, const wchar_t* path)
{
    KTEventFile file(true);
    if (!file.Open(path, true)) return false;
    int index = file.SearchByTime(begin, onOrAfter);
    if (index < 0) return true;
    const KTNarrowString noAnnotation;  // only an activation's is wanted
    KTDateTime date;
    for (; index < file.NRecords(); ++index)
    {
        if (!file.GoRecord(index)) continue;
        file.DateValue(date);
        if (date < begin) continue;
        if (date >= end) break;
        if (GUID next; file.PeekEventId(index + recordsAhead, next)) data.RecordGroup().Expect(next);
        const int value = static_cast<int>(file.EventValue());
        if (value != statusActivated) file.PassAnnotation();
        const KTNarrowString& annotation = value == statusActivated ? file.EventAnnotation() : noAnnotation;
        data.AddRecord(id, file.EventId(), date, value, annotation, notify);
    }
    return true;
}

bool KTEventDriver::LoadIncomplete(KTEventLoggerData& data, const KTDateTime& from, const wchar_t* path,
                                   std::list<GUID>& pending)
{
    KTEventFile file(true);
    if (!file.Open(path, true)) return false;
    int index = file.SearchByTime(from, onOrAfter);
    if (index < 0) return true;
    PendingRows rows(pending);
    const KTNarrowString noAnnotation;  // a completion has none of its own
    KTDateTime date;
    for (; index < file.NRecords(); ++index)
    {
        if (!file.GoRecord(index)) continue;
        file.DateValue(date);
        if (date < from) continue;
        const int value = static_cast<int>(file.EventValue());
        if (value != statusDeactivated && value != statusAcknowledged) continue;
        const auto* row = data.AddRecord(id, file.EventId(), date, value, noAnnotation, notify);
        // The record may have completed a row of another event that shares the id; ours still waits then.
        if (row == nullptr || !row->IsComplete() || row->EventId() != id) continue;
        rows.EraseFirst(row->RecordId());
        if (pending.empty()) return true;
    }
    return true;
}

bool KTEventDriver::SearchActivationBeforePeriod(KTEventLoggerData& data, const KTDateTime& begin)
{
    wchar_t path[pathSize];
    KTDateTime month = MonthOf(begin);
    const KTDateTime limit = MonthBefore(month);
    for (; month.Valid() && month >= limit; month = MonthBefore(month))
    {
        EventFileName(path, month, recordFile);
        KTEventFile file(true);
        if (!file.Open(path, true)) continue;
        KTDateTime date;
        for (int index = file.SearchByTime(begin, onOrAfter); index >= 0; --index)
        {
            if (!file.GoRecord(index)) continue;
            file.DateValue(date);
            if (date >= begin) continue;
            const int value = static_cast<int>(file.EventValue());
            if (value == statusDeactivated) return true;  // the last occurrence had ended
            if (value != statusActivated) continue;
            data.AddRecord(id, file.EventId(), date, statusActivated, file.EventAnnotation(), notify);
            return true;
        }
    }
    return true;
}
