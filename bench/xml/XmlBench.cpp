// Reading a large configuration into a tree, beside what expat alone needs to walk the same file.
//
// usage: bench_xml [EVENTS] [options of the benchmark library]

#include <benchmark/benchmark.h>
#include <expat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "host/KTText.h"
#include "host/XmlDocument.h"

namespace
{
using Steady = std::chrono::steady_clock;

double Since(Steady::time_point begin) { return std::chrono::duration<double>(Steady::now() - begin).count(); }

// A file of events as the editors write them, about 1500 bytes each; it goes with its object.
class EventsFile
{
public:
    explicit EventsFile(int events)
        : path(
              (std::filesystem::temp_directory_path() / ("corvane-bench-" + std::to_string(events) + ".xeve")).string())
    {
        std::ofstream file(path, std::ios::binary);
        file << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<main>\n  <events>\n";
        for (int i = 0; i < events; ++i) WriteEvent(file, i);
        file << "  </events>\n</main>\n";
    }
    EventsFile(const EventsFile&) = delete;
    EventsFile& operator=(const EventsFile&) = delete;
    ~EventsFile() { std::filesystem::remove(path); }

    [[nodiscard]] double Size() const { return static_cast<double>(std::filesystem::file_size(path)); }

    const std::string path;

private:
    static std::string Id(int number, int kind)
    {
        char text[48];
        std::snprintf(text, sizeof text, "{%08X-%04X-48B9-AC03-9D09582CF551}", static_cast<unsigned>(number),
                      static_cast<unsigned>(kind));
        return text;
    }

    static void WriteEvent(std::ofstream& file, int i)
    {
        const std::string n = std::to_string(i);
        file << "    <event>\n      <id>" << Id(i, 1) << "</id>\n      <name>Supply load high " << n
             << "</name>\n      <description>Active power of the incoming supply near the contracted 300 "
                "kW</description>\n"
                "      <annotation>Supply at %a1 kW of 300 kW contracted (above 280 kW for %b s)</annotation>\n"
                "      <delayToActivate>5</delayToActivate>\n      <delayToDeactivate>5</delayToDeactivate>\n"
                "      <notify>T</notify>\n      <record>T</record>\n      <rssActivate>T</rssActivate>\n"
                "      <rssDeactivate>F</rssDeactivate>\n      <rssAcknowledge>F</rssAcknowledge>\n"
                "      <condition>[M"
             << n << ".P] &gt; 280</condition>\n      <conditionStop>[M" << n
             << ".P] &lt; 265</conditionStop>\n      <eventsGroups>\n        <eventsGroup>" << Id(i % 50, 2)
             << "</eventsGroup>\n      </eventsGroups>\n      <arguments>\n        <argument>\n          <id>"
             << Id(i, 3) << "</id>\n          <value>[M" << n
             << ".P]</value>\n          <format>.01</format>\n          <thousandSeparator>F</thousandSeparator>\n"
                "        </argument>\n      </arguments>\n      <clientActions>\n        <activate>\n          "
                "<screen>\n"
                "            <id>"
             << Id(i, 4)
             << "</id>\n            <name>Energy</name>\n          </screen>\n        </activate>\n      "
                "</clientActions>\n"
                "    </event>\n";
    }
};

double WalkWithExpat(const std::string& path)
{
    struct Counts
    {
        std::size_t elements = 0;
        std::size_t characters = 0;
    } counts;
    const auto begin = Steady::now();
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetUserData(parser, &counts);
    XML_SetElementHandler(
        parser, [](void* user, const XML_Char*, const XML_Char**) { ++static_cast<Counts*>(user)->elements; },
        [](void*, const XML_Char*) {});
    XML_SetCharacterDataHandler(parser, [](void* user, const XML_Char*, int length)
                                { static_cast<Counts*>(user)->characters += static_cast<std::size_t>(length); });
    std::FILE* const file = std::fopen(path.c_str(), "rb");
    constexpr int block = 1 << 16;
    for (bool last = false; !last;)
    {
        void* const buffer = XML_GetBuffer(parser, block);
        const auto length = static_cast<int>(std::fread(buffer, 1, block, file));
        last = length < block;
        if (XML_ParseBuffer(parser, length, last) != XML_STATUS_OK) std::abort();
    }
    std::fclose(file);
    XML_ParserFree(parser);
    if (counts.elements == 0) std::abort();
    return Since(begin);
}

double ResidentBytes()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmRSS:", 0) == 0) return std::stod(line.substr(6)) * 1024;
    return 0;
}

