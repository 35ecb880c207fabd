// A virtual clock that is the clock as long as the object lives.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>

#include "suite/tools/KTVirtualClock.h"

class InstalledClock
{
public:
    /// Midnight UTC of a date "YYYY-MM-DD".
    explicit InstalledClock(const char* date, std::uint32_t tickCount = KTVirtualClock::defaultTickCount)
        : clock(Midnight(date), tickCount), before(KTClock::Install(&clock))
    {
    }
    InstalledClock(const InstalledClock&) = delete;
    InstalledClock& operator=(const InstalledClock&) = delete;
    ~InstalledClock() { KTClock::Install(before); }

    KTVirtualClock* operator->() { return &clock; }

private:
    static KTDateTime Midnight(const char* date)
    {
        int year = 0;
        int month = 0;
        int day = 0;
        EXPECT_EQ(std::sscanf(date, "%d-%d-%d", &year, &month, &day), 3);
        return {year, month, day, 0, 0, 0, 0, 0};
    }

    KTVirtualClock clock;
    KTClock* const before;
};
