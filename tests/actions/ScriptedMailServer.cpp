#include "actions/ScriptedMailServer.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
bool WaitReadable(int handle, const std::atomic<bool>& stopping)
{
    // What is there already is read even by a server that stops.
    for (bool last = false; !last;)
    {
        last = stopping;
        pollfd state{handle, POLLIN, 0};
        if (poll(&state, 1, last ? 0 : 5) > 0) return true;
    }
    return false;
}
}  // namespace

bool MailSession::Receive()
{
    char part[65536];
    if (!WaitReadable(handle, stopping)) return false;
    const ssize_t got = recv(handle, part, sizeof part, 0);
    if (got <= 0) return false;
    pending.append(part, static_cast<std::size_t>(got));
    return true;
}

std::string MailSession::Read(std::size_t count)
{
    while (pending.size() < count && Receive()) continue;
    std::string bytes = pending.substr(0, count);
    pending.erase(0, count);
    return bytes;
}

std::string MailSession::ReadTo(const std::string& end)
{
    while (pending.find(end) == std::string::npos)
        if (!Receive()) return Read(pending.size());
    return Read(pending.find(end) + end.size());
}

std::string MailSession::Rest()
{
    while (Receive()) continue;
    return Read(pending.size());
}

bool MailSession::Expect(const std::string& bytes)
{
    const std::string got = Read(bytes.size());
    EXPECT_EQ(got, bytes);
    return got == bytes;
}

void MailSession::Say(const std::string& bytes) const
{
    (void)send(handle, bytes.data(), bytes.size(), MSG_NOSIGNAL);  // the client may have gone
}

void MailSession::ResetAtClose() const
{
    const linger atOnce{1, 0};
    EXPECT_EQ(setsockopt(handle, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce), 0);
}

ScriptedMailServer::ScriptedMailServer(Script whatToDo)
    : script(std::move(whatToDo)), listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    EXPECT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&address), size), 0);
    EXPECT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size), 0);
    EXPECT_EQ(listen(listener, 100), 0);
    port = ntohs(address.sin_port);
    thread = std::thread([this] { Run(); });
}

ScriptedMailServer::~ScriptedMailServer()
{
    stopping = true;
    thread.join();
    close(listener);
}

void ScriptedMailServer::Run()
{
    const int yes = 1;
    while (WaitReadable(listener, stopping))
    {
        const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) continue;
        (void)setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        ++connections;
        MailSession session(connection, stopping);
        script(session);
        close(connection);
    }
}
