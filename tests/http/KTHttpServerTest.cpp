#include "suite/http/KTHttpServer.h"

#include <gtest/gtest.h>

#include <latch>
#include <list>
#include <thread>

#include "http/SlowClients.h"

TEST(KTHttpServer, TellsThePortThatTheSystemChose)
{
    TestServer server;
    server.Start();
    EXPECT_GT(server.Port(), 0);
    EXPECT_EQ(server.server->Url(), "http://127.0.0.1:" + std::to_string(server.Port()) + "/");
    EXPECT_EQ(server.Ask("GET", "/health").status, 200);
}

TEST(KTHttpServer, KnowsItsPortBeforeItAnswers)
{
    TestServer server;
    KTHttpServer bound(server.settings);
    std::string error;
    ASSERT_TRUE(bound.Listen(error)) << error;
    EXPECT_GT(bound.Port(), 0);
    RawClient early(bound.Port());
    EXPECT_TRUE(early.connected);
    early.Send("GET /nothing HTTP/1.1\r\nHost: localhost\r\n\r\n");
    EXPECT_EQ(early.Read(100ms).status, 0);
    ASSERT_TRUE(bound.Start(error)) << error;
    EXPECT_EQ(early.Read().status, 404);
}

TEST(KTHttpServer, ListensOnIPv6)
{
    TestServer server;
    server.settings.listen = "::1";
    server.Start();
    EXPECT_EQ(server.server->Url(), "http://[::1]:" + std::to_string(server.Port()) + "/");
    for (const char* host : {"[::1]", "[0:0:0:0:0:0:0:1]:80", "localhost"})
    {
        RawClient client(server.Port(), "::1");
        client.Send(server.Request("GET", "/health", std::string("Host: ") + host + "\r\n"));
        EXPECT_EQ(client.Read().status, 200) << host;
    }
    RawClient client(server.Port(), "::1");
    client.Send(server.Request("GET", "/health", "Host: 127.0.0.1\r\n"));
    EXPECT_EQ(client.Read().status, 421);
    EXPECT_FALSE(RawClient(server.Port()).connected);
}

TEST(KTHttpServer, OnAllAddressesAnswersUnderTheOneThatWasAsked)
{
    for (const char* listen : {"0.0.0.0", "::"})
    {
        TestServer server;
        server.settings.listen = listen;
        server.settings.open = true;
        server.Start();
        EXPECT_EQ(server.Ask("GET", "/health").status, 200) << listen;
        EXPECT_EQ(server.Ask("GET", "/health", "Host: localhost\r\n").status, 200) << listen;
        EXPECT_EQ(server.Ask("GET", "/health", "Host: 127.0.0.3\r\n").status, 421) << listen;
        RawClient other(server.Port(), "127.0.0.3");
        other.Send(server.Request("GET", "/health", "Host: 127.0.0.3\r\n"));
        EXPECT_EQ(other.Read().status, 200) << listen;
    }
}

TEST(KTHttpServer, RefusesToBeReachedByStrangers)
{
    TestServer base;
    base.scratch.Write("cert.pem", "no certificate");
    const std::string file = base.scratch.path + "/cert.pem";
    const struct
    {
        const char* listen;
        bool users, tls, open, starts;
        const char* why;
    } rows[] = {
        {"127.0.0.1", false, false, false, true, ""},
        {"127.3.2.1", false, false, false, true, ""},
        {"::1", false, false, false, true, ""},
        {"localhost", false, false, false, true, ""},
        {"0.0.0.0", false, false, false, false, "[[http.user]]"},
        {"0.0.0.0", true, false, false, false, "for TLS"},
        {"0.0.0.0", false, true, false, false, "[[http.user]]"},
        {"0.0.0.0", false, false, true, true, ""},
        {"0.0.0.0", true, false, true, true, ""},
        {"0.0.0.0", true, true, false, false, "can't use the certificate"},  // let through as far as the certificate
        {"::", false, false, false, false, "[[http.user]]"},
        {"::ffff:127.0.0.1", false, false, false, true, ""},
    };
    for (const auto& r : rows)
    {
        TestServer server;
        server.settings.listen = r.listen;
        server.settings.open = r.open;
        if (r.users) server.AddUsers();
        if (r.tls) server.settings.certificate = server.settings.key = file;
        KTHttpServer tried(server.settings);
        std::string error;
        EXPECT_EQ(tried.Start(error), r.starts) << r.listen << ' ' << error;
        EXPECT_NE(error.find(r.why), error.npos) << r.listen << ": " << error;
    }
}

