#include "suite/drivers/KTDevices.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "devices/DeviceSettings.h"
#include "devices/ModbusServer.h"
#include "devices/Waiting.h"
#include "suite/drivers/KTDriverMemory.h"
#include "suite/drivers/KTDriverTable.h"

using namespace std::chrono_literals;

namespace
{
std::vector<KTDeviceSettings> Plant(int port)
{
    KTVariableSettings bit = Register("BIT", 7, "bool", "abcd", "coil");
    KTDeviceSettings meter = ModbusDevice(port, {Register("P", 0, "uint16"), bit});
    KTDeviceSettings simulated = Device("SIM", "simulator", {Variable("A")});
    simulated.type = "METER";
    return {Device("DESK", "memory", {Variable("DOOR"), Variable("HORN", true)}), simulated, meter};
}

std::string Names(const std::vector<const KTDriverBase*>& devices)
{
    std::string names;
    for (const KTDriverBase* device : devices) names += device->LogName() + " ";
    return names;
}
}  // namespace

TEST(KTDriverTable, NamesTheKeysOfEachDriver)
{
    std::set<std::string_view> names;
    for (const KTDriverRow& row : KTDriverTable())
    {
        EXPECT_TRUE(names.insert(row.name).second) << row.name;
        EXPECT_EQ(FindDriverRow(row.name), &row);
    }
    EXPECT_EQ(names, (std::set<std::string_view>{"memory", "simulator", "modbus-tcp", "mqtt"}));
    EXPECT_EQ(FindDriverRow("modbus"), nullptr);
    EXPECT_EQ(FindDriverRow(""), nullptr);
    EXPECT_TRUE(FindDriverRow("memory")->variableKeys.empty());
    EXPECT_EQ(FindDriverRow("modbus-tcp")->deviceKeys.size(), 4U);
}

TEST(KTDevices, AreRegisteredInTheOrderOfTheSettingsUntilTheyEnd)
{
    const ClosedPort closed;
    std::string error;
    {
        KTDevices devices;
        ASSERT_TRUE(devices.Build(Plant(closed.Port()), KTDevices::Kind::asSet, error)) << error;
        ASSERT_EQ(devices.All().size(), 3U);
        EXPECT_EQ(KTDriver::LockDriver(L"DESK"), nullptr);
        ASSERT_TRUE(devices.Register(error)) << error;
        std::string order;
        for (auto at = KTDriver::DriversBegin(); at != KTDriver::DriversEnd(); ++at)
            for (const wchar_t* c = (*at)->DeviceName().Str(); *c != 0; ++c) order += static_cast<char>(*c);
        EXPECT_EQ(order, "DESKSIMM1");
        ASSERT_TRUE(devices.Start(error)) << error;

        KTDriver* const desk = KTDriver::LockDriver(L"DESK");
        ASSERT_NE(desk, nullptr);
        EXPECT_TRUE(desk->SetValue(0, 1.0));
        EXPECT_EQ(Read(*desk, 0), 1.0);
        KTDriver::UnlockDriver(desk);

        KTDriver* const simulated = KTDriver::LockDriver(L"SIM");
        ASSERT_NE(simulated, nullptr);
        EXPECT_STREQ(simulated->DeviceType().Str(), L"METER");
        EXPECT_TRUE(HasValue(*simulated, 0));
        KTDriver::UnlockDriver(simulated);
    }
    EXPECT_EQ(KTDriver::LockDriver(L"DESK"), nullptr);
    EXPECT_EQ(KTDriver::DriversBegin(), KTDriver::DriversEnd());
}

TEST(KTDevices, AHandleReachesAVariableByItsFullName)
{
    KTDevices devices;
    std::string error;
    ASSERT_TRUE(devices.Build({Device("DESK", "memory", {Variable("HORN", true)})}, KTDevices::Kind::asSet, error));
    ASSERT_TRUE(devices.Register(error));
    KTDriverVariable variable;
    variable.Setup(L"DESK.HORN");
    ASSERT_TRUE(variable.Lock(false));
    KTDriver::tagSVariableValueInfo info;
    info.inputMask = 1;
    EXPECT_TRUE(variable.ValueInfo(info));
    EXPECT_EQ(info.flags & KTDriver::flagForcible, KTDriver::flagForcible);
    variable.Unlock();
    variable.Setup(L"DESK.BELL");
    EXPECT_FALSE(variable.Lock(false));
}

