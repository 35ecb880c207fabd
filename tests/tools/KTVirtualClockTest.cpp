#include "suite/tools/KTVirtualClock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <thread>
#include <vector>

namespace
{
using namespace std::chrono_literals;

const KTDateTime start(2026, 3, 1, 10, 0, 0, 0, 0);

void WaitForSleepers(const KTVirtualClock& clock, int count)
{
    while (clock.Sleepers() != count) std::this_thread::yield();
}

TEST(KTVirtualClock, StandsStillUntilItIsMoved)
{
    KTVirtualClock clock(start, 7);
    EXPECT_TRUE(clock.UTC() == start);
    EXPECT_EQ(clock.TickCount(), 7U);
    EXPECT_TRUE(clock.Advance(4999ms));
    EXPECT_EQ(clock.TickCount(), 5006U);
    EXPECT_EQ((clock.UTC() - start).TotalMicroseconds(), 4'999'000);
    EXPECT_TRUE(clock.Advance(999us));
    EXPECT_EQ(clock.TickCount(), 5006U) << "not a whole millisecond yet";
    EXPECT_TRUE(clock.Advance(1us));
    EXPECT_EQ(clock.TickCount(), 5007U);
    EXPECT_TRUE(clock.Advance(0us));
    EXPECT_FALSE(clock.Advance(-1us));
    EXPECT_EQ(clock.TickCount(), 5007U);
}

TEST(KTVirtualClock, ItsTicksWrap)
{
    KTVirtualClock clock(start, 0xFFFFFFF0U);
    clock.Advance(15ms);
    EXPECT_EQ(clock.TickCount(), 0xFFFFFFFFU);
    clock.Advance(1ms);
    EXPECT_EQ(clock.TickCount(), 0U);
    clock.Advance(std::chrono::hours(24 * 50));  // more than all ticks there are
    EXPECT_EQ(clock.TickCount(), static_cast<std::uint32_t>(50LL * 86'400'000));
}

TEST(KTVirtualClock, ACorrectedTimeOfDayLeavesTheTicks)
{
    KTVirtualClock clock(start);
    clock.Advance(10s);
    EXPECT_TRUE(clock.SetUtc(KTDateTime(2020, 1, 1, 0, 0, 0, 0, 0)));
    EXPECT_EQ(clock.UTC().Year(), 2020);
    EXPECT_EQ(clock.TickCount(), KTVirtualClock::defaultTickCount + 10'000);
    clock.Advance(1s);
    EXPECT_TRUE(clock.UTC() == KTDateTime(2020, 1, 1, 0, 0, 1, 0, 0));
    EXPECT_FALSE(clock.SetUtc(KTDateTime()));
    EXPECT_EQ(clock.UTC().Year(), 2020);
}

TEST(KTVirtualClock, LocalTimeIsThatOfTheZone)
{
    setenv("TZ", "Europe/Madrid", 1);
    KTVirtualClock clock(KTDateTime(2026, 10, 25, 0, 59, 59, 0, 0));
    EXPECT_EQ(clock.LTC().Hour(), 2);
    EXPECT_EQ(clock.LTC().Minute(), 59);
    clock.Advance(1s);
    EXPECT_EQ(clock.LTC().Hour(), 2);
    EXPECT_EQ(clock.LTC().Minute(), 0);
    unsetenv("TZ");
}

TEST(KTVirtualClock, TheDrivingThreadMovesTheTimeBySleeping)
{
    KTVirtualClock clock(start);
    clock.Sleep(1000);
    EXPECT_EQ(clock.TickCount(), KTVirtualClock::defaultTickCount + 1000);
    clock.Sleep(0);
    EXPECT_EQ(clock.TickCount(), KTVirtualClock::defaultTickCount + 1000);
}

TEST(KTVirtualClock, OnlyTheDrivingThreadMovesTheTime)
{
    KTVirtualClock clock(start);
    std::thread(
        [&]
        {
            EXPECT_FALSE(clock.Advance(1s));
            EXPECT_FALSE(clock.SetUtc(KTDateTime(2020, 1, 1, 0, 0, 0, 0, 0)));
            clock.Sleep(0);  // yields and comes back
        })
        .join();
    EXPECT_TRUE(clock.UTC() == start);
    std::thread other(
        [&]
        {
            clock.SetDriver(std::this_thread::get_id());
            EXPECT_TRUE(clock.Advance(1s));
        });
    other.join();
    EXPECT_FALSE(clock.Advance(1s));
    EXPECT_EQ((clock.UTC() - start).TotalSeconds(), 1);
}

TEST(KTVirtualClock, ASleeperWaitsForItsTime)
{
    KTVirtualClock clock(start);
    std::atomic<bool> awake{false};
    std::thread sleeper(
        [&]
        {
            clock.Sleep(1000);
            awake = true;
        });
    WaitForSleepers(clock, 1);
    clock.Advance(999ms);
    std::this_thread::sleep_for(20ms);
    EXPECT_FALSE(awake);
    EXPECT_EQ(clock.Sleepers(), 1);
    clock.Advance(1ms);
    sleeper.join();
    EXPECT_TRUE(awake);
    EXPECT_EQ(clock.Sleepers(), 0);
}

TEST(KTVirtualClock, SleepsLongerThanTheTicksCanCount)
{
    KTVirtualClock clock(start, 0xFFFFFF00U);
    std::atomic<bool> awake{false};
    std::thread sleeper(
        [&]
        {
            clock.Sleep(0xFFFFFFFFU);
            awake = true;
        });
    WaitForSleepers(clock, 1);
    clock.Advance(std::chrono::milliseconds(0xFFFFFFFELL));
    std::this_thread::sleep_for(20ms);
    EXPECT_FALSE(awake);
    clock.Advance(1ms);
    sleeper.join();
}

TEST(KTVirtualClock, ReleaseLetsAllSleepersGoAndKeepsNoneAfter)
{
    KTVirtualClock clock(start);
    std::vector<std::thread> sleepers;
    for (int i = 0; i < 4; ++i) sleepers.emplace_back([&] { clock.Sleep(1'000'000'000); });
    WaitForSleepers(clock, 4);
    clock.Release();
    for (auto& sleeper : sleepers) sleeper.join();
    std::thread([&] { clock.Sleep(1'000'000'000); }).join();
    EXPECT_TRUE(clock.UTC() == start);
}

// A day of a worker that sleeps a second at a time, with others asking for the time: nobody is late, nobody hangs.
TEST(KTVirtualClock, ADayPassesForManySleepers)
{
    KTVirtualClock clock(start);
    std::atomic<int> rounds{0};
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
        threads.emplace_back(
            [&]
            {
                for (int round = 0; round < 24; ++round)
                {
                    const std::uint32_t before = clock.TickCount();
                    clock.Sleep(3'600'000);
                    if (clock.TickCount() - before >= 3'600'000) ++rounds;
                }
            });
    std::thread asker(
        [&]
        {
            KTDateTime last = clock.UTC();
            while (!done)
            {
                const KTDateTime now = clock.UTC();
                EXPECT_FALSE(now < last);
                last = now;
            }
        });
    while (rounds < 3 * 24)
    {
        clock.Advance(600s);
        std::this_thread::yield();
    }
    for (auto& thread : threads) thread.join();
    done = true;
    asker.join();
}
}  // namespace
