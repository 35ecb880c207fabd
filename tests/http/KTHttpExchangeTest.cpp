#include "suite/http/KTHttpExchange.h"

#include <gtest/gtest.h>

#include <list>
#include <thread>

#include "http/SlowClients.h"

using namespace std::string_literals;

TEST(KTHttpExchange, KeepsAConnectionForManyRequests)
{
    TestServer server;
    server.Start();
    RawClient client(server.Port());
    for (int i = 0; i < 50; ++i)
    {
        ASSERT_TRUE(client.Send(server.Request("GET", i % 2 == 0 ? "/health" : "/nothing"))) << i;
        ASSERT_EQ(client.Read().status, i % 2 == 0 ? 200 : 404) << i;
        client.Send(server.Request("POST", "/services/events/ack.xml", "", "<eventsAck/>"));
        ASSERT_EQ(client.Read().status, 204) << i;
        client.Send(server.Request("POST", "/services/events/ack.xml", "", "<wrong/>"));  // a refusal keeps it too
        ASSERT_EQ(client.Read().status, 400) << i;
        client.Send(server.Request("POST", "/nothing", "", "thrown away"));
        ASSERT_EQ(client.Read().status, 404) << i;
    }
    client.Send(server.Request("GET", "/health", "Connection: close\r\n"));
    EXPECT_EQ(client.Read().status, 200);
    EXPECT_TRUE(client.WaitForEnd(5s));
}

TEST(KTHttpExchange, AnswersPipelinedRequestsInTheirOrder)
{
    TestServer server;
    server.Start();
    RawClient client(server.Port());
    std::string all;
    for (int i = 0; i < 20; ++i)
    {
        all += server.Request("GET", "/services/events/actived.xml");
        all += server.Request("POST", "/services/events/ack.xml", "", "<eventsAck/>");
        all += server.Request("GET", "/nothing");
    }
    client.Send(all);
    for (int i = 0; i < 20; ++i)
    {
        ASSERT_EQ(client.Read().body, "<activedEvents/>") << i;
        ASSERT_EQ(client.Read().status, 204) << i;
        ASSERT_EQ(client.Read().status, 404) << i;
    }
    EXPECT_EQ(server.acknowledgements, 20);
}

TEST(KTHttpExchange, TakesARequestInSmallParts)
{
    TestServer server;
    server.Start();
    RawClient client(server.Port());
    for (const char byte : server.Request("POST", "/services/events/ack.xml", "", "<eventsAck/>"))
        client.Send(std::string(1, byte));
    EXPECT_EQ(client.Read().status, 204);
    EXPECT_EQ(server.acknowledged, "<eventsAck/>");
}

TEST(KTHttpExchange, RefusesRequestsWhoseEndIsNotClear)
{
    TestServer server;
    server.Start();
    const char* const heads[] = {
        "Content-Length: 12\r\nContent-Length: 13\r\n",
        "Content-Length: 12\r\nContent-Length: 12\r\n",
        "Content-Length: 12\r\nTransfer-Encoding: chunked\r\n",
        "Transfer-Encoding: chunked\r\nContent-Length: 12\r\n",
        "Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n",
        "Transfer-Encoding: gzip\r\n",
        "Transfer-Encoding: chunked, identity\r\n",
        "Transfer-Encoding : chunked\r\nContent-Length: 12\r\n",
        "Content-Length : 12\r\n",
        "Content-Length: -1\r\n",
        "Content-Length: 0x0C\r\n",
        "Content-Length: 12 12\r\n",
        "Content-Length: +12\r\n",
        "Content-Length: 99999999999999999999999\r\n",
    };
    for (const char* head : heads)
    {
        RawClient client(server.Port());
        client.Send(std::string("POST /services/events/ack.xml HTTP/1.1\r\nHost: localhost\r\n") + head +
                    "\r\n<eventsAck/>GET /health HTTP/1.1\r\nHost: localhost\r\n\r\n");
        const int status = client.Read().status;
        EXPECT_TRUE(status == 400 || status == 413) << head << status;
        EXPECT_TRUE(client.WaitForEnd(5s)) << head;  // what follows could be anything
    }
    EXPECT_EQ(server.acknowledgements, 0);
}

