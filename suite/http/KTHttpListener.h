// The socket that waits for clients.
#pragma once

#include <string>

/// An open listening socket.
///
/// Errors:  Open is false with a reason for a person to read.
/// Threads: one at a time.
/// Memory:  closes its socket, unless Release has handed it on.
class KTHttpListener
{
public:
    KTHttpListener() = default;
    KTHttpListener(const KTHttpListener&) = delete;
    KTHttpListener& operator=(const KTHttpListener&) = delete;
    ~KTHttpListener() { Close(); }

    /// `address` is IPv4, IPv6 or a name; `::` takes IPv4 clients too. Port 0 lets the system choose.
    bool Open(const std::string& address, int port, std::string& error);
    void Close();

    [[nodiscard]] int Socket() const { return socket; }
    [[nodiscard]] int Port() const { return boundPort; }
    /// The caller closes it.
    int Release();

private:
    int socket = -1;
    int boundPort = 0;
};
