// Devices that the tests talk to: a real one, by an implementation that isn't ours, and one that misbehaves as told.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/// modbus_server.py as a process of its own.
///
/// Errors:  a server that doesn't start, or an answer that is an error, fails the test.
/// Threads: one thread.
class ModbusServer
{
public:
    /// Port 0: a free one.
    explicit ModbusServer(int port = 0);
    ModbusServer(const ModbusServer&) = delete;
    ModbusServer& operator=(const ModbusServer&) = delete;
    ~ModbusServer() { Kill(); }

    [[nodiscard]] int Port() const { return port; }
    std::string Ask(const std::string& command);

    /// At once, as a power cut does; what it held is gone.
    void Kill();

private:
    std::string Line();

    pid_t process = -1;
    std::FILE* commands = nullptr;
    std::FILE* answers = nullptr;
    int port = 0;
};

/// Accepts connections on a free port and gives each to a function, one after the other.
///
/// Threads: the function runs on a thread of the peer's.
class ScriptedPeer
{
public:
    /// Returns when the connection is to be closed; `Receive` is false once the peer stops or the other side closes.
    using Script = std::function<void(ScriptedPeer& peer, int connection)>;

    explicit ScriptedPeer(Script whatToDo);
    ScriptedPeer(const ScriptedPeer&) = delete;
    ScriptedPeer& operator=(const ScriptedPeer&) = delete;
    ~ScriptedPeer();

    [[nodiscard]] int Port() const { return port; }
    [[nodiscard]] int Connections() const { return connections.load(); }

    /// One request: the 7 bytes of the header and what it says follows.
    bool Receive(int connection, std::vector<std::uint8_t>& request);
    static void Send(int connection, const std::vector<std::uint8_t>& bytes);
    /// Answers `request` with `body`, which begins with the function.
    static void Answer(int connection, const std::vector<std::uint8_t>& request, const std::vector<std::uint8_t>& body);
    /// Waits until the other side closes or the peer stops.
    void WaitForEnd(int connection);

private:
    void Run();
    bool WaitReadable(int handle) const;
    bool ReceiveBytes(int connection, std::uint8_t* out, std::size_t count);

    Script script;
    int port = 0;  // before the listener, whose making sets it
    int listener = -1;
    std::atomic<int> connections{0};
    std::atomic<bool> stopping{false};
    std::thread thread;
};

/// A port of 127.0.0.1 on which nobody listens; the object keeps it from being given to anybody else.
class ClosedPort
{
public:
    ClosedPort();
    ClosedPort(const ClosedPort&) = delete;
    ClosedPort& operator=(const ClosedPort&) = delete;
    ~ClosedPort();
    [[nodiscard]] int Port() const { return port; }

private:
    int port = 0;  // before the handle, whose making sets it
    int handle = -1;
};
