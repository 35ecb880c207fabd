#include "suite/drivers/KTDriverBase.h"

#include <gtest/gtest.h>

#include <atomic>
#include <bit>
#include <thread>

#include "devices/DeviceSettings.h"
#include "devices/Waiting.h"
#include "host/KTText.h"
#include "suite/drivers/KTDriverMemory.h"
#include "suite/tools/KTVirtualClock.h"

namespace
{
constexpr double none = std::numeric_limits<double>::quiet_NaN();

KTDeviceSettings Desk() { return Device("DESK", "memory", {Variable("A"), Variable("B", true)}); }

std::wstring Wide(const KTWideString& text) { return text.Str(); }
}  // namespace

TEST(KTDriverBase, CarriesNamesOfAllScriptsAsTheSettingsGiveThem)
{
    KTDeviceSettings settings = Device("Kühlung", "memory", {Variable("Öl \xF0\x9F\x94\xA5")});
    settings.type = "QM7RT";
    settings.description = "Kälteanlage";
    settings.variables[0].description = "Temperatur, °C";
    KTDriverMemory device(settings);
    EXPECT_EQ(Wide(device.DeviceName()), L"K\u00FChlung");
    EXPECT_EQ(Wide(device.DeviceType()), L"QM7RT");
    EXPECT_EQ(Wide(device.Description()), L"K\u00E4lteanlage");

    const wchar_t name[] = {L'\u00D6', L'l', L' ', 0xD83D, 0xDD25, 0};  // one UTF-16 unit an element
    int id = -1;
    ASSERT_TRUE(device.VariableId(name, id));
    KTDriver::tagSVariableInfo info;
    ASSERT_TRUE(device.VariableInfo(id, info));
    EXPECT_EQ(Wide(info.name), name);
    EXPECT_EQ(Wide(info.description), L"Temperatur, \u00B0C");
}

TEST(KTDriverBase, FindsAVariableByItsExactNameAndLeavesTheIdAloneOtherwise)
{
    KTDriverMemory device(Desk());
    ASSERT_EQ(device.VariableCount(), 2);
    int id = 77;
    EXPECT_FALSE(device.VariableId(L"a", id));
    EXPECT_FALSE(device.VariableId(L"", id));
    EXPECT_FALSE(device.VariableId(L"A ", id));
    EXPECT_EQ(id, 77);
    EXPECT_TRUE(device.VariableId(L"B", id));
    EXPECT_EQ(id, 1);
    device.ReleaseVariable(id);
    EXPECT_EQ(id, 1);
    device.SetValue(1, 5.0);
    EXPECT_EQ(Read(device, id), 5.0);  // good after the release
}

TEST(KTDriverBase, TheFirstOfTwoVariablesOfOneNameIsFound)
{
    KTDriverMemory device(Device("DESK", "memory", {Variable("A"), Variable("A", true)}));
    int id = -1;
    EXPECT_TRUE(device.VariableId(L"A", id));
    EXPECT_EQ(id, 0);
}

TEST(KTDriverBase, AnIdThatDoesntExistHasNothing)
{
    KTDriverMemory device(Desk());
    for (const int id : {-1, 2, 1000000, std::numeric_limits<int>::min()})
    {
        KTValue value;
        value.SetNumeric(3.0);
        EXPECT_FALSE(device.ReadVariable(id, value));
        EXPECT_TRUE(std::isnan(value.number));
        KTDriver::tagSVariableInfo info;
        EXPECT_FALSE(device.VariableInfo(id, info));
        KTDriver::tagSVariableValueInfo valueInfo;
        EXPECT_FALSE(device.VariableValueInfo(id, valueInfo));
        EXPECT_EQ(device.ValueCell(id), nullptr);
        EXPECT_FALSE(device.ValueTime(id).Valid());
        EXPECT_FALSE(device.WriteVariable(id, 1.0));
        EXPECT_FALSE(device.SetValue(id, 1.0));
    }
}

