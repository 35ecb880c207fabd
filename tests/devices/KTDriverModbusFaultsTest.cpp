// Devices that don't answer, answer nonsense, or break off.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <memory>

#include "devices/DeviceSettings.h"
#include "devices/ModbusServer.h"
#include "devices/Waiting.h"
#include "suite/drivers/KTBackOff.h"
#include "suite/drivers/KTDriverModbus.h"

using namespace std::chrono_literals;

namespace
{
using Bytes = std::vector<std::uint8_t>;
using Clock = std::chrono::steady_clock;

std::unique_ptr<KTDriverModbus> Started(const KTDeviceSettings& settings)
{
    auto device = std::make_unique<KTDriverModbus>(settings);
    EXPECT_TRUE(device->Start());
    return device;
}

KTDeviceSettings OneRegister(int port) { return ModbusDevice(port, {Register("A", 0, "uint16")}); }

KTDeviceSettings TwoBlocks(int port)
{
    return ModbusDevice(port, {Register("A", 0, "uint16"), Register("B", 10, "uint16")});
}

/// What the request reads, each register holding its own address and 1000.
Bytes Registers(const Bytes& request)
{
    const int address = request[8] * 256 + request[9];
    const int count = request[10] * 256 + request[11];
    Bytes body{request[7], static_cast<std::uint8_t>(2 * count)};
    for (int i = 0; i < count; ++i)
    {
        const int value = 1000 + address + i;
        body.push_back(static_cast<std::uint8_t>(value >> 8));
        body.push_back(static_cast<std::uint8_t>(value & 0xFF));
    }
    return body;
}

Bytes Exception(const Bytes& request, std::uint8_t code)
{
    return {static_cast<std::uint8_t>(request[7] | 0x80), code};
}

/// Nobody accepts and the queue is full, so that a connection is neither made nor refused.
class BlackHole
{
public:
    BlackHole() : handle(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        socklen_t size = sizeof address;
        EXPECT_EQ(bind(handle, generic, size), 0);
        EXPECT_EQ(listen(handle, 0), 0);
        EXPECT_EQ(getsockname(handle, generic, &size), 0);
        port = ntohs(address.sin_port);
        for (int& filler : fillers)
        {
            filler = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
            (void)connect(filler, generic, size);  // one is taken in, the others wait
        }
    }
    BlackHole(const BlackHole&) = delete;
    BlackHole& operator=(const BlackHole&) = delete;
    ~BlackHole()
    {
        for (const int filler : fillers) close(filler);
        close(handle);
    }
    [[nodiscard]] int Port() const { return port; }

private:
    int handle;
    int port = 0;
    std::array<int, 4> fillers{};
};

/// How long a stop takes.
Clock::duration StopTime(KTDriverModbus& device)
{
    const Clock::time_point began = Clock::now();
    device.RequestStop();
    device.Join();
    return Clock::now() - began;
}

/// Values, state and reading of a device that is never reached.
void ExpectUnreached(KTDriverModbus& device)
{
    ASSERT_TRUE(Eventually([&] { return InError(device); }));
    EXPECT_FALSE(HasValue(device, 0));
    EXPECT_FALSE(device.ValueTime(0).Valid());
    EXPECT_FALSE(device.Answered());
    EXPECT_FALSE(device.WriteVariable(0, 1.0));
}
}  // namespace

TEST(KTBackOff, PausesGrowToHalfAMinuteAndStartAnewAfterAnAnswer)
{
    KTBackOff backOff;
    for (const int pause : {1000, 2000, 4000, 8000, 16000, 30000, 30000, 30000}) EXPECT_EQ(backOff.Next(), pause);
    backOff.Reset();
    EXPECT_EQ(backOff.Next(), 1000);
    EXPECT_EQ(backOff.Next(), 2000);
}

TEST(KTDriverModbusFaults, ADeviceThatNeverAnswersHoldsUpNobody)
{
    std::atomic<int> requests{0};
    ScriptedPeer peer(
        [&](ScriptedPeer& self, int connection)
        {
            Bytes request;
            while (self.Receive(connection, request)) requests.fetch_add(1);
        });
    const auto device = Started(OneRegister(peer.Port()));
    ASSERT_TRUE(Eventually([&] { return requests.load() == 1; }));
    // The device's thread waits for an answer now; everybody else goes on.
    EXPECT_FALSE(HasValue(*device, 0));
    EXPECT_TRUE(device->WriteVariable(0, 1.0));
    ExpectUnreached(*device);
    EXPECT_TRUE(Eventually([&] { return peer.Connections() >= 2; }));
}

