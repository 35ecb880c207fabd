// The recording of state changes: where a record goes, what it holds, and what a failure leaves.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "engine/KTEventSystem.h"
#include "log/KTEventFile.h"
#include "support/TestClock.h"
#include "support/TestConfig.h"
#include "support/TestDriver.h"
#include "support/TestEvent.h"

namespace
{
namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

class EventDriverLog : public testing::Test
{
protected:
    EventDriverLog()
    {
        plant.Set(L"C", 0.0);
        plant.Register();
        Load(Element("record", "T"));
    }

    void Load(const std::string& more) { ASSERT_TRUE(event.LoadText(EventXml(1, "pump", "[T.C]=1", more))); }
    void ScanWith(double condition)
    {
        plant.Set(L"C", condition);
        EXPECT_TRUE(event.Work(KTDateTime::LTC()));
    }
    [[nodiscard]] Strings Files() const
    {
        Strings found;
        for (const auto& entry : fs::recursive_directory_iterator(config.Data()))
            found.push_back(entry.path().lexically_relative(config.Data()).string());
        std::sort(found.begin(), found.end());
        return found;
    }
    std::string Path(const KTDateTime& date, int kind = 0)
    {
        wchar_t path[KTEventDriver::pathSize];
        event.EventFileName(path, date, kind);
        const std::string text = Utf8(KTWideString(path));
        const std::string root = config.Data().string() + "/";
        return text.starts_with(root) ? text.substr(root.size()) : text;
    }

    TestConfig config;
    TestClock clock;
    KTEventSystem system;
    TestDriver plant{L"T", {L"C"}};
    TestEvent event;
};

TEST_F(EventDriverLog, TheFirstActivationOfAMonthMakesDirectoriesAndAFileOfFortyBytes)
{
    ScanWith(1);
    EXPECT_EQ(Files(), (Strings{"2024", "2024/03", "2024/03/pump 03-2024.suc"}));
    EXPECT_EQ(fs::file_size(config.Data() / "2024/03/pump 03-2024.suc"), 40U);
}

TEST_F(EventDriverLog, AnEventThatIsNotRecordedWritesNothing)
{
    Load(Element("notify", "T"));
    ScanWith(1);
    EXPECT_TRUE(event.ProcessHttpServiceAck(event.Occurrences().front()->id));
    ScanWith(0);
    EXPECT_EQ(Files(), Strings{});
}

TEST_F(EventDriverLog, AnOccurrenceOverTheEndOfAMonthLiesInBothFiles)
{
    clock->SetUtc(Date(2024, 1, 31, 23, 59, 50));
    ScanWith(1);
    clock->Advance(std::chrono::seconds(20));
    ScanWith(0);
    EXPECT_EQ(Files(), (Strings{"2024", "2024/01", "2024/01/pump 01-2024.suc", "2024/02", "2024/02/pump 02-2024.suc"}));
    KTEventFile january(true);
    KTEventFile february(true);
    ASSERT_TRUE(january.Open(Wide((config.Data() / Path(Date(2024, 1, 1))).string()).Str(), true));
    ASSERT_TRUE(february.Open(Wide((config.Data() / Path(Date(2024, 2, 1))).string()).Str(), true));
    EXPECT_EQ(january.NRecords(), 1);
    EXPECT_EQ(february.NRecords(), 1);
    ASSERT_TRUE(january.GoFirst() && february.GoFirst());
    EXPECT_EQ(january.EventId(), february.EventId());
    EXPECT_NE(january.EventId(), nullGuid);
    EXPECT_EQ(january.EventValue(), 1);
    EXPECT_EQ(february.EventValue(), 2);
    EXPECT_EQ(january.BeginTime(), Date(2024, 1, 31, 23, 59, 50));
    EXPECT_EQ(february.BeginTime(), Date(2024, 2, 1, 0, 0, 10));
}
}  // namespace
