// Against a device by an implementation that isn't ours.
#include "suite/drivers/KTDriverModbus.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "devices/DeviceSettings.h"
#include "devices/ModbusServer.h"
#include "devices/Waiting.h"
#include "host/KTClock.h"

namespace
{
const char* const orders[] = {"abcd", "cdab", "badc", "dcba"};

struct FormatRow
{
    const char* format;
    int registers;
    const char* value;    // as the server takes it; exact in the format
    const char* written;  // as it tells it after a write of the same number
    double number;
};
const FormatRow formats[] = {
    {"int16", 1, "-1234", "-1234", -1234},
    {"uint16", 1, "65001", "65001", 65001},
    {"int32", 2, "-19088744", "-19088744", -19088744},
    {"uint32", 2, "4275878552", "4275878552", 4275878552.0},
    {"float32", 2, "-1234.5", "-1234.5", -1234.5},
    {"float64", 4, "3.141592653589793", "3.141592653589793", 3.141592653589793},
};

std::unique_ptr<KTDriverModbus> Started(const KTDeviceSettings& settings)
{
    auto device = std::make_unique<KTDriverModbus>(settings);
    EXPECT_TRUE(device->Start());
    return device;
}
}  // namespace

TEST(KTDriverModbus, ReadsEveryFormatInEveryOrderFromBothKindsOfRegisters)
{
    ModbusServer server;
    std::vector<KTVariableSettings> variables;
    std::vector<double> expected;
    int address = 3;
    for (const char* table : {"holding", "input"})
        for (const FormatRow& row : formats)
            for (const char* order : orders)
            {
                const std::string place = std::string(table) + " " + std::to_string(address);
                server.Ask("put " + place + " " + row.format + " " + order + " " + row.value);
                variables.push_back(Register("V" + std::to_string(address), address, row.format, order, table));
                expected.push_back(row.number);
                address += row.registers;
            }
    const auto device = Started(ModbusDevice(server.Port(), variables));
    ASSERT_TRUE(Eventually([&] { return device->Answered(); }));
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_EQ(Read(*device, static_cast<int>(i)), expected[i])
            << variables[i].format << ' ' << variables[i].wordOrder;
    EXPECT_FALSE(InError(*device));
}

TEST(KTDriverModbus, WritesEveryFormatInEveryOrderAndReadsItBack)
{
    ModbusServer server;
    std::vector<KTVariableSettings> variables;
    std::vector<std::string> commands;
    std::vector<FormatRow> rows;
    int address = 0;
    for (const FormatRow& row : formats)
        for (const char* order : orders)
        {
            const std::string place = "holding " + std::to_string(address) + " " + row.format + " " + order;
            server.Ask("put " + place + " 0");
            commands.push_back("take " + place);
            variables.push_back(Register("V" + std::to_string(address), address, row.format, order));
            rows.push_back(row);
            address += row.registers;
        }
    const auto device = Started(ModbusDevice(server.Port(), variables));
    ASSERT_TRUE(Eventually([&] { return device->Answered(); }));
    for (std::size_t i = 0; i < rows.size(); ++i)
    {
        const int id = static_cast<int>(i);
        EXPECT_EQ(Read(*device, id), 0.0);
        ASSERT_TRUE(device->WriteVariable(id, rows[i].number));
        EXPECT_TRUE(Eventually([&] { return server.Ask(commands[i]) == rows[i].written; })) << commands[i];
        EXPECT_TRUE(Eventually([&] { return Read(*device, id) == rows[i].number; })) << commands[i];
    }
}