TEST(KTDriverModbusFaults, AStopDoesntWaitForAnAnswer)
{
    std::atomic<int> requests{0};
    ScriptedPeer peer(
        [&](ScriptedPeer& self, int connection)
        {
            Bytes request;
            while (self.Receive(connection, request)) requests.fetch_add(1);
        });
    const auto device = Started(OneRegister(peer.Port()));
    ASSERT_TRUE(Eventually([&] { return requests.load() == 1; }));
    EXPECT_LT(StopTime(*device), std::chrono::milliseconds(KTModbusConnection::responseTimeout));
}

TEST(KTDriverModbusFaults, AStopDoesntWaitForAConnection)
{
    const BlackHole hole;
    const auto device = Started(OneRegister(hole.Port()));
    ASSERT_TRUE(Eventually([&] { return device->Attempts() == 1; }));
    EXPECT_LT(StopTime(*device), std::chrono::milliseconds(KTModbusConnection::connectTimeout));
    EXPECT_FALSE(device->WriteVariable(0, 1.0));
}

TEST(KTDriverModbusFaults, AStopDoesntWaitForThePauseBetweenAttempts)
{
    const ClosedPort closed;
    const auto device = Started(OneRegister(closed.Port()));
    ASSERT_TRUE(Eventually([&] { return device->Attempts() == 3; }));  // the next pause is 4 s
    EXPECT_LT(StopTime(*device), 3s);
}

TEST(KTDriverModbusFaults, AConnectionThatHangsIsGivenUp)
{
    const BlackHole hole;
    const auto device = Started(OneRegister(hole.Port()));
    ExpectUnreached(*device);
    EXPECT_TRUE(Eventually([&] { return device->Attempts() >= 2; }));
}

TEST(KTDriverModbusFaults, ANameThatDoesntExistIsLikeADeviceThatIsntThere)
{
    KTDeviceSettings settings = OneRegister(502);
    settings.host = "no-such-device.invalid";
    const auto device = Started(settings);
    ExpectUnreached(*device);
    EXPECT_LT(StopTime(*device), 5s);
}

TEST(KTDriverModbusFaults, PausesGrowAsLongAsNothingAnswers)
{
    ScriptedPeer peer([](ScriptedPeer&, int) {});  // accepts and closes
    const Clock::time_point began = Clock::now();
    const auto device = Started(OneRegister(peer.Port()));
    ASSERT_TRUE(Eventually([&] { return peer.Connections() >= 3; }));
    EXPECT_GE(Clock::now() - began, 3s);  // 1 s and 2 s
    ASSERT_TRUE(Eventually([&] { return peer.Connections() >= 4; }));
    EXPECT_GE(Clock::now() - began, 7s);  // and 4 s
    ExpectUnreached(*device);
}

TEST(KTDriverModbusFaults, NonsenseIsNoAnswer)
{
    const struct
    {
        const char* about;
        std::function<Bytes(const Bytes& request)> answer;
    } rows[] = {
        {"no protocol at all", [](const Bytes&) { return Bytes{'S', 'S', 'H', '-', '2', '.', '0', '\r', '\n'}; }},
        {"zeros", [](const Bytes&) { return Bytes(300, 0); }},
        {"ones", [](const Bytes&) { return Bytes(3000, 0xFF); }},
        {"another transaction",
         [](const Bytes& r) { return Bytes{static_cast<std::uint8_t>(r[0] + 1), r[1], 0, 0, 0, 5, r[6], 3, 2, 0, 1}; }},
        {"another function", [](const Bytes& r) { return Bytes{r[0], r[1], 0, 0, 0, 5, r[6], 4, 2, 0, 1}; }},
        {"another protocol", [](const Bytes& r) { return Bytes{r[0], r[1], 9, 9, 0, 5, r[6], 3, 2, 0, 1}; }},
        {"too few registers", [](const Bytes& r) { return Bytes{r[0], r[1], 0, 0, 0, 3, r[6], 3, 0}; }},
        {"too many registers", [](const Bytes& r) { return Bytes{r[0], r[1], 0, 0, 0, 7, r[6], 3, 4, 0, 1, 0, 2}; }},
        {"half an answer", [](const Bytes& r) { return Bytes{r[0], r[1], 0, 0, 0, 5, r[6], 3}; }},
        {"an empty one", [](const Bytes& r) { return Bytes{r[0], r[1], 0, 0, 0, 0}; }},
    };
    for (const auto& row : rows)
    {
        ScriptedPeer peer(
            [&](ScriptedPeer& self, int connection)
            {
                Bytes request;
                while (self.Receive(connection, request)) ScriptedPeer::Send(connection, row.answer(request));
            });
        const auto device = Started(OneRegister(peer.Port()));
        SCOPED_TRACE(row.about);
        ExpectUnreached(*device);
        EXPECT_GE(peer.Connections(), 1);
    }
}

