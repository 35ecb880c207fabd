#include "host/KTTcpSocket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "actions/ScriptedMailServer.h"
#include "suite/tools/KTVirtualClock.h"
#include "support/TestClock.h"

namespace
{
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

milliseconds Since(Clock::time_point begin) { return std::chrono::duration_cast<milliseconds>(Clock::now() - begin); }

std::string Receive(KTTcpSocket& socket, int size)
{
    std::string buffer(static_cast<std::size_t>(size), '#');
    buffer.resize(static_cast<std::size_t>(socket.Receive(buffer.data(), size)));
    return buffer;
}

// All that comes before the first pause.
std::string ReceiveAll(KTTcpSocket& socket)
{
    std::string all;
    for (std::string part = Receive(socket, 1000); !part.empty(); part = Receive(socket, 1000)) all += part;
    return all;
}

// A port of an address on which somebody listens whose queue is full: connecting to it hangs.
class FullListener
{
public:
    FullListener()
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        EXPECT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&address), size), 0);
        EXPECT_EQ(listen(listener, 0), 0);
        EXPECT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size), 0);
        port = ntohs(address.sin_port);
        for (int i = 0; i < 8; ++i)
        {
            const int filler = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
            (void)connect(filler, reinterpret_cast<const sockaddr*>(&address), size);  // goes on, or hangs as well
            fillers.push_back(filler);
        }
    }
    FullListener(const FullListener&) = delete;
    FullListener& operator=(const FullListener&) = delete;
    ~FullListener()
    {
        for (const int filler : fillers) close(filler);
        close(listener);
    }

    int port = 0;

private:
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::vector<int> fillers;
};

int ClosedPort()
{
    const ScriptedMailServer gone([](MailSession&) {});
    return gone.Port();
}
}  // namespace

TEST(KTTcpSocket, SendsAndReceives)
{
    const ScriptedMailServer server(
        [](MailSession& session)
        {
            EXPECT_TRUE(session.Expect("hello"));
            session.Say("good day");
            EXPECT_EQ(session.Rest(), "");
        });
    KTTcpSocket socket;
    EXPECT_EQ(socket.handle, -1);
    ASSERT_TRUE(socket.Connect("127.0.0.1", server.Port()));
    EXPECT_GE(socket.handle, 0);
    EXPECT_EQ(socket.Send("hello", 5), 5);
    EXPECT_EQ(Receive(socket, 1), "g");
    EXPECT_EQ(ReceiveAll(socket), "ood day");
    socket.Close();
    EXPECT_EQ(socket.handle, -1);
    socket.Close();
}