TEST(KTHttpServer, TellsWhyItCannotListen)
{
    TestServer server;
    server.Start();
    const struct
    {
        const char* listen;
        int port;
        const char* certificate;
        const char* why;
    } rows[] = {
        {"127.0.0.1", server.Port(), "", "in use"},
        {"127.0.0.1.1", 0, "", "127.0.0.1.1"},
        {"127.0.0.1", 0, "/no/such/file", "certificate and key"},
    };
    for (const auto& r : rows)
    {
        KTSettings settings;
        settings.listen = r.listen;
        settings.port = r.port;
        settings.certificate = r.certificate;
        KTHttpServer second(settings);
        std::string error;
        EXPECT_FALSE(second.Start(error)) << r.listen;
        EXPECT_NE(error.find(r.why), error.npos) << error;
        second.Stop();
    }
}

TEST(KTHttpServer, CutsASilentClient)
{
    TestServer server;
    server.limits.idle = 1s;
    server.limits.head = 20s;
    server.Start();
    const auto start = Clock::now();
    RawClient silent(server.Port());
    RawClient half(server.Port());
    half.Send("GET /health HTTP/1.1\r\n");
    EXPECT_TRUE(silent.WaitForEnd(5s));
    EXPECT_TRUE(half.WaitForEnd(5s));
    EXPECT_GE(Since(start), 900ms);
}

TEST(KTHttpServer, CutsAClientThatDripsItsHead)
{
    TestServer server;
    server.limits.idle = 1s;
    server.limits.head = 2s;
    server.Start();
    RawClient client(server.Port());
    const auto start = Clock::now();
    client.Send("GET /health HTTP/1.1\r\nHost: localhost\r\nX: ");
    bool ended = false;
    while (!ended && Since(start) < 10s)
    {
        client.Send("x");  // never idle
        ended = client.WaitForEnd(200ms);
    }
    EXPECT_TRUE(ended);
    EXPECT_GE(Since(start), 1800ms);
    EXPECT_LT(Since(start), 4s);
    EXPECT_TRUE(Eventually([&] { return server.server->Connections() == 0; }));
}

TEST(KTHttpServer, CutsAClientThatDripsItsBody)
{
    TestServer server;
    server.limits.idle = 1s;
    server.limits.body = 2s;
    server.Start();
    RawClient client(server.Port());
    const auto start = Clock::now();
    client.Send("POST /services/events/ack.xml HTTP/1.1\r\nHost: localhost\r\nContent-Length: 1000\r\n\r\n");
    bool ended = false;
    while (!ended && Since(start) < 10s)
    {
        client.Send("x");
        ended = client.WaitForEnd(200ms);
    }
    EXPECT_TRUE(ended);
    EXPECT_LT(Since(start), 4s);
    EXPECT_EQ(server.acknowledgements, 0);
}

TEST(KTHttpServer, CutsAClientThatSipsItsReply)
{
    TestServer server;
    server.limits.idle = 5s;
    server.limits.sending = 1s;
    server.limits.sendingRate = 1 << 30;
    server.addRoutes = Large(largeSize);
    server.Start();
    RawClient client(server.Port(), "127.0.0.1", 4096);
    client.Send(server.Request("GET", "/large"));
    const auto start = Clock::now();
    std::size_t got = 0;
    while (server.server->Connections() > 0 || got == 0)
    {
        got += client.Sip(1000);
        ASSERT_LT(Since(start), 10s);
        std::this_thread::sleep_for(10ms);
    }
    EXPECT_GE(Since(start), 900ms);
    EXPECT_LT(got, largeSize);
}

