#include "host/KTClock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <thread>

#include "suite/tools/KTVirtualClock.h"
#include "suite/tools/KTYield.h"

namespace
{
using namespace std::chrono_literals;
using std::chrono::steady_clock;

TEST(KTClock, TheSystemsClockTellsTheTime)
{
    const std::time_t before = std::time(nullptr);
    const KTDateTime now = KTDateTime::UTC();
    const std::time_t after = std::time(nullptr);
    EXPECT_GE(now.CalendarMicroseconds() / 1'000'000, before);
    EXPECT_LE(now.CalendarMicroseconds() / 1'000'000, after);
    const KTDateTime local = KTDateTime::LTC();
    const auto apart = std::abs((local.LTC2UTC() - now).TotalSeconds());
    EXPECT_LE(apart, 2);
}

TEST(KTClock, TicksAreMilliseconds)
{
    const std::uint32_t before = GetTickCount();
    const auto begin = steady_clock::now();
    std::this_thread::sleep_for(30ms);
    const std::uint32_t ticks = GetTickCount() - before;
    const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(steady_clock::now() - begin).count();
    EXPECT_GE(ticks, 29U);
    EXPECT_LE(ticks, passed + 1);
}

TEST(KTClock, SleepsAtLeastAsLongAsAsked)
{
    const auto begin = steady_clock::now();
    Sleep(30);
    EXPECT_GE(steady_clock::now() - begin, 30ms);
}

TEST(KTClock, InstallingGivesTheClockThatWasThere)
{
    KTVirtualClock clock(KTDateTime(2026, 3, 1, 10, 0, 0, 0, 0));
    EXPECT_EQ(KTClock::Install(&clock), nullptr);
    EXPECT_EQ(&KTClock::Get(), &clock);
    EXPECT_EQ(KTDateTime::UTC().Year(), 2026);
    EXPECT_EQ(GetTickCount(), KTVirtualClock::defaultTickCount);
    Sleep(1500);
    EXPECT_EQ(GetTickCount(), KTVirtualClock::defaultTickCount + 1500);
    EXPECT_EQ(KTClock::Install(nullptr), &clock);
    EXPECT_NE(&KTClock::Get(), &clock);
}

TEST(KTClock, YieldsAtEachCall)
{
    for (int i = 0; i < 1000; ++i) EXPECT_TRUE(kt::YieldProcessor());
}

TEST(KTClock, AScanThreadYieldsAtMostOnceIn200Microseconds)
{
    KTClock::Get().SetScanThread(true);
    const auto begin = steady_clock::now();
    int yields = 0;
    while (steady_clock::now() - begin < 20ms) yields += kt::YieldProcessor() ? 1 : 0;
    const auto passed = std::chrono::duration_cast<std::chrono::microseconds>(steady_clock::now() - begin).count();
    EXPECT_GE(yields, 2);
    EXPECT_LE(yields, passed / 200 + 1);

    // Another thread's yields are its own affair.
    std::thread([] { EXPECT_TRUE(kt::YieldProcessor() && kt::YieldProcessor()); }).join();

    KTClock::Get().SetScanThread(false);
    EXPECT_TRUE(kt::YieldProcessor());
    EXPECT_TRUE(kt::YieldProcessor());
}
}  // namespace