TEST(KTTcpSocket, TheHandleIsAnOrdinaryBlockingOneThatNoChildInherits)
{
    const ScriptedMailServer server([](MailSession& session) { EXPECT_EQ(session.Rest(), "straight"); });
    KTTcpSocket socket;
    ASSERT_TRUE(socket.Connect("127.0.0.1", server.Port()));
    EXPECT_EQ(fcntl(socket.handle, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_NE(fcntl(socket.handle, F_GETFD) & FD_CLOEXEC, 0);
    timeval limit{};
    socklen_t size = sizeof limit;
    ASSERT_EQ(getsockopt(socket.handle, SOL_SOCKET, SO_SNDTIMEO, &limit, &size), 0);
    EXPECT_EQ(limit.tv_sec * 1000 + limit.tv_usec / 1000, KTTcpSocket::sendTimeout);
    EXPECT_EQ(send(socket.handle, "straight", 8, MSG_NOSIGNAL), 8);
}

TEST(KTTcpSocket, TakesThePortOfTheHostTextBeforeTheArgument)
{
    const ScriptedMailServer server([](MailSession& session) { (void)session.Rest(); });
    const std::string port = std::to_string(server.Port());
    const int closed = ClosedPort();
    const struct
    {
        std::string host;
        int port;
        bool connects;
    } rows[] = {
        {"127.0.0.1", server.Port(), true},
        {"127.0.0.1:" + port, closed, true},
        {"127.0.0.1:" + port, 0, true},
        {"localhost", server.Port(), true},
        {"localhost:" + port, closed, true},
        {"[::ffff:127.0.0.1]:" + port, closed, true},
        {"[::ffff:127.0.0.1]", server.Port(), true},
        {"::ffff:127.0.0.1", server.Port(), true},
        {"127.0.0.1:" + std::to_string(closed), server.Port(), false},
        {"127.0.0.1", closed, false},
    };
    for (const auto& row : rows)
    {
        KTTcpSocket socket;
        EXPECT_EQ(socket.Connect(row.host.c_str(), row.port), row.connects) << row.host << ", " << row.port;
        EXPECT_EQ(socket.handle >= 0, row.connects);
    }
}

TEST(KTTcpSocket, RefusesHostTextsThatMeanNothing)
{
    const ScriptedMailServer server([](MailSession& session) { (void)session.Rest(); });
    KTTcpSocket socket;
    EXPECT_FALSE(socket.Connect(nullptr, server.Port()));
    for (const char* host :
         {"", ":25", "127.0.0.1:", "127.0.0.1:x", "127.0.0.1:2x", "127.0.0.1:0", "127.0.0.1:65536", "127.0.0.1:-1",
          "127.0.0.1: 25", "[]:25", "[::1", "[::1]x", "[::1]25", "[::1]:", "no such host.invalid"})
        EXPECT_FALSE(socket.Connect(host, server.Port())) << host;
    for (const int port : {0, -1, 65536}) EXPECT_FALSE(socket.Connect("127.0.0.1", port)) << port;
    EXPECT_EQ(server.Connections(), 0);
}

TEST(KTTcpSocket, ConnectsBySixthVersionAddresses)
{
    const int listener = socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_addr = in6addr_loopback;
    socklen_t size = sizeof address;
    if (listener < 0 || bind(listener, reinterpret_cast<const sockaddr*>(&address), size) != 0)
        GTEST_SKIP() << "this machine has no IPv6";
    ASSERT_EQ(listen(listener, 5), 0);
    ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size), 0);
    const int port = ntohs(address.sin6_port);
    KTTcpSocket client;
    EXPECT_TRUE(client.Connect(("[::1]:" + std::to_string(port)).c_str(), 25));
    EXPECT_TRUE(client.Connect("[::1]", port));
    EXPECT_TRUE(client.Connect("::1", port));
    close(listener);
}

TEST(KTTcpSocket, ConnectGivesUpAfterFiveSeconds)
{
    const FullListener full;
    KTTcpSocket socket;
    const auto begin = Clock::now();
    EXPECT_FALSE(socket.Connect("127.0.0.1", full.port));
    EXPECT_GE(Since(begin), milliseconds(5000));
    EXPECT_LT(Since(begin), milliseconds(8000));
    EXPECT_EQ(socket.handle, -1);
}

TEST(KTTcpSocket, ConnectClosesWhatWasOpen)
{
    std::atomic<int> ends{0};
    const ScriptedMailServer server(
        [&](MailSession& session)
        {
            (void)session.Rest();
            if (!session.Stopping()) ++ends;
        });
    KTTcpSocket socket;
    ASSERT_TRUE(socket.Connect("127.0.0.1", server.Port()));
    EXPECT_EQ(ends, 0);
    ASSERT_TRUE(socket.Connect("127.0.0.1", server.Port()));
    while (ends < 1) std::this_thread::yield();
    EXPECT_FALSE(socket.Connect("127.0.0.1", ClosedPort()));
    while (ends < 2) std::this_thread::yield();
    EXPECT_EQ(socket.handle, -1);
}

