// The result of a query of the event log: a row an occurrence, and totals an event.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <list>
#include <map>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/KTDateTime.h"
#include "host/KTGuid.h"
#include "host/KTString.h"
#include "log/KTEventLoggerInfo.h"
#include "log/KTEventRowIndex.h"
#include "log/KTTextArena.h"

/// One query: which events, and what became of their occurrences in a period.
///
/// Units:   dates are UTC; delays and durations are whole seconds.
/// Errors:  Load and SelectData are false when no log file of the period could be opened for at least one event; the rows
///          that were found are good either way.
/// Threads: one at a time. Takes no lock: the caller holds a count of KTEventServer's request slots, so that no event goes.
/// Memory:  rows and totals live until the next SelectData. A copy shows the same rows and totals, not its own.
class KTEventLoggerData
{
public:
    class CDataRecord;
    class CRecordGroup;
    class CDataRecordTotalized;
    class CRecordGroupTotalized;

    static constexpr std::uint32_t noOffset = 0xFFFFFFFF;  // the change was not seen

    KTEventLoggerData();
    KTEventLoggerData(const KTEventLoggerData&) = default;
    KTEventLoggerData& operator=(const KTEventLoggerData&) = default;
    virtual ~KTEventLoggerData() = default;

    /// Takes the selection and looks its events up; those that are gone are left out. `selection` itself isn't touched.
    virtual void Setup(const KTEventLoggerInfo& selection);

    /// Adds the occurrences of the selected events that began at or after `begin` and before `end`, with what completed
    /// them up to a month after that; with `searchBefore` also each event's occurrence that was open at `begin`.
    virtual bool Load(const KTDateTime& begin, const KTDateTime& end, bool searchBefore);

    /// Load into an empty group.
    bool SelectData(const KTDateTime& begin, const KTDateTime& end, bool searchBefore);

    [[nodiscard]] const KTEventLoggerInfo& Info() const { return info; }
    CRecordGroup& RecordGroup() { return *group; }
    /// Made from the rows at the first call, and kept until the next SelectData.
    CRecordGroupTotalized& RecordGroupTotalized();

    /// CRecordGroup::AddRecord of the group.
    CDataRecord* AddRecord(const GUID& eventId, const GUID& recordId, const KTDateTime& time, int value,
                           const KTNarrowString& annotation, bool notify);

private:
    KTEventLoggerInfo info;
    std::shared_ptr<CRecordGroup> group;            // always present; shared with copies alone
    std::shared_ptr<CRecordGroupTotalized> totals;  // null until asked for; the same
};

/// One occurrence: when it began, and how long after that it was acknowledged and ended.
///
/// Threads: a plain value.
class KTEventLoggerData::CDataRecord
{
public:
    CDataRecord(const GUID& event, const GUID& occurrence, const KTDateTime& began)
        : eventId(event), recordId(occurrence), time(began)
    {
    }
    // No moves: a row's annotation may lie in its group, and a copy has its own.
    CDataRecord(const CDataRecord&) = default;
    CDataRecord& operator=(const CDataRecord&) = default;
    ~CDataRecord() = default;

    [[nodiscard]] const GUID& EventId() const { return eventId; }
    [[nodiscard]] const GUID& RecordId() const { return recordId; }
    [[nodiscard]] const KTDateTime& Time() const { return time; }                  // of the activation, UTC
    [[nodiscard]] const KTNarrowString& Annotation() const { return annotation; }  // as it lies in the log
    [[nodiscard]] std::uint32_t AckOffset() const { return ackOffset; }            // seconds, or noOffset
    [[nodiscard]] std::uint32_t DisableOffset() const { return disableOffset; }    // seconds, or noOffset
    [[nodiscard]] bool Notify() const { return notify; }  // an acknowledgement is to be expected

    /// Nothing is left to wait for: ended and, where the event notifies, acknowledged.
    [[nodiscard]] bool IsComplete() const { return disableOffset != noOffset && (!notify || ackOffset != noOffset); }

    void SetAnnotation(const KTNarrowString& text) { annotation = text; }
    void SetAckOffset(std::uint32_t seconds) { ackOffset = seconds; }
    void SetDisableOffset(std::uint32_t seconds) { disableOffset = seconds; }
    void SetNotify(bool expected) { notify = expected; }

private:
    friend class CRecordGroup;

