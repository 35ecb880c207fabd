#include "suite/http/KTHttpServices.h"

#include <gtest/gtest.h>

#include <thread>

#include "http/TestServer.h"
#include "suite/tools/KTVirtualClock.h"

using namespace std::string_literals;

namespace
{

std::string Cookie(const RawReply& signedIn)
{
    const std::string set = signedIn.Header("Set-Cookie");
    return "Cookie: " + set.substr(0, set.find(';')) + "\r\n";
}

RawReply SignIn(const TestServer& server, const std::string& name, const std::string& password)
{
    return server.Ask("POST", "/session", "Content-Type: application/x-www-form-urlencoded\r\n",
                      "name=" + name + "&password=" + password);
}
}  // namespace

TEST(KTHttpServices, AnswersEachRouteWithItsTypeAndContent)
{
    TestServer server;
    server.scratch.Write("html/events.rss", "<rss/>");
    server.settings.screens = {{"Main & more", {"M1"}}, {"<Hall>", {}}};
    server.settings.reports = {"Daily"};
    server.Start();
    const struct
    {
        const char* target;
        const char* type;
        const char* body;
    } rows[] = {
        {"/services/events/actived.xml", "text/xml; charset=utf-8", "<activedEvents/>"},
        {"/services/events/notified.xml", "text/xml; charset=utf-8", "<notifiedEvents/>"},
        {"/services/events/logger.xml?begin=01032026000000&end=02032026000000", "text/xml; charset=utf-8",
         "<loggerEvents/>"},
        {"/services/events/list.json", "application/json", R"([{"name":"Overload"}])"},
        {"/services/variables.json", "application/json", R"({"devices":[]})"},
        {"/services/scadas/information.xml", "text/xml; charset=utf-8",
         R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?><scadaInformation><screens><screen>Main &amp; more)"
         "</screen><screen>&lt;Hall&gt;</screen></screens></scadaInformation>"},
        {"/services/reports/information.xml", "text/xml; charset=utf-8",
         R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?><reportInformation><reports><report>Daily</report>)"
         "</reports></reportInformation>"},
        {"/html/events.rss", "application/rss+xml; charset=utf-8", "<rss/>"},
        {"/health", "text/plain; charset=utf-8", "The scan is alive.\n"},
        {"/metrics", "text/plain; version=0.0.4; charset=utf-8", "up 1\n"},
        {"/", "text/html; charset=utf-8", "<!DOCTYPE html><title>console</title>"},
        {"/console/js/main.js", "text/javascript; charset=utf-8", "export {};"},
        {"/services/events/actived.xml?ignored=1", "text/xml; charset=utf-8", "<activedEvents/>"},
        {"/services/%65vents/actived.xml", "text/xml; charset=utf-8", "<activedEvents/>"},
        {"http://localhost/services/events/actived.xml", "text/xml; charset=utf-8", "<activedEvents/>"},
        {"http://localhost", "text/html; charset=utf-8", "<!DOCTYPE html><title>console</title>"},
    };
    for (const auto& r : rows)
    {
        const RawReply reply = server.Ask("GET", r.target);
        EXPECT_EQ(reply.status, 200) << r.target;
        EXPECT_EQ(reply.Header("Content-Type"), r.type) << r.target;
        EXPECT_EQ(reply.body, r.body) << r.target;

        const RawReply head = server.Ask("HEAD", r.target);
        EXPECT_EQ(head.status, 200) << r.target;
        EXPECT_EQ(head.Header("Content-Type"), r.type) << r.target;
        EXPECT_EQ(head.Header("Content-Length"), std::to_string(reply.body.size())) << r.target;
        EXPECT_EQ(head.body, "") << r.target;
    }
}

TEST(KTHttpServices, ForbidsCachesToKeepAnythingButStaticFiles)
{
    TestServer server;
    server.AddUsers();
    server.Start();
    const struct
    {
        const char* method;
        const char* target;
        const char* headers;
        int status;
    } rows[] = {
        {"GET", "/services/events/actived.xml", "Authorization: Basic YW5hOmFuYS1wdw==\r\n", 200},
        {"GET", "/services/events/actived.xml", "", 401},
        {"GET", "/health", "", 200},
        {"GET", "/console/none.js", "", 404},
        {"POST", "/", "", 405},
        {"GET", "/health", "Host: elsewhere\r\n", 421},
        {"POST", "/session", "Origin: http://elsewhere\r\n", 403},
        {"POST", "/session", "", 400},
        {"GET", "/%", "", 400},
    };
    for (const auto& r : rows)
    {
        const RawReply reply = server.Ask(r.method, r.target, r.headers);
        EXPECT_EQ(reply.status, r.status) << r.target;
        EXPECT_EQ(reply.Header("Cache-Control"), "no-store") << r.target << ' ' << r.status;
    }
    EXPECT_EQ(server.Ask("GET", "/").Header("Cache-Control"), "no-cache");
}

