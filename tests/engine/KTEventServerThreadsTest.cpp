// The server among many threads, in real time.
#include <atomic>
#include <latch>

#include "ServerFixture.h"

namespace
{
// A server on the system's clock.
class KTEventServerThreads : public testing::Test
{
protected:
    void LoadEvents(int count)
    {
        std::string events;
        for (int i = 0; i < count; ++i)
            events += EventXml(static_cast<unsigned>(i + 1), "event " + std::to_string(i),
                               "[T.A]=" + std::to_string(i % 2), "<notify>T</notify>");
        config.WriteEvents(events);
        server.LoadCfg();
    }

    TestConfig config;
    TestDriver plant{L"T", {L"A"}};
    KTEventServer server;
    KTHttpRequest request;
};

// A client that takes its time at each piece.
class SlowResponse : public TestResponse
{
public:
    SlowResponse()
    {
        onWrite = [](const std::string&) { std::this_thread::sleep_for(std::chrono::microseconds(20)); };
    }
};
}  // namespace

TEST_F(KTEventServerThreads, TheThirtyThirdServiceIsRefusedAfter100ms)
{
    LoadEvents(1);
    std::latch calling(KTEventServer::slots);
    std::promise<void> goOn;
    const std::shared_future<void> end = goOn.get_future().share();
    std::vector<std::future<int>> services;
    for (int i = 0; i < KTEventServer::slots; ++i)
        services.push_back(InBackground(
            [&]
            {
                KTHttpRequest own;
                TestResponse response;
                response.onWrite = [&](const std::string&) { end.wait(); };
                calling.count_down();
                server.ProcessHttpServiceEventsActived(own, response);
                return response.status;
            }));
    calling.wait();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));  // one serves, the others wait behind it

    TestResponse response;
    const auto began = std::chrono::steady_clock::now();
    EXPECT_TRUE(server.ProcessHttpServiceEventsNotified(request, response));
    const auto waited = std::chrono::steady_clock::now() - began;
    EXPECT_EQ(response.status, 503);
    EXPECT_GE(waited, std::chrono::milliseconds(99));
    EXPECT_FALSE(
        server.ProcessHttpServiceAck(request, reinterpret_cast<const unsigned char*>("<eventsAck></eventsAck>")));

    goOn.set_value();
    for (auto& service : services) EXPECT_EQ(service.get(), 200);
    TestResponse after;
    EXPECT_TRUE(server.ProcessHttpServiceEventsNotified(request, after));
    EXPECT_EQ(after.status, 200);
}

TEST_F(KTEventServerThreads, AServiceThatEndsLetsAWaitingOneIn)
{
    LoadEvents(1);
    std::latch calling(KTEventServer::slots);
    std::promise<void> goOn;
    const std::shared_future<void> end = goOn.get_future().share();
    std::vector<std::future<void>> services;
    for (int i = 0; i < KTEventServer::slots; ++i)
        services.push_back(InBackground(
            [&]
            {
                KTHttpRequest own;
                TestResponse response;
                response.onWrite = [&](const std::string&) { end.wait(); };
                calling.count_down();
                server.ProcessHttpServiceEventsActived(own, response);
            }));
    calling.wait();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    std::atomic<bool> admitted{false};
    auto late = InBackground(
        [&]
        {
            // Clients come again until they are served.
            while (!admitted)
            {
                KTHttpRequest own;
                TestResponse response;
                server.ProcessHttpServiceEventsActived(own, response);
                admitted = response.status == 200;
            }
        });
    goOn.set_value();
    late.get();
    EXPECT_TRUE(admitted);
    for (auto& service : services) service.get();
}

// Slow clients of every service, a scan that flips half the events, acknowledgements, and a stop in their midst, again and
// again: nobody waits for ever, and every reply is whole or a refusal.
TEST_F(KTEventServerThreads, SlowClientsAndAStopInTheirMidst)
{
    constexpr int rounds = 3;
    constexpr int clients = 40;
    plant.Set(L"A", 0.0);
    plant.Register();
    // Until the first start nothing shuts services out of a registry that is being built: the host lets clients in later.
    LoadEvents(50);
    ASSERT_TRUE(server.Start());
    std::atomic<bool> goOn{true};
    std::atomic<int> served{0};
    std::atomic<int> refused{0};
    std::atomic<int> broken{0};
    std::vector<std::future<void>> threads;
    for (int i = 0; i < clients; ++i)
        threads.push_back(InBackground(
            [&, i]
            {
                KTHttpRequest own;
                while (goOn)
                {
                    SlowResponse response;
                    if (i % 3 == 0)
                        server.ProcessHttpServiceEventsActived(own, response);
                    else
                        server.ProcessHttpServiceEventsNotified(own, response);
                    const std::string text = response.Text();
                    if (response.status == 503 && text.empty())
                        ++refused;
                    else if (response.status == 200 && text.ends_with("Events>"))
                        ++served;
                    else
                        ++broken;
                    if (i % 3 != 1) continue;
                    const std::size_t at = text.find("<id>");
                    if (at == std::string::npos) continue;
                    const std::string body = "<eventsAck>" + text.substr(at, 4 + 38 + 5) + "</eventsAck>";
                    server.ProcessHttpServiceAck(own, reinterpret_cast<const unsigned char*>(body.c_str()));
                }
            }));
    for (int round = 0; round < rounds; ++round)
    {
        const std::uint64_t scans = server.ScanFigures().scans;
        plant.Set(L"A", round % 2 == 0 ? 1.0 : 0.0);
        ASSERT_TRUE(WaitUntil([&] { return server.ScanFigures().scans > scans; }));
        server.Stop();
        EXPECT_EQ(KTEventSystem::Get().EventsSize(), 0);
        LoadEvents(50);
        ASSERT_TRUE(server.Start());
    }
    goOn = false;
    for (auto& thread : threads) thread.get();
    EXPECT_GT(served, 0);
    EXPECT_GT(refused, 0);
    EXPECT_EQ(broken, 0);
}
