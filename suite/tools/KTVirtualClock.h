// A clock that one thread moves, so that a year runs in seconds.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

#include "host/KTClock.h"

/// The clock of tests and of the replay. Time stands still until the driving thread moves it.
///
/// Units:   the time of day in microseconds; ticks in milliseconds, wrapping at 2^32.
/// Errors:  a thread other than the driving one can't move the time: Advance and SetUtc are then false and do nothing.
/// Threads: any may ask for the time. A Sleep of the driving thread moves the time by that much; a Sleep of any other
///          waits until the driving thread has. Sleep(0) yields on every thread and moves nothing.
/// Memory:  the installer keeps it; Release lets sleepers go before it is taken away.
class KTVirtualClock final : public KTClock
{
public:
    static constexpr std::uint32_t defaultTickCount = 1'000'000;

    /// `utc` must be valid. The calling thread drives.
    explicit KTVirtualClock(const KTDateTime& utc, std::uint32_t tickCount = defaultTickCount);

    /// Another thread takes over the driving.
    void SetDriver(std::thread::id thread) { driver.store(thread, std::memory_order_relaxed); }

    /// Moves time of day and ticks; a negative duration moves nothing and is false.
    bool Advance(std::chrono::microseconds duration);

    /// Sets the time of day, as somebody who corrects the machine's clock: the ticks stay, and nobody wakes. False for an
    /// invalid date.
    bool SetUtc(const KTDateTime& utc);

    /// Lets all sleepers go, and every later one at once: for a stop.
    void Release();

    /// Threads that wait in Sleep at the moment, so that a test can wait for them.
    [[nodiscard]] int Sleepers() const;

    KTDateTime UTC() override;
    KTDateTime LTC() override;
    std::uint32_t TickCount() override;
    void Sleep(std::uint32_t milliseconds) override;
    void SetScanThread(bool scanning) override;

private:
    [[nodiscard]] bool Drives() const { return driver.load(std::memory_order_relaxed) == std::this_thread::get_id(); }

    const std::uint32_t firstTick;
    std::atomic<std::thread::id> driver;
    std::atomic<std::int64_t> elapsed{0};  // microseconds since the construction; written under the mutex
    std::atomic<std::int64_t> origin;      // time of day at elapsed 0, microseconds since 1970

    mutable std::mutex mutex;
    std::condition_variable moved;
    bool released = false;  // guarded by mutex
    int sleepers = 0;       // guarded by mutex
};