TEST(KTDriverBase, AVariableStartsWithoutValueAndATimeThatIsInvalid)
{
    KTDriverMemory device(Desk());
    KTValue value;
    value.SetNumeric(1.0);
    EXPECT_FALSE(device.ReadVariable(0, value));
    EXPECT_TRUE(std::isnan(value.number));
    EXPECT_FALSE(value.IsNumeric());
    EXPECT_FALSE(device.ValueTime(0).Valid());
    EXPECT_TRUE(std::isnan(device.ValueCell(0)->load()));
    EXPECT_EQ(device.DeviceState(), 0U);
}

TEST(KTDriverBase, KeepsTheTimeOfTheLastValueWhenTheValueGoes)
{
    KTVirtualClock clock(KTDateTime(2024, 3, 10, 8, 0, 0, 0, 0));
    KTClock* const before = KTClock::Install(&clock);
    {
        KTDriverMemory device(Desk());
        device.SetValue(0, 1.5);
        EXPECT_EQ(device.ValueTime(0), KTDateTime(2024, 3, 10, 8, 0, 0, 0, 0));
        EXPECT_EQ(Read(device, 0), 1.5);
        clock.Advance(std::chrono::microseconds(2500000));
        device.SetValue(0, none);
        EXPECT_FALSE(HasValue(device, 0));
        EXPECT_EQ(device.ValueTime(0), KTDateTime(2024, 3, 10, 8, 0, 0, 0, 0));
        device.SetValue(0, 2.5);
        EXPECT_EQ(device.ValueTime(0), KTDateTime(2024, 3, 10, 8, 0, 2, 500, 0));
        EXPECT_FALSE(device.ValueTime(1).Valid());
    }
    KTClock::Install(before);
}

TEST(KTDriverBase, OnlyWritableMakesAVariableForcible)
{
    const struct
    {
        const char* driver;
        bool writable;
        std::uint32_t flags;
    } rows[] = {{"memory", false, 3}, {"memory", true, 11}};
    for (const auto& row : rows)
    {
        KTDriverMemory device(Device("DESK", row.driver, {Variable("A", row.writable)}));
        KTDriver::tagSVariableInfo info;
        ASSERT_TRUE(device.VariableInfo(0, info));
        EXPECT_EQ(info.accessFlags, row.flags);
        KTDriver::tagSVariableValueInfo valueInfo;
        valueInfo.inputMask = 1;
        ASSERT_TRUE(device.VariableValueInfo(0, valueInfo));
        EXPECT_EQ(valueInfo.flags, row.flags);
        EXPECT_EQ(device.WriteVariable(0, 4.0), row.writable);
        EXPECT_EQ(HasValue(device, 0), row.writable);
    }
}

TEST(KTDriverBase, ForcesOnlyFiniteNumbers)
{
    KTDriverMemory device(Desk());
    EXPECT_FALSE(device.WriteVariable(1, none));
    EXPECT_FALSE(device.WriteVariable(1, std::numeric_limits<double>::infinity()));
    EXPECT_FALSE(HasValue(device, 1));
    EXPECT_TRUE(device.WriteVariable(1, -0.25));
    EXPECT_EQ(Read(device, 1), -0.25);
}

TEST(KTDriverBase, LabelsAreEscapedAndComeBackAsTheyWere)
{
    KTDeviceSettings settings = Device("DESK", "memory", {Variable("A")});
    settings.variables[0].labels = {"a < b & \"c\"", "Öffnen", ""};
    KTDriverMemory device(settings);
    KTDriver::tagSVariableValueInfo info;
    ASSERT_TRUE(device.VariableValueInfo(0, info));
    ASSERT_EQ(info.labels.size(), 3U);
    EXPECT_STREQ(info.labels[0].Str(), "a &lt; b &amp; &quot;c&quot;");
    EXPECT_STREQ(info.labels[1].Str(),
                 "\xC3\x96"
                 "ffnen");
    KTWideString text;
    EXPECT_EQ(Wide(ParseXMLText(info.labels[0], text)), L"a < b & \"c\"");
    EXPECT_EQ(Wide(ParseXMLText(info.labels[1], text)), L"\u00D6ffnen");
    EXPECT_EQ(Wide(ParseXMLText(info.labels[2], text)), L"");
}