TEST(KTDriverModbusFaults, WhatComesUnaskedIsNotTheNextAnswer)
{
    ScriptedPeer peer(
        [](ScriptedPeer& self, int connection)
        {
            Bytes request;
            while (self.Receive(connection, request))
            {
                // The answer and, in one piece with it, what the answer to the next request would look like.
                const Bytes& r = request;
                const auto next = static_cast<std::uint8_t>(r[1] + 1);
                ScriptedPeer::Send(connection, {r[0], r[1], 0, 0, 0, 5, r[6], 3, 2, 0x03, 0xE8,  //
                                                r[0], next, 0, 0, 0, 5, r[6], 3, 2, 0x00, 0x01});
            }
        });
    const auto device = Started(OneRegister(peer.Port()));
    ASSERT_TRUE(Eventually([&] { return device->Answered(); }));
    const KTDateTime first = device->ValueTime(0);
    bool wrong = false;
    EXPECT_TRUE(Eventually(
        [&]
        {
            wrong = wrong || Read(*device, 0) != 1000.0;
            return device->ValueTime(0) > first + KTDateTimeSpan(500000);
        }));
    EXPECT_FALSE(wrong);
    EXPECT_EQ(peer.Connections(), 1);
}

TEST(KTDriverModbusFaults, ADeviceWithoutVariablesHasAState)
{
    std::atomic<bool> speaks{false};
    ScriptedPeer peer(
        [&](ScriptedPeer& self, int connection)
        {
            Bytes request;
            while (self.Receive(connection, request))
                if (speaks.load()) ScriptedPeer::Answer(connection, request, Exception(request, 2));
        });
    const auto device = Started(ModbusDevice(peer.Port(), {}));
    ASSERT_TRUE(Eventually([&] { return InError(*device); }));
    EXPECT_FALSE(device->Answered());
    speaks.store(true);
    EXPECT_TRUE(Eventually([&] { return !InError(*device) && device->Answered(); }));
    speaks.store(false);
    EXPECT_TRUE(Eventually([&] { return InError(*device); }));
}

TEST(KTDriverModbusFaults, AnAnswerThatTricklesInEndsAtTheTimeForAllOfIt)
{
    std::atomic<bool> over{false};
    ScriptedPeer peer(
        [&](ScriptedPeer& self, int connection)
        {
            Bytes request;
            if (!self.Receive(connection, request)) return;
            // The beginning of a long answer, a byte every 100 ms: it would take 20 s.
            Bytes answer{request[0], request[1], 0, 0, 0, 203, request[6], 3, 200};
            answer.resize(209);
            for (const std::uint8_t byte : answer)
            {
                if (over.load()) return;
                ScriptedPeer::Send(connection, {byte});
                std::this_thread::sleep_for(100ms);
            }
        });
    KTDeviceSettings settings = OneRegister(peer.Port());
    for (int i = 1; i < 100; ++i) settings.variables.push_back(Register("V" + std::to_string(i), i, "uint16"));
    const Clock::time_point began = Clock::now();
    const auto device = Started(settings);
    ExpectUnreached(*device);
    EXPECT_LT(Clock::now() - began, 15s);
    EXPECT_GE(peer.Connections(), 1);
    over.store(true);
}

TEST(KTDriverModbusFaults, AConnectionThatTheDeviceClosesWhileIdleIsNoFault)
{
    ScriptedPeer peer(
        [](ScriptedPeer& self, int connection)
        {
            Bytes request;
            if (self.Receive(connection, request)) ScriptedPeer::Answer(connection, request, Registers(request));
        });
    const auto device = Started(OneRegister(peer.Port()));
    ASSERT_TRUE(Eventually([&] { return device->Answered(); }));
    bool steady = true;
    EXPECT_TRUE(Eventually(
        [&]
        {
            steady = steady && !InError(*device) && Read(*device, 0) == 1000.0;
            return peer.Connections() >= 20;
        }));
    EXPECT_TRUE(steady);
}

TEST(KTDriverModbusFaults, AnExceptionConcernsItsBlockAlone)
{
    std::atomic<int> code{4};  // the device failed to do it
    ScriptedPeer peer(
        [&](ScriptedPeer& self, int connection)
        {
            Bytes request;
            while (self.Receive(connection, request))
            {
                const bool refuse = request[9] == 10 && code.load() != 0;
                ScriptedPeer::Answer(
                    connection, request,
                    refuse ? Exception(request, static_cast<std::uint8_t>(code.load())) : Registers(request));
            }
        });
    const auto device = Started(TwoBlocks(peer.Port()));
    ASSERT_TRUE(Eventually([&] { return device->Answered(); }));
    for (const int one : {1, 2, 3, 4, 6, 10, 11, 0x55})
    {
        code.store(0);
        ASSERT_TRUE(Eventually([&] { return Read(*device, 1) == 1010.0; })) << one;
        code.store(one);
        ASSERT_TRUE(Eventually([&] { return !HasValue(*device, 1); })) << one;
        EXPECT_EQ(Read(*device, 0), 1000.0) << one;
        EXPECT_FALSE(InError(*device)) << one;
    }
    EXPECT_EQ(peer.Connections(), 1);
}