std::unique_ptr<XmlDocument> Load(const std::string& path)
{
    KTWideString wide;
    Utf8ToUtf16(wide, KTNarrowString(path.c_str()));
    auto document = std::make_unique<XmlDocument>();
    if (!document->Load(wide.Str())) std::abort();
    return document;
}

void BenchExpat(benchmark::State& state, const EventsFile& file)
{
    for ([[maybe_unused]] auto step : state) WalkWithExpat(file.path);
    state.SetBytesProcessed(static_cast<std::int64_t>(file.Size()) * static_cast<std::int64_t>(state.iterations()));
}

void BenchLoad(benchmark::State& state, const EventsFile& file)
{
    const double before = ResidentBytes();
    double resident = 0;
    double best = 1e9;
    double walk = 1e9;
    for ([[maybe_unused]] auto step : state)
    {
        const auto begin = Steady::now();
        const auto document = Load(file.path);
        const double seconds = Since(begin);
        state.SetIterationTime(seconds);
        best = std::min(best, seconds);
        resident = std::max(resident, ResidentBytes() - before);
        walk = std::min(walk, WalkWithExpat(file.path));
    }
    state.counters["times_expat"] = best / walk;
    state.counters["resident_per_byte"] = resident / file.Size();
    state.SetBytesProcessed(static_cast<std::int64_t>(file.Size()) * static_cast<std::int64_t>(state.iterations()));
}

void BenchFree(benchmark::State& state, const EventsFile& file)
{
    for ([[maybe_unused]] auto step : state)
    {
        auto document = Load(file.path);
        const auto begin = Steady::now();
        document.reset();
        state.SetIterationTime(Since(begin));
    }
}

// The reads of an event's element when it is loaded.
void BenchReadEvents(benchmark::State& state, const EventsFile& file)
{
    const auto document = Load(file.path);
    const XmlDocument::XmlNode& events = *std::as_const(*document).Node(L"events");
    for ([[maybe_unused]] auto step : state)
        for (auto at = events.ChildsBegin(); at != events.ChildsEnd(); ++at)
        {
            for (const wchar_t* path :
                 {L"id", L"name", L"description", L"annotation", L"delayToActivate", L"delayToDeactivate", L"notify",
                  L"record", L"rssActivate", L"rssDeactivate", L"rssAcknowledge", L"timeTable"})
                benchmark::DoNotOptimize((*at)->Value(path, L"").Length());
            benchmark::DoNotOptimize((*at)->Node(L"/condition")->Value().Length());
        }
    state.SetItemsProcessed(static_cast<std::int64_t>(events.Size()) * static_cast<std::int64_t>(state.iterations()));
}

// An element for each id of a document, as a renaming or an editor's list looks them up.
void BenchSelect(benchmark::State& state, const EventsFile& file)
{
    const auto document = Load(file.path);
    const XmlDocument::XmlNode& events = *std::as_const(*document).Node(L"events");
    for ([[maybe_unused]] auto step : state)
        for (auto at = events.ChildsBegin(); at != events.ChildsEnd(); ++at)
            if (events.NodeV(L"event?id=%s?", (*at)->Value(L"id", L"").Str()) != *at) std::abort();
    state.SetItemsProcessed(static_cast<std::int64_t>(events.Size()) * static_cast<std::int64_t>(state.iterations()));
}

void BenchWrite(benchmark::State& state, const EventsFile& file)
{
    const auto document = Load(file.path);
    KTNarrowString code;
    for ([[maybe_unused]] auto step : state) document->CreateXmlCode(code, true);
    state.SetBytesProcessed(static_cast<std::int64_t>(code.Length()) * static_cast<std::int64_t>(state.iterations()));
}
}  // namespace

int main(int argc, char** argv)
{
    int events = 100'000;
    if (argc > 1 && argv[1][0] != '-')
    {
        events = std::atoi(argv[1]);
        std::copy(argv + 2, argv + argc + 1, argv + 1);
        --argc;
    }
    const EventsFile file(events);
    std::printf("%d events, %.1f MB\n", events, file.Size() / 1e6);
    const std::string suffix = "/" + std::to_string(events) + "_events";
    const auto add = [&](const char* name, void (*work)(benchmark::State&, const EventsFile&))
    { return benchmark::RegisterBenchmark((name + suffix).c_str(), work, std::cref(file)); };
    add("xml_load", BenchLoad)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);
    add("xml_expat_alone", BenchExpat)->Unit(benchmark::kMillisecond);
    add("xml_free", BenchFree)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);
    add("xml_read_events", BenchReadEvents)->Unit(benchmark::kMillisecond);
    add("xml_select", BenchSelect)->Unit(benchmark::kMillisecond);
    add("xml_write", BenchWrite)->Unit(benchmark::kMillisecond);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