TEST(KTDriverModbus, ReadsAndWritesBits)
{
    ModbusServer server;
    server.Ask("set coil 0 1 0 1");
    server.Ask("set discrete 5 1 0");
    server.Ask("set holding 9 0");
    const auto device = Started(ModbusDevice(
        server.Port(), {Register("C0", 0, "bool", "abcd", "coil"), Register("C1", 1, "bool", "abcd", "coil"),
                        Register("C2", 2, "bool", "abcd", "coil"), Register("D5", 5, "bool", "abcd", "discrete"),
                        Register("D6", 6, "bool", "abcd", "discrete"), Register("R9", 9, "bool")}));
    ASSERT_TRUE(Eventually([&] { return device->Answered(); }));
    const double expected[] = {1, 0, 1, 1, 0, 0};
    for (int id = 0; id < 6; ++id) EXPECT_EQ(Read(*device, id), expected[id]) << id;

    EXPECT_TRUE(device->WriteVariable(0, 0.0));
    EXPECT_TRUE(device->WriteVariable(1, 1.0));
    EXPECT_TRUE(device->WriteVariable(5, 1.0));
    EXPECT_FALSE(device->WriteVariable(2, 7.0));  // neither of the two states
    EXPECT_FALSE(device->WriteVariable(3, 1.0));  // an input
    EXPECT_TRUE(Eventually([&] { return server.Ask("get coil 0 3") == "0 1 1"; }));
    EXPECT_TRUE(Eventually([&] { return server.Ask("get holding 9 1") == "1"; }));
    EXPECT_TRUE(
        Eventually([&] { return Read(*device, 0) == 0.0 && Read(*device, 1) == 1.0 && Read(*device, 5) == 1.0; }));
}

TEST(KTDriverModbus, ReadsNeighboursInOneRequestAndNothingBetweenOthers)
{
    ModbusServer server;
    server.Ask("set holding 0 1 2 3 4 5 6");
    server.Ask("set holding 8 9");
    server.Ask("set coil 0 1 1");
    KTDeviceSettings settings =
        ModbusDevice(server.Port(), {Register("B", 2, "uint32"), Register("A", 0, "uint32"), Register("C", 4, "uint16"),
                                     Register("E", 8, "uint16"), Register("K", 0, "bool", "abcd", "coil"),
                                     Register("L", 1, "bool", "abcd", "coil")});
    settings.pollMilliseconds = 3600000;  // one poll in this test
    const auto device = Started(settings);
    ASSERT_TRUE(Eventually([&] { return device->Answered(); }));
    EXPECT_EQ(server.Ask("requests"), "1:0:2 3:0:5 3:8:1");
    EXPECT_EQ(Read(*device, 0), 2 * 0 + 3 * 65536.0 + 4);
    EXPECT_EQ(Read(*device, 2), 5.0);
    EXPECT_EQ(Read(*device, 3), 9.0);
}

TEST(KTDriverModbus, PollsAgainAndAgainAndTellsTheTimeOfEachValue)
{
    ModbusServer server;
    server.Ask("set holding 0 1");
    const auto device = Started(ModbusDevice(server.Port(), {Register("A", 0, "uint16")}));
    ASSERT_TRUE(Eventually([&] { return Read(*device, 0) == 1.0; }));
    const KTDateTime first = device->ValueTime(0);
    EXPECT_TRUE(first.Valid());
    EXPECT_TRUE(Eventually([&] { return device->ValueTime(0) > first; }));  // the same value, read again
    server.Ask("set holding 0 2");
    EXPECT_TRUE(Eventually([&] { return Read(*device, 0) == 2.0; }));
    EXPECT_LE(device->ValueTime(0), KTClock::Get().UTC());
    EXPECT_EQ(device->Attempts(), 1);
}

TEST(KTDriverModbus, AddressesThatTheDeviceDoesntHaveLeaveTheirNeighboursAlone)
{
    ModbusServer server;
    server.Ask("set holding 0 1 2 3 4");
    server.Ask("remove holding 2");
    const auto device = Started(
        ModbusDevice(server.Port(), {Register("A", 0, "uint16"), Register("B", 1, "uint16"), Register("C", 2, "uint16"),
                                     Register("D", 3, "uint16"), Register("OTHER", 100, "float64")}));
    ASSERT_TRUE(Eventually([&] { return device->Answered(); }));
    EXPECT_EQ(Read(*device, 0), 1.0);
    EXPECT_EQ(Read(*device, 1), 2.0);
    EXPECT_FALSE(HasValue(*device, 2));
    EXPECT_EQ(Read(*device, 3), 4.0);
    EXPECT_FALSE(HasValue(*device, 4));
    EXPECT_FALSE(InError(*device));

    // A write there is refused as well, and nothing else suffers.
    EXPECT_TRUE(device->WriteVariable(2, 1.0));
    EXPECT_TRUE(device->WriteVariable(3, 44.0));
    EXPECT_TRUE(Eventually([&] { return server.Ask("get holding 3 1") == "44"; }));
    EXPECT_FALSE(HasValue(*device, 2));

    // And when the device has them after all, they are there.
    server.Ask("set holding 2 33");
    server.Ask("put holding 100 float64 abcd 0.5");
    EXPECT_TRUE(Eventually([&] { return Read(*device, 2) == 33.0 && Read(*device, 4) == 0.5; }));
    EXPECT_EQ(device->Attempts(), 1);
}

