// A running server with services that the test plays itself.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "http/RawClient.h"
#include "suite/http/KTHttpServices.h"
#include "support/TestText.h"

/// A directory that goes when the test ends.
class ScratchDirectory
{
public:
    ScratchDirectory()
    {
        std::string name = (std::filesystem::temp_directory_path() / "http-XXXXXX").string();
        path = ::mkdtemp(name.data());
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;
    ~ScratchDirectory() { std::filesystem::remove_all(path); }

    void Write(const std::string& name, const std::string& content) const
    {
        std::filesystem::create_directories(std::filesystem::path(path + '/' + name).parent_path());
        std::ofstream(path + '/' + name, std::ios::binary) << content;
    }

    std::string path;
};

/// The settings, services and limits may be changed until Start.
class TestServer
{
public:
    TestServer()
    {
        settings.port = 0;
        settings.htmlPath = scratch.path + "/html";
        scratch.Write("console/index.html", "<!DOCTYPE html><title>console</title>");
        scratch.Write("console/js/main.js", "export {};");
        scratch.Write("secret.txt", "secret");
        services.actived = [](KTHttpRequest&, KTHttpResponse& response) { return Write(response, "<activedEvents/>"); };
        services.notified = [](KTHttpRequest&, KTHttpResponse& response)
        { return Write(response, "<notifiedEvents/>"); };
        services.logger =
            [this](KTHttpRequest&, KTHttpResponse& response, const KTDateTime& begin, const KTDateTime& end)
        {
            const std::lock_guard guard(mutex);
            period = Text(begin) + " to " + Text(end);
            return Write(response, "<loggerEvents/>");
        };
        services.acknowledge = [this](KTHttpRequest&, const unsigned char* body)
        {
            {
                const std::lock_guard guard(mutex);
                acknowledged = reinterpret_cast<const char*>(body);
            }
            ++acknowledgements;
            return true;
        };
        services.eventsList = [] { return std::string(R"([{"name":"Overload"}])"); };
        services.healthy = [this] { return healthy.load(); };
        services.metrics = [] { return std::string("up 1\n"); };
    }

    /// ana may read, olga also acknowledge, emil everything; the password of each is the name and "-pw".
    void AddUsers()
    {
        using Role = KTUserSettings::Role;
        settings.users = {{"ana", "hash of ana-pw", Role::viewer},
                          {"olga", "hash of olga-pw", Role::operatorRole},
                          {"emil", "hash of emil-pw", Role::engineer}};
    }

    /// A service's whole reply.
    static bool Write(KTHttpResponse& response, const char* text)
    {
        response.Start(200, 3);
        response.Write(text, -1);
        return response.Finish();
    }

    void Start()
    {
        server = std::make_unique<KTHttpServer>(settings, limits,
                                                [this](const std::string& password, const std::string& hash)
                                                {
                                                    ++hashes;
                                                    if (slowHash) slowHash();
                                                    return hash == "hash of " + password;
                                                });
        AddHttpServices(*server, settings, services, scratch.path + "/console");
        if (addRoutes) addRoutes(server->Router());
        std::string error;
        ASSERT_TRUE(server->Start(error)) << error;
    }

    [[nodiscard]] int Port() const { return server->Port(); }

    /// One request on a connection of its own. `headers` are whole lines, each with its end.
    RawReply Ask(const std::string& method, const std::string& target, const std::string& headers = {},
                 const std::string& body = {}) const
    {
        RawClient client(Port());
        client.Send(Request(method, target, headers, body));
        return client.Read(std::chrono::seconds(20), method == "HEAD");
    }

    [[nodiscard]] std::string Request(const std::string& method, const std::string& target,
                                      const std::string& headers = {}, const std::string& body = {}) const
    {
        std::string text = method + ' ' + target + " HTTP/1.1\r\n" + headers;
        if (headers.find("Host:") == headers.npos) text += "Host: 127.0.0.1:" + std::to_string(Port()) + "\r\n";
        if (!body.empty() || method == "POST" || method == "PUT")
            text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
        return text + "\r\n" + body;
    }

    ScratchDirectory scratch;
    KTSettings settings;
    KTHttpLimits limits;
    KTHttpServices services;
    std::function<void(KTHttpRouter&)> addRoutes;
    std::function<void()> slowHash;
    std::atomic<int> hashes{0};
    std::atomic<int> acknowledgements{0};
    std::mutex mutex;
    std::string acknowledged;  // the last body; guarded by mutex while requests run
    std::string period;        // of the last question to the log; the same
    std::atomic<bool> healthy{true};
    std::unique_ptr<KTHttpServer> server;  // last: it stops before what it uses goes
};

/// The header line of a user of TestServer::AddUsers.
inline std::string As(const std::string& name)
{
    if (name == "ana") return "Authorization: Basic YW5hOmFuYS1wdw==\r\n";
    if (name == "olga") return "Authorization: Basic b2xnYTpvbGdhLXB3\r\n";
    if (name == "emil") return "Authorization: Basic ZW1pbDplbWlsLXB3\r\n";
    if (name == "wrong") return "Authorization: Basic YW5hOndyb25n\r\n";  // ana:wrong
    return {};
}
