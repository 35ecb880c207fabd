// A client that sends exactly the bytes it is told to.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "suite/http/KTHttpText.h"

struct RawReply
{
    int status = 0;  // 0: no whole reply came
    KTHttpPairs headers;
    std::string body;

    /// The header of that name, empty when there is none.
    [[nodiscard]] std::string Header(std::string_view name) const
    {
        for (const auto& [key, value] : headers)
            if (EqualIgnoringCase(key, name)) return value;
        return {};
    }
};

class RawClient
{
public:
    /// `receiveBuffer` above 0 makes the client's window small, so that the server soon has to wait for it.
    explicit RawClient(int port, const char* address = "127.0.0.1", int receiveBuffer = 0)
    {
        const bool six = std::strchr(address, ':') != nullptr;
        socket = ::socket(six ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (receiveBuffer > 0) ::setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
        sockaddr_in four{};
        four.sin_family = AF_INET;
        four.sin_port = htons(static_cast<std::uint16_t>(port));
        ::inet_pton(AF_INET, address, &four.sin_addr);
        sockaddr_in6 wide{};
        wide.sin6_family = AF_INET6;
        wide.sin6_port = htons(static_cast<std::uint16_t>(port));
        ::inet_pton(AF_INET6, address, &wide.sin6_addr);
        connected = six ? ::connect(socket, reinterpret_cast<sockaddr*>(&wide), sizeof wide) == 0
                        : ::connect(socket, reinterpret_cast<sockaddr*>(&four), sizeof four) == 0;
    }
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;
    RawClient(RawClient&& other) noexcept
        : connected(other.connected), socket(std::exchange(other.socket, -1)), pending(std::move(other.pending))
    {
    }
    ~RawClient()
    {
        if (socket >= 0) ::close(socket);
    }

    /// False when the server has closed the connection.
    bool Send(std::string_view text)
    {
        while (!text.empty())
        {
            const ssize_t sent = ::send(socket, text.data(), text.size(), MSG_NOSIGNAL);
            if (sent <= 0) return false;
            text.remove_prefix(static_cast<std::size_t>(sent));
        }
        return true;
    }

    /// The next reply; status 0 when it doesn't come whole in that time.
    RawReply Read(std::chrono::milliseconds patience = std::chrono::seconds(10), bool head = false)
    {
        const auto end = std::chrono::steady_clock::now() + patience;
        RawReply reply;
        while (pending.find("\r\n\r\n") == pending.npos)
            if (!Receive(end)) return reply;
        ReadHead(reply);
        const bool none = head || reply.status == 204 || reply.status == 304 || reply.status == 100;
        if (!none && !ReadBody(reply, end)) reply.status = 0;
        return reply;
    }

    /// Whether the server ends the connection in that time; what it still sends is thrown away.
    bool WaitForEnd(std::chrono::milliseconds patience)
    {
        const auto end = std::chrono::steady_clock::now() + patience;
        while (Receive(end)) pending.clear();
        return ended;
    }

    /// Takes at most so many bytes of what has come; returns their number.
    std::size_t Sip(std::size_t count)
    {
        std::string some(count, '\0');
        const ssize_t got = ::recv(socket, some.data(), some.size(), MSG_DONTWAIT);
        return got > 0 ? static_cast<std::size_t>(got) : 0;
    }

    bool connected = false;
    int socket = -1;
    std::string pending;  // received and not read yet

private:
    bool Receive(std::chrono::steady_clock::time_point end)
    {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        pollfd state{socket, POLLIN, 0};
        if (left.count() <= 0 || ::poll(&state, 1, static_cast<int>(left.count())) <= 0) return false;
        char part[65536];
        const ssize_t got = ::recv(socket, part, sizeof part, 0);
        if (got <= 0)
        {
            ended = true;
            return false;
        }
        pending.append(part, static_cast<std::size_t>(got));
        return true;
    }

    void ReadHead(RawReply& reply)
    {
        const std::size_t end = pending.find("\r\n\r\n");
        std::string_view head(pending.data(), end);
        reply.status = std::atoi(std::string(head.substr(head.find(' ') + 1, 3)).c_str());
        while (head.find("\r\n") != head.npos)
        {
            head.remove_prefix(head.find("\r\n") + 2);
            const std::string_view line = head.substr(0, head.find("\r\n"));
            const std::size_t colon = line.find(':');
            reply.headers.emplace_back(line.substr(0, colon), TrimBlanks(line.substr(colon + 1)));
        }
        pending.erase(0, end + 4);
    }

    bool ReadBody(RawReply& reply, std::chrono::steady_clock::time_point end)
    {
        if (reply.Header("Transfer-Encoding") == "chunked") return ReadChunks(reply, end);
        const std::string length = reply.Header("Content-Length");
        const std::size_t size = static_cast<std::size_t>(std::atoll(length.c_str()));
        while (pending.size() < size)
            if (!Receive(end)) return false;
        reply.body = pending.substr(0, size);
        pending.erase(0, size);
        return true;
    }

    bool ReadChunks(RawReply& reply, std::chrono::steady_clock::time_point end)
    {
        for (;;)
        {
            while (pending.find("\r\n") == pending.npos)
                if (!Receive(end)) return false;
            const std::size_t size = std::stoul(pending, nullptr, 16);
            pending.erase(0, pending.find("\r\n") + 2);
            while (pending.size() < size + 2)
                if (!Receive(end)) return false;
            reply.body.append(pending, 0, size);
            pending.erase(0, size + 2);
            if (size == 0) return true;
        }
    }

    bool ended = false;
};
