// The log of a period as the service tells it.
#include <atomic>
#include <stdexcept>

#include "ServerFixture.h"

namespace
{
using Strings = std::vector<std::string>;

class KTEventServerLogger : public ServerFixture
{
protected:
    /// Two recorded events over [T.A], of which only the second notifies.
    void LoadTwo()
    {
        config.WriteEvents(EventXml(1, "b", "[T.A]=1", "<record>T</record><annotation>b &amp; more</annotation>") +
                           EventXml(2, "a", "[T.A]=1", "<record>T</record><notify>T</notify>"));
        server.LoadCfg();
        plant.Register();
        plant.Set(L"A", 0.0);
        Start();
    }
    void Flip(double value)
    {
        plant.Set(L"A", value);
        NextScan();
    }
    bool AskLog(TestResponse& response, const KTDateTime& begin = Date(2024, 3, 1),
                const KTDateTime& end = Date(2024, 4, 1), std::uint32_t flags = 0)
    {
        KTHttpRequest request;
        request.flags = flags;
        return server.ProcessHttpServiceEventsLogger(request, response, begin, end);
    }
    std::string Log(const KTDateTime& begin = Date(2024, 3, 1), const KTDateTime& end = Date(2024, 4, 1))
    {
        TestResponse response;
        EXPECT_TRUE(AskLog(response, begin, end));
        EXPECT_EQ(response.status, 200);
        EXPECT_EQ(response.starts, 1);
        EXPECT_EQ(response.finishes, 1);
        return response.Text();
    }
    int LogStatus()
    {
        TestResponse response;
        AskLog(response);
        return response.status;
    }
    static Strings Contents(const std::string& reply, const std::string& tag)
    {
        Strings all;
        for (std::size_t at = reply.find("<" + tag + ">"); at != std::string::npos;
             at = reply.find("<" + tag + ">", at))
        {
            at += tag.size() + 2;
            all.push_back(reply.substr(at, reply.find("</" + tag + ">", at) - at));
        }
        return all;
    }
    Strings Waiting()
    {
        TestResponse response;
        EXPECT_TRUE(Ask(Service::notified, response));
        return Contents(response.Text(), "id");
    }
};
}  // namespace

TEST_F(KTEventServerLogger, WithoutEventsOrFilesAReplyIsHeadAndTail)
{
    server.LoadCfg();
    EXPECT_EQ(Log(), xmlLine + "<loggerEvents></loggerEvents>");
    LoadTwo();
    EXPECT_EQ(Log(), xmlLine + "<loggerEvents></loggerEvents>");
    EXPECT_EQ(Log(Date(2024, 4, 1), Date(2024, 3, 1)), xmlLine + "<loggerEvents></loggerEvents>");
}

TEST_F(KTEventServerLogger, TheStartModeFollowsTheRequestsFlags)
{
    server.LoadCfg();
    const struct
    {
        std::uint32_t flags;
        int mode;
    } rows[] = {{0, 2}, {1, 2}, {2, 4}, {3, 4}, {0xFFFFFFFD, 2}, {0xFFFFFFFF, 4}};
    for (const auto& row : rows)
    {
        TestResponse response;
        AskLog(response, Date(2024, 3, 1), Date(2024, 4, 1), row.flags);
        EXPECT_EQ(response.status, 200);
        EXPECT_EQ(response.mode, row.mode) << row.flags;
        EXPECT_EQ(response.pieces.front(), xmlLine) << "with no line end";
    }
}

TEST_F(KTEventServerLogger, TheResultIsThatOfTheResponsesEnd)
{
    server.LoadCfg();
    for (const bool result : {true, false})
    {
        TestResponse response;
        response.finishResult = result;
        EXPECT_EQ(AskLog(response), result);
    }
}

