// Readers beside a writer, and the server's threads beside each other.

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "engine/ServerFixture.h"
#include "log/KTEventFile.h"
#include "log/LogBytes.h"
#include "settings/TemporaryDirectory.h"
#include "suite/tools/KTSystemFiles.h"

namespace
{
const KTEventFile::CNewFileTemplate current("EVENTv2.70", 2000);

KTDateTime DateOf(unsigned number)
{
    return Date(2024, 3, 1, 0, static_cast<int>(number / 60 % 60), static_cast<int>(number % 60));
}
std::string TextOf(unsigned number) { return "record " + std::to_string(number) + std::string(number % 13 * 40, '.'); }

class EventFileThreads : public testing::Test
{
protected:
    EventFileThreads() : before(KTFiles::Install(&quick)) {}
    ~EventFileThreads() override { KTFiles::Install(before); }

    bool Append(unsigned number)
    {
        KTEventFile file(true);
        if (!file.Open(path.Str(), false) &&
            !(KTEventFile::Create(path.Str(), current) && file.Open(path.Str(), false)))
            return false;
        if (!file.NewRecord()) return false;
        file.SetEventId(TestId(number + 1));
        file.SetDateValue(DateOf(number));
        file.SetEventValue(1);
        file.SetEventAnnotation(KTNarrowString(TextOf(number).c_str()));
        return file.Update();
    }
    // Reads the whole file as it was at one moment; each good record must be whole. Returns how many there were.
    int ReadAll(bool forward)
    {
        KTEventFile file(true);
        if (!file.Open(path.Str(), true)) return 0;
        const int count = file.NRecords();
        for (int i = 0; i < count; ++i)
        {
            const int index = forward ? i : count - 1 - i;
            if (!file.GoRecord(index)) continue;
            const unsigned number = file.EventId().Data1 - 1;
            KTDateTime date;
            file.DateValue(date);
            EXPECT_EQ(date, DateOf(number));
            KTNarrowString text;
            file.EventAnnotation(text);
            EXPECT_EQ(text.Str(), TextOf(number));
        }
        EXPECT_EQ(file.NRecords(), count);
        EXPECT_TRUE(count == 0 || file.SearchByTime(DateOf(0), 1) >= 0);
        return count;
    }

    TemporaryDirectory directory;
    KTWideString path{Wide((directory.Path() / "a.suc").string())};
    KTSystemFiles quick{KTSystemFiles::Commits::leftOut};
    KTFiles* const before;
};

TEST_F(EventFileThreads, ReadersSeeWholeRecordsWhileAWriterAppends)
{
    constexpr unsigned records = 3000;
    std::atomic<bool> done{false};
    std::vector<std::thread> readers;
    std::atomic<int> seen{0};
    for (int r = 0; r < 3; ++r)
        readers.emplace_back(
            [&, r]
            {
                int last = 0;
                while (!done)
                {
                    const int count = ReadAll(r % 2 == 0);
                    EXPECT_GE(count, last) << "records go away";
                    last = count;
                    ++seen;
                }
            });
    for (unsigned i = 0; i < records; ++i) ASSERT_TRUE(Append(i));
    done = true;
    for (std::thread& reader : readers) reader.join();
    EXPECT_EQ(ReadAll(true), static_cast<int>(records));
    EXPECT_GT(seen, 3);
}

// Somebody begins the file anew while others read it: they miss records and nothing worse.
TEST_F(EventFileThreads, AFileThatIsCutUnderItsReadersHurtsNobody)
{
    std::atomic<bool> done{false};
    std::vector<std::thread> readers;
    for (int r = 0; r < 3; ++r)
        readers.emplace_back(
            [&, r]
            {
                while (!done)
                {
                    KTEventFile file(true);
                    if (!file.Open(path.Str(), true)) continue;
                    const int count = file.NRecords();
                    int good = 0;
                    for (int i = 0; i < count; ++i) good += file.GoRecord(r % 2 == 0 ? i : count - 1 - i) ? 1 : 0;
                    EXPECT_LE(good, count);
                    (void)file.SearchByTime(DateOf(20), 1);
                }
            });
    for (unsigned round = 0; round < 40; ++round)
    {
        ASSERT_TRUE(KTEventFile::Create(path.Str(), current));
        for (unsigned i = 0; i < 40; ++i) ASSERT_TRUE(Append(i));
    }
    done = true;
    for (std::thread& reader : readers) reader.join();
    EXPECT_GT(ReadAll(true), 0);
}

// Activations and deactivations of the scan, acknowledgements of clients, and readers of the files at the same time.
class EventLogServer : public ServerFixture
{
};

TEST_F(EventLogServer, ScanAndClientsWriteWhileOthersRead)
{
    constexpr int rounds = 30;
    const char* const names[] = {"a", "b", "c"};
    std::string events;
    for (unsigned i = 0; i < 3; ++i)
        events += EventXml(i + 1, names[i], std::string("[T.") + static_cast<char>('A' + i) + "]=1",
                           Element("record", "T") + Element("notify", "T") + Element("annotation", "text"));
    config.WriteEvents(events);
    plant.Register();
    ASSERT_TRUE(server.LoadCfg());
    const auto pathOf = [&](const char* name)
    { return Wide((config.Data() / "2024/03" / (std::string(name) + " 03-2024.suc")).string()); };

    std::atomic<bool> done{false};
    std::vector<std::thread> others;
    for (int t = 0; t < 2; ++t)
        others.emplace_back(
            [&]
            {
                while (!done)
                    for (const char* name : names)
                    {
                        KTEventFile file(true);
                        if (!file.Open(pathOf(name).Str(), true)) continue;
                        for (int i = 0; i < file.NRecords(); ++i) EXPECT_TRUE(file.GoRecord(i));
                    }
            });
    const auto acknowledgeAll = [&]
    {
        TestResponse response;
        Ask(Service::notified, response);
        std::string body = "<eventsAck>";
        for (std::size_t at = 0; (at = response.Text().find('{', at)) != std::string::npos; ++at)
            body += "<id>" + response.Text().substr(at, guidTextSize - 1) + "</id>";
        Acknowledge(body + "</eventsAck>");
    };
    others.emplace_back(
        [&]
        {
            while (!done) acknowledgeAll();
        });
    Start();
    for (int round = 0; round < rounds; ++round)
    {
        for (const wchar_t* variable : {L"A", L"B", L"C"}) plant.Set(variable, round % 2 == 0 ? 1.0 : 0.0);
        NextScan();
    }
    done = true;
    for (std::thread& thread : others) thread.join();
    acknowledgeAll();
    Stop();
    for (const char* name : names)
    {
        KTEventFile file(true);
        ASSERT_TRUE(file.Open(pathOf(name).Str(), true));
        int changes[5] = {};
        for (int i = 0; i < file.NRecords(); ++i)
        {
            ASSERT_TRUE(file.GoRecord(i));
            ++changes[static_cast<int>(file.EventValue()) % 5];
        }
        EXPECT_EQ(changes[1], rounds / 2);
        EXPECT_EQ(changes[2], rounds / 2);
        EXPECT_GT(changes[4], 0);
    }
}
}  // namespace