TEST(KTDriverModbus, AWriteDoesntWaitForTheNextPollAndNorDoesItsValue)
{
    ModbusServer server;
    server.Ask("set holding 0 1 2");
    KTDeviceSettings settings = ModbusDevice(server.Port(), {Register("A", 0, "uint16"), Register("B", 1, "uint16")});
    settings.pollMilliseconds = 3600000;
    const auto device = Started(settings);
    ASSERT_TRUE(Eventually([&] { return device->Answered(); }));
    server.Ask("requests");
    EXPECT_TRUE(device->WriteVariable(0, 10.0));
    EXPECT_TRUE(Eventually([&] { return Read(*device, 0) == 10.0; }));
    EXPECT_EQ(server.Ask("get holding 0 2"), "10 2");
    EXPECT_EQ(server.Ask("requests"), "6:0:1 3:0:1");
}

TEST(KTDriverModbus, WritesAreDoneInTheirOrder)
{
    ModbusServer server;
    server.Ask("set coil 0 0");
    server.Ask("set holding 0 0 0 0");
    KTDeviceSettings settings = ModbusDevice(
        server.Port(),
        {Register("PULSE", 0, "bool", "abcd", "coil"), Register("SET", 0, "uint32"), Register("MODE", 2, "uint16")});
    settings.pollMilliseconds = 3600000;
    const auto device = Started(settings);
    ASSERT_TRUE(Eventually([&] { return device->Answered(); }));
    server.Ask("requests");
    EXPECT_TRUE(device->WriteVariable(1, 70000.0));
    EXPECT_TRUE(device->WriteVariable(0, 1.0));
    EXPECT_TRUE(device->WriteVariable(0, 0.0));
    EXPECT_TRUE(device->WriteVariable(2, 5.0));
    EXPECT_TRUE(Eventually([&] { return Read(*device, 2) == 5.0; }));
    EXPECT_EQ(server.Ask("requests"), "16:0:2 3:0:2 5:0:1 1:0:1 5:0:1 1:0:1 6:2:1 3:2:1");
    EXPECT_EQ(server.Ask("get holding 0 3"), "1 4464 5");
}

TEST(KTDriverModbus, AValueThatDoesntFitIsRefusedAtOnce)
{
    ModbusServer server;
    server.Ask("set holding 0 7 7 7");
    KTVariableSettings tenth = Register("TENTH", 2, "int16");
    tenth.scale = 0.1;
    const auto device =
        Started(ModbusDevice(server.Port(), {Register("A", 0, "int16"), Register("B", 1, "uint16"), tenth}));
    ASSERT_TRUE(Eventually([&] { return device->Answered(); }));
    EXPECT_FALSE(device->WriteVariable(0, 32768.0));
    EXPECT_FALSE(device->WriteVariable(1, -1.0));
    EXPECT_FALSE(device->WriteVariable(2, 3276.8));
    EXPECT_TRUE(device->WriteVariable(2, -3276.8));
    EXPECT_TRUE(Eventually([&] { return server.Ask("get holding 0 3") == "7 7 32768"; }));
    EXPECT_TRUE(Eventually([&] { return Read(*device, 2) == -3276.8; }));
}