TEST(KTHttpServices, SendsTheSecurityHeadersWithEverything)
{
    TestServer server;
    server.Start();
    for (const char* target : {"/", "/health", "/services/events/actived.xml", "/nothing"})
    {
        const RawReply reply = server.Ask("GET", target);
        EXPECT_EQ(
            reply.Header("Content-Security-Policy"),
            "default-src 'self'; style-src 'self'; img-src 'self' data:; frame-ancestors 'none'; base-uri 'none'; "
            "form-action 'self'")
            << target;
        EXPECT_EQ(reply.Header("X-Content-Type-Options"), "nosniff") << target;
        EXPECT_EQ(reply.Header("Referrer-Policy"), "no-referrer") << target;
    }
}

TEST(KTHttpServices, TellsUnknownPathsAndUnknownMethodsApart)
{
    TestServer server;
    server.Start();
    const struct
    {
        const char* method;
        const char* target;
        int status;
        const char* allow;
    } rows[] = {
        {"GET", "/nothing", 404, ""},
        {"POST", "/nothing", 404, ""},
        {"GET", "/services/events/actived.xml/", 404, ""},
        {"POST", "/services/events/actived.xml", 405, "GET, HEAD"},
        {"GET", "/services/events/ack.xml", 405, "POST"},
        {"GET", "/services/variables/A.B", 405, "PUT"},
        {"GET", "/session", 405, "POST, DELETE"},
        {"DELETE", "/", 405, "GET, HEAD"},
        {"OPTIONS", "/health", 405, "GET, HEAD"},
        {"BREW", "/health", 405, "GET, HEAD"},
        {"GET", "/html/channelevents.rss", 404, ""},
    };
    for (const auto& r : rows)
    {
        const RawReply reply = server.Ask(r.method, r.target);
        EXPECT_EQ(reply.status, r.status) << r.method << ' ' << r.target;
        EXPECT_EQ(reply.Header("Allow"), r.allow) << r.method << ' ' << r.target;
        EXPECT_EQ(reply.Header("Content-Type"), "text/plain; charset=utf-8") << r.method << ' ' << r.target;
        EXPECT_GT(reply.body.size(), 10u) << r.method << ' ' << r.target;
    }
}

TEST(KTHttpServices, GivesEachRoleItsRoutes)
{
    TestServer server;
    server.AddUsers();
    server.scratch.Write("html/events.rss", "<rss/>");
    server.Start();
    const char* const ack = "<eventsAck></eventsAck>";
    const struct
    {
        const char* method;
        const char* target;
        const char* body;
        int nobody, ana, olga, emil;  // statuses
    } rows[] = {
        {"GET", "/", "", 200, 200, 200, 200},
        {"GET", "/console/js/main.js", "", 200, 200, 200, 200},
        {"GET", "/console/none", "", 404, 404, 404, 404},
        {"GET", "/health", "", 200, 200, 200, 200},
        {"POST", "/health", "", 405, 405, 405, 405},
        {"POST", "/session", "name=ana&password=ana-pw", 204, 204, 204, 204},
        {"DELETE", "/session", "", 401, 204, 204, 204},
        {"GET", "/services/events/actived.xml", "", 401, 200, 200, 200},
        {"GET", "/services/events/notified.xml", "", 401, 200, 200, 200},
        {"GET", "/services/events/logger.xml?begin=01032026000000&end=02032026000000", "", 401, 200, 200, 200},
        {"GET", "/services/events/list.json", "", 401, 200, 200, 200},
        {"GET", "/services/scadas/information.xml", "", 401, 200, 200, 200},
        {"GET", "/services/reports/information.xml", "", 401, 200, 200, 200},
        {"GET", "/services/variables.json", "", 401, 200, 200, 200},
        {"GET", "/metrics", "", 401, 200, 200, 200},
        {"GET", "/html/events.rss", "", 401, 200, 200, 200},
        {"POST", "/services/events/ack.xml", ack, 401, 403, 204, 204},
        {"PUT", "/services/variables/NO.SUCH", "1", 401, 403, 403, 404},
        {"GET", "/nothing", "", 401, 404, 404, 404},
        {"PUT", "/services/events/ack.xml", "", 401, 405, 405, 405},
    };
    for (const auto& r : rows)
    {
        EXPECT_EQ(server.Ask(r.method, r.target, "", r.body).status, r.nobody) << r.method << ' ' << r.target;
        EXPECT_EQ(server.Ask(r.method, r.target, As("ana"), r.body).status, r.ana) << r.method << ' ' << r.target;
        EXPECT_EQ(server.Ask(r.method, r.target, As("olga"), r.body).status, r.olga) << r.method << ' ' << r.target;
        EXPECT_EQ(server.Ask(r.method, r.target, As("emil"), r.body).status, r.emil) << r.method << ' ' << r.target;
    }
    EXPECT_EQ(server.acknowledgements, 2);
}