TEST_F(KTEventServerLogger, TellsWhatBecameOfEachOccurrence)
{
    LoadTwo();
    Flip(1.0);
    const std::string began = "10032024080001";  // the second scan
    const Strings waiting = Waiting();
    ASSERT_EQ(waiting.size(), 1U);

    const std::string open = Log();
    EXPECT_EQ(Contents(open, "eventId"), (Strings{Text(TestId(1)), Text(TestId(2))}))
        << "of one second, what was added later: the events are asked in the registry's order";
    EXPECT_EQ(Contents(open, "dateTime"), (Strings{began, began}));
    EXPECT_EQ(Contents(open, "annotation"), Strings{"b &amp; more"}) << "nothing for an empty one";
    EXPECT_EQ(Contents(open, "id")[1], waiting[0]) << "what an acknowledgement names";
    EXPECT_TRUE(Contents(open, "ackDelay").empty());
    EXPECT_TRUE(Contents(open, "disabledDelay").empty());

    clock->Advance(std::chrono::seconds(9));
    ASSERT_TRUE(WaitUntil([&] { return clock->Sleepers() == 1; }));
    Flip(0.0);
    const std::string ended = Log();
    EXPECT_EQ(Contents(ended, "disabledDelay"), (Strings{"10", "10"}));
    EXPECT_TRUE(Contents(ended, "ackDelay").empty()) << "ended and not acknowledged";

    NextScan();
    EXPECT_TRUE(Acknowledge("<eventsAck><id>" + waiting[0] + "</id></eventsAck>"));
    const std::string head = "<record><id>";
    EXPECT_EQ(Log().substr(Log().rfind(head)),
              head + waiting[0] + "</id><eventId>" + Text(TestId(2)) + "</eventId><dateTime>" + began +
                  "</dateTime><ackDelay>11</ackDelay><disabledDelay>10</disabledDelay></record></loggerEvents>");
}

TEST_F(KTEventServerLogger, OnlyWhatBeganInThePeriodIsTold)
{
    LoadTwo();
    Flip(1.0);
    Flip(0.0);
    Flip(1.0);
    const KTDateTime second = Date(2024, 3, 10, 8, 0, 3);
    EXPECT_EQ(Contents(Log(), "record").size(), 4U);
    EXPECT_EQ(Contents(Log(Date(2024, 3, 10, 8, 0, 2), Date(2024, 3, 11)), "dateTime"),
              (Strings{"10032024080003", "10032024080003"}));
    EXPECT_EQ(Contents(Log(Date(2024, 3, 10), second), "dateTime"), (Strings{"10032024080001", "10032024080001"}));
    EXPECT_EQ(Contents(Log(Date(2024, 3, 10), second), "disabledDelay"), (Strings{"1", "1"}));
}

TEST_F(KTEventServerLogger, ADamagedFileLeavesItsRecordsOut)
{
    LoadTwo();
    Flip(1.0);
    Stop();
    server.LoadCfg();
    const auto file = config.Data() / "2024" / "03" / "a 03-2024.suc";
    ASSERT_TRUE(std::filesystem::exists(file));
    std::filesystem::resize_file(file, 13);
    plant.Set(L"A", 0.0);
    Start();
    EXPECT_EQ(Contents(Log(), "eventId"), Strings{Text(TestId(1))});
}

TEST_F(KTEventServerLogger, AnEventThatIsNotRecordedHasNoRows)
{
    config.WriteEvents(EventXml(1, "a", "[T.A]=1"));
    server.LoadCfg();
    plant.Register();
    Start();
    Flip(1.0);
    EXPECT_EQ(Log(), xmlLine + "<loggerEvents></loggerEvents>");
}

TEST_F(KTEventServerLogger, ARefusedQuestionIs503AndEnds)
{
    server.LoadCfg();
    Start();
    Stop();
    for (const bool result : {true, false})
    {
        TestResponse response;
        response.finishResult = result;
        EXPECT_EQ(AskLog(response), result);
        EXPECT_EQ(response.status, 503);
        EXPECT_EQ(response.mode, 0);
        EXPECT_EQ(response.finishes, 1);
        EXPECT_TRUE(response.pieces.empty());
    }
}

TEST_F(KTEventServerLogger, EachQuestionGivesItsCountBack)
{
    server.LoadCfg();
    for (int i = 0; i < 2 * KTEventServer::slots; ++i) EXPECT_EQ(LogStatus(), 200);
    for (int i = 0; i < 2 * KTEventServer::slots; ++i)
    {
        TestResponse response;
        response.onWrite = [](const std::string&) { throw std::runtime_error("no memory"); };
        EXPECT_THROW(AskLog(response), std::runtime_error);
    }
    EXPECT_EQ(LogStatus(), 200) << "also where the reply broke off";
}

