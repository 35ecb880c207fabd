// A virtual clock that is installed while it lives, and one that lets a test look in.
#pragma once

#include <functional>

#include "suite/tools/KTVirtualClock.h"
#include "support/TestText.h"

/// Installed while it lives; the thread that makes it drives.
class TestClock
{
public:
    explicit TestClock(const KTDateTime& utc = Date(2024, 3, 10, 8),
                       std::uint32_t tickCount = KTVirtualClock::defaultTickCount)
        : clock(utc, tickCount), before(KTClock::Install(&clock))
    {
    }
    TestClock(const TestClock&) = delete;
    TestClock& operator=(const TestClock&) = delete;
    ~TestClock()
    {
        clock.Release();
        KTClock::Install(before);
    }

    KTVirtualClock* operator->() { return &clock; }

private:
    KTVirtualClock clock;
    KTClock* const before;
};

/// Passes on to the clock that was installed before, and tells a test of each call first, on the caller's thread.
///
/// Threads: the functions are set before the clock is asked by another thread.
class ObservedClock : public KTClock
{
public:
    ObservedClock() : inner(KTClock::Get()), before(Install(this)) {}
    ~ObservedClock() override { Install(before); }

    KTDateTime UTC() override { return inner.UTC(); }
    KTDateTime LTC() override
    {
        if (onLocalTime) onLocalTime();
        return inner.LTC();
    }
    std::uint32_t TickCount() override { return inner.TickCount(); }
    void Sleep(std::uint32_t milliseconds) override
    {
        if (onSleep) onSleep(milliseconds);
        inner.Sleep(milliseconds);
    }
    void SetScanThread(bool scanning) override
    {
        if (onScanThread) onScanThread(scanning);
        inner.SetScanThread(scanning);
    }

    std::function<void()> onLocalTime;
    std::function<void(std::uint32_t milliseconds)> onSleep;
    std::function<void(bool scanning)> onScanThread;

private:
    KTClock& inner;
    KTClock* const before;
};