TEST(KTHttpServices, AllowsEverythingWithoutUsers)
{
    TestServer server;
    server.Start();
    EXPECT_EQ(server.Ask("POST", "/services/events/ack.xml", "", "<eventsAck/>").status, 204);
    EXPECT_EQ(server.Ask("PUT", "/services/variables/NO.SUCH", "", "1").status, 404);
    EXPECT_EQ(server.Ask("DELETE", "/session").status, 204);
    const RawReply signedIn = SignIn(server, "any", "any");
    EXPECT_EQ(signedIn.status, 204);
    EXPECT_EQ(signedIn.Header("Set-Cookie"), "");
    EXPECT_EQ(server.Ask("GET", "/services/events/actived.xml", As("wrong")).status, 200);
    EXPECT_EQ(server.hashes, 0);
}

TEST(KTHttpServices, AnswersOnlyUnderItsOwnHostNames)
{
    TestServer server;
    server.settings.names = {"Plant.example", "10.1.2.3", "[fe80::A]"};
    server.Start();
    const std::string port = std::to_string(server.Port());
    const struct
    {
        std::string host;
        int status;
    } rows[] = {
        {"127.0.0.1:" + port, 200},
        {"127.0.0.1", 200},
        {"127.0.0.1:1", 200},  // a tunnel's port
        {"localhost:" + port, 200},
        {"LOCALHOST", 200},
        {"plant.example:" + port, 200},
        {"PLANT.EXAMPLE", 200},
        {"10.1.2.3", 200},
        {"[FE80:0::a]:" + port, 200},
        {"[fe80::b]", 421},
        {"plant.example.evil.example", 421},
        {"evil.example:" + port, 421},
        {"127.0.0.2", 421},
        {"[::1]:" + port, 421},
        {"localhost.", 421},
        {"localhost@evil.example", 421},
        {"localhost:x", 421},
        {"", 421},
    };
    for (const auto& r : rows)
    {
        const RawReply reply = server.Ask("GET", "/health", "Host: " + r.host + "\r\n");
        EXPECT_EQ(reply.status, r.status) << r.host;
    }
    EXPECT_EQ(server.Ask("GET", "http://evil.example/health").status, 421);  // the target's host wins
    EXPECT_EQ(server.Ask("GET", "http://localhost/health", "Host: evil.example\r\n").status, 200);

    RawClient old(server.Port());
    old.Send("GET /health HTTP/1.0\r\n\r\n");
    EXPECT_EQ(old.Read().status, 421);
    RawClient without(server.Port());
    without.Send("GET /health HTTP/1.1\r\n\r\n");
    EXPECT_EQ(without.Read().status, 400);
    RawClient twice(server.Port());
    twice.Send("GET /health HTTP/1.1\r\nHost: localhost\r\nHost: evil.example\r\n\r\n");
    EXPECT_EQ(twice.Read().status, 400);
}

