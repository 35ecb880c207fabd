#include "suite/http/KTHttpTls.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>

#include "http/TestServer.h"

using namespace std::chrono_literals;

namespace
{
/// What a command writes to its standard output.
std::string Output(const std::string& command)
{
    std::string text;
    FILE* const pipe = ::popen(command.c_str(), "r");
    std::array<char, 4096> part;
    while (const std::size_t got = std::fread(part.data(), 1, part.size(), pipe)) text.append(part.data(), got);
    ::pclose(pipe);
    return text;
}

/// Makes a self-signed certificate for 127.0.0.1 and sets it.
void AddCertificate(TestServer& server)
{
    const std::string& path = server.scratch.path;
    (void)Output(
        "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 -subj /CN=localhost "
        "-addext subjectAltName=IP:127.0.0.1,DNS:localhost -keyout " +
        path + "/key.pem -out " + path + "/cert.pem 2>/dev/null");
    server.settings.certificate = path + "/cert.pem";
    server.settings.key = path + "/key.pem";
}

std::string Curl(const TestServer& server, const std::string& arguments, const std::string& target)
{
    return Output("curl -s --max-time 20 --cacert " + server.scratch.path + "/cert.pem " + arguments +
                  " https://127.0.0.1:" + std::to_string(server.Port()) + target);
}
}  // namespace

TEST(KTHttpTls, ServesOverTls)
{
    TestServer server;
    AddCertificate(server);
    server.addRoutes = [](KTHttpRouter& router)
    {
        router.Add({"GET", "/large", KTHttpAccess::viewer, 0, [](KTHttpCall&, KTHttpAnswer& answer) {
                        answer.Document("text/plain", std::string(5'000'000, 'x'));
                    }});
    };
    server.Start();
    EXPECT_EQ(server.server->Url(), "https://127.0.0.1:" + std::to_string(server.Port()) + "/");
    EXPECT_EQ(Curl(server, "", "/services/events/actived.xml"), "<activedEvents/>");
    EXPECT_EQ(Curl(server, "--tlsv1.3", "/services/events/actived.xml"), "<activedEvents/>");
    EXPECT_EQ(Curl(server, "--tls-max 1.2", "/services/events/actived.xml"), "<activedEvents/>");
    EXPECT_EQ(Curl(server, "--tls-max 1.1 --ciphers DEFAULT@SECLEVEL=0", "/services/events/actived.xml"), "");
    EXPECT_EQ(Curl(server, "-d '<eventsAck/>' -w '%{http_code}'", "/services/events/ack.xml"), "204");
    EXPECT_EQ(Curl(server, "", "/large").size(), 5'000'000u);
    EXPECT_EQ(
        Curl(server,
             "-H 'Origin: https://127.0.0.1:" + std::to_string(server.Port()) + "' -d '<eventsAck/>' -w '%{http_code}'",
             "/services/events/ack.xml"),
        "204");
}

TEST(KTHttpTls, KeepsTheCookieOfASessionToTls)
{
    TestServer server;
    server.AddUsers();
    AddCertificate(server);
    server.Start();
    const std::string jar = server.scratch.path + "/jar";
    const std::string head = Curl(server, "-D - -c " + jar + " -d name=ana -d password=ana-pw", "/session");
    EXPECT_NE(head.find("; Secure"), head.npos) << head;
    EXPECT_EQ(Curl(server, "-b " + jar, "/services/events/notified.xml"), "<notifiedEvents/>");
}

TEST(KTHttpTls, CutsClientsThatNeverFinishTheHandshake)
{
    TestServer server;
    AddCertificate(server);
    server.limits.idle = 1s;
    server.limits.head = 2s;
    server.Start();
    RawClient silent(server.Port());
    RawClient dripping(server.Port());
    RawClient plain(server.Port());
    plain.Send("GET /health HTTP/1.1\r\nHost: localhost\r\n\r\n");
    // The beginning of a ClientHello, a byte at a time.
    const std::string hello("\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03", 11);
    bool ended = false;
    for (int i = 0; i < 40 && !ended; ++i)
    {
        dripping.Send(i < 11 ? hello.substr(static_cast<std::size_t>(i), 1) : std::string("x"));
        ended = dripping.WaitForEnd(200ms);
    }
    EXPECT_TRUE(ended);
    EXPECT_TRUE(silent.WaitForEnd(5s));
    EXPECT_TRUE(plain.WaitForEnd(5s));
    EXPECT_EQ(Curl(server, "", "/health"), "The scan is alive.\n");
}

TEST(KTHttpTls, StopsInTheMidstOfHandshakes)
{
    TestServer server;
    AddCertificate(server);
    server.Start();
    std::vector<RawClient> clients;
    for (int i = 0; i < 10; ++i) clients.emplace_back(server.Port()).Send("\x16\x03\x01");
    std::this_thread::sleep_for(200ms);
    const auto start = std::chrono::steady_clock::now();
    server.server->Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 3s);
}

TEST(KTHttpTls, TellsWhatIsWrongWithACertificate)
{
    TestServer base;
    AddCertificate(base);
    TestServer other;
    AddCertificate(other);
    base.scratch.Write("text", "no certificate");
    const std::string& path = base.scratch.path;
    const struct
    {
        std::string certificate;
        std::string key;
        const char* why;
    } rows[] = {
        {path + "/none", path + "/key.pem", "can't read the certificate"},
        {path + "/cert.pem", path + "/none", "can't read the key"},
        {path + "/text", path + "/key.pem", "can't use the certificate"},
        {path + "/cert.pem", path + "/text", "can't use the certificate"},
        {path + "/cert.pem", other.settings.key, "can't use the certificate"},
        {path, path + "/key.pem", "can't read the certificate"},
    };
    for (const auto& r : rows)
    {
        KTHttpTls tls;
        std::string error;
        EXPECT_FALSE(tls.Load(r.certificate, r.key, error)) << r.certificate << ' ' << r.key;
        EXPECT_NE(error.find(r.why), error.npos) << error;
    }
    KTHttpTls tls;
    std::string error;
    EXPECT_TRUE(tls.Load(base.settings.certificate, base.settings.key, error)) << error;
}
