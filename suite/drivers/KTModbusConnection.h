// One connection to a Modbus device over TCP, which another thread can break off.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>

#include "suite/drivers/KTModbusPlan.h"
#include "suite/remote/KTHostLookup.h"

typedef struct _modbus modbus_t;  // libmodbus's name of it

/// Connects, asks and is answered; every wait is bounded, and Interrupt ends it.
///
/// Format:  Modbus application protocol over TCP, through libmodbus.
/// Units:   timeouts are milliseconds of real time.
/// Errors:  Open and the requests tell by their result; Error has the words for it.
/// Threads: one thread; Interrupt comes from any.
/// Memory:  owns the socket. The look-up of a host name that hangs is left behind with what it needs.
class KTModbusConnection
{
public:
    static constexpr int lookupTimeout = 5000;
    static constexpr int connectTimeout = 3000;   // of each address that the host has
    static constexpr int responseTimeout = 2000;  // of a whole answer

    enum class Result
    {
        done,
        refused,      // the device answers that it can't or won't
        unreachable,  // a gateway answers that the device behind it doesn't
        closed,       // the other side has closed the connection; it is closed here too
        lost          // no answer, or none that makes sense; the connection is closed
    };

    KTModbusConnection();
    KTModbusConnection(const KTModbusConnection&) = delete;
    KTModbusConnection& operator=(const KTModbusConnection&) = delete;
    ~KTModbusConnection();

    [[nodiscard]] bool Open(const std::string& host, int port, int unit);
    void Close();
    [[nodiscard]] bool IsOpen() const { return fd >= 0; }

    /// `out` takes `count` registers, or as many zeros and ones from a table of bits.
    [[nodiscard]] Result Read(KTModbusPlan::Table table, int address, int count, std::uint16_t* out);

    /// One coil, or the registers in one request. Only for a table that can be written.
    [[nodiscard]] Result Write(KTModbusPlan::Table table, int address, std::span<const std::uint16_t> registers);

    /// Whether the last refusal was about the addresses, so that fewer of them might be answered.
    [[nodiscard]] bool RefusedAddress() const { return refusedAddress; }
    [[nodiscard]] const std::string& Error() const { return error; }

    /// Ends every wait, now and from now on.
    void Interrupt();

private:
    /// The host's addresses; null with the error set.
    KTHostLookup::Addresses Lookup(const std::string& host, int port);
    bool Connect(const addrinfo& address);
    bool WaitConnected(int socket);
    bool WaitFor(int handle, short events, int milliseconds);
    bool Prepare(int unit);
    void Forget();
    Result Judge(int result);
    void Fail(const std::string& reason) { error = reason; }

    const int wake;                        // an eventfd that Interrupt raises and nobody lowers
    modbus_t* context = nullptr;           // owned while open
    std::mutex fdMutex;                    // for fd to be closed and shut down by different threads
    int fd = -1;                           // owned
    bool interrupted = false;              // guarded by fdMutex
    std::shared_ptr<KTHostLookup> lookup;  // the last look-up while it hasn't ended
    bool refusedAddress = false;
    std::string error;
};
