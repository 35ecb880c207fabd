// One outgoing TCP connection.
#pragma once

#include <memory>

class KTHostLookup;  // the host's own

/// Connects, sends and receives; every wait is bounded.
///
/// Units:   milliseconds of real time, whatever clock is installed: the other side doesn't live by a virtual one.
/// Errors:  told by the result. A broken connection raises no signal; it shows as nothing that comes.
/// Threads: one at a time.
/// Memory:  owns the handle. A look-up of the host's name that hangs is left behind with what it needs.
class KTTcpSocket
{
public:
    static constexpr int connectTimeout = 5000;  // the look-up of the name included
    static constexpr int sendTimeout = 5000;     // of one call
    static constexpr int receiveTimeout = 100;

    KTTcpSocket() = default;
    KTTcpSocket(const KTTcpSocket&) = delete;
    KTTcpSocket& operator=(const KTTcpSocket&) = delete;
    ~KTTcpSocket() { Close(); }

    /// Closes what was open, then tries each address of the host. A port written in the host text, `host:port` or
    /// `[v6]:port`, wins over `port`.
    [[nodiscard]] bool Connect(const char* host, int port);

    /// Waits until something comes, and reads at most `size` bytes of it; returns their number. 0 when nothing came in
    /// time, and no sooner than that on a connection that is closed or broken: who asks until a limit doesn't spin.
    [[nodiscard]] int Receive(void* buffer, int size);

    /// The bytes that the system took: fewer than `size` when the connection is broken, or when the other side doesn't
    /// read for the length of the time-out.
    int Send(const void* data, int size);

    void Close();

    int handle = -1;  // the system's; -1 while closed. A blocking one, whose own calls to send give up in time too

private:
    std::shared_ptr<KTHostLookup> lookup;  // the last look-up while it hasn't ended
};