TEST(KTHttpServices, TakesChangesFromItsOwnPagesOnly)
{
    TestServer server;
    server.settings.names = {"plant.example"};
    server.Start();
    const std::string own = "127.0.0.1:" + std::to_string(server.Port());
    const struct
    {
        const char* method;
        std::string headers;
        int status;
    } rows[] = {
        {"POST", "", 204},
        {"POST", "Origin: http://" + own + "\r\n", 204},
        {"POST", "Origin: https://" + own + "\r\n", 204},  // TLS may end at a proxy
        {"POST", "Origin: HTTP://" + own + "\r\n", 204},
        {"POST", "Origin: http://127.0.0.1\r\n", 403},
        {"POST", "Origin: http://127.0.0.1:1\r\n", 403},
        {"POST", "Origin: http://evil.example\r\n", 403},
        {"POST", "Origin: http://plant.example\r\n", 403},  // ours too, yet another than this request's
        {"POST", "Origin: null\r\n", 403},
        {"POST", "Origin: \r\n", 403},
        {"POST", "Origin: ftp://" + own + "\r\n", 403},
        {"POST", "Origin: http://" + own + "/\r\n", 403},
        {"POST", "Host: plant.example\r\nOrigin: http://plant.example\r\n", 204},
        {"POST", "Host: plant.example\r\nOrigin: http://plant.example:80\r\n", 204},
        {"POST", "Host: plant.example:443\r\nOrigin: https://plant.example\r\n", 204},
        {"POST", "Host: plant.example\r\nOrigin: https://plant.example:444\r\n", 403},
        {"POST", "Host: plant.example\r\nOrigin: http://PLANT.example\r\n", 204},
    };
    for (const auto& r : rows)
        EXPECT_EQ(server.Ask(r.method, "/services/events/ack.xml", r.headers, "<eventsAck/>").status, r.status)
            << r.headers;
    EXPECT_EQ(server.Ask("GET", "/services/events/actived.xml", "Origin: http://evil.example\r\n").status, 200);
    EXPECT_EQ(server.Ask("PUT", "/services/variables/NO.SUCH", "Origin: http://evil.example\r\n", "1").status, 403);
    EXPECT_EQ(server.Ask("DELETE", "/session", "Origin: http://evil.example\r\n").status, 403);
}

TEST(KTHttpServices, AsksForThePasswordWithTheBrowsersDialogOnlyWhereNoPageAsks)
{
    TestServer server;
    server.AddUsers();
    server.Start();
    const struct
    {
        const char* headers;
        bool dialog;
    } rows[] = {
        {"", true},
        {"Sec-Fetch-Mode: navigate\r\nAccept: text/html\r\n", true},
        {"Sec-Fetch-Mode: cors\r\n", false},
        {"Sec-Fetch-Mode: same-origin\r\n", false},
        {"X-Requested-With: XMLHttpRequest\r\n", false},
        {"Accept: text/event-stream\r\n", false},
    };
    for (const auto& r : rows)
    {
        const RawReply reply = server.Ask("GET", "/services/events/actived.xml", r.headers);
        EXPECT_EQ(reply.status, 401) << r.headers;
        const std::string challenge = reply.Header("WWW-Authenticate");
        EXPECT_FALSE(challenge.empty()) << r.headers;
        EXPECT_EQ(challenge.starts_with("Basic "), r.dialog) << r.headers;
    }
    const RawReply form = SignIn(server, "ana", "wrong");
    EXPECT_EQ(form.status, 401);
    EXPECT_FALSE(form.Header("WWW-Authenticate").starts_with("Basic"));
}

TEST(KTHttpServices, RefusesCredentialsThatAreNone)
{
    TestServer server;
    server.AddUsers();
    server.Start();
    for (const char* value : {"Basic", "Basic ", "Basic YW5h", "Basic %%%", "Bearer x", "", "YW5hOmFuYS1wdw=="})
        EXPECT_EQ(server.Ask("GET", "/html/events.rss", std::string("Authorization: ") + value + "\r\n").status, 401)
            << value;
    EXPECT_EQ(server.hashes, 0);
    EXPECT_EQ(server.Ask("GET", "/html/events.rss", As("wrong")).status, 401);
    EXPECT_EQ(server.hashes, 1);
}