TEST_F(KTEventServerLogger, DoesNotWaitForTheScan)
{
    LoadTwo();
    Flip(1.0);
    // Inside another service the work mutex is held.
    TestResponse outer;
    outer.onWrite = [this](const std::string&)
    {
        EXPECT_EQ(server.ActiveEventsCount(), -1);
        EXPECT_EQ(Contents(Log(), "record").size(), 2U);
    };
    EXPECT_TRUE(Ask(Service::actived, outer));
    // And the scan goes on while a question is answered.
    TestResponse slow;
    slow.onWrite = [this](const std::string& piece)
    {
        if (piece == "<loggerEvents>") Flip(0.0);
    };
    EXPECT_TRUE(AskLog(slow));
    EXPECT_EQ(Contents(slow.Text(), "record").size(), 2U);
    EXPECT_TRUE(Contents(slow.Text(), "disabledDelay").empty()) << "the files were read before";
    EXPECT_EQ(Contents(Log(), "disabledDelay").size(), 2U);
}

TEST_F(KTEventServerLogger, AStopWaitsForAQuestion)
{
    LoadTwo();
    Flip(1.0);
    std::promise<void> asked;
    std::promise<void> goOn;
    auto question = InBackground(
        [&]
        {
            TestResponse response;
            bool first = true;
            response.onWrite = [&](const std::string&)
            {
                if (!std::exchange(first, false)) return;
                asked.set_value();
                goOn.get_future().wait();
            };
            AskLog(response);
            return response.Text();
        });
    asked.get_future().wait();
    auto stop = InBackground([&] { server.Stop(); });
    EXPECT_TRUE(StillWaits(stop));
    goOn.set_value();
    EXPECT_EQ(Contents(question.get(), "record").size(), 2U);
    while (stop.wait_for(std::chrono::milliseconds(1)) == std::future_status::timeout)
        clock->Advance(std::chrono::milliseconds(100));
}

// Questions while the scan writes what they read: every reply is whole, and none knows less than the one before.
TEST_F(KTEventServerLogger, QuestionsWhileTheScanWrites)
{
    constexpr int flips = 60;
    constexpr int clients = 3;
    LoadTwo();
    std::atomic<bool> goOn{true};
    std::atomic<int> replies{0};
    std::vector<std::future<void>> threads;
    for (int i = 0; i < clients; ++i)
        threads.push_back(InBackground(
            [&]
            {
                std::size_t rows = 0;
                std::size_t ended = 0;
                while (goOn)
                {
                    const std::string reply = Log();
                    XmlDocument document;
                    ASSERT_TRUE(document.Parse(reply.c_str())) << reply;
                    const std::size_t count = Contents(reply, "record").size();
                    ASSERT_GE(count, rows);
                    ASSERT_EQ(Contents(reply, "dateTime").size(), count);
                    ASSERT_GE(Contents(reply, "disabledDelay").size(), ended);
                    for (const std::string& delay : Contents(reply, "disabledDelay")) ASSERT_EQ(delay, "1");
                    for (const std::string& text : Contents(reply, "annotation")) ASSERT_EQ(text, "b &amp; more");
                    rows = count;
                    ended = Contents(reply, "disabledDelay").size();
                    ++replies;
                }
            }));
    for (int flip = 0; flip < flips; ++flip)
    {
        Flip(flip % 2 == 0 ? 1.0 : 0.0);
        const int before = replies;
        ASSERT_TRUE(WaitUntil([&] { return replies > before; })) << "a question between two scans";
    }
    goOn = false;
    for (auto& thread : threads) thread.get();
    const std::string reply = Log();
    EXPECT_EQ(Contents(reply, "record").size(), static_cast<std::size_t>(flips));
    EXPECT_EQ(Contents(reply, "disabledDelay").size(), static_cast<std::size_t>(flips));
}