TEST(KTDriverModbusFaults, ADeviceThatRefusesEverythingHasAnswered)
{
    ScriptedPeer peer(
        [](ScriptedPeer& self, int connection)
        {
            Bytes request;
            while (self.Receive(connection, request)) ScriptedPeer::Answer(connection, request, Exception(request, 1));
        });
    const auto device = Started(TwoBlocks(peer.Port()));
    EXPECT_TRUE(Eventually([&] { return device->Answered(); }));
    EXPECT_FALSE(InError(*device));
    EXPECT_FALSE(HasValue(*device, 0));
}

TEST(KTDriverModbusFaults, ADeviceBehindAGatewayIsLostWhenTheGatewaySaysSo)
{
    std::atomic<bool> there{true};
    ScriptedPeer peer(
        [&](ScriptedPeer& self, int connection)
        {
            Bytes request;
            while (self.Receive(connection, request))
                ScriptedPeer::Answer(connection, request, there.load() ? Registers(request) : Exception(request, 11));
        });
    const auto device = Started(TwoBlocks(peer.Port()));
    ASSERT_TRUE(Eventually([&] { return Read(*device, 1) == 1010.0; }));
    there.store(false);
    ASSERT_TRUE(Eventually([&] { return InError(*device); }));
    EXPECT_TRUE(Eventually([&] { return !HasValue(*device, 0) && !HasValue(*device, 1); }));
    there.store(true);
    EXPECT_TRUE(Eventually([&] { return Read(*device, 0) == 1000.0 && Read(*device, 1) == 1010.0; }));
    EXPECT_TRUE(Eventually([&] { return !InError(*device); }));
    EXPECT_EQ(peer.Connections(), 1);  // the gateway itself was there all the time
}

TEST(KTDriverModbusFaults, AWriteThatTheConnectionTookAlongIsDoneOverTheNext)
{
    std::atomic<int> writes{0};
    ScriptedPeer peer(
        [&](ScriptedPeer& self, int connection)
        {
            Bytes request;
            while (self.Receive(connection, request))
            {
                if (request[7] != 6)
                    ScriptedPeer::Answer(connection, request, Registers(request));
                else if (writes.fetch_add(1) == 0)
                    return;  // closes without a word
                else
                    ScriptedPeer::Answer(connection, request, Bytes(request.begin() + 7, request.end()));
            }
        });
    KTDeviceSettings settings = OneRegister(peer.Port());
    settings.pollMilliseconds = 3600000;
    const auto device = Started(settings);
    ASSERT_TRUE(Eventually([&] { return device->Answered(); }));
    EXPECT_TRUE(device->WriteVariable(0, 7.0));
    EXPECT_TRUE(Eventually([&] { return writes.load() == 2; }));
    EXPECT_FALSE(InError(*device));
    EXPECT_EQ(peer.Connections(), 2);
}

TEST(KTDriverModbusFaults, AWriteThatAlwaysFailsIsDroppedAndTheValuesGoOn)
{
    std::atomic<int> writes{0};
    ScriptedPeer peer(
        [&](ScriptedPeer& self, int connection)
        {
            Bytes request;
            while (self.Receive(connection, request))
            {
                if (request[7] == 6)
                {
                    writes.fetch_add(1);
                    return;
                }
                ScriptedPeer::Answer(connection, request, Registers(request));
            }
        });
    const auto device = Started(OneRegister(peer.Port()));
    ASSERT_TRUE(Eventually([&] { return device->Answered(); }));
    EXPECT_TRUE(device->WriteVariable(0, 7.0));
    ASSERT_TRUE(Eventually([&] { return writes.load() == 2; }));
    const KTDateTime then = device->ValueTime(0);
    EXPECT_TRUE(Eventually([&] { return device->ValueTime(0) > then && !InError(*device); }));
    EXPECT_EQ(writes.load(), 2);
}

TEST(KTDriverModbusFaults, TooManyWritesThatWaitAreRefused)
{
    ScriptedPeer peer([](ScriptedPeer& self, int connection) { self.WaitForEnd(connection); });
    KTDriverModbus device(OneRegister(peer.Port()));  // nobody takes them yet
    for (std::size_t i = 0; i < KTDriverModbus::maxWrites; ++i) ASSERT_TRUE(device.WriteVariable(0, 1.0));
    EXPECT_FALSE(device.WriteVariable(0, 1.0));
}
