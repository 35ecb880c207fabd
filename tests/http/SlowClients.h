// What tests of slow clients share: times, large replies and streams.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "http/TestServer.h"

using namespace std::chrono_literals;

using Clock = std::chrono::steady_clock;

inline std::chrono::milliseconds Since(Clock::time_point start)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
}

/// Waits until something holds, at most 10 s.
template <class Condition>
bool Eventually(Condition condition)
{
    for (const auto end = Clock::now() + 10s; Clock::now() < end; std::this_thread::sleep_for(5ms))
        if (condition()) return true;
    return condition();
}

/// Adds a route that answers with so many bytes.
inline std::function<void(KTHttpRouter&)> Large(std::size_t size)
{
    return [size](KTHttpRouter& router)
    {
        router.Add({"GET", "/large", KTHttpAccess::viewer, 0, [size](KTHttpCall&, KTHttpAnswer& answer) {
                        answer.Document("text/plain", std::string(size, 'x'));
                    }});
    };
}

inline constexpr std::size_t largeSize = 64 * 1024 * 1024;  // more than the sockets' buffers take

/// A stream that the test feeds.
struct Feed
{
    std::atomic<int> open{0};
    std::atomic<int> written{0};
    std::atomic<bool> flood{false};
    std::atomic<bool> end{false};

    class Stream : public KTHttpStream
    {
    public:
        explicit Stream(Feed& source) : feed(source) { ++feed.open; }
        ~Stream() override { --feed.open; }
        bool Next(std::string& out, std::chrono::milliseconds patience) override
        {
            if (feed.end) return false;
            if (feed.flood) return out.assign(100'000, 'f'), true;
            if (sent < feed.written)
                out = "data: " + std::to_string(++sent) + "\n\n";
            else
                std::this_thread::sleep_for(std::min(patience, 5ms));
            return true;
        }

    private:
        Feed& feed;
        int sent = 0;
    };

    void AddTo(KTHttpRouter& router)
    {
        router.Add({"GET", "/stream", KTHttpAccess::viewer, 0,
                    [this](KTHttpCall&, KTHttpAnswer& answer)
                    {
                        answer.Empty(200);
                        answer.contentType = "text/event-stream";
                        answer.stream = std::make_unique<Stream>(*this);
                    }});
    }
};