TEST(KTDevices, ADriverThatThisProgramDoesntHaveIsTold)
{
    KTDevices devices;
    std::string error;
    EXPECT_FALSE(
        devices.Build({Device("A", "memory"), Device("BUS", "carrier-pigeon")}, KTDevices::Kind::asSet, error));
    EXPECT_EQ(error, "device BUS: driver carrier-pigeon is not available in this build");
    EXPECT_TRUE(devices.All().empty());
}

TEST(KTDevices, ANameThatIsTakenLeavesNothingRegistered)
{
    KTDriverMemory other(Device("M1", "memory"));
    ASSERT_TRUE(KTDriver::Register(&other));
    KTDevices devices;
    std::string error;
    ASSERT_TRUE(devices.Build({Device("A", "memory"), Device("M1", "memory")}, KTDevices::Kind::asSet, error));
    EXPECT_FALSE(devices.Register(error));
    EXPECT_EQ(error, "device M1: name: a device of this name exists already");
    EXPECT_EQ(KTDriver::LockDriver(L"A"), nullptr);
    KTDriver::Unregister(&other);
}

TEST(KTDevices, AsMemoryDevicesTheyKeepTheirVariables)
{
    const ClosedPort closed;
    KTDevices devices;
    std::string error;
    ASSERT_TRUE(devices.Build(Plant(closed.Port()), KTDevices::Kind::memory, error)) << error;
    ASSERT_TRUE(devices.Start(error));
    EXPECT_EQ(Names(devices.FirstAnswer(0)), "");
    KTDriverBase& meter = *devices.All()[2];
    ASSERT_NE(dynamic_cast<KTDriverMemory*>(&meter), nullptr);
    KTDriver::tagSVariableValueInfo info;
    ASSERT_TRUE(meter.VariableValueInfo(1, info));
    EXPECT_EQ(info.labels.size(), 2U);
    EXPECT_EQ(info.flags, 11U);
    EXPECT_FALSE(HasValue(meter, 1));
    EXPECT_TRUE(meter.SetValue(1, 1.0));
    EXPECT_EQ(Read(meter, 1), 1.0);
    EXPECT_FALSE(HasValue(*devices.All()[1], 0));  // nothing simulates it
}

TEST(KTDevices, WaitForTheFirstAnswerOfEachAndNameTheSilentOnes)
{
    ModbusServer server;
    server.Ask("set holding 0 5");
    server.Ask("set coil 7 1");
    const ClosedPort closed;
    std::vector<KTDeviceSettings> settings = Plant(server.Port());
    settings.push_back(settings[2]);
    settings[3].name = "DEAD";
    settings[3].port = closed.Port();
    KTDevices devices;
    std::string error;
    ASSERT_TRUE(devices.Build(settings, KTDevices::Kind::asSet, error)) << error;
    EXPECT_EQ(Names(devices.FirstAnswer(0)), "M1 DEAD ");
    ASSERT_TRUE(devices.Start(error));
    std::string silent;
    EXPECT_TRUE(Eventually([&] { return (silent = Names(devices.FirstAnswer(200))) == "DEAD "; })) << silent;
    EXPECT_EQ(Read(*devices.All()[2], 0), 5.0);
}

TEST(KTDevices, AllOfThemStopAtTheSameTime)
{
    std::atomic<int> requests{0};
    ScriptedPeer peer(
        [&](ScriptedPeer& self, int connection)
        {
            std::vector<std::uint8_t> request;
            while (self.Receive(connection, request)) requests.fetch_add(1);
        });
    std::vector<KTDeviceSettings> settings;
    for (int i = 0; i < 20; ++i)
    {
        settings.push_back(ModbusDevice(peer.Port(), {Register("P", 0, "uint16")}));
        settings.back().name = "M" + std::to_string(i);
    }
    KTDevices devices;
    std::string error;
    ASSERT_TRUE(devices.Build(settings, KTDevices::Kind::asSet, error));
    ASSERT_TRUE(devices.Register(error));
    ASSERT_TRUE(devices.Start(error));
    ASSERT_TRUE(Eventually([&] { return requests.load() >= 1; }));  // the peer speaks to one, the others wait for it
    const auto began = std::chrono::steady_clock::now();
    devices.Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - began, 2s);
    devices.Stop();  // once more does nothing
    EXPECT_FALSE(HasValue(*devices.All()[0], 0));
}
