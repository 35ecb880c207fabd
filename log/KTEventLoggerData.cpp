#include "log/KTEventLoggerData.h"

#include <algorithm>
#include <array>
#include <numeric>

#include "engine/KTEventDriver.h"

namespace
{
// Counts and durations wrap as the log's 32 bits do.
int Sum(int total, std::uint32_t more) { return static_cast<int>(static_cast<std::uint32_t>(total) + more); }
}  // namespace

KTEventLoggerData::KTEventLoggerData() : group(std::make_shared<CRecordGroup>(&info)) {}

void KTEventLoggerData::Setup(const KTEventLoggerInfo& selection)
{
    info = selection;
    info.Lock();
}

bool KTEventLoggerData::Load(const KTDateTime& begin, const KTDateTime& end, bool searchBefore)
{
    bool all = true;
    for (auto variable = info.EventsBegin(); variable != info.EventsEnd(); ++variable)
        if (!(*variable)->Driver()->Load(*this, begin, end, searchBefore)) all = false;
    return all;
}

bool KTEventLoggerData::SelectData(const KTDateTime& begin, const KTDateTime& end, bool searchBefore)
{
    group->Reset();
    totals.reset();
    return Load(begin, end, searchBefore);
}

KTEventLoggerData::CRecordGroupTotalized& KTEventLoggerData::RecordGroupTotalized()
{
    if (totals != nullptr) return *totals;
    totals = std::make_shared<CRecordGroupTotalized>(&info);
    for (auto row = group->Begin(); row != group->End(); ++row) totals->AddRecord(*row);
    return *totals;
}

KTEventLoggerData::CDataRecord* KTEventLoggerData::AddRecord(const GUID& eventId, const GUID& recordId,
                                                             const KTDateTime& time, int value,
                                                             const KTNarrowString& annotation, bool notify)
{
    return group->AddRecord(eventId, recordId, time, value, annotation, notify);
}

KTEventLoggerData::CRecordGroup& KTEventLoggerData::CRecordGroup::operator=(const CRecordGroup& other)
{
    if (this == &other) return *this;
    Reset();
    info = other.info;
    return *this;
}

void KTEventLoggerData::CRecordGroup::Reset()
{
    // The index goes with the rows: a completion that found a row of an earlier query would write where none is any more.
    index.Clear();
    lastOfEvent.clear();
    lastEvent = nullptr;
    firstOfDate.clear();
    ends = {&ends, &ends, nullptr};
    chunks.clear();
    texts.Clear();
    fresh.clear();
    count = 0;
}

KTEventLoggerData::CDataRecord* KTEventLoggerData::CRecordGroup::AddRecord(const GUID& eventId, const GUID& recordId,
                                                                           const KTDateTime& time, int value,
                                                                           const KTNarrowString& annotation,
                                                                           bool notify)
{
    switch (value)
    {
        case KTEventDriver::statusActivated:
            return AddRow(eventId, recordId, time, annotation, notify);
        case KTEventDriver::statusDeactivated:
        case KTEventDriver::statusAcknowledged:
            return Complete(recordId, time, value);
        default:
            return nullptr;
    }
}

KTEventLoggerData::CDataRecord* KTEventLoggerData::CRecordGroup::AddRow(const GUID& eventId, const GUID& recordId,
                                                                        const KTDateTime& time,
                                                                        const KTNarrowString& annotation, bool notify)
{
    if (count % rowsPerChunk == 0) chunks.emplace_back().reserve(rowsPerChunk);
    if (lastEvent == nullptr || !(lastEvent->first == eventId))
        lastEvent = &*lastOfEvent.try_emplace(eventId, none).first;
    CDataRecord& record = chunks.back().emplace_back(eventId, recordId, time, lastEvent->second).record;
    record.notify = notify;
    if (!annotation.Empty())
        record.annotation.Attach(texts.Keep(annotation.Str(), static_cast<std::size_t>(annotation.Length())));
    fresh.push_back({time.CalendarMicroseconds(), count});
    lastEvent->second = count;
    index.Insert(recordId, count, IdOfRow());
    ++count;
    return &record;
}

KTEventLoggerData::CDataRecord* KTEventLoggerData::CRecordGroup::Complete(const GUID& recordId, const KTDateTime& time,
                                                                          int value)
{
    const std::uint32_t number = index.Find(recordId, IdOfRow());
    if (number == none) return nullptr;
    CDataRecord& record = At(number).record;
    if (!record.time.Valid()) return nullptr;
    const auto seconds = static_cast<std::uint32_t>((time - record.time).TotalSeconds());
    (value == KTEventDriver::statusDeactivated ? record.disableOffset : record.ackOffset) = seconds;
    return &record;
}

void KTEventLoggerData::CRecordGroup::AppendIncomplete(const GUID& eventId, std::list<GUID>& out) const
{
    const auto last = lastOfEvent.find(eventId);
    if (last == lastOfEvent.end()) return;
    for (std::uint32_t number = last->second; number != none; number = At(number).sameEvent)
        if (const CDataRecord& record = At(number).record; !record.IsComplete()) out.push_back(record.recordId);
}

