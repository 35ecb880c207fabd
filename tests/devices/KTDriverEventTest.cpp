#include "suite/drivers/KTDriverEvent.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "devices/DeviceSettings.h"
#include "devices/InstalledClock.h"
#include "devices/Waiting.h"
#include "host/KTText.h"

using namespace std::chrono_literals;

namespace
{
double Named(KTDriver& device, const wchar_t* name)
{
    int id = -1;
    EXPECT_TRUE(device.VariableId(name, id));
    return Read(device, id);
}

/// ST TACT CACT CDIS CACK CTIM
std::string All(KTDriver& device)
{
    std::string text;
    for (const wchar_t* name : {L"ST", L"TACT", L"CACT", L"CDIS", L"CACK", L"CTIM"})
    {
        char number[40];
        (void)KTFormat(number, sizeof number, "%.10g ", Named(device, name));
        text += number;
    }
    text.pop_back();
    return text;
}
}  // namespace

TEST(KTDriverEvent, IsTheDeviceOfItsEvent)
{
    InstalledClock clock("2024-03-10");
    KTDriverEvent device(L"Cold store (1)", L"Too warm");
    EXPECT_STREQ(device.DeviceName().Str(), L"R$EVE_Cold store (1)");
    EXPECT_STREQ(device.DeviceType().Str(), L"R$EVE");
    EXPECT_STREQ(device.Description().Str(), L"Too warm");
    EXPECT_EQ(device.DeviceState(), 0U);
    ASSERT_EQ(device.VariableCount(), 6);
    const struct
    {
        const wchar_t* name;
        int textId;
    } rows[] = {{L"ST", 32031},   {L"TACT", 34103}, {L"CACT", 34100},
                {L"CDIS", 34101}, {L"CACK", 34102}, {L"CTIM", 34103}};
    for (const auto& row : rows)
    {
        int id = -1;
        ASSERT_TRUE(device.VariableId(row.name, id));
        KTDriver::tagSVariableInfo info;
        ASSERT_TRUE(device.VariableInfo(id, info));
        EXPECT_STREQ(info.name.Str(), row.name);
        EXPECT_EQ(info.accessFlags, 3U);
        KTWideString text;
        EXPECT_STREQ(info.description.Str(), KTLoadString(row.textId, text).Str());
        EXPECT_GT(info.description.Length(), 0);
        EXPECT_FALSE(device.WriteVariable(id, 1.0));
        EXPECT_FALSE(device.SetValue(id, 1.0));
        EXPECT_TRUE(device.ValueTime(id).Valid());
        KTDriver::tagSVariableValueInfo valueInfo;
        ASSERT_TRUE(device.VariableValueInfo(id, valueInfo));
        EXPECT_EQ(valueInfo.labels.size(), id == 0 ? 2U : 0U);
    }
}

TEST(KTDriverEvent, CountsFromItsConstructionOn)
{
    InstalledClock clock("2024-03-10");
    KTDriverEvent device(L"E", L"");
    EXPECT_EQ(All(device), "0 0 0 0 0 0");
    clock->Advance(10s);
    EXPECT_EQ(All(device), "0 0 0 0 0 0");

    device.Activated();
    EXPECT_EQ(All(device), "1 0 1 0 0 0");
    clock->Advance(2500ms);
    EXPECT_EQ(All(device), "1 2.5 1 0 0 2.5");
    device.Acknowledged();
    clock->Advance(500ms);
    EXPECT_EQ(All(device), "1 3 1 0 1 3");
    device.Deactivated();
    EXPECT_EQ(All(device), "0 0 1 1 1 3");
    clock->Advance(1h);
    EXPECT_EQ(All(device), "0 0 1 1 1 3");

    device.Activated();
    clock->Advance(4s);
    EXPECT_EQ(All(device), "1 4 2 1 1 7");
    device.Deactivated();
    device.Acknowledged();
    device.Acknowledged();
    EXPECT_EQ(All(device), "0 0 2 2 3 7");
}

TEST(KTDriverEvent, LosesNoMillisecondInManyShortPeriods)
{
    InstalledClock clock("2024-03-10");
    KTDriverEvent device(L"E", L"");
    for (int i = 0; i < 1000; ++i)
    {
        device.Activated();
        clock->Advance(999ms);
        device.Deactivated();
        clock->Advance(1ms);
    }
    EXPECT_EQ(All(device), "0 0 1000 1000 0 999");
}