TEST(KTHttpServer, CutsAClientThatTakesNothingOfItsReply)
{
    TestServer server;
    server.limits.idle = 1s;
    server.limits.sending = 60s;
    server.addRoutes = Large(largeSize);
    server.Start();
    RawClient client(server.Port(), "127.0.0.1", 4096);
    client.Send(server.Request("GET", "/large"));
    ASSERT_TRUE(Eventually([&] { return server.server->Connections() == 1; }));
    EXPECT_TRUE(Eventually([&] { return server.server->Connections() == 0; }));
}

TEST(KTHttpServer, GivesALargeReplyTheTimeThatItNeeds)
{
    TestServer server;
    server.limits.sending = 100ms;
    server.limits.sendingRate = largeSize / 20;  // 20 s for all of it
    server.addRoutes = Large(largeSize);
    server.Start();
    RawClient client(server.Port());
    client.Send(server.Request("GET", "/large"));
    std::this_thread::sleep_for(700ms);
    const RawReply reply = client.Read(20s);
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.body.size(), largeSize);
    EXPECT_EQ(reply.body.find_first_not_of('x'), std::string::npos);
}

TEST(KTHttpServer, AnswersOthersWhileManyClientsAreSlow)
{
    TestServer server;
    server.addRoutes = Large(largeSize / 8);
    server.Start();
    std::list<RawClient> slow;
    for (int i = 0; i < 64; ++i)
    {
        RawClient& client = slow.emplace_back(server.Port(), "127.0.0.1", 4096);
        switch (i % 4)
        {
            case 0:
                break;  // says nothing
            case 1:
                client.Send("GET /health HTTP/1.1\r\nHost: local");
                break;
            case 2:
                client.Send("POST /services/events/ack.xml HTTP/1.1\r\nHost: localhost\r\nContent-Length: 99\r\n\r\n<");
                break;
            default:
                client.Send(server.Request("GET", "/large"));
        }
    }
    ASSERT_TRUE(Eventually([&] { return server.server->Connections() == 64; }));
    std::chrono::milliseconds slowest{0};
    for (int i = 0; i < 100; ++i)
    {
        const auto start = Clock::now();
        ASSERT_EQ(server.Ask("GET", "/services/events/actived.xml").status, 200) << i;
        slowest = std::max(slowest, Since(start));
        for (RawClient& client : slow) client.Sip(1);
    }
    EXPECT_LT(slowest, 1s);
}

TEST(KTHttpServer, LetsNewClientsInWhenOneAddressHoldsAllItMay)
{
    TestServer server;
    server.limits.connectionsOfOne = 20;
    server.limits.connections = 20;
    server.limits.settled = 100ms;
    server.Start();
    std::list<RawClient> idle;
    for (int i = 0; i < 100; ++i)
    {
        idle.emplace_back(server.Port());
        if (i % 20 == 19) std::this_thread::sleep_for(150ms);
    }
    EXPECT_TRUE(Eventually([&] { return server.server->Connections() <= 20; }));
    std::this_thread::sleep_for(150ms);
    for (int i = 0; i < 30; ++i) ASSERT_EQ(server.Ask("GET", "/health").status, 200) << i;
}

TEST(KTHttpServer, StopsAtOnceAmongIdleClients)
{
    TestServer server;
    server.Start();
    std::list<RawClient> idle;
    for (int i = 0; i < 20; ++i) idle.emplace_back(server.Port()).Send("GET /hea");
    ASSERT_TRUE(Eventually([&] { return server.server->Connections() == 20; }));
    const auto start = Clock::now();
    server.server->Stop();
    EXPECT_LT(Since(start), 1s);
    for (RawClient& client : idle) EXPECT_TRUE(client.WaitForEnd(1s));
    EXPECT_FALSE(RawClient(server.Port()).connected);
    server.server->Stop();
}

