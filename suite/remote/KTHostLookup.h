// The look-up of a host's addresses by name, which the system can't break off.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <utility>

struct addrinfo;

/// Runs on a thread of its own. Thread and owner share it, so that either may go first.
///
/// Threads: made and asked by one thread.
class KTHostLookup
{
public:
    struct Free
    {
        void operator()(addrinfo* list) const;
    };
    using Addresses = std::unique_ptr<addrinfo, Free>;  // for TCP; null when there are none

    /// The address that `host` is; null when it is a name.
    static Addresses Numeric(const std::string& host, int port);

    /// Throws std::system_error when the system gives no thread.
    static std::shared_ptr<KTHostLookup> Start(const std::string& host, int port);

    KTHostLookup(std::string hostName, int portNumber);
    KTHostLookup(const KTHostLookup&) = delete;
    KTHostLookup& operator=(const KTHostLookup&) = delete;
    ~KTHostLookup();

    /// A handle that can be read from once the look-up has ended, to wait for.
    [[nodiscard]] int Ended() const { return ended; }
    [[nodiscard]] bool HasEnded() const { return done.load(std::memory_order_acquire); }
    [[nodiscard]] bool IsOf(const std::string& hostName, int portNumber) const
    {
        return host == hostName && port == portNumber;
    }

    // Only once it has ended.
    [[nodiscard]] int Result() const { return result; }  // of getaddrinfo
    Addresses Take() { return std::move(addresses); }

private:
    void Run();

    const std::string host;
    const int port;
    const int ended;                // an eventfd
    std::atomic<bool> done{false};  // the two below are good once it is set
    int result = 0;
    Addresses addresses;
};
