#include "engine/KTWorkMutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "host/KTThread.h"

TEST(KTWorkMutex, TellsALockByTheThreadThatHoldsIt)
{
    KTWorkMutex mutex;
    ASSERT_TRUE(mutex.Lock());
    EXPECT_FALSE(mutex.Lock());
    EXPECT_FALSE(mutex.LockFirst());
    mutex.Unlock();
    ASSERT_TRUE(mutex.LockFirst());
    EXPECT_FALSE(mutex.Lock());
    EXPECT_FALSE(mutex.LockFirst());
    mutex.Unlock();
    const KTLockGuard guard(mutex);
    EXPECT_TRUE(guard.Locked());
}

TEST(KTWorkMutex, LetsOneThreadInAtATime)
{
    KTWorkMutex mutex;
    int inside = 0;  // plain on purpose
    int total = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back(
            [&, i]
            {
                for (int round = 0; round < 2000; ++round)
                {
                    ASSERT_TRUE(i == 0 ? mutex.LockFirst() : mutex.Lock());
                    EXPECT_EQ(++inside, 1);
                    ++total;
                    --inside;
                    mutex.Unlock();
                }
            });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(total, 16'000);
}

TEST(KTWorkMutex, TheLaneIsServedBeforeAllWhoWait)
{
    for (int round = 0; round < 5; ++round)
    {
        KTWorkMutex mutex;
        std::vector<int> order;
        ASSERT_TRUE(mutex.Lock());
        std::vector<std::thread> threads;
        const auto enter = [&](int number)
        {
            ASSERT_TRUE(number == 0 ? mutex.LockFirst() : mutex.Lock());
            order.push_back(number);
            mutex.Unlock();
        };
        for (int i = 1; i <= 8; ++i) threads.emplace_back(enter, i);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));  // the others stand in the queue by now
        threads.emplace_back(enter, 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        mutex.Unlock();
        for (std::thread& thread : threads) thread.join();
        ASSERT_EQ(order.size(), 9U) << "and nobody is forgotten";
        EXPECT_EQ(order.front(), 0);
    }
}