    GUID eventId;
    GUID recordId;
    KTDateTime time;
    KTNarrowString annotation;
    std::uint32_t ackOffset = noOffset;
    std::uint32_t disableOffset = noOffset;
    bool notify = false;
};

/// All rows of a query, in the order of their dates; of equal dates the newest addition stands first.
///
/// Threads: one at a time, also for looking: the rows are put in order when somebody looks at them.
/// Memory:  owns the rows, each of which keeps its address. A copy is an empty group with the same selection. Iterators
///          behave as those of a list.
///
/// A record costs the same however many rows there are: rows wait at the end of the store and are sorted together when an
/// iterator is asked for. The few that come after that find their place in a map of the dates.
class KTEventLoggerData::CRecordGroup
{
    struct Links
    {
        Links* previous = nullptr;
        Links* next = nullptr;
        const Links* ahead = nullptr;  // some rows further on, for the processor to fetch; or null
    };
    struct Row : Links
    {
        Row(const GUID& event, const GUID& occurrence, const KTDateTime& began, std::uint32_t before)
            : record(event, occurrence, began), sameEvent(before)
        {
        }
        CDataRecord record;
        std::uint32_t sameEvent;  // the row of the same event that was added before this one, or none
    };
    struct Fresh
    {
        std::int64_t date;
        std::uint32_t number;
    };

public:
    /// Goes both ways over the rows.
    class ConstIterator
    {
    public:
        using iterator_category = std::bidirectional_iterator_tag;
        using value_type = CDataRecord*;
        using difference_type = std::ptrdiff_t;
        using pointer = CDataRecord* const*;
        using reference = CDataRecord*;

        ConstIterator() = default;
        CDataRecord* operator*() const { return &static_cast<Row*>(at)->record; }
        ConstIterator& operator++()
        {
            owner->Settle();
            at = at->next;
            Fetch(at->ahead);
            return *this;
        }
        ConstIterator operator++(int)
        {
            const ConstIterator old = *this;
            ++*this;
            return old;
        }
        ConstIterator& operator--()
        {
            owner->Settle();
            at = at->previous;
            return *this;
        }
        ConstIterator operator--(int)
        {
            const ConstIterator old = *this;
            --*this;
            return old;
        }
        bool operator==(const ConstIterator& other) const { return at == other.at; }

    private:
        friend class CRecordGroup;
        ConstIterator(const CRecordGroup* group, Links* place) : owner(group), at(place) {}

        const CRecordGroup* owner = nullptr;
        Links* at = nullptr;
    };

    explicit CRecordGroup(const KTEventLoggerInfo* selection) : info(selection) {}
    CRecordGroup(const CRecordGroup& other) : info(other.info) {}
    CRecordGroup& operator=(const CRecordGroup& other);
    ~CRecordGroup() = default;

    [[nodiscard]] ConstIterator Begin() const
    {
        Settle();
        return {this, ends.next};
    }
    [[nodiscard]] ConstIterator End() const { return {this, &ends}; }
    [[nodiscard]] const KTEventLoggerInfo* Info() const { return info; }

    /// Frees all rows.
    void Reset();

    /// Value 1, an activation, adds a row. 2, a deactivation, and 4, an acknowledgement, complete the row that was the first
    /// to bear `recordId`, again as often as they come; they are dropped, and the result is null, when there is no such row
    /// or its date isn't valid. Any other value is dropped too.
    CDataRecord* AddRecord(const GUID& eventId, const GUID& recordId, const KTDateTime& time, int value,
                           const KTNarrowString& annotation, bool notify);

    /// Says that a record of that occurrence will come soon. Changes nothing, but among very many rows the processor needs
    /// time to find one.
    void Expect(const GUID& recordId) const { index.Fetch(recordId); }

    /// Appends the identifier of each row of the event that isn't complete.
    void AppendIncomplete(const GUID& eventId, std::list<GUID>& out) const;

private:
    static constexpr std::uint32_t none = KTEventRowIndex::none;
    static constexpr std::uint32_t rowsPerChunk = 512;