TEST(KTTcpSocket, ReceiveWaitsForATenthOfASecondWhateverBecomesOfTheConnection)
{
    std::atomic<bool> close{false};
    const ScriptedMailServer server(
        [&](MailSession& session)
        {
            while (!close && !session.Stopping()) std::this_thread::sleep_for(milliseconds(1));
            session.ResetAtClose();
        });
    const ScriptedMailServer polite([](MailSession&) {});
    const auto waits = [](KTTcpSocket& socket)
    {
        char byte = 0;
        const auto begin = Clock::now();
        EXPECT_EQ(socket.Receive(&byte, 1), 0);
        EXPECT_GE(Since(begin), milliseconds(100));
        EXPECT_LT(Since(begin), milliseconds(2000));  // a machine that is busy with something else
    };
    KTTcpSocket socket;
    waits(socket);  // never connected
    ASSERT_TRUE(socket.Connect("127.0.0.1", polite.Port()));
    for (int i = 0; i < 3; ++i) waits(socket);  // closed by the other side
    ASSERT_TRUE(socket.Connect("127.0.0.1", server.Port()));
    waits(socket);  // silent
    close = true;
    for (int i = 0; i < 3; ++i) waits(socket);  // reset
    char byte = 0;
    EXPECT_EQ(socket.Receive(&byte, 0), 0);
}

TEST(KTTcpSocket, ReceiveReturnsAsSoonAsSomethingIsThere)
{
    const ScriptedMailServer server(
        [](MailSession& session)
        {
            session.Say("now");
            std::this_thread::sleep_for(milliseconds(30));
            session.Say("later");
            (void)session.Rest();
        });
    KTTcpSocket socket;
    ASSERT_TRUE(socket.Connect("127.0.0.1", server.Port()));
    std::string all;
    while (all.size() < 8) all += Receive(socket, 100);
    EXPECT_EQ(all, "nowlater");
}

TEST(KTTcpSocket, WaitsInRealTimeWhateverClockIsInstalled)
{
    const TestClock clock;
    const ScriptedMailServer server([](MailSession& session) { (void)session.Rest(); });
    KTTcpSocket socket;
    ASSERT_TRUE(socket.Connect("127.0.0.1", server.Port()));
    EXPECT_EQ(Receive(socket, 1), "");
}

TEST(KTTcpSocket, ABrokenConnectionRaisesNoSignal)
{
    const auto before = std::signal(SIGPIPE, SIG_DFL);
    const ScriptedMailServer server(
        [](MailSession& session)
        {
            EXPECT_TRUE(session.Expect("go"));
            session.ResetAtClose();
        });
    KTTcpSocket socket;
    ASSERT_TRUE(socket.Connect("127.0.0.1", server.Port()));
    EXPECT_EQ(socket.Send("go", 2), 2);
    EXPECT_EQ(Receive(socket, 1), "");
    for (int i = 0; i < 3; ++i) EXPECT_LE(socket.Send("x", 1), 0);
    socket.Close();
    EXPECT_EQ(socket.Send("x", 1), 0);
    (void)std::signal(SIGPIPE, before);
}

TEST(KTTcpSocket, SendGivesUpAfterFiveSecondsWhenNobodyReads)
{
    const ScriptedMailServer server(
        [](MailSession& session)
        {
            while (!session.Stopping()) std::this_thread::sleep_for(milliseconds(1));
        });
    KTTcpSocket socket;
    ASSERT_TRUE(socket.Connect("127.0.0.1", server.Port()));
    const std::string much(64'000'000, 'm');
    const auto begin = Clock::now();
    EXPECT_LT(socket.Send(much.data(), static_cast<int>(much.size())), static_cast<int>(much.size()));
    EXPECT_GE(Since(begin), milliseconds(5000));
    EXPECT_LT(Since(begin), milliseconds(8000));
}

TEST(KTTcpSocket, SendPassesOnMoreThanTheSystemTakesAtOnce)
{
    const std::string much(20'000'000, 'm');
    std::atomic<bool> good{false};
    {
        const ScriptedMailServer server([&](MailSession& session) { good = session.Rest() == much; });
        KTTcpSocket socket;
        ASSERT_TRUE(socket.Connect("127.0.0.1", server.Port()));
        EXPECT_EQ(socket.Send(much.data(), static_cast<int>(much.size())), static_cast<int>(much.size()));
        socket.Close();
        const auto begin = Clock::now();
        while (!good && Since(begin) < milliseconds(20000)) std::this_thread::sleep_for(milliseconds(1));
    }
    EXPECT_TRUE(good);
}
