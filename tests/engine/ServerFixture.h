// A server with its configuration directory, on a virtual clock.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "engine/KTEventServer.h"
#include "support/TestClock.h"
#include "support/TestConfig.h"
#include "support/TestDriver.h"
#include "support/TestEvent.h"
#include "support/TestResponse.h"

/// Waits in real time for what another thread should do; false when it doesn't.
inline bool WaitUntil(const std::function<bool()>& happened)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!happened())
    {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// True when `pending` doesn't end for a little while.
template <class Result>
bool StillWaits(std::future<Result>& pending)
{
    return pending.wait_for(std::chrono::milliseconds(50)) == std::future_status::timeout;
}

template <class Function>
auto InBackground(Function function)
{
    return std::async(std::launch::async, std::move(function));
}

inline const std::string xmlLine = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>";

/// The test's thread drives the clock. Events hold while their variable is 1.
class ServerFixture : public testing::Test
{
protected:
    ~ServerFixture() override { clock->Release(); }  // the server's end waits for the scan

    /// Starts, and waits for the pause after the first scan.
    void Start()
    {
        const std::uint64_t before = Scans();
        ASSERT_TRUE(server.Start());
        ASSERT_TRUE(WaitUntil([&] { return Scans() > before && clock->Sleepers() == 1; }));
    }
    void NextScan()
    {
        const std::uint64_t before = Scans();
        clock->Advance(std::chrono::milliseconds(KTEventServer::pauseBetweenScans));
        ASSERT_TRUE(WaitUntil([&] { return Scans() > before && clock->Sleepers() == 1; }));
    }
    /// Stops while the clock goes on.
    void Stop()
    {
        auto stop = InBackground([&] { server.Stop(); });
        while (stop.wait_for(std::chrono::milliseconds(1)) == std::future_status::timeout)
            clock->Advance(std::chrono::milliseconds(100));
    }

    /// For tests whose own variables the scan reaches: declared behind them, it ends the scan while they are still there.
    class StopAtEnd
    {
    public:
        explicit StopAtEnd(ServerFixture& itsFixture) : fixture(itsFixture) {}
        ~StopAtEnd() { fixture.Stop(); }

    private:
        ServerFixture& fixture;
    };

    [[nodiscard]] std::uint64_t Scans() const { return server.ScanFigures().scans; }
    [[nodiscard]] static std::vector<std::string> Names()
    {
        std::vector<std::string> names;
        KTEventSystem& system = KTEventSystem::Get();
        for (auto event = system.EventsBegin(); event != system.EventsEnd(); ++event)
            names.push_back(Utf8((*event)->Name()));
        return names;
    }

    /// Puts an event of the test into the registry, in the place of the one with that name. Only while nothing scans.
    template <class Event>
    static Event* Replace(const wchar_t* name, std::unique_ptr<Event> fresh)
    {
        KTEventSystem& system = KTEventSystem::Get();
        KTEventDriver* const old = system.LockEvent(name);
        for (auto event = system.EventsBegin(); event != system.EventsEnd(); ++event)
        {
            if (*event != old) continue;
            delete old;
            *event = fresh.get();
        }
        return fresh.release();
    }

    enum class Service
    {
        actived,
        notified
    };
    bool Ask(Service service, TestResponse& response, std::uint32_t flags = 0)
    {
        KTHttpRequest request;
        request.flags = flags;
        return service == Service::actived ? server.ProcessHttpServiceEventsActived(request, response)
                                           : server.ProcessHttpServiceEventsNotified(request, response);
    }
    bool Acknowledge(const std::string& body)
    {
        KTHttpRequest request;
        return server.ProcessHttpServiceAck(request, reinterpret_cast<const unsigned char*>(body.c_str()));
    }
    /// The status of a service's reply: 503 when it isn't admitted.
    int Status(Service service = Service::actived)
    {
        TestResponse response;
        Ask(service, response);
        return response.status;
    }

    TestConfig config;
    TestClock clock;
    TestDriver plant{L"T", {L"A", L"B", L"C"}};
    KTEventServer server;
};