    CDataRecord* AddRow(const GUID& eventId, const GUID& recordId, const KTDateTime& time,
                        const KTNarrowString& annotation, bool notify);
    CDataRecord* Complete(const GUID& recordId, const KTDateTime& time, int value);
    [[nodiscard]] Row& At(std::uint32_t number) const { return chunks[number / rowsPerChunk][number % rowsPerChunk]; }
    [[nodiscard]] auto IdOfRow() const
    {
        return [this](std::uint32_t number) -> const GUID& { return At(number).record.recordId; };
    }

    // Puts the rows that were added since the last time in their places.
    void Settle() const
    {
        if (!fresh.empty()) SettleRows();
    }
    void SettleRows() const;
    static void SortByDate(std::vector<Fresh>& rows);
    void SortIn() const;
    void PlaceEach() const;
    static void LinkBefore(Links& place, Row& row);
    static void Fetch(const Links* row)
    {
        if (row == nullptr) return;
        __builtin_prefetch(row);
        __builtin_prefetch(reinterpret_cast<const char*>(row) + 64);  // a row is longer than what comes at once
    }

    const KTEventLoggerInfo* info;  // not owned: the query's
    std::uint32_t count = 0;        // rows in all
    KTEventRowIndex index;          // of the first row with an identifier
    std::unordered_map<GUID, std::uint32_t, KTGuidHash> lastOfEvent;
    std::pair<const GUID, std::uint32_t>* lastEvent = nullptr;  // the entry of the event that was added last
    KTTextArena texts;                                          // the rows' annotations

    // Whoever looks at the rows puts them in order: their links are no part of what they are.
    mutable std::vector<std::vector<Row>>
        chunks;                                 // as added; each is filled up to what it reserved, so that no row moves
    mutable Links ends{&ends, &ends, nullptr};  // before the first and after the last row
    mutable std::vector<Fresh> fresh;           // rows that have no place yet, as added
    mutable std::map<std::int64_t, Row*> firstOfDate;  // of all settled rows, or empty
};

/// The total of one event.
///
/// Units:   seconds.
/// Threads: a plain value.
class KTEventLoggerData::CDataRecordTotalized
{
public:
    CDataRecordTotalized(const GUID& event, bool notifies) : eventId(event), notify(notifies) {}

    [[nodiscard]] const GUID& EventId() const { return eventId; }
    [[nodiscard]] int Duration() const { return duration; }          // of the occurrences that have ended
    [[nodiscard]] int EnableCount() const { return enableCount; }    // occurrences
    [[nodiscard]] int DisableCount() const { return disableCount; }  // of them ended
    [[nodiscard]] int AckCount() const { return ackCount; }          // of them acknowledged; 0 where nobody is to
    [[nodiscard]] bool Notify() const { return notify; }             // of the first occurrence

    /// False, without effect, for null and for an occurrence of another event.
    bool AddDataRecord(const CDataRecord* record);

private:
    GUID eventId;
    int duration = 0;
    int enableCount = 0;
    int disableCount = 0;
    int ackCount = 0;
    bool notify;
};

/// The totals of a query, in the order in which their events first appear.
///
/// Threads: one at a time.
/// Memory:  owns the totals. A copy is an empty group with the same selection.
class KTEventLoggerData::CRecordGroupTotalized
{
public:
    using ConstIterator = std::list<CDataRecordTotalized*>::const_iterator;

    explicit CRecordGroupTotalized(const KTEventLoggerInfo* selection) : info(selection) {}
    CRecordGroupTotalized(const CRecordGroupTotalized& other) : info(other.info) {}
    CRecordGroupTotalized& operator=(const CRecordGroupTotalized& other);
    ~CRecordGroupTotalized() { Reset(); }

    [[nodiscard]] ConstIterator Begin() const { return totals.begin(); }
    [[nodiscard]] ConstIterator End() const { return totals.end(); }
    [[nodiscard]] const KTEventLoggerInfo* Info() const { return info; }

    /// Adds an occurrence to its event's total, and returns that. Null for null.
    CDataRecordTotalized* AddRecord(CDataRecord* record);

private:
    void Reset();

    const KTEventLoggerInfo* info;            // not owned: the query's
    std::list<CDataRecordTotalized*> totals;  // owned
    std::unordered_map<GUID, CDataRecordTotalized*, KTGuidHash> byEvent;
};
