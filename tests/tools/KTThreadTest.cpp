#include "host/KTThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace
{
using std::chrono::milliseconds;
using std::chrono::steady_clock;

TEST(KTMutex, TellsThatTheThreadHoldsItAlready)
{
    KTMutex mutex;
    ASSERT_TRUE(mutex.Lock());
    EXPECT_FALSE(mutex.Lock());
    EXPECT_FALSE(mutex.Lock()) << "a refusal takes nothing and changes nothing";
    mutex.Unlock();
    ASSERT_TRUE(mutex.Lock()) << "one unlock was enough";
    mutex.Unlock();
}

TEST(KTMutex, KeepsOtherThreadsOutUntilItIsFree)
{
    KTMutex mutex;
    std::atomic<bool> inside{false};
    ASSERT_TRUE(mutex.Lock());
    std::thread other(
        [&]
        {
            ASSERT_TRUE(mutex.Lock());
            inside = true;
            mutex.Unlock();
        });
    std::this_thread::sleep_for(milliseconds(20));
    EXPECT_FALSE(inside);
    mutex.Unlock();
    other.join();
    EXPECT_TRUE(inside);
}

TEST(KTMutex, CountsRightUnderContention)
{
    KTMutex mutex;
    int count = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back(
            [&]
            {
                for (int i = 0; i < 5000; ++i)
                {
                    ASSERT_TRUE(mutex.Lock());
                    ++count;
                    mutex.Unlock();
                }
            });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(count, 20'000);
}

TEST(KTSemaphore, GivesAsManyCountsAsItHas)
{
    KTSemaphore semaphore(2, 3);
    EXPECT_TRUE(semaphore.Wait(0));
    EXPECT_TRUE(semaphore.Wait(0));
    EXPECT_FALSE(semaphore.Wait(0));
    EXPECT_TRUE(semaphore.Release());
    EXPECT_TRUE(semaphore.Wait(0));
}

TEST(KTSemaphore, RefusesMoreThanItsMaximum)
{
    KTSemaphore semaphore(32, 32);
    EXPECT_FALSE(semaphore.Release());
    EXPECT_TRUE(semaphore.Wait(0));
    EXPECT_TRUE(semaphore.Release());
    EXPECT_FALSE(semaphore.Release());
    for (int i = 0; i < 32; ++i) EXPECT_TRUE(semaphore.Wait(0)) << i;
    EXPECT_FALSE(semaphore.Wait(0)) << "the refused release added nothing";
}

TEST(KTSemaphore, WaitsNoLongerThanAsked)
{
    KTSemaphore semaphore(0, 1);
    const auto begin = steady_clock::now();
    EXPECT_FALSE(semaphore.Wait(50));
    EXPECT_GE(steady_clock::now() - begin, milliseconds(49));
}

TEST(KTSemaphore, WakesAWaiterWhenACountComes)
{
    KTSemaphore semaphore(0, 1);
    std::atomic<bool> got{false};
    std::thread waiter([&] { got = semaphore.Wait(60'000); });
    EXPECT_TRUE(semaphore.Release());
    waiter.join();
    EXPECT_TRUE(got);
}

TEST(KTSemaphore, DrainsAtOnceWhenNobodyHoldsACount)
{
    KTSemaphore semaphore(3, 3);
    semaphore.Drain();
    EXPECT_FALSE(semaphore.Wait(0));
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(semaphore.Release());
    EXPECT_FALSE(semaphore.Release());
    EXPECT_TRUE(semaphore.Wait(0)) << "and serves as before";
}

TEST(KTSemaphore, DrainsWhatIsHeldAndLetsNobodyElseInMeanwhile)
{
    KTSemaphore semaphore(2, 2);
    ASSERT_TRUE(semaphore.Wait(0));
    std::atomic<bool> drained{false};
    std::thread drain(
        [&]
        {
            semaphore.Drain();
            drained = true;
        });
    // The count that is still free goes to the one that drains, once it is there.
    while (semaphore.Wait(0)) semaphore.Release();
    EXPECT_FALSE(semaphore.Wait(30));
    EXPECT_FALSE(drained);
    semaphore.Release();
    drain.join();
    EXPECT_TRUE(drained);
    EXPECT_FALSE(semaphore.Wait(0));
}

TEST(KTSemaphore, DrainsAmongManyWhoAskAgainAndAgain)
{
    KTSemaphore semaphore(4, 4);
    std::atomic<bool> goOn{true};
    std::vector<std::thread> threads;
    for (int i = 0; i < 16; ++i)
        threads.emplace_back(
            [&]
            {
                while (goOn)
                {
                    if (!semaphore.Wait(10)) continue;
                    std::this_thread::sleep_for(milliseconds(1));
                    semaphore.Release();
                }
            });
    for (int round = 0; round < 20; ++round)
    {
        const auto began = steady_clock::now();
        semaphore.Drain();
        EXPECT_LT(steady_clock::now() - began, milliseconds(5000));
        for (int i = 0; i < 4; ++i) EXPECT_TRUE(semaphore.Release()) << "all of them were taken";
    }
    goOn = false;
    for (auto& thread : threads) thread.join();
}

TEST(KTThread, RunsItsEntryWithItsArgumentAndCanBeStartedAgain)
{
    std::atomic<int> runs{0};
    KTThread thread;
    thread.Join();  // nothing was started
    const auto entry = [](void* argument) { ++*static_cast<std::atomic<int>*>(argument); };
    ASSERT_TRUE(thread.Start(entry, &runs));
    thread.Join();
    EXPECT_EQ(runs, 1);
    ASSERT_TRUE(thread.Start(entry, &runs));
    ASSERT_TRUE(thread.Start(entry, &runs)) << "waits for the one before";
    thread.Join();
    EXPECT_EQ(runs, 3);
}

TEST(KTThread, ItsEndIsTheEndOfItsThread)
{
    std::atomic<bool> done{false};
    {
        KTThread thread;
        ASSERT_TRUE(thread.Start(
            [](void* argument)
            {
                std::this_thread::sleep_for(milliseconds(20));
                *static_cast<std::atomic<bool>*>(argument) = true;
            },
            &done));
    }
    EXPECT_TRUE(done);
}
}  // namespace
