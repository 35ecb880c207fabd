#include "suite/drivers/KTElapsedTicks.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "devices/InstalledClock.h"
#include "devices/Waiting.h"

using namespace std::chrono_literals;

TEST(KTElapsedTicks, CountsFromItsConstruction)
{
    InstalledClock clock("2024-03-10", 123456);
    KTElapsedTicks ticks;
    EXPECT_EQ(ticks.Now(), 0U);
    clock->Advance(1500ms);
    EXPECT_EQ(ticks.Now(), 1500U);
}

TEST(KTElapsedTicks, GoesOnWhenTheCounterWraps)
{
    InstalledClock clock("2024-03-10", 0xFFFFFFFF - 499);
    KTElapsedTicks ticks;
    clock->Advance(499ms);
    EXPECT_EQ(ticks.Now(), 499U);
    clock->Advance(1ms);
    EXPECT_EQ(GetTickCount(), 0U);
    EXPECT_EQ(ticks.Now(), 500U);
}

TEST(KTElapsedTicks, CountsMonthsWhenItIsAskedNowAndThen)
{
    InstalledClock clock("2024-03-10", 77);
    KTElapsedTicks ticks;
    for (int days = 20; days <= 400; days += 20)
    {
        clock->Advance(20 * 24h);
        ASSERT_EQ(ticks.Now(), static_cast<std::uint64_t>(days) * 86400000U);
    }
}

TEST(KTElapsedTicks, CountsSevenWeeksInOneGo)
{
    InstalledClock clock("2024-03-10", 0x80000000);
    KTElapsedTicks ticks;
    clock->Advance(49 * 24h);
    EXPECT_EQ(ticks.Now(), 49U * 86400000U);
}

TEST(KTElapsedTicks, DoesntHeedTheTimeOfDay)
{
    InstalledClock clock("2024-03-10", 0);
    KTElapsedTicks ticks;
    clock->Advance(5s);
    clock->SetUtc(KTDateTime(1990, 1, 1, 0, 0, 0, 0, 0));
    EXPECT_EQ(ticks.Now(), 5000U);
    clock->SetUtc(KTDateTime(2050, 1, 1, 0, 0, 0, 0, 0));
    clock->Advance(5s);
    EXPECT_EQ(ticks.Now(), 10000U);
}

TEST(KTElapsedTicks, NeverFallsWithManyReaders)
{
    KTElapsedTicks ticks;  // the system's clock
    std::vector<std::thread> readers;
    std::atomic<bool> fell{false};
    for (int i = 0; i < 4; ++i)
        readers.emplace_back(
            [&]
            {
                std::uint64_t last = 0;
                for (int n = 0; n < 20000; ++n)
                {
                    const std::uint64_t now = ticks.Now();
                    if (now < last) fell.store(true);
                    last = now;
                }
            });
    for (std::thread& reader : readers) reader.join();
    EXPECT_FALSE(fell.load());
    EXPECT_TRUE(Eventually([&] { return ticks.Now() >= 50; }));
    EXPECT_LT(ticks.Now(), 3600000U);  // nothing like a wrap too many
}
