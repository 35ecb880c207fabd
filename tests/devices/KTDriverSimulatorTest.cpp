#include "suite/drivers/KTDriverSimulator.h"

#include <gtest/gtest.h>

#include <chrono>

#include "devices/DeviceSettings.h"
#include "devices/InstalledClock.h"
#include "devices/Waiting.h"

using namespace std::chrono_literals;

namespace
{
KTVariableSettings Ramp(const char* name, double high, bool writable = false)
{
    KTVariableSettings variable = Variable(name, writable);
    variable.signal = "ramp";
    variable.high = high;
    variable.periodSeconds = 100.0;  // a round multiple of it begins at midnight
    return variable;
}
}  // namespace

TEST(KTDriverSimulator, HasItsValuesAsSoonAsItHasStarted)
{
    InstalledClock clock("2024-03-10");  // 864 periods a day: midnight begins one
    clock->Advance(50s);
    KTDriverSimulator device(Device("S", "simulator", {Ramp("A", 100.0), Ramp("B", 10.0)}));
    EXPECT_FALSE(HasValue(device, 0));
    ASSERT_TRUE(device.Start());
    EXPECT_EQ(Read(device, 0), 50.0);
    EXPECT_EQ(Read(device, 1), 5.0);
    EXPECT_EQ(device.ValueTime(0), KTDateTime(2024, 3, 10, 0, 0, 50, 0, 0));
    EXPECT_TRUE(device.Answered());
    EXPECT_FALSE(InError(device));
}

TEST(KTDriverSimulator, ItsThreadFollowsTheClock)
{
    InstalledClock clock("2024-03-10");
    KTDriverSimulator device(Device("S", "simulator", {Ramp("A", 100.0)}));
    ASSERT_TRUE(device.Start());
    EXPECT_EQ(Read(device, 0), 0.0);
    clock->Advance(75s);
    EXPECT_TRUE(Eventually([&] { return Read(device, 0) == 75.0; }));
    clock->Advance(30s);
    EXPECT_TRUE(Eventually([&] { return Read(device, 0) == 5.0; }));
    // The clock stands still from here on; the stop doesn't wait for it.
    device.RequestStop();
    device.Join();
    clock->Advance(30s);
    EXPECT_EQ(Read(device, 0), 5.0);
}

TEST(KTDriverSimulator, AForcedVariableKeepsItsValueInPlaceOfTheSignal)
{
    InstalledClock clock("2024-03-10");
    KTDriverSimulator device(Device("S", "simulator", {Ramp("A", 100.0, true), Ramp("B", 100.0)}));
    ASSERT_TRUE(device.Start());
    EXPECT_TRUE(device.WriteVariable(0, -7.5));
    EXPECT_EQ(Read(device, 0), -7.5);  // at once
    EXPECT_FALSE(device.WriteVariable(1, 3.0));
    EXPECT_FALSE(device.SetValue(0, 3.0));
    clock->Advance(20s);
    EXPECT_TRUE(Eventually([&] { return Read(device, 1) == 20.0; }));
    EXPECT_EQ(Read(device, 0), -7.5);
    EXPECT_EQ(device.ValueTime(0), KTDateTime(2024, 3, 10, 0, 0, 20, 0, 0));
    EXPECT_TRUE(device.WriteVariable(0, 8.0));
    EXPECT_EQ(Read(device, 0), 8.0);
}

TEST(KTDriverSimulator, IsStoppedByItsDestructorAndNeedsNoStart)
{
    KTDriverSimulator never(Device("S", "simulator", {Ramp("A", 100.0)}));
    KTDriverSimulator device(Device("S", "simulator", {Ramp("A", 100.0)}));
    ASSERT_TRUE(device.Start());
}

TEST(KTDriverSimulator, ALimitReachesABaySensorOnlyThroughAWritableVariable)
{
    KTDriverSimulator bay(Device("BAY", "simulator", {Ramp("BUSYTIME", 10.0), Ramp("ALARMTIME", 0.0, true)}));
    EXPECT_TRUE(bay.SetAlarmTime(3600));
    EXPECT_EQ(Read(bay, 1), 3600.0);
    KTDriverSimulator other(Device("BAY", "simulator", {Ramp("ALARMTIME", 0.0)}));
    EXPECT_FALSE(other.SetAlarmTime(3600));
}
