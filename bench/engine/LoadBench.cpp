// From the file of a large configuration to the end of the first scan, against what expat alone needs to walk the file.

#include <expat.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "bench/engine/BenchPlant.h"
#include "engine/KTEventServer.h"

namespace
{
using Steady = std::chrono::steady_clock;

double Seconds(Steady::time_point begin) { return std::chrono::duration<double>(Steady::now() - begin).count(); }

// Handlers that look at what they are given and keep nothing.
struct Counts
{
    std::size_t elements = 0;
    std::size_t characters = 0;
};

double WalkWithExpat(const std::string& path)
{
    const auto begin = Steady::now();
    Counts counts;
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetUserData(parser, &counts);
    XML_SetElementHandler(
        parser, [](void* user, const XML_Char*, const XML_Char**) { ++static_cast<Counts*>(user)->elements; },
        [](void*, const XML_Char*) {});
    XML_SetCharacterDataHandler(parser, [](void* user, const XML_Char*, int length)
                                { static_cast<Counts*>(user)->characters += static_cast<std::size_t>(length); });
    std::FILE* file = std::fopen(path.c_str(), "rb");
    constexpr int block = 1 << 16;
    for (;;)
    {
        void* buffer = XML_GetBuffer(parser, block);
        const auto length = static_cast<int>(std::fread(buffer, 1, block, file));
        if (XML_ParseBuffer(parser, length, length < block) != XML_STATUS_OK) std::abort();
        if (length < block) break;
    }
    std::fclose(file);
    XML_ParserFree(parser);
    if (counts.elements == 0) std::abort();
    return Seconds(begin);
}

std::size_t ResidentBytes()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmRSS:", 0) == 0) return std::stoull(line.substr(6)) * 1024;
    return 0;
}
}  // namespace

int main(int argc, char** argv)
{
    const int events = argc > 1 ? std::atoi(argv[1]) : 100'000;
    BenchDriver driver(events);
    const BenchDirectory directory;
    directory.Use();
    const std::size_t bytes = directory.WriteEvents(events, 1, 1500);
    const double walk = WalkWithExpat(directory.EventsFile());
    const std::size_t before = ResidentBytes();

    KTEventServer server;
    const auto begin = Steady::now();
    server.LoadCfg();
    const double loaded = Seconds(begin);
    if (KTEventSystem::Get().EventsSize() != events || !server.Start()) std::abort();
    while (server.ScanFigures().scans == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    const double scanned = Seconds(begin);
    const std::size_t resident = ResidentBytes() - before;

    const double size = static_cast<double>(bytes);
    std::printf("load/%d_events            %8.1f MB\n", events, size / 1e6);
    std::printf("load/%d_events/expat      %8.2f s\n", events, walk);
    std::printf("load/%d_events/loaded     %8.2f s   %.2f times expat\n", events, loaded, loaded / walk);
    std::printf("load/%d_events/first_scan %8.2f s   %.2f times expat\n", events, scanned, scanned / walk);
    std::printf("load/%d_events/resident   %8.1f MB  %.2f times the document\n", events,
                static_cast<double>(resident) / 1e6, static_cast<double>(resident) / size);
    std::fflush(stdout);
    server.Stop();
    return 0;
}