TEST(KTDriverEvent, GoesOnThroughTheWrapOfTheTicks)
{
    InstalledClock clock("2024-03-10", 0xFFFFFFFF - 999);
    KTDriverEvent device(L"E", L"");
    device.Activated();
    clock->Advance(1s);  // the counter stands at 0 now
    EXPECT_EQ(GetTickCount(), 0U);
    EXPECT_EQ(All(device), "1 1 1 0 0 1");
    clock->Advance(1s);
    EXPECT_EQ(All(device), "1 2 1 0 0 2");
    device.Deactivated();
    EXPECT_EQ(All(device), "0 0 1 1 0 2");
}

TEST(KTDriverEvent, AnActivationAtTickZeroIsAnActivation)
{
    InstalledClock clock("2024-03-10", 0);
    KTDriverEvent device(L"E", L"");
    device.Activated();
    EXPECT_EQ(All(device), "1 0 1 0 0 0");
    clock->Advance(3s);
    EXPECT_EQ(All(device), "1 3 1 0 0 3");
}

TEST(KTDriverEvent, StaysActiveForWeeksAndMonths)
{
    InstalledClock clock("2024-03-10", 0xF0000000);
    KTDriverEvent device(L"E", L"");
    device.Activated();
    clock->Advance(45 * 24h);
    EXPECT_EQ(All(device), "1 3888000 1 0 0 3888000");
    device.Deactivated();
    device.Activated();
    for (int i = 0; i < 10; ++i)  // 200 days, looked at now and then
    {
        clock->Advance(20 * 24h);
        EXPECT_EQ(Named(device, L"TACT"), 86400.0 * 20 * (i + 1));
    }
    device.Deactivated();
    EXPECT_EQ(All(device), "0 0 2 2 0 21168000");
}

TEST(KTDriverEvent, HeedsTheTicksAndNotTheTimeOfDay)
{
    InstalledClock clock("2024-03-10");
    KTDriverEvent device(L"E", L"");
    device.Activated();
    clock->SetUtc(KTDateTime(2031, 1, 1, 0, 0, 0, 0, 0));
    clock->Advance(2s);
    EXPECT_EQ(All(device), "1 2 1 0 0 2");
}

TEST(KTDriverEvent, ASecondActivationGoesOnWithTheRunningPeriod)
{
    InstalledClock clock("2024-03-10");
    KTDriverEvent device(L"E", L"");
    device.Activated();
    clock->Advance(2s);
    device.Activated();
    clock->Advance(2s);
    EXPECT_EQ(All(device), "1 4 2 0 0 4");
    device.Deactivated();
    clock->Advance(2s);
    device.Deactivated();
    EXPECT_EQ(All(device), "0 0 2 2 0 4");
}

TEST(KTDriverEvent, TimesOfValuesAreThoseOfTheChangesAndOfTheReading)
{
    InstalledClock clock("2024-03-10");
    KTDriverEvent device(L"E", L"");
    clock->Advance(1min);
    device.Activated();
    clock->Advance(1min);
    int id = -1;
    const struct
    {
        const wchar_t* name;
        int minute;
    } rows[] = {{L"ST", 1}, {L"TACT", 2}, {L"CACT", 1}, {L"CDIS", 0}, {L"CACK", 0}, {L"CTIM", 2}};
    for (const auto& row : rows)
    {
        ASSERT_TRUE(device.VariableId(row.name, id));
        EXPECT_EQ(device.ValueTime(id), KTDateTime(2024, 3, 10, 0, row.minute, 0, 0, 0)) << id;
        EXPECT_EQ(device.ValueCell(id) == nullptr, row.minute == 2) << id;
    }
}

// A thread that is held up between taking the time and telling it takes back what readers saw in the meantime; half of a
// change would be off by the age of the clock.
TEST(KTDriverEvent, ReadersNeverSeeHalfOfAChange)
{
    KTDriverEvent device(L"E", L"");  // the system's clock
    std::atomic<bool> stop{false};
    std::thread scan(
        [&]
        {
            while (!stop.load())
            {
                device.Activated();
                device.Deactivated();
            }
        });
    std::thread client(
        [&]
        {
            while (!stop.load()) device.Acknowledged();
        });
    double last = 0.0;
    EXPECT_TRUE(Eventually(
        [&]
        {
            for (int i = 0; i < 20000; ++i)
            {
                const double total = Named(device, L"CTIM");
                EXPECT_GE(total, last - 1.0);
                EXPECT_LT(total, 3600.0);
                last = total;
                const double active = Named(device, L"TACT");
                EXPECT_TRUE(active >= 0.0 && active < 3600.0);
            }
            return Named(device, L"CACT") > 100.0 && Named(device, L"CACK") > 100.0;
        }));
    stop.store(true);
    scan.join();
    client.join();
    EXPECT_EQ(Named(device, L"CACT"), Named(device, L"CDIS"));
    EXPECT_EQ(Named(device, L"ST"), 0.0);
}