TEST(KTHttpServices, SignsInAndOutWithACookie)
{
    TestServer server;
    server.AddUsers();
    server.Start();
    const RawReply signedIn = SignIn(server, "olga", "olga-pw");
    ASSERT_EQ(signedIn.status, 204);
    const std::string set = signedIn.Header("Set-Cookie");
    EXPECT_NE(set.find("; HttpOnly"), set.npos) << set;
    EXPECT_NE(set.find("; SameSite=Strict"), set.npos) << set;
    EXPECT_NE(set.find("; Path=/"), set.npos) << set;
    EXPECT_EQ(set.find("Secure"), set.npos) << set;

    const std::string cookie = Cookie(signedIn);
    EXPECT_EQ(server.Ask("GET", "/services/events/actived.xml", cookie).status, 200);
    EXPECT_EQ(server.Ask("POST", "/services/events/ack.xml", cookie, "<eventsAck/>").status, 204);
    EXPECT_EQ(server.Ask("PUT", "/services/variables/A.B", cookie, "1").status, 403);  // olga's role, not more
    EXPECT_EQ(server.Ask("GET", "/services/events/actived.xml", "Cookie: other=1; " + cookie.substr(8)).status, 200);
    EXPECT_EQ(server.hashes, 1);

    std::string forged = cookie;
    forged[forged.size() - 3] = forged[forged.size() - 3] == '0' ? '1' : '0';
    EXPECT_EQ(server.Ask("GET", "/services/events/actived.xml", forged).status, 401);
    EXPECT_EQ(server.Ask("GET", "/services/events/actived.xml", forged + As("ana")).status,
              200);  // the password is good

    const RawReply signedOut = server.Ask("DELETE", "/session", cookie);
    EXPECT_EQ(signedOut.status, 204);
    EXPECT_NE(signedOut.Header("Set-Cookie").find("Max-Age=0"), std::string::npos);
    EXPECT_EQ(server.Ask("GET", "/services/events/actived.xml", cookie).status, 401);
    EXPECT_EQ(server.Ask("DELETE", "/session", cookie).status, 401);
}

TEST(KTHttpServices, RefusesAFormThatIsNone)
{
    TestServer server;
    server.AddUsers();
    server.Start();
    for (const char* body : {"", "name=ana", "password=ana-pw", "{\"name\":\"ana\"}", "name=ana&password=%zz"})
        EXPECT_EQ(server.Ask("POST", "/session", "", body).status, 400) << body;
    EXPECT_EQ(server.Ask("POST", "/session", "", "password=ana-pw&name=ana\r\n").status, 204);
    EXPECT_EQ(server.Ask("POST", "/session", "", "name=ana&password=" + std::string(9000, 'x')).status, 413);
    EXPECT_EQ(server.hashes, 1);
}

namespace
{
class KTHttpServicesClock : public testing::Test
{
protected:
    KTHttpServicesClock() { KTClock::Install(&clock); }
    ~KTHttpServicesClock() override { KTClock::Install(nullptr); }

    KTVirtualClock clock{KTDateTime(2024, 3, 10, 8, 0, 0, 0, 0)};
};
}  // namespace

