// Events whose log a test writes byte by byte, in memory.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "NaiveHistory.h"
#include "TestRegistry.h"
#include "log/KTEventLoggerData.h"
#include "support/MemoryFiles.h"

using Strings = std::vector<std::string>;

/// What was written becomes the content of the files at the next question.
class HistoryFixture : public testing::Test
{
protected:
    static constexpr int activation = 1;
    static constexpr int deactivation = 2;
    static constexpr int acknowledgement = 4;

    NaiveFile& File(const std::string& event, int year, int month) { return history.File(event, {year, month}); }

    /// A record of the event "pump", filed where it belongs.
    void Write(unsigned occurrence, const KTDateTime& date, int value, const std::string& annotation = "")
    {
        WriteOf("pump", occurrence, date, value, annotation);
    }
    void WriteOf(const std::string& event, unsigned occurrence, const KTDateTime& date, int value,
                 const std::string& annotation = "")
    {
        NaiveFile& file = File(event, date.Year(), date.Month());
        file.records.push_back({NaiveFile::Pack(date), TestId(occurrence), value, file.AddText(annotation)});
    }

    void Store()
    {
        const std::string data = registry.config.Data().string() + "/";
        files.files.clear();
        for (const auto& [path, file] : history.files)
        {
            files.files[data + path] = std::make_shared<MemoryFiles::Bytes>(file.Bytes());
            if (file.hasSide)
                files.files[data + path.substr(0, path.size() - 3) + "dat"] =
                    std::make_shared<MemoryFiles::Bytes>(file.side.begin(), file.side.end());
        }
        files.opened.clear();
    }

    /// A row as "occurrence: ended/acknowledged", with "-" for what wasn't seen.
    static std::string Brief(const KTEventLoggerData::CDataRecord& row)
    {
        const auto delay = [](std::uint32_t seconds)
        { return seconds == KTEventLoggerData::noOffset ? "-" : std::to_string(static_cast<std::int32_t>(seconds)); };
        return std::to_string(row.RecordId().Data1) + ": " + delay(row.DisableOffset()) + "/" + delay(row.AckOffset());
    }

    /// The rows of all events of the registry.
    Strings Ask(const KTDateTime& begin, const KTDateTime& end, bool searchBefore = false)
    {
        Store();
        KTEventLoggerInfo selection;
        for (auto event = registry.system.EventsBegin(); event != registry.system.EventsEnd(); ++event)
            selection.AddVariable((*event)->Id());
        KTEventLoggerData data;
        data.Setup(selection);
        result = data.SelectData(begin, end, searchBefore);
        EXPECT_TRUE(files.AllClosed());
        Strings rows;
        for (auto row = data.RecordGroup().Begin(); row != data.RecordGroup().End(); ++row)
            rows.push_back(Brief(**row));
        return rows;
    }

    /// The record files that were opened for the last question, as "month-year", in order.
    [[nodiscard]] Strings Opened() const
    {
        Strings all;
        for (const std::string& path : files.opened)
            if (path.ends_with(".suc")) all.push_back(path.substr(path.size() - 11, 7));
        return all;
    }

    MemoryFiles files;
    TestRegistry registry{{"pump"}, "<notify>T</notify>"};
    NaiveHistory history;
    bool result = false;
};
