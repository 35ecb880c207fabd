#include "suite/drivers/KTModbusConnection.h"

#include <fmt/format.h>
#include <modbus/modbus.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

using Table = KTModbusPlan::Table;

namespace
{
std::string SystemError(int code) { return std::generic_category().message(code); }

std::string WithoutBrackets(const std::string& host)
{
    return host.starts_with('[') && host.ends_with(']') ? host.substr(1, host.size() - 2) : host;
}
}  // namespace

KTModbusConnection::KTModbusConnection() : wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

KTModbusConnection::~KTModbusConnection()
{
    Close();
    if (wake >= 0) close(wake);
}

bool KTModbusConnection::Open(const std::string& host, int port, int unit)
{
    Close();
    const KTHostLookup::Addresses addresses = Lookup(WithoutBrackets(host), port);
    bool connected = false;
    for (const addrinfo* address = addresses.get(); address != nullptr && !connected; address = address->ai_next)
        connected = Connect(*address);
    if (!connected) return false;
    if (Prepare(unit)) return true;
    Close();
    return false;
}

void KTModbusConnection::Close()
{
    if (context != nullptr) modbus_free(context);  // leaves the socket alone
    context = nullptr;
    const std::lock_guard guard(fdMutex);
    if (fd >= 0) close(fd);
    fd = -1;
}

void KTModbusConnection::Interrupt()
{
    (void)eventfd_write(wake, 1);
    const std::lock_guard guard(fdMutex);
    interrupted = true;
    if (fd >= 0) shutdown(fd, SHUT_RDWR);
}

KTHostLookup::Addresses KTModbusConnection::Lookup(const std::string& host, int port)
{
    if (auto numeric = KTHostLookup::Numeric(host, port)) return numeric;
    if (lookup == nullptr)
    {
        try
        {
            lookup = KTHostLookup::Start(host, port);
        }
        catch (const std::system_error& failure)
        {
            Fail(fmt::format("can't look up {}: {}", host, failure.what()));
            return nullptr;
        }
    }
    // One that hangs is waited for again at the next attempt rather than joined by a second.
    if (!WaitFor(lookup->Ended(), POLLIN, lookupTimeout) || !lookup->HasEnded())
    {
        Fail(fmt::format("can't look up {}: no answer", host));
        return nullptr;
    }
    const auto ended = std::move(lookup);
    lookup = nullptr;
    if (ended->Result() != 0) Fail(fmt::format("can't look up {}: {}", host, gai_strerror(ended->Result())));
    return ended->Take();
}

bool KTModbusConnection::Connect(const addrinfo& address)
{
    const int handle = socket(address.ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP);
    if (handle < 0)
    {
        Fail(SystemError(errno));
        return false;
    }
    // libmodbus waits by select, which has no room for handles above this.
    const bool usable = handle < FD_SETSIZE;
    if (!usable) Fail("too many open files");
    const int yes = 1;
    (void)setsockopt(handle, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    if (!usable || (connect(handle, address.ai_addr, address.ai_addrlen) != 0 && !WaitConnected(handle)))
    {
        close(handle);
        return false;
    }
    const std::lock_guard guard(fdMutex);
    fd = handle;
    // An interruption that came before there was a socket to shut down.
    if (interrupted) shutdown(fd, SHUT_RDWR);
    return true;
}

bool KTModbusConnection::WaitConnected(int socket)
{
    if (errno != EINPROGRESS)
    {
        Fail(SystemError(errno));
        return false;
    }
    if (!WaitFor(socket, POLLOUT, connectTimeout))
    {
        Fail("can't connect: no answer");
        return false;
    }
    int code = 0;
    socklen_t size = sizeof code;
    if (getsockopt(socket, SOL_SOCKET, SO_ERROR, &code, &size) == 0 && code == 0) return true;
    Fail(fmt::format("can't connect: {}", SystemError(code)));
    return false;
}

bool KTModbusConnection::WaitFor(int handle, short events, int milliseconds)
{
    std::array<pollfd, 2> handles{{{handle, events, 0}, {wake, POLLIN, 0}}};
    int ready = 0;
    do ready = poll(handles.data(), handles.size(), milliseconds);
    while (ready < 0 && errno == EINTR);
    return ready > 0 && handles[0].revents != 0 && handles[1].revents == 0;
}

bool KTModbusConnection::Prepare(int unit)
{
    context = modbus_new_tcp("127.0.0.1", 1);  // never connects by itself; the socket is ours
    if (context == nullptr || modbus_set_slave(context, unit) != 0 || modbus_set_socket(context, fd) != 0 ||
        modbus_set_response_timeout(context, responseTimeout / 1000, (responseTimeout % 1000) * 1000) != 0 ||
        // Without a limit for each byte the one above counts for the whole answer, so that none can trickle on for ever.
        modbus_set_byte_timeout(context, 0, 0) != 0)
    {
        Fail(modbus_strerror(errno));
        return false;
    }
    return true;
}

KTModbusConnection::Result KTModbusConnection::Read(Table table, int address, int count, std::uint16_t* out)
{
    if (!IsOpen()) return Result::lost;
    Forget();
    std::array<std::uint8_t, KTModbusPlan::maxBits> bits{};
    int result = -1;
    switch (table)
    {
        case Table::coil:
            result = modbus_read_bits(context, address, count, bits.data());
            break;
        case Table::discrete:
            result = modbus_read_input_bits(context, address, count, bits.data());
            break;
        case Table::input:
            result = modbus_read_input_registers(context, address, count, out);
            break;
        case Table::holding:
            result = modbus_read_registers(context, address, count, out);
            break;
    }
    if (result >= 0 && KTModbusPlan::HoldsBits(table))
        for (int i = 0; i < count; ++i) out[i] = bits[static_cast<std::size_t>(i)];
    return Judge(result);
}

KTModbusConnection::Result KTModbusConnection::Write(Table table, int address, std::span<const std::uint16_t> registers)
{
    if (!IsOpen()) return Result::lost;
    Forget();
    if (table == Table::coil) return Judge(modbus_write_bit(context, address, registers[0] != 0 ? 1 : 0));
    // Some devices know only the request for one register, others have values of several change at once.
    if (registers.size() == 1) return Judge(modbus_write_register(context, address, registers[0]));
    return Judge(modbus_write_registers(context, address, static_cast<int>(registers.size()), registers.data()));
}

/// What came unasked, such as the noise of a line behind a gateway, would be taken for the next answer.
void KTModbusConnection::Forget()
{
    std::array<std::uint8_t, 1024> unasked;
    (void)recv(fd, unasked.data(), unasked.size(), MSG_DONTWAIT);
}

KTModbusConnection::Result KTModbusConnection::Judge(int result)
{
    if (result >= 0) return Result::done;
    const int code = errno;
    Fail(code == ETIMEDOUT ? "no answer" : modbus_strerror(code));
    refusedAddress = code == EMBXILADD || code == EMBXILVAL;
    if (code == EMBXGPATH || code == EMBXGTAR) return Result::unreachable;
    // EMBBADEXC is an exception whose number isn't in the book, as makers of devices have them.
    if ((code > MODBUS_ENOBASE && code < EMBBADCRC) || code == EMBBADEXC) return Result::refused;
    Close();
    return code == ECONNRESET || code == EPIPE || code == ENOTCONN || code == ECONNABORTED ? Result::closed
                                                                                           : Result::lost;
}