TEST(KTHttpServer, StopsInTheMidstOfSlowClientsAndStreams)
{
    Feed feed;
    feed.flood = true;
    TestServer server;
    server.addRoutes = [&](KTHttpRouter& router)
    {
        feed.AddTo(router);
        Large(largeSize / 8)(router);
    };
    server.Start();
    std::list<RawClient> slow;
    for (int i = 0; i < 64; ++i)
    {
        RawClient& client = slow.emplace_back(server.Port(), "127.0.0.1", 4096);
        if (i % 4 == 0) client.Send(server.Request("GET", "/large"));
        if (i % 4 == 1)
            client.Send("POST /services/events/ack.xml HTTP/1.1\r\nHost: localhost\r\nContent-Length: 9\r\n\r\n");
        if (i % 4 == 2) client.Send(server.Request("GET", "/stream"));
    }
    ASSERT_TRUE(Eventually([&] { return server.server->Connections() == 64 && feed.open == 16; }));
    const auto start = Clock::now();
    server.server->Stop();
    EXPECT_LT(Since(start), 3s);
    EXPECT_EQ(feed.open, 0);
    EXPECT_EQ(server.server->Connections(), 0u);
}

TEST(KTHttpServer, LetsAnAnswerUnderWayReachItsClientWhenItStops)
{
    TestServer server;
    std::latch entered(1);
    server.services.actived = [&](KTHttpRequest&, KTHttpResponse& response)
    {
        entered.count_down();
        std::this_thread::sleep_for(500ms);
        return TestServer::Write(response, "whole");
    };
    server.Start();
    RawClient client(server.Port());
    client.Send(server.Request("GET", "/services/events/actived.xml"));
    entered.wait();
    server.server->Stop();
    const RawReply reply = client.Read(1s);
    EXPECT_EQ(reply.body, "whole");
    EXPECT_EQ(reply.Header("Connection"), "close");
}

// A service works with what its owner is about to take apart.
TEST(KTHttpServer, WaitsForServicesWhenItStops)
{
    TestServer server;
    server.limits.stop = 100ms;
    std::latch entered(1);
    std::atomic<bool> left{false};
    server.services.actived = [&](KTHttpRequest&, KTHttpResponse& response)
    {
        entered.count_down();
        std::this_thread::sleep_for(1s);
        left = true;
        return TestServer::Write(response, "late");
    };
    server.Start();
    RawClient client(server.Port());
    client.Send(server.Request("GET", "/services/events/actived.xml"));
    entered.wait();
    server.server->Stop();
    EXPECT_TRUE(left);
}

TEST(KTHttpServer, StopsUnderFire)
{
    TestServer server;
    server.AddUsers();
    server.Start();
    const int port = server.Port();
    const std::string requests = server.Request("GET", "/services/events/actived.xml", As("ana")) +
                                 server.Request("POST", "/services/events/ack.xml", As("olga"), "<eventsAck/>");
    std::atomic<bool> end{false};
    std::atomic<int> answers{0};
    std::vector<std::jthread> clients;
    for (int i = 0; i < 8; ++i)
        clients.emplace_back(
            [&]
            {
                while (!end)
                {
                    RawClient client(port);
                    client.Send(requests);
                    for (int j = 0; j < 2; ++j)
                        if (client.Read(2s).status != 0) ++answers;
                }
            });
    ASSERT_TRUE(Eventually([&] { return answers > 100; }));
    const auto start = Clock::now();
    server.server->Stop();
    EXPECT_LT(Since(start), 3s);
    end = true;
}

TEST(KTHttpServer, StartsAndStopsAgainAndAgain)
{
    TestServer server;
    for (int i = 0; i < 5; ++i)
    {
        server.Start();
        EXPECT_EQ(server.Ask("GET", "/health").status, 200);
        if (i % 2 == 0) server.server->Stop();
        server.server.reset();
    }
}
