#include "suite/http/KTHttpLogger.h"

#include <gtest/gtest.h>

#include "http/TestServer.h"

namespace
{
const std::string route = "/services/events/logger.xml";
}

TEST(KTHttpLogger, TakesThePeriodInBothForms)
{
    TestServer server;
    server.Start();
    const struct
    {
        const char* query;
        const char* period;
    } rows[] = {
        {"?begin=01032026000000&end=08032026123456", "2026-03-01 00:00:00.000000 to 2026-03-08 12:34:56.000000"},
        {"?begin=2026-03-01T00:00:00Z&end=2026-03-08T12:34:56Z",
         "2026-03-01 00:00:00.000000 to 2026-03-08 12:34:56.000000"},
        {"?begin=01032026000000&end=2026-03-08T12:34:56Z", "2026-03-01 00:00:00.000000 to 2026-03-08 12:34:56.000000"},
        {"?end=08032026123456&other=1&begin=2026-03-01T00%3A00%3A00Z",
         "2026-03-01 00:00:00.000000 to 2026-03-08 12:34:56.000000"},
        {"?begin=01012000000000&end=31122063235959", "2000-01-01 00:00:00.000000 to 2063-12-31 23:59:59.000000"},
        {"?begin=01032026000000&end=01032026000001", "2026-03-01 00:00:00.000000 to 2026-03-01 00:00:01.000000"},
    };
    for (const auto& r : rows)
    {
        const RawReply reply = server.Ask("GET", route + r.query);
        EXPECT_EQ(reply.status, 200) << r.query;
        EXPECT_EQ(reply.body, "<loggerEvents/>") << r.query;
        EXPECT_EQ(reply.Header("Content-Type"), "text/xml; charset=utf-8") << r.query;
        EXPECT_EQ(server.period, r.period) << r.query;
    }
}

TEST(KTHttpLogger, RefusesWhatIsNoPeriod)
{
    TestServer server;
    server.Start();
    const struct
    {
        const char* query;
        const char* why;
    } rows[] = {
        {"", "begin"},
        {"?", "begin"},
        {"?begin=01032026000000", "end"},
        {"?end=01032026000000", "begin"},
        {"?begin=&end=01032026000000", "begin"},
        {"?begin=01032026000000&end=", "end"},
        {"?Begin=01032026000000&END=08032026000000", "begin"},
        {"?begin=yesterday&end=01032026000000", "begin"},
        {"?begin=30022026000000&end=01032026000000", "begin"},
        {"?begin=00022026000000&end=01032026000000", "begin"},
        {"?begin=01002026000000&end=01032026000000", "begin"},
        {"?begin=01132025000000&end=01032026000000", "begin"},
        {"?begin=01022026240000&end=01032026000000", "begin"},
        {"?begin=01022026006000&end=01032026000000", "begin"},
        {"?begin=01022026000060&end=01032026000000", "begin"},
        {"?begin=0102202600000&end=01032026000000", "begin"},
        {"?begin=010220260000000&end=01032026000000", "begin"},
        {"?begin=%2001022026000000&end=01032026000000", "begin"},
        {"?begin=+1022026000000&end=01032026000000", "begin"},
        {"?begin=-1022026000000&end=01032026000000", "begin"},
        {"?begin=0102-026000000&end=01032026000000", "begin"},
        {"?begin=0102202600000a&end=01032026000000", "begin"},
        {"?begin=2026-02-30T00:00:00Z&end=01032026000000", "begin"},
        {"?begin=2026-03-01T00:00:00&end=02032026000000", "begin"},
        {"?begin=01032026000000&end=2026-03-02T00:00:00+00:00", "end"},
        {"?begin=01032026000000&end=02032026", "end"},
        {"?begin=31121999235959&end=01032026000000", "2000 to 2063"},
        {"?begin=01032026000000&end=01012064000000", "2000 to 2063"},
        {"?begin=01032026000000&end=9999-12-31T23:59:59Z", "2000 to 2063"},
        {"?begin=01032026000000&end=01032026000000", "later"},
        {"?begin=01032026000001&end=01032026000000", "later"},
    };
    for (const auto& r : rows)
    {
        const RawReply reply = server.Ask("GET", route + r.query);
        EXPECT_EQ(reply.status, 400) << r.query;
        EXPECT_NE(reply.body.find(r.why), std::string::npos) << r.query << ": " << reply.body;
        EXPECT_EQ(reply.Header("Content-Type"), "text/plain; charset=utf-8") << r.query;
    }
    EXPECT_EQ(server.period, "") << "none of them reached the module";
}

TEST(KTHttpLogger, TurnsARefusalIntoAPlainAnswer)
{
    TestServer server;
    server.services.logger = [](KTHttpRequest&, KTHttpResponse& response, const KTDateTime&, const KTDateTime&)
    {
        response.Start(503, 0);
        return response.Finish();
    };
    server.Start();
    const RawReply reply = server.Ask("GET", route + "?begin=01032026000000&end=02032026000000");
    EXPECT_EQ(reply.status, 503);
    EXPECT_EQ(reply.Header("Retry-After"), "1");
}

TEST(KTHttpLogger, AnswersALogThatIsTooLargeWith413)
{
    TestServer server;
    server.services.logger = [](KTHttpRequest&, KTHttpResponse& response, const KTDateTime&, const KTDateTime&)
    {
        response.Start(200, 2);
        const std::string piece(1 << 20, 'x');
        for (int i = 0; i < 257; ++i) response.Write(piece.data(), static_cast<int>(piece.size()));
        return response.Finish();
    };
    server.Start();
    const RawReply reply = server.Ask("GET", route + "?begin=01032026000000&end=02032026000000");
    EXPECT_EQ(reply.status, 413);
    EXPECT_FALSE(reply.body.empty());
}

TEST(KTHttpLogger, IsReadAndNothingElse)
{
    TestServer server;
    server.Start();
    const std::string target = route + "?begin=01032026000000&end=02032026000000";
    for (const char* method : {"POST", "PUT", "DELETE"}) EXPECT_EQ(server.Ask(method, target).status, 405) << method;
    EXPECT_EQ(server.Ask("HEAD", target).status, 200);
}
