// A mail server that does what a test says, byte by byte.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>

/// One connection, as the server sees it.
///
/// Errors:  reading ends, with what came until then, when the client closes or the server stops.
class MailSession
{
public:
    MailSession(int connectionHandle, const std::atomic<bool>& stopFlag) : handle(connectionHandle), stopping(stopFlag)
    {
    }
    MailSession(const MailSession&) = delete;
    MailSession& operator=(const MailSession&) = delete;

    [[nodiscard]] std::string Read(std::size_t count);
    /// Up to and with `end`.
    [[nodiscard]] std::string ReadTo(const std::string& end);
    /// All that comes until the client closes.
    [[nodiscard]] std::string Rest();
    /// True when the client's next bytes are these; otherwise the test fails.
    bool Expect(const std::string& bytes);
    void Say(const std::string& bytes) const;
    /// The close that follows is a reset: what the client sends then finds nobody.
    void ResetAtClose() const;
    [[nodiscard]] bool Stopping() const { return stopping; }

private:
    bool Receive();

    const int handle;
    const std::atomic<bool>& stopping;
    std::string pending;  // received and not read yet
};

/// Listens on a free port of 127.0.0.1 and gives each connection to a function, one after the other.
///
/// Threads: the function runs on a thread of the server's, and returns when the connection is to be closed.
class ScriptedMailServer
{
public:
    using Script = std::function<void(MailSession&)>;

    explicit ScriptedMailServer(Script whatToDo);
    ScriptedMailServer(const ScriptedMailServer&) = delete;
    ScriptedMailServer& operator=(const ScriptedMailServer&) = delete;
    ~ScriptedMailServer();

    [[nodiscard]] int Port() const { return port; }
    [[nodiscard]] std::string Address() const { return "127.0.0.1:" + std::to_string(port); }
    [[nodiscard]] int Connections() const { return connections; }

private:
    void Run();

    Script script;
    int port = 0;
    int listener = -1;
    std::atomic<int> connections{0};
    std::atomic<bool> stopping{false};
    std::thread thread;
};
