// A month of records of many events: in memory, as the files of the log, and read whole as bytes.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "host/KTDateTime.h"
#include "host/KTGuid.h"

/// March 2024 of some events, three records an occurrence: activation, acknowledgement and deactivation within ten minutes,
/// at random times. Dates are seconds since the beginning of the month.
struct QueryMonth
{
    struct Record
    {
        std::int64_t second = 0;
        GUID id;
        int value = 1;
    };

    QueryMonth(int records, int events, bool annotated);

    static GUID EventId(int event);
    static std::string EventName(int event) { return "Event " + std::to_string(event); }
    static KTDateTime Date(std::int64_t second);

    /// The configuration's element of an event.
    static std::string EventXml(int event);

    /// Writes the files of all events below `data`, which ends with a slash.
    void Write(const std::string& data) const;

    /// Reads the month's record files whole, sums the bytes of every record, and returns how many are good.
    [[nodiscard]] int ReadAll(const std::string& data) const;

    std::vector<std::vector<Record>> events;  // each in the order of time
    std::string annotation;                   // of every record; empty for none
    int count = 0;                            // records in all

private:
    static std::filesystem::path Path(const std::string& data, int event, int month);
    void WriteFile(const std::filesystem::path& path, const std::vector<Record>& records) const;
};
