#include "suite/drivers/KTSimulatorSignal.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>

namespace
{
using Kind = KTSimulatorSignal::Kind;

KTSimulatorSignal Signal(Kind kind, double low, double high, double periodSeconds, int seed = 1)
{
    KTSimulatorSignal signal;
    signal.kind = kind;
    signal.low = low;
    signal.high = high;
    signal.periodSeconds = periodSeconds;
    signal.seed = seed;
    return signal;
}

KTDateTime After(double seconds) { return KTDateTime::FromCalendarMicroseconds(std::llround(seconds * 1e6)); }
}  // namespace

TEST(KTSimulatorSignal, IsKnownByTheNamesOfTheSettings)
{
    const struct
    {
        const char* name;
        Kind kind;
    } rows[] = {{"constant", Kind::constant}, {"sine", Kind::sine}, {"square", Kind::square},
                {"ramp", Kind::ramp},         {"walk", Kind::walk}, {"daily", Kind::daily}};
    for (const auto& row : rows)
    {
        Kind kind{};
        EXPECT_TRUE(KTSimulatorSignal::FindKind(row.name, kind));
        EXPECT_EQ(kind, row.kind);
    }
    Kind kind = Kind::ramp;
    EXPECT_FALSE(KTSimulatorSignal::FindKind("Sine", kind));
    EXPECT_FALSE(KTSimulatorSignal::FindKind("", kind));
    EXPECT_EQ(kind, Kind::ramp);
}

TEST(KTSimulatorSignal, FollowsItsShapeFromTheBeginningOfEachPeriod)
{
    const struct
    {
        Kind kind;
        double seconds;  // since 1970
        double value;    // of 10 to 30 in 8 s
    } rows[] = {
        {Kind::constant, 0, 10},      {Kind::constant, 3, 10}, {Kind::sine, 0, 20},          {Kind::sine, 2, 30},
        {Kind::sine, 4, 20},          {Kind::sine, 6, 10},     {Kind::sine, 8, 20},          {Kind::sine, 8000002, 30},
        {Kind::sine, -2, 10},         {Kind::square, 0, 30},   {Kind::square, 3.999999, 30}, {Kind::square, 4, 10},
        {Kind::square, 7.999999, 10}, {Kind::square, 8, 30},   {Kind::square, -1, 10},       {Kind::ramp, 0, 10},
        {Kind::ramp, 2, 15},          {Kind::ramp, 6, 25},     {Kind::ramp, 7.96, 29.9},     {Kind::ramp, 8, 10},
        {Kind::ramp, -2, 25},
    };
    for (const auto& row : rows)
        EXPECT_NEAR(Signal(row.kind, 10, 30, 8).At(After(row.seconds)), row.value, 1e-9)
            << static_cast<int>(row.kind) << " at " << row.seconds;
}

TEST(KTSimulatorSignal, ReachesItsEndsExactly)
{
    EXPECT_EQ(Signal(Kind::sine, 0.1, 0.7, 8).At(After(2)), 0.7);
    EXPECT_EQ(Signal(Kind::sine, 0.1, 0.7, 8).At(After(6)), 0.1);
    EXPECT_EQ(Signal(Kind::square, 0.1, 0.7, 8).At(After(0)), 0.7);
    EXPECT_EQ(Signal(Kind::constant, 0.1, 0.7, 8).At(After(5)), 0.1);
}

TEST(KTSimulatorSignal, ADayIsLowestAtMidnightAndHighestAtNoonOfThePlace)
{
    const KTSimulatorSignal day = Signal(Kind::daily, -5, 80, 60);
    int midnights = 0;
    int noons = 0;
    for (int minutes = 0; minutes < 24 * 60; minutes += 15)
    {
        const KTDateTime utc = KTDateTime(2024, 6, 20, 0, 0, 0, 0, 0) + KTDateTimeSpan(minutes * 60LL * 1000000);
        const KTDateTime local = KTDateTime::LocalFromUtc(utc);
        const double value = day.At(utc);
        const int hour = local.Hour();
        if (hour == 0 && local.Minute() == 0) midnights += value == -5.0 ? 1 : 1000;
        if (hour == 12 && local.Minute() == 0) noons += value == 80.0 ? 1 : 1000;
        EXPECT_TRUE(hour >= 5 || value < 40.0) << hour;
        EXPECT_TRUE(hour < 10 || hour >= 14 || value > 60.0) << hour;
    }
    EXPECT_EQ(midnights, 1);
    EXPECT_EQ(noons, 1);
}

TEST(KTSimulatorSignal, AWalkIsTheSameInEveryRun)
{
    // Numbers that stay: what a recorded run saw, a new one with the same settings sees too.
    const KTSimulatorSignal walk = Signal(Kind::walk, 0, 100, 60, 7);
    EXPECT_NEAR(walk.At(KTDateTime(2026, 3, 1, 10, 0, 0, 0, 0)), 22.325606582278368, 1e-9);
    EXPECT_NEAR(walk.At(KTDateTime(2026, 3, 1, 10, 1, 1, 0, 0)), 72.593397933080723, 1e-9);
    EXPECT_NEAR(walk.At(KTDateTime(2026, 3, 1, 10, 59, 59, 0, 0)), 77.936472093490394, 1e-9);
}

TEST(KTSimulatorSignal, AWalkWandersThroughMostOfItsRangeAndEachSeedElsewhere)
{
    double least = 100;
    double most = 0;
    double apart = 0;
    for (int i = 0; i < 2000; ++i)
    {
        const double a = Signal(Kind::walk, 0, 100, 60, 1).At(After(1e9 + i * 10));
        const double b = Signal(Kind::walk, 0, 100, 60, 2).At(After(1e9 + i * 10));
        least = std::min(least, a);
        most = std::max(most, a);
        apart += std::fabs(a - b) / 2000;
    }
    EXPECT_LT(least, 10.0);
    EXPECT_GT(most, 90.0);
    EXPECT_GT(apart, 15.0);  // about 33 for two that have nothing to do with each other
}

TEST(KTSimulatorSignal, AWalkMakesNoJumps)
{
    const KTSimulatorSignal walk = Signal(Kind::walk, 0, 100, 60);
    double before = walk.At(After(1.7e9));
    double furthest = 0;
    for (int i = 1; i <= 12000; ++i)  // two minutes, through the border of two periods
    {
        const double now = walk.At(After(1.7e9 + i * 0.01));
        furthest = std::max(furthest, std::fabs(now - before));
        before = now;
    }
    EXPECT_LT(furthest, 2.0);
    EXPECT_GT(furthest, 0.0);
}

RC_GTEST_PROP(KTSimulatorSignal, StaysInItsRangeAndFollowsFromTheTimeAlone, (std::int64_t time, int seed))
{
    constexpr std::int64_t years = 60000000000000000;  // about two thousand, either side of 1970
    const KTDateTime at = KTDateTime::FromCalendarMicroseconds(time % years);
    RC_PRE(at.Valid());
    const int kind = *rc::gen::inRange(0, 6);
    const double low = *rc::gen::inRange(-1000, 1000);
    const double high = low + *rc::gen::inRange(0, 1000) / 7.0;
    const double period = *rc::gen::element(1e-7, 0.001, 0.3, 1.0, 60.0, 86400.0, 1e9);
    const KTSimulatorSignal signal = Signal(static_cast<Kind>(kind), low, high, period, seed);
    const double value = signal.At(at);
    RC_ASSERT(value >= low);
    RC_ASSERT(value <= high);
    RC_ASSERT(value == signal.At(at));
}
