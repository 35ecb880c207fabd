// A week out of a month of the event log: as rows, as the service's reply, against a database over the same records and
// against nothing but reading the month's files.
//
// usage: bench_query [RECORDS]...: a million of them without any, and then the growth from ten thousand to ten million.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bench/log/QueryMonth.h"
#include "bench/log/QuerySql.h"
#include "engine/KTEventServer.h"
#include "host/KTCorvaneSetup.h"
#include "host/KTText.h"
#include "log/KTEventLoggerData.h"
#include "suite/http/KTHttpReply.h"

namespace
{
namespace fs = std::filesystem;
using Steady = std::chrono::steady_clock;

constexpr int eventCount = 200;
constexpr std::int64_t day = 86'400;  // seconds
constexpr std::int64_t begin = 9 * day;
constexpr std::int64_t end = 16 * day;

// A directory with the configuration and the log of a month; it goes with its object.
class Installation
{
public:
    explicit Installation(const QueryMonth& month)
    {
        std::string name = (fs::temp_directory_path() / "corvane-query-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) std::abort();
        path = name + "/";
        std::ofstream file(path + "default.xeve");
        file << "<main><eventsGroups/><events>";
        for (int event = 0; event < eventCount; ++event) file << QueryMonth::EventXml(event);
        file << "</events></main>";
        file.close();
        KTSetupData setup;
        Utf8ToUtf16(setup.cfgPath, KTNarrowString(path.c_str()));
        setup.dataPath = setup.cfgPath;
        KTCorvaneSetup::Get().Configure(setup);
        month.Write(path);
    }
    Installation(const Installation&) = delete;
    Installation& operator=(const Installation&) = delete;
    ~Installation()
    {
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }
    std::string path;
};

QuerySums AskLog()
{
    KTEventLoggerInfo selection;
    for (int event = 0; event < eventCount; ++event) selection.AddVariable(QueryMonth::EventId(event));
    KTEventLoggerData data;
    data.Setup(selection);
    if (!data.SelectData(QueryMonth::Date(begin), QueryMonth::Date(end), false)) std::abort();
    const std::int64_t origin = QueryMonth::Date(0).CalendarMicroseconds();
    QuerySums sums;
    for (auto row = data.RecordGroup().Begin(); row != data.RecordGroup().End(); ++row)
    {
        ++sums.rows;
        sums.seconds += ((*row)->Time().CalendarMicroseconds() - origin) / 1'000'000;
        sums.acknowledged += (*row)->AckOffset();
        sums.ended += (*row)->DisableOffset();
        sums.characters += (*row)->Annotation().Length();
    }
    return sums;
}

struct Rival
{
    const char* name;
    std::function<void()> work;
    double best = 1e18;  // milliseconds

    void Run()
    {
        const auto started = Steady::now();
        work();
        best = std::min(best, std::chrono::duration<double, std::milli>(Steady::now() - started).count());
    }
};

void Compare(int records, bool annotated, bool withDatabase)
{
    const QueryMonth month(records, eventCount, annotated);
    const Installation installation(month);
    std::unique_ptr<QuerySql> sql;
    if (withDatabase) sql = std::make_unique<QuerySql>(installation.path, month);
    KTEventServer server;
    server.LoadCfg();

    const QuerySums sums = AskLog();
    if (sums.rows == 0 || (sql != nullptr && !(sql->Ask(begin, end) == sums))) std::abort();
    const auto reply = [&server]
    {
        KTHttpRequest request;
        KTHttpReply response(nullptr, {});
        if (!server.ProcessHttpServiceEventsLogger(request, response, QueryMonth::Date(begin), QueryMonth::Date(end)))
            std::abort();
    };
    std::vector<Rival> rivals = {
        {"rows",
         [&]
         {
             if (!(AskLog() == sums)) std::abort();
         }},
        {"reply", reply},
        {"reading",
         [&]
         {
             if (month.ReadAll(installation.path) == 0) std::abort();
         }},
    };
    if (sql != nullptr)
        rivals.push_back({"sqlite", [&]
                          {
                              if (!(sql->Ask(begin, end) == sums)) std::abort();
                          }});
    // Round by round in turn, so that what else the machine does meets all alike.
    const int rounds = records > 1'000'000 ? 3 : 7;
    for (int round = 0; round < rounds; ++round)
        for (Rival& rival : rivals) rival.Run();
    const double rows = rivals.front().best;
    for (const Rival& rival : rivals)
        std::printf("query/%d_records%s/%-8s %10.2f ms  %7.2f times the rows' time  %8.1f ns a row\n", records,
                    annotated ? "_annotated" : "", rival.name, rival.best, rival.best / rows,
                    rival.best * 1e6 / static_cast<double>(sums.rows));
    std::fflush(stdout);
}
}  // namespace

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i)
        for (const bool annotated : {false, true}) Compare(std::atoi(argv[i]), annotated, true);
    if (argc > 1) return 0;
    for (const bool annotated : {false, true}) Compare(1'000'000, annotated, true);
    for (const int records : {10'000, 100'000, 1'000'000, 10'000'000}) Compare(records, false, false);
    return 0;
}