void KTEventLoggerData::CRecordGroup::SettleRows() const
{
    // Sorting in costs a walk over all rows: worth it for many, while a few find their places by the map of the dates.
    constexpr std::uint32_t many = 16;
    if (fresh.size() >= (count - fresh.size()) / many)
        SortIn();
    else
        PlaceEach();
    fresh.clear();
}

// Leaves equal dates as they stand. Digit by digit from the lowest, which takes a few walks over the rows, while comparing
// takes one for each doubling of their number.
void KTEventLoggerData::CRecordGroup::SortByDate(std::vector<Fresh>& rows)
{
    constexpr unsigned bits = 11;  // of a digit; the counts fit the nearest cache
    constexpr std::size_t digits = std::size_t{1} << bits;
    const auto [first, last] =
        std::minmax_element(rows.begin(), rows.end(), [](const Fresh& a, const Fresh& b) { return a.date < b.date; });
    const auto least = static_cast<std::uint64_t>(first->date);
    const std::uint64_t range = static_cast<std::uint64_t>(last->date) - least;
    std::vector<Fresh> sorted(rows.size());
    for (unsigned shift = 0; shift < 64 && range >> shift != 0; shift += bits)
    {
        const auto digit = [least, shift](const Fresh& row)
        { return ((static_cast<std::uint64_t>(row.date) - least) >> shift) % digits; };
        std::array<std::uint32_t, digits> places{};
        for (const Fresh& row : rows) ++places[digit(row)];
        std::exclusive_scan(places.begin(), places.end(), places.begin(), 0U);
        for (const Fresh& row : rows) sorted[places[digit(row)]++] = row;
        rows.swap(sorted);
    }
}

// A merge with what has its place already; of equal dates what is new stands before what is old, and the newest first.
void KTEventLoggerData::CRecordGroup::SortIn() const
{
    constexpr std::size_t distance = 8;  // rows to fetch ahead
    std::reverse(fresh.begin(), fresh.end());
    SortByDate(fresh);
    firstOfDate.clear();
    Links* place = ends.next;
    for (std::size_t i = 0; i < fresh.size(); ++i)
    {
        const Fresh& next = fresh[i];
        while (place != &ends && static_cast<Row*>(place)->record.time.CalendarMicroseconds() < next.date)
            place = place->next;
        Row& row = At(next.number);
        LinkBefore(*place, row);
        if (i + distance >= fresh.size()) continue;
        row.ahead = &At(fresh[i + distance].number);
        __builtin_prefetch(row.ahead, 1);
    }
}

void KTEventLoggerData::CRecordGroup::PlaceEach() const
{
    if (firstOfDate.empty())
    {
        for (Links* at = ends.previous; at != &ends; at = at->previous)
        {
            Row* const row = static_cast<Row*>(at);
            const std::int64_t date = row->record.time.CalendarMicroseconds();
            if (!firstOfDate.empty() && firstOfDate.begin()->first == date)
                firstOfDate.begin()->second = row;
            else
                firstOfDate.emplace_hint(firstOfDate.begin(), date, row);
        }
    }
    for (const auto& [date, number] : fresh)
    {
        Row& row = At(number);
        const auto place = firstOfDate.lower_bound(date);
        LinkBefore(place == firstOfDate.end() ? ends : *place->second, row);
        if (place != firstOfDate.end() && place->first == date)
            place->second = &row;
        else
            firstOfDate.emplace_hint(place, date, &row);
    }
}

void KTEventLoggerData::CRecordGroup::LinkBefore(Links& place, Row& row)
{
    row.previous = place.previous;
    row.next = &place;
    place.previous->next = &row;
    place.previous = &row;
}

bool KTEventLoggerData::CDataRecordTotalized::AddDataRecord(const CDataRecord* record)
{
    if (record == nullptr || !(record->EventId() == eventId)) return false;
    ++enableCount;
    if (record->DisableOffset() != noOffset)
    {
        ++disableCount;
        duration = Sum(duration, record->DisableOffset());
    }
    if (notify && record->AckOffset() != noOffset) ++ackCount;
    return true;
}

KTEventLoggerData::CRecordGroupTotalized& KTEventLoggerData::CRecordGroupTotalized::operator=(
    const CRecordGroupTotalized& other)
{
    if (this == &other) return *this;
    Reset();
    info = other.info;
    return *this;
}

KTEventLoggerData::CDataRecordTotalized* KTEventLoggerData::CRecordGroupTotalized::AddRecord(CDataRecord* record)
{
    if (record == nullptr) return nullptr;
    CDataRecordTotalized*& total = byEvent[record->EventId()];
    if (total == nullptr)
    {
        auto fresh = std::make_unique<CDataRecordTotalized>(record->EventId(), record->Notify());
        totals.push_back(fresh.get());
        total = fresh.release();  // the list owns it from here on
    }
    (void)total->AddDataRecord(record);  // it is of this event
    return total;
}

void KTEventLoggerData::CRecordGroupTotalized::Reset()
{
    for (CDataRecordTotalized* total : totals) delete total;
    totals.clear();
    byEvent.clear();
}