TEST(KTHttpExchange, SurvivesWhateverBytesCome)
{
    TestServer server;
    server.Start();
    const std::string requests[] = {
        "\r\n\r\n",
        "GARBAGE\r\n\r\n",
        "GET\r\n\r\n",
        "GET / HTTP/9.9\r\nHost: localhost\r\n\r\n",
        "GET  / HTTP/1.1\r\nHost: localhost\r\n\r\n",
        "GET /a b HTTP/1.1\r\nHost: localhost\r\n\r\n",
        "GET /\x01 HTTP/1.1\r\nHost: localhost\r\n\r\n",
        "GET / HTTP/1.1\r\nHost: localhost\r\nNoColon\r\n\r\n",
        "GET / HTTP/1.1\r\nHost: localhost\r\n: empty\r\n\r\n",
        "GET / HTTP/1.1\r\nHost: local\0host\r\n\r\n"s,
        "GET /\0 HTTP/1.1\r\nHost: localhost\r\n\r\n"s,
        "GET * HTTP/1.1\r\nHost: localhost\r\n\r\n",
        "CONNECT localhost:80 HTTP/1.1\r\nHost: localhost\r\n\r\n",
        "G\x80T / HTTP/1.1\r\nHost: localhost\r\n\r\n",
        "POST /services/events/ack.xml HTTP/1.1\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n",
        "POST /services/events/ack.xml HTTP/1.1\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\n"
        "ffffffffffffffff\r\nxx",
        "POST /services/events/ack.xml HTTP/1.1\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\n-1\r\nxx",
        "GET / HTTP/1.1\r\nHost: localhost\r\nX: " + std::string(300'000, 'x') + "\r\n\r\n",
        "GET /" + std::string(300'000, 'x') + " HTTP/1.1\r\nHost: localhost\r\n\r\n",
        "\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03",
    };
    for (const std::string& request : requests)
    {
        RawClient client(server.Port());
        client.Send(request);
        ::shutdown(client.socket, SHUT_WR);
        EXPECT_NE(client.Read(3s).status, 500) << request.substr(0, 60);
        EXPECT_EQ(server.Ask("GET", "/health").status, 200) << request.substr(0, 60);
    }
    EXPECT_TRUE(Eventually([&] { return server.server->Connections() == 0; }));
}

TEST(KTHttpExchange, RefusesAHeadThatIsTooLarge)
{
    TestServer server;
    server.limits.headSize = 16 * 1024;
    server.Start();
    EXPECT_EQ(server.Ask("GET", "/health", "X: " + std::string(15'000, 'x') + "\r\n").status, 200);
    const RawReply large = server.Ask("GET", "/health", "X: " + std::string(17'000, 'x') + "\r\n");
    EXPECT_EQ(large.status, 431);
    EXPECT_EQ(large.Header("Content-Type"), "text/plain; charset=utf-8");
    EXPECT_EQ(server.Ask("GET", "/health", "X: " + std::string(200'000, 'x') + "\r\n").status, 431);
    std::string many;
    for (int i = 0; i < 3000; ++i) many += "X" + std::to_string(i) + ": y\r\n";
    EXPECT_EQ(server.Ask("GET", "/health", many).status, 431);
    const int longPath = server.Ask("GET", "/" + std::string(200'000, 'x')).status;
    EXPECT_TRUE(longPath == 414 || longPath == 431) << longPath;
}

// A refusal that comes while the client is still sending is lost for many clients.
TEST(KTHttpExchange, ReadsARefusedBodyToItsEndBeforeItAnswers)
{
    TestServer server;
    server.AddUsers();
    server.Start();
    const std::string body(3 * 1024 * 1024, 'x');
    EXPECT_EQ(server.Ask("POST", "/services/events/ack.xml", "", body).status, 401);
    EXPECT_EQ(server.Ask("POST", "/services/events/ack.xml", As("ana"), body).status, 403);
    EXPECT_EQ(server.Ask("POST", "/nothing", As("ana"), body).status, 404);
    EXPECT_EQ(server.Ask("POST", "/health", "", body).status, 405);
    EXPECT_EQ(server.Ask("POST", "/health", "Host: elsewhere\r\n", body).status, 421);
    EXPECT_EQ(server.Ask("GET", "/health", "", body).status, 200);  // a body that nobody wanted
}

TEST(KTHttpExchange, DoesNotReadABodyWithoutEnd)
{
    TestServer server;
    server.limits.discardSize = 1024 * 1024;
    server.Start();
    RawClient declared(server.Port());
    declared.Send("POST /services/events/ack.xml HTTP/1.1\r\nHost: localhost\r\nContent-Length: 9999999999\r\n\r\n");
    EXPECT_EQ(declared.Read().status, 413);
    EXPECT_TRUE(declared.WaitForEnd(5s));

    RawClient chunked(server.Port());
    chunked.Send("POST /services/events/ack.xml HTTP/1.1\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\n");
    const std::string chunk = "10000\r\n" + std::string(0x10000, 'x') + "\r\n";
    int sent = 0;
    while (sent < 1000 && chunked.Send(chunk)) ++sent;
    EXPECT_LT(sent, 1000);
}

// The scan may hold a service back for as long as it takes.
TEST(KTHttpExchange, WaitsForASlowServiceBeyondTheLimitsOfClients)
{
    TestServer server;
    server.limits.idle = 1s;
    server.limits.head = 1s;
    server.limits.sending = 1s;
    server.services.actived = [](KTHttpRequest&, KTHttpResponse& response)
    {
        std::this_thread::sleep_for(2500ms);
        return TestServer::Write(response, "late");
    };
    server.Start();
    EXPECT_EQ(server.Ask("GET", "/services/events/actived.xml").body, "late");
}

TEST(KTHttpExchange, KeepsTheMemoryOfLargeRepliesWithinItsBudget)
{
    TestServer server;
    server.limits.replyMemory = 24 * 1024 * 1024;
    server.limits.replyMemoryOfOne = 20 * 1024 * 1024;
    server.addRoutes = Large(16 * 1024 * 1024);
    server.Start();
    std::list<RawClient> slow;
    slow.emplace_back(server.Port(), "127.0.0.1", 4096).Send(server.Request("GET", "/large"));
    ASSERT_TRUE(Eventually([&] { return slow.back().Sip(1) == 1; }));
    const RawReply refused = server.Ask("GET", "/large");
    EXPECT_EQ(refused.status, 503);
    EXPECT_FALSE(refused.Header("Retry-After").empty());
    EXPECT_EQ(server.Ask("GET", "/health").status, 200);  // small ones need no budget
    slow.clear();
    EXPECT_TRUE(Eventually([&] { return server.Ask("GET", "/large").status == 200; }));
}

TEST(KTHttpExchange, KeepsTheMemoryOfLargeBodiesWithinItsBudget)
{
    TestServer server;
    server.limits.bodyMemory = 1'500'000;
    server.limits.bodyMemoryOfOne = 1'500'000;
    server.Start();
    RawClient slow(server.Port());
    slow.Send("POST /services/events/ack.xml HTTP/1.1\r\nHost: localhost\r\nContent-Length: 1000000\r\n\r\n<");
    ASSERT_TRUE(Eventually([&] { return server.server->Connections() == 1; }));
    const std::string large = "<eventsAck>" + std::string(900'000, ' ') + "</eventsAck>";
    ASSERT_TRUE(Eventually([&] { return server.Ask("POST", "/services/events/ack.xml", "", large).status == 503; }));
    EXPECT_EQ(server.Ask("POST", "/services/events/ack.xml", "", "<eventsAck/>").status, 204);
    ::shutdown(slow.socket, SHUT_RDWR);
    EXPECT_TRUE(Eventually([&] { return server.Ask("POST", "/services/events/ack.xml", "", large).status == 204; }));
}

TEST(KTHttpExchange, SendsAStreamAsItComes)
{
    Feed feed;
    TestServer server;
    server.addRoutes = [&](KTHttpRouter& router) { feed.AddTo(router); };
    server.Start();
    RawClient client(server.Port());
    client.Send(server.Request("GET", "/stream"));
    const auto arrives = [&](const char* text)
    {
        client.WaitForEnd(0ms);
        for (const auto end = Clock::now() + 5s; Clock::now() < end;)
        {
            char part[1000];
            const ssize_t got = ::recv(client.socket, part, sizeof part, MSG_DONTWAIT);
            if (got > 0) client.pending.append(part, static_cast<std::size_t>(got));
            if (client.pending.find(text) != client.pending.npos) return true;
            std::this_thread::sleep_for(2ms);
        }
        return false;
    };
    EXPECT_TRUE(arrives("Content-Type: text/event-stream"));
    ++feed.written;
    EXPECT_TRUE(arrives("data: 1\n\n"));
    feed.written += 2;
    EXPECT_TRUE(arrives("data: 3\n\n"));
    feed.end = true;
    EXPECT_TRUE(arrives("0\r\n\r\n"));  // the end of the chunks: the connection is free for more
    feed.end = false;
    EXPECT_TRUE(Eventually([&] { return feed.open == 0; }));
    client.pending.clear();
    client.Send(server.Request("GET", "/health"));
    EXPECT_EQ(client.Read().status, 200);
}

TEST(KTHttpExchange, KeepsASilentStreamAndNoticesWhenItsClientGoes)
{
    Feed feed;
    TestServer server;
    server.limits.idle = 1s;
    server.limits.streamIdle = 1s;
    server.addRoutes = [&](KTHttpRouter& router) { feed.AddTo(router); };
    server.Start();
    {
        RawClient client(server.Port());
        client.Send(server.Request("GET", "/stream"));
        ASSERT_TRUE(Eventually([&] { return feed.open == 1; }));
        EXPECT_FALSE(client.WaitForEnd(2500ms));
        EXPECT_EQ(feed.open, 1);
    }
    EXPECT_TRUE(Eventually([&] { return feed.open == 0; }));
}

TEST(KTHttpExchange, CutsAStreamWhoseClientTakesNothing)
{
    Feed feed;
    feed.flood = true;
    TestServer server;
    server.limits.streamIdle = 1s;
    server.addRoutes = [&](KTHttpRouter& router) { feed.AddTo(router); };
    server.Start();
    RawClient client(server.Port(), "127.0.0.1", 4096);
    client.Send(server.Request("GET", "/stream"));
    ASSERT_TRUE(Eventually([&] { return feed.open == 1; }));
    EXPECT_TRUE(Eventually([&] { return feed.open == 0; }));
}

TEST(KTHttpExchange, BoundsTheNumberOfStreams)
{
    Feed feed;
    TestServer server;
    server.limits.streamsOfOne = 2;
    server.addRoutes = [&](KTHttpRouter& router) { feed.AddTo(router); };
    server.Start();
    std::list<RawClient> clients;
    for (int i = 0; i < 2; ++i) clients.emplace_back(server.Port()).Send(server.Request("GET", "/stream"));
    ASSERT_TRUE(Eventually([&] { return feed.open == 2; }));
    EXPECT_EQ(server.Ask("GET", "/stream").status, 503);
    EXPECT_EQ(server.Ask("HEAD", "/stream").status, 503);
    clients.clear();
    ASSERT_TRUE(Eventually([&] { return feed.open == 0; }));
    EXPECT_TRUE(Eventually([&] { return server.Ask("HEAD", "/stream").status == 200; }));
}