TEST(KTDriverModbus, ANumberThatIsNoneIsNoValue)
{
    ModbusServer server;
    server.Ask("put holding 0 float32 abcd nan");
    server.Ask("put holding 2 float32 abcd 2.5");
    const auto device =
        Started(ModbusDevice(server.Port(), {Register("A", 0, "float32"), Register("B", 2, "float32")}));
    ASSERT_TRUE(Eventually([&] { return Read(*device, 1) == 2.5; }));
    EXPECT_FALSE(HasValue(*device, 0));
    EXPECT_FALSE(device->ValueTime(0).Valid());
    server.Ask("put holding 0 float32 abcd 1.5");
    EXPECT_TRUE(Eventually([&] { return Read(*device, 0) == 1.5; }));
    server.Ask("put holding 0 float32 abcd nan");
    EXPECT_TRUE(Eventually([&] { return !HasValue(*device, 0); }));
    EXPECT_TRUE(device->ValueTime(0).Valid());
}

TEST(KTDriverModbus, ADeviceThatDiesAndComesBackLosesItsValuesMeanwhile)
{
    auto server = std::make_unique<ModbusServer>();
    const int port = server->Port();
    server->Ask("set holding 0 11 22");
    const auto device = Started(ModbusDevice(port, {Register("A", 0, "uint16"), Register("B", 1, "uint16")}));
    ASSERT_TRUE(Eventually([&] { return Read(*device, 0) == 11.0 && Read(*device, 1) == 22.0; }));
    EXPECT_FALSE(InError(*device));
    const KTDateTime last = device->ValueTime(0);

    server->Kill();
    ASSERT_TRUE(Eventually([&] { return InError(*device); }));
    EXPECT_TRUE(Eventually([&] { return !HasValue(*device, 0) && !HasValue(*device, 1); }));
    EXPECT_GE(device->ValueTime(0), last);
    EXPECT_FALSE(device->WriteVariable(0, 1.0));  // an order isn't kept for later
    EXPECT_TRUE(device->Answered());

    server = std::make_unique<ModbusServer>(port);
    server->Ask("set holding 0 33 44");
    ASSERT_TRUE(Eventually([&] { return Read(*device, 0) == 33.0 && Read(*device, 1) == 44.0; }));
    EXPECT_TRUE(Eventually([&] { return !InError(*device); }));
    EXPECT_TRUE(device->WriteVariable(1, 45.0));
    EXPECT_TRUE(Eventually([&] { return server->Ask("get holding 0 2") == "33 45"; }));
}

TEST(KTDriverModbus, ADeviceThatIsntThereYetIsFoundLater)
{
    int port = 0;
    std::unique_ptr<KTDriverModbus> device;
    {
        const ClosedPort closed;
        port = closed.Port();
        device = Started(ModbusDevice(port, {Register("A", 0, "uint16")}));
        ASSERT_TRUE(Eventually([&] { return InError(*device); }));
        EXPECT_FALSE(HasValue(*device, 0));
        EXPECT_FALSE(device->Answered());
    }
    ModbusServer server(port);
    server.Ask("set holding 0 5");
    EXPECT_TRUE(Eventually([&] { return Read(*device, 0) == 5.0; }));
    EXPECT_TRUE(Eventually([&] { return !InError(*device) && device->Answered(); }));
}

TEST(KTDriverModbus, FindsItsDeviceByName)
{
    ModbusServer server;
    server.Ask("set holding 0 5");
    KTDeviceSettings settings = ModbusDevice(server.Port(), {Register("A", 0, "uint16")});
    settings.host = "localhost";
    const auto device = Started(settings);
    EXPECT_TRUE(Eventually([&] { return Read(*device, 0) == 5.0; }));
}

TEST(KTDriverModbus, TheLimitOfABaySensorIsWrittenToIt)
{
    ModbusServer server;
    server.Ask("set holding 0 0 0 0 0");
    KTDeviceSettings settings = ModbusDevice(
        server.Port(), {Register("BUSYTIME", 0, "uint32", "abcd", "holding"), Register("ALARMTIME", 2, "int32")});
    settings.type = "QV";
    const auto device = Started(settings);
    EXPECT_TRUE(device->SetAlarmTime(-3600));
    EXPECT_TRUE(Eventually([&] { return server.Ask("take holding 2 int32 abcd") == "-3600"; }));
}