TEST(KTDriverBase, AVariableWithTwoStatesHasTheTwoTextsOfTheLanguage)
{
    KTVariableSettings bit = Register("BIT", 1, "bool");
    KTVariableSettings coil = Register("COIL", 1, "float32", "abcd", "coil");
    KTVariableSettings discrete = Register("DISCRETE", 1, "float32", "abcd", "discrete");
    KTVariableSettings named = Register("NAMED", 1, "bool");
    named.labels = {"CLOSED", "OPEN"};
    KTVariableSettings number = Register("NUMBER", 1, "uint16");
    KTDriverMemory device(Device("M1", "modbus-tcp", {bit, coil, discrete, named, number}));

    KTWideString off;
    KTWideString on;
    KTLoadString(607, off);
    KTLoadString(608, on);
    ASSERT_NE(Wide(off), L"");
    for (int id = 0; id < 3; ++id)
    {
        KTDriver::tagSVariableValueInfo info;
        ASSERT_TRUE(device.VariableValueInfo(id, info));
        ASSERT_EQ(info.labels.size(), 2U) << id;
        KTWideString text;
        EXPECT_EQ(Wide(ParseXMLText(info.labels[0], text)), Wide(off));
        EXPECT_EQ(Wide(ParseXMLText(info.labels[1], text)), Wide(on));
    }
    KTDriver::tagSVariableValueInfo info;
    ASSERT_TRUE(device.VariableValueInfo(3, info));
    ASSERT_EQ(info.labels.size(), 2U);
    EXPECT_STREQ(info.labels[0].Str(), "CLOSED");
    ASSERT_TRUE(device.VariableValueInfo(4, info));
    EXPECT_TRUE(info.labels.empty());
}

TEST(KTDriverBase, AReaderNeverSeesHalfOfAValue)
{
    KTDriverMemory device(Desk());
    // Both halves of the two differ, so a mixture is neither.
    const double values[] = {std::bit_cast<double>(0x3FF0000000000001U), std::bit_cast<double>(0xC0DE1234FFFFFFFFU)};
    std::atomic<bool> stop{false};
    std::thread writer(
        [&]
        {
            for (unsigned i = 0; !stop.load(); ++i) device.SetValue(0, i % 3 == 2 ? none : values[i % 3]);
        });
    int seen[3] = {};
    EXPECT_TRUE(Eventually(
        [&]
        {
            for (int i = 0; i < 100000; ++i)
            {
                KTValue value;
                const bool has = device.ReadVariable(0, value);
                const int which = !has ? 2 : value.number == values[0] ? 0 : 1;
                EXPECT_TRUE(has ? value.number == values[which] : std::isnan(value.number));
                EXPECT_TRUE(!has || device.ValueTime(0).Valid());
                ++seen[which];
            }
            return seen[0] > 0 && seen[1] > 0 && seen[2] > 0;
        }));
    stop.store(true);
    writer.join();
}

TEST(KTDriverMemory, IsSetWhetherWritableOrNot)
{
    KTDriverMemory device(Desk());
    EXPECT_TRUE(device.SetValue(0, 7.0));
    EXPECT_TRUE(device.SetValue(1, 8.0));
    EXPECT_EQ(Read(device, 0), 7.0);
    EXPECT_EQ(Read(device, 1), 8.0);
    EXPECT_FALSE(device.WriteVariable(0, 9.0));
    EXPECT_EQ(Read(device, 0), 7.0);
    EXPECT_TRUE(device.Answered());
    EXPECT_TRUE(device.Start());
}

TEST(KTDriverMemory, TakesTheAlarmLimitOfABayThoughItIsntWritable)
{
    KTDriverMemory bay(Device("BAY", "memory", {Variable("BUSYTIME"), Variable("ALARMTIME")}));
    EXPECT_TRUE(bay.SetAlarmTime(-5));
    EXPECT_EQ(Read(bay, 1), -5.0);
    KTDriverMemory desk(Desk());
    EXPECT_FALSE(desk.SetAlarmTime(10));
}
