// The rows of a query as a list, slow and obvious.
#pragma once

#include <cstdint>
#include <cstring>
#include <list>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "log/KTEventLoggerData.h"
#include "support/TestText.h"

/// One list, one map and the place of the last insertion.
class NaiveRows
{
public:
    static constexpr std::uint32_t none = 0xFFFFFFFF;

    struct Row
    {
        GUID event;
        GUID occurrence;
        KTDateTime time;
        std::string annotation;
        bool notify = false;
        std::uint32_t acknowledged = none;
        std::uint32_t ended = none;

        [[nodiscard]] bool IsComplete() const { return ended != none && (!notify || acknowledged != none); }
        [[nodiscard]] std::string Description() const
        {
            return Text(event) + Text(occurrence) + Text(time) + " \"" + annotation + "\" " +
                   std::to_string(acknowledged) + ' ' + std::to_string(ended) + (notify ? " T" : " F");
        }
    };

    NaiveRows() = default;
    NaiveRows(const NaiveRows&) = delete;
    NaiveRows& operator=(const NaiveRows&) = delete;

    Row* Add(const GUID& event, const GUID& occurrence, const KTDateTime& time, int value,
             const std::string& annotation, bool notify)
    {
        if (value == 1) return Activate({event, occurrence, time, annotation, notify});
        if (value != 2 && value != 4) return nullptr;
        const auto found = index.find(occurrence);
        if (found == index.end() || !found->second->time.Valid()) return nullptr;
        Row& row = *found->second;
        const auto seconds = static_cast<std::uint32_t>((time - row.time).TotalSeconds());
        (value == 2 ? row.ended : row.acknowledged) = seconds;
        return &row;
    }

    [[nodiscard]] std::vector<std::string> Descriptions() const
    {
        std::vector<std::string> all;
        for (const Row& row : rows) all.push_back(row.Description());
        return all;
    }

    /// "event duration enabled disabled acknowledged".
    [[nodiscard]] std::vector<std::string> Totals() const
    {
        struct Total
        {
            GUID event;
            bool notify = false;
            int duration = 0, enabled = 0, disabled = 0, acknowledged = 0;
        };
        std::vector<Total> totals;
        for (const Row& row : rows)
        {
            auto total = totals.begin();
            while (total != totals.end() && !(total->event == row.event)) ++total;
            if (total == totals.end()) total = totals.insert(total, {row.event, row.notify});
            ++total->enabled;
            if (row.ended != none)
            {
                ++total->disabled;
                total->duration += static_cast<int>(row.ended);
            }
            if (total->notify && row.acknowledged != none) ++total->acknowledged;
        }
        std::vector<std::string> all;
        for (const Total& total : totals)
            all.push_back(Text(total.event) + ' ' + std::to_string(total.duration) + ' ' +
                          std::to_string(total.enabled) + ' ' + std::to_string(total.disabled) + ' ' +
                          std::to_string(total.acknowledged));
        return all;
    }

    std::list<Row> rows;

private:
    struct Before
    {
        bool operator()(const GUID& a, const GUID& b) const { return std::memcmp(&a, &b, sizeof a) < 0; }
    };

    Row* Activate(const Row& row)
    {
        auto place = rows.begin();
        if (cursor != rows.end())
        {
            if (row.time >= cursor->time) place = cursor;
            while (place != rows.end() && !(place->time >= row.time)) ++place;
        }
        cursor = rows.insert(place, row);
        index.insert({row.occurrence, &*cursor});
        return &*cursor;
    }

    std::map<GUID, Row*, Before> index;
    std::list<Row>::iterator cursor = rows.end();
};

inline std::string Describe(const KTEventLoggerData::CDataRecord& row)
{
    return Text(row.EventId()) + Text(row.RecordId()) + Text(row.Time()) + " \"" + row.Annotation().Str() + "\" " +
           std::to_string(row.AckOffset()) + ' ' + std::to_string(row.DisableOffset()) + (row.Notify() ? " T" : " F");
}

inline std::vector<std::string> Descriptions(KTEventLoggerData& data)
{
    std::vector<std::string> all;
    for (auto row = data.RecordGroup().Begin(); row != data.RecordGroup().End(); ++row) all.push_back(Describe(**row));
    return all;
}

inline std::vector<std::string> Totals(KTEventLoggerData& data)
{
    std::vector<std::string> all;
    auto& totals = data.RecordGroupTotalized();
    for (auto total = totals.Begin(); total != totals.End(); ++total)
        all.push_back(Text((*total)->EventId()) + ' ' + std::to_string((*total)->Duration()) + ' ' +
                      std::to_string((*total)->EnableCount()) + ' ' + std::to_string((*total)->DisableCount()) + ' ' +
                      std::to_string((*total)->AckCount()));
    return all;
}