TEST_F(KTHttpServicesClock, RefusesPasswordsForAMinuteAfterFiveWrongOnesButNoLiveSession)
{
    TestServer server;
    server.AddUsers();
    server.Start();
    const char* const target = "/services/events/actived.xml";
    const std::string cookie = Cookie(SignIn(server, "ana", "ana-pw"));
    EXPECT_EQ(server.Ask("GET", target, As("ana")).status, 200);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(server.Ask("GET", target, As("wrong")).status, 401);
    for (int i = 0; i < 2; ++i) EXPECT_EQ(SignIn(server, "ana", "guess").status, 401);  // both ways count together

    const RawReply refused = server.Ask("GET", target, As("ana"));
    EXPECT_EQ(refused.status, 429);
    EXPECT_EQ(refused.Header("Retry-After"), "60");
    EXPECT_EQ(refused.Header("WWW-Authenticate"), "");
    EXPECT_EQ(SignIn(server, "olga", "olga-pw").status, 429);
    EXPECT_EQ(server.Ask("GET", target, cookie).status, 200);
    EXPECT_EQ(server.Ask("GET", target, cookie + As("wrong")).status, 200);
    EXPECT_EQ(server.Ask("GET", target).status, 401);  // no password, so nothing to refuse
    EXPECT_EQ(server.Ask("GET", "/", As("wrong")).status, 200);
    EXPECT_EQ(server.Ask("GET", "/health").status, 200);

    clock.Advance(std::chrono::milliseconds(59'000));
    EXPECT_EQ(server.Ask("GET", target, As("ana")).Header("Retry-After"), "1");
    clock.Advance(std::chrono::milliseconds(1'000));
    EXPECT_EQ(server.Ask("GET", target, As("ana")).status, 200);
}

TEST_F(KTHttpServicesClock, CountsOnlyWrongPasswordsOfTheLastMinute)
{
    TestServer server;
    server.AddUsers();
    server.Start();
    for (int i = 0; i < 12; ++i)
    {
        EXPECT_EQ(server.Ask("GET", "/html/events.rss", As("wrong")).status, 401) << i;
        clock.Advance(std::chrono::milliseconds(15'001));
    }
}

TEST_F(KTHttpServicesClock, EndsASessionAfterTwelveHoursWithoutARequest)
{
    TestServer server;
    server.AddUsers();
    server.Start();
    const std::string cookie = Cookie(SignIn(server, "ana", "ana-pw"));
    for (int i = 0; i < 3; ++i)
    {
        clock.Advance(std::chrono::hours(12) - std::chrono::milliseconds(1));
        EXPECT_EQ(server.Ask("GET", "/services/events/actived.xml", cookie).status, 200);
    }
    clock.Advance(std::chrono::hours(12));
    EXPECT_EQ(server.Ask("GET", "/services/events/actived.xml", cookie).status, 401);
}

TEST_F(KTHttpServicesClock, PaysForTheSlowHashOnceInFiveMinutes)
{
    TestServer server;
    server.AddUsers();
    server.Start();
    for (int i = 0; i < 20; ++i) EXPECT_EQ(server.Ask("GET", "/services/events/list.json", As("ana")).status, 200);
    EXPECT_EQ(server.hashes, 1);
    clock.Advance(std::chrono::minutes(5));
    EXPECT_EQ(server.Ask("GET", "/services/events/list.json", As("ana")).status, 200);
    EXPECT_EQ(server.hashes, 2);
}

TEST(KTHttpServices, ChecksAnAcknowledgementBeforeTheModuleSeesIt)
{
    TestServer server;
    server.Start();
    const std::string good =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<eventsAck><id>{A}</id><id>ü</id></eventsAck>\n";
    EXPECT_EQ(server.Ask("POST", "/services/events/ack.xml", "", good).status, 204);
    EXPECT_EQ(server.acknowledged, good);
    EXPECT_EQ(server.Ask("POST", "/services/events/ack.xml", "", "<eventsAck/>").status, 204);
    EXPECT_EQ(server.acknowledgements, 2);

    const std::string bodies[] = {
        "",
        "text",
        "<eventsAck>",
        "<other><eventsAck/></other>",
        "<eventsack/>",
        "<eventsAck/><eventsAck/>",
        "<eventsAck/>\0"s,
        "<eventsAck>\0</eventsAck>"s,
        "<eventsAck><id>\xFF</id></eventsAck>",
        "<!DOCTYPE a [<!ENTITY b \"c\">]><eventsAck>&undefined;</eventsAck>",
    };
    for (const std::string& body : bodies)
    {
        const RawReply reply = server.Ask("POST", "/services/events/ack.xml", "", body);
        EXPECT_EQ(reply.status, 400) << body;
        EXPECT_GT(reply.body.size(), 10u) << body;
    }
    EXPECT_EQ(server.acknowledgements, 2);
}

TEST(KTHttpServices, TellsARefusedAdmissionFromABadBody)
{
    TestServer server;
    server.services.acknowledge = [](KTHttpRequest&, const unsigned char*) { return false; };
    server.Start();
    const RawReply refused = server.Ask("POST", "/services/events/ack.xml", "", "<eventsAck/>");
    EXPECT_EQ(refused.status, 503);
    EXPECT_EQ(refused.Header("Retry-After"), "1");
    EXPECT_EQ(server.Ask("POST", "/services/events/ack.xml", "", "<eventsAck>").status, 400);
}

TEST(KTHttpServices, TakesAnAcknowledgementOfOneMebibyteAndNotAByteMore)
{
    TestServer server;
    server.Start();
    const std::string frame = "<eventsAck></eventsAck>";
    const auto body = [&](std::size_t size)
    { return "<eventsAck>" + std::string(size - frame.size(), ' ') + "</eventsAck>"; };
    constexpr std::size_t limit = 1024 * 1024;
    EXPECT_EQ(server.Ask("POST", "/services/events/ack.xml", "", body(limit)).status, 204);
    EXPECT_EQ(server.Ask("POST", "/services/events/ack.xml", "", body(limit + 1)).status, 413);
    EXPECT_EQ(server.Ask("POST", "/services/events/ack.xml", "", body(5 * limit)).status, 413);

    // The same in chunks, whose sum nobody tells beforehand.
    const auto chunked = [&](std::size_t size)
    {
        RawClient client(server.Port());
        const std::string text = body(size);
        client.Send("POST /services/events/ack.xml HTTP/1.1\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\n");
        for (std::size_t at = 0; at < text.size(); at += 100'000)
        {
            const std::string part = text.substr(at, 100'000);
            char length[20];
            (void)std::snprintf(length, sizeof length, "%zx\r\n", part.size());
            client.Send(length + part + "\r\n");
        }
        client.Send("0\r\n\r\n");
        return client.Read().status;
    };
    EXPECT_EQ(chunked(limit), 204);
    EXPECT_EQ(chunked(limit + 1), 413);
    EXPECT_EQ(server.acknowledgements, 2);
}

TEST(KTHttpServices, RefusesABodyBeforeItIsSentWhereTheClientWaits)
{
    TestServer server;
    server.AddUsers();
    server.Start();
    const auto ask = [&](const std::string& user, const char* size)
    {
        RawClient client(server.Port());
        client.Send("POST /services/events/ack.xml HTTP/1.1\r\nHost: localhost\r\n" + user +
                    "Expect: 100-continue\r\nContent-Length: " + size + "\r\n\r\n");
        const int status = client.Read().status;
        if (status != 100) return status;
        client.Send("<eventsAck/>");
        return client.Read().status;
    };
    EXPECT_EQ(ask(As("olga"), "12"), 204);
    EXPECT_EQ(ask(As("olga"), "2000000"), 413);
    EXPECT_EQ(ask(As("ana"), "12"), 403);
    EXPECT_EQ(ask("", "12"), 401);
    EXPECT_EQ(server.acknowledgements, 1);
}

TEST(KTHttpServices, TurnsARefusedDocumentIntoAPlainAnswer)
{
    TestServer server;
    server.services.actived = [](KTHttpRequest&, KTHttpResponse& response)
    {
        response.Start(503, 0);
        return response.Finish();
    };
    server.services.notified = [](KTHttpRequest&, KTHttpResponse&) { return false; };
    server.services.eventsList = []() -> std::string { throw std::runtime_error("lost"); };
    server.Start();
    for (const char* target : {"/services/events/actived.xml", "/services/events/notified.xml"})
    {
        const RawReply reply = server.Ask("GET", target);
        EXPECT_EQ(reply.status, 503) << target;
        EXPECT_EQ(reply.Header("Content-Type"), "text/plain; charset=utf-8") << target;
        EXPECT_EQ(reply.Header("Retry-After"), "1") << target;
        EXPECT_FALSE(reply.body.empty()) << target;
    }
    EXPECT_EQ(server.Ask("GET", "/services/events/list.json").status, 500);
}

TEST(KTHttpServices, TellsWhetherTheScanIsAlive)
{
    TestServer server;
    server.AddUsers();
    server.Start();
    EXPECT_EQ(server.Ask("GET", "/health").status, 200);
    server.healthy = false;
    EXPECT_EQ(server.Ask("GET", "/health").status, 503);
    EXPECT_EQ(server.Ask("HEAD", "/health").status, 503);
}

TEST(KTHttpServices, ServesTheFeedAsItIsNow)
{
    TestServer server;
    server.Start();
    EXPECT_EQ(server.Ask("GET", "/html/events.rss").status, 404);
    server.scratch.Write("html/events.rss", "<rss>1</rss>");
    EXPECT_EQ(server.Ask("GET", "/html/events.rss").body, "<rss>1</rss>");
    server.scratch.Write("html/events.rss", "<rss>2</rss>");
    EXPECT_EQ(server.Ask("GET", "/html/events.rss").body, "<rss>2</rss>");
}

TEST(KTHttpServices, AnswersAReplyThatIsTooLargeWith413)
{
    TestServer server;
    server.services.actived = [](KTHttpRequest&, KTHttpResponse& response)
    {
        const std::string text(1024 * 1024, 'x');
        response.Start(200, 3);
        for (int i = 0; i < 257; ++i) response.Write(text.data(), static_cast<int>(text.size()));
        return response.Finish();
    };
    server.Start();
    const RawReply reply = server.Ask("GET", "/services/events/actived.xml");
    EXPECT_EQ(reply.status, 413);
    EXPECT_LT(reply.body.size(), 200u);
}
