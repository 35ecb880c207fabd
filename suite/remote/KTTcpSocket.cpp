#include "host/KTTcpSocket.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

#include "suite/remote/KTHostLookup.h"

namespace
{
// An address that doesn't answer must not keep the next one, which may, from being tried in time.
constexpr int pauseBetweenAttempts = 250;  // milliseconds

class Deadline
{
public:
    explicit Deadline(int milliseconds) : end(Clock::now() + std::chrono::milliseconds(milliseconds)) {}

    // Rounded up, so that a wait for what is left doesn't end a moment too soon.
    [[nodiscard]] int Left() const
    {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        return static_cast<int>(std::max<std::int64_t>(left, 0));
    }
    void SleepUntil() const { std::this_thread::sleep_until(end); }

private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point end;
};

bool WaitFor(int handle, short events, const Deadline& deadline)
{
    pollfd state{handle, events, 0};
    for (;;)
    {
        const int ready = poll(&state, 1, deadline.Left());
        if (ready > 0) return true;
        if (ready == 0 || errno != EINTR) return false;
    }
}

bool ReadPort(std::string_view text, int& port)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    return error == std::errc() && end == text.data() + text.size() && port >= 1 && port <= 65535;
}

// Takes "host", "host:port", "v6", "[v6]" and "[v6]:port" apart; `port` stays where the text has none.
bool SplitHost(std::string_view text, std::string& name, int& port)
{
    std::string_view behind;
    if (text.starts_with('['))
    {
        const std::size_t close = text.find(']');
        if (close == std::string_view::npos) return false;
        behind = text.substr(close + 1);
        text = text.substr(1, close - 1);
        if (!behind.empty() && !behind.starts_with(':')) return false;
    }
    else if (const std::size_t colon = text.find(':'); colon == text.rfind(':') && colon != std::string_view::npos)
    {
        behind = text.substr(colon);
        text = text.substr(0, colon);
    }
    name = text;
    if (!behind.empty() && !ReadPort(behind.substr(1), port)) return false;
    return !name.empty() && port >= 1 && port <= 65535;
}

// Addresses of the host, which `pending` asks for; a look-up that hangs is waited for again rather than joined by a second.
KTHostLookup::Addresses AddressesOf(const std::string& host, int port, std::shared_ptr<KTHostLookup>& pending,
                                    const Deadline& deadline)
{
    if (auto numeric = KTHostLookup::Numeric(host, port)) return numeric;
    if (pending == nullptr || !pending->IsOf(host, port))
    {
        try
        {
            pending = KTHostLookup::Start(host, port);
        }
        catch (const std::system_error&)
        {
            return nullptr;
        }
    }
    if (!WaitFor(pending->Ended(), POLLIN, deadline) || !pending->HasEnded()) return nullptr;
    const auto ended = std::move(pending);
    pending = nullptr;
    return ended->Take();
}

/// Connections on their way to the addresses of one host. Those that don't win are closed.
class Attempts
{
public:
    Attempts() = default;
    Attempts(const Attempts&) = delete;
    Attempts& operator=(const Attempts&) = delete;
    ~Attempts()
    {
        for (const pollfd& attempt : attempts) close(attempt.fd);
    }

    void Begin(const addrinfo& address)
    {
        const int handle = socket(address.ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, address.ai_protocol);
        if (handle < 0) return;
        if (connect(handle, address.ai_addr, address.ai_addrlen) == 0 || errno == EINPROGRESS)
            attempts.push_back({handle, POLLOUT, 0});
        else
            close(handle);
    }

    /// The first that is through, which is then the caller's; -1 when none is in that time, or one has failed.
    int Wait(int milliseconds)
    {
        if (poll(attempts.data(), attempts.size(), milliseconds) <= 0) return -1;
        for (auto attempt = attempts.begin(); attempt != attempts.end();)
        {
            if (attempt->revents == 0)
            {
                ++attempt;
                continue;
            }
            const int handle = attempt->fd;
            attempt = attempts.erase(attempt);
            if (IsConnected(handle)) return handle;
            close(handle);
        }
        return -1;
    }

    [[nodiscard]] bool Empty() const { return attempts.empty(); }

private:
    static bool IsConnected(int handle)
    {
        int code = 0;
        socklen_t size = sizeof code;
        return getsockopt(handle, SOL_SOCKET, SO_ERROR, &code, &size) == 0 && code == 0;
    }

    std::vector<pollfd> attempts;
};

// -1 when no address answers.
int ConnectToOne(const addrinfo* next, const Deadline& deadline)
{
    Attempts attempts;
    while ((next != nullptr || !attempts.Empty()) && deadline.Left() > 0)
    {
        if (next != nullptr)
        {
            attempts.Begin(*next);
            next = next->ai_next;
        }
        if (attempts.Empty()) continue;
        const int patience = next == nullptr ? deadline.Left() : std::min(deadline.Left(), pauseBetweenAttempts);
        if (const int handle = attempts.Wait(patience); handle >= 0) return handle;
    }
    return -1;
}

// Blocking from here on, with a limit: the handle is public, and others may send on it.
bool Prepare(int handle, int sendTimeout)
{
    int blocking = 0;
    const int yes = 1;
    const timeval limit{sendTimeout / 1000, (sendTimeout % 1000) * 1000};
    return ioctl(handle, FIONBIO, &blocking) == 0 &&
           setsockopt(handle, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) == 0 &&
           setsockopt(handle, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes) == 0;
}
}  // namespace

bool KTTcpSocket::Connect(const char* host, int port)
{
    Close();
    const Deadline deadline(connectTimeout);
    std::string name;
    if (host == nullptr || !SplitHost(host, name, port)) return false;
    const KTHostLookup::Addresses addresses = AddressesOf(name, port, lookup, deadline);
    if (addresses == nullptr) return false;
    handle = ConnectToOne(addresses.get(), deadline);
    if (handle < 0) return false;
    if (Prepare(handle, sendTimeout)) return true;
    Close();
    return false;
}

int KTTcpSocket::Receive(void* buffer, int size)
{
    if (size <= 0) return 0;
    const Deadline deadline(receiveTimeout);
    while (handle >= 0)
    {
        const ssize_t got = recv(handle, buffer, static_cast<std::size_t>(size), MSG_DONTWAIT);
        if (got > 0) return static_cast<int>(got);
        const bool open = got < 0 && (errno == EAGAIN || errno == EINTR);
        if (!open) break;
        if (!WaitFor(handle, POLLIN, deadline)) return 0;
    }
    deadline.SleepUntil();
    return 0;
}

int KTTcpSocket::Send(const void* data, int size)
{
    const Deadline deadline(sendTimeout);
    const char* const bytes = static_cast<const char*>(data);
    int sent = 0;
    while (sent < size && handle >= 0)
    {
        const auto rest = static_cast<std::size_t>(size - sent);
        const ssize_t some = send(handle, bytes + sent, rest, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (some > 0)
            sent += static_cast<int>(some);
        else if ((errno != EAGAIN && errno != EINTR) || !WaitFor(handle, POLLOUT, deadline))
            break;
    }
    return sent;
}

void KTTcpSocket::Close()
{
    if (handle >= 0) close(handle);
    handle = -1;
}
