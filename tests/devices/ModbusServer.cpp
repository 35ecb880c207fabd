#include "devices/ModbusServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

extern char** environ;

namespace
{
int BindLocal(int& port)
{
    const int handle = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(bind(handle, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    socklen_t size = sizeof address;
    EXPECT_EQ(getsockname(handle, reinterpret_cast<sockaddr*>(&address), &size), 0);
    port = ntohs(address.sin_port);
    return handle;
}
}  // namespace

ModbusServer::ModbusServer(int wantedPort)
{
    // A command to a server that died must fail the test that sends it, not end all of them.
    signal(SIGPIPE, SIG_IGN);
    std::array<int, 2> in{};
    std::array<int, 2> out{};
    if (pipe2(in.data(), O_CLOEXEC) != 0 || pipe2(out.data(), O_CLOEXEC) != 0)
    {
        ADD_FAILURE() << "no pipes";
        return;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    std::string program = "/usr/bin/python3";
    std::string script = MODBUS_SERVER;
    std::string wanted = std::to_string(wantedPort);
    std::array<char*, 4> arguments{program.data(), script.data(), wanted.data(), nullptr};
    EXPECT_EQ(posix_spawn(&process, program.c_str(), &actions, nullptr, arguments.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    close(in[0]);
    close(out[1]);
    commands = fdopen(in[1], "w");
    answers = fdopen(out[0], "r");
    const std::string ready = Line();
    EXPECT_EQ(ready.substr(0, 10), "listening ") << ready;
    if (ready.size() > 10) port = std::stoi(ready.substr(10));
}

std::string ModbusServer::Ask(const std::string& command)
{
    if (commands == nullptr) return "error: killed";
    std::fputs((command + "\n").c_str(), commands);
    std::fflush(commands);
    std::string answer = Line();
    EXPECT_NE(answer.substr(0, 5), "error") << command << ": " << answer;
    return answer;
}

void ModbusServer::Kill()
{
    if (process < 0) return;
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
    process = -1;
    std::fclose(commands);
    std::fclose(answers);
    commands = nullptr;
    answers = nullptr;
}

std::string ModbusServer::Line()
{
    std::string line;
    for (int c = std::fgetc(answers); c != EOF && c != '\n'; c = std::fgetc(answers)) line += static_cast<char>(c);
    return line;
}

ScriptedPeer::ScriptedPeer(Script whatToDo) : script(std::move(whatToDo)), listener(BindLocal(port))
{
    EXPECT_EQ(listen(listener, 20), 0);
    thread = std::thread([this] { Run(); });
}

ScriptedPeer::~ScriptedPeer()
{
    stopping.store(true);
    thread.join();
    close(listener);
}

void ScriptedPeer::Run()
{
    while (WaitReadable(listener))
    {
        const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) continue;
        connections.fetch_add(1);
        script(*this, connection);
        close(connection);
    }
}

bool ScriptedPeer::WaitReadable(int handle) const
{
    while (!stopping.load())
    {
        pollfd wait{handle, POLLIN, 0};
        if (poll(&wait, 1, 10) > 0) return true;
    }
    return false;
}

bool ScriptedPeer::ReceiveBytes(int connection, std::uint8_t* out, std::size_t count)
{
    for (std::size_t got = 0; got < count;)
    {
        if (!WaitReadable(connection)) return false;
        const ssize_t some = recv(connection, out + got, count - got, 0);
        if (some <= 0) return false;
        got += static_cast<std::size_t>(some);
    }
    return true;
}

bool ScriptedPeer::Receive(int connection, std::vector<std::uint8_t>& request)
{
    request.resize(7);
    if (!ReceiveBytes(connection, request.data(), 7)) return false;
    // The length counts the unit, which is the header's last byte.
    const std::size_t rest = static_cast<std::size_t>(request[4] * 256 + request[5]) - 1;
    request.resize(7 + rest);
    return ReceiveBytes(connection, request.data() + 7, rest);
}

void ScriptedPeer::Send(int connection, const std::vector<std::uint8_t>& bytes)
{
    (void)send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);  // the other side may have gone
}

void ScriptedPeer::Answer(int connection, const std::vector<std::uint8_t>& request,
                          const std::vector<std::uint8_t>& body)
{
    std::vector<std::uint8_t> answer(request.begin(), request.begin() + 7);
    answer[4] = 0;
    answer[5] = static_cast<std::uint8_t>(body.size() + 1);
    answer.insert(answer.end(), body.begin(), body.end());
    Send(connection, answer);
}

void ScriptedPeer::WaitForEnd(int connection)
{
    std::uint8_t byte = 0;
    while (ReceiveBytes(connection, &byte, 1)) continue;
}

ClosedPort::ClosedPort() : handle(BindLocal(port)) {}
ClosedPort::~ClosedPort() { close(handle); }
