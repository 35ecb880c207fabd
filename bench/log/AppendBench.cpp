// What a state change costs until it stands on the disk: an event's record, against the bare loop of the same system calls
// and against a database. usage: bench_append [DIRECTORY]...; each is measured, the system's temporary one without any.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "bench/log/BareLog.h"
#include "bench/log/SqlLog.h"
#include "engine/KTEventDriver.h"
#include "host/KTCorvaneSetup.h"
#include "host/KTText.h"
#include "host/XmlDocument.h"

namespace
{
namespace fs = std::filesystem;
using Steady = std::chrono::steady_clock;

constexpr int rounds = 15;
constexpr int appendsARound = 100;
const std::string text = "Pump 7: pressure 12.5 bar above the limit of 10 bar";

// An event whose recording can be called by itself.
class RecordedEvent : public KTEventDriver
{
public:
    RecordedEvent()
    {
        name = L"bench";
        record = true;
        NewGUID(occurrence.id);
        occurrence.activationDate = KTDateTime::UTC();
    }
    void SetAnnotation(const std::string& annotation) { occurrence.annotation = annotation.c_str(); }
    void Append()
    {
        if (!SaveEvent(&occurrence, statusActivated)) std::abort();
    }

private:
    tagSEventRT occurrence;
};

class Directory
{
public:
    explicit Directory(const fs::path& parent)
    {
        std::string name = (parent / "corvane-append-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr)
        {
            std::perror(name.c_str());
            std::exit(2);
        }
        path = name;
    }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;
    ~Directory()
    {
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }
    fs::path path;
};

// The type of the file system that holds a path: the longest mount point that begins it.
std::string FileSystemOf(const fs::path& path)
{
    const std::string whole = fs::canonical(path).string();
    std::ifstream mounts("/proc/self/mounts");
    std::string best = "unknown";
    std::size_t longest = 0;
    for (std::string line; std::getline(mounts, line);)
    {
        std::istringstream words(line);
        std::string device;
        std::string point;
        std::string type;
        words >> device >> point >> type;
        const bool holds = point == "/" || whole == point || whole.starts_with(point + "/");
        if (!holds || point.size() < longest) continue;
        longest = point.size();
        best = type;
    }
    return best;
}

struct Rival
{
    const char* name;
    std::function<void()> append;
    std::vector<double> microseconds;  // of one append, by round

    void Run()
    {
        const auto begin = Steady::now();
        for (int i = 0; i < appendsARound; ++i) append();
        microseconds.push_back(std::chrono::duration<double, std::micro>(Steady::now() - begin).count() /
                               appendsARound);
    }
    [[nodiscard]] double Median() const
    {
        std::vector<double> sorted = microseconds;
        std::sort(sorted.begin(), sorted.end());
        return sorted[sorted.size() / 2];
    }
};

// Round by round in turn, so that what else the machine does meets all alike.
void Compare(const std::string& group, std::vector<Rival> rivals)
{
    for (int round = 0; round < rounds; ++round)
        for (Rival& rival : rivals) rival.Run();
    const double bare = rivals.front().Median();
    for (const Rival& rival : rivals)
        std::printf("append/%s/%-8s %10.2f us  %6.2f times the bare calls\n", group.c_str(), rival.name, rival.Median(),
                    rival.Median() / bare);
    std::fflush(stdout);
}

void MeasureIn(const fs::path& parent)
{
    const std::string system = FileSystemOf(parent);
    for (const bool annotated : {false, true})
    {
        const Directory directory(parent);
        KTSetupData setup;
        Utf8ToUtf16(setup.dataPath, KTNarrowString((directory.path.string() + "/").c_str()));
        KTCorvaneSetup::Get().Configure(setup);
        RecordedEvent event;
        event.SetAnnotation(annotated ? text : "");
        BareLog bare(directory.path.string());
        SqlLog sql(directory.path.string());
        const std::string annotation = annotated ? text : "";
        long long second = 0;
        GUID id;
        NewGUID(id);
        const auto insert = [&] { sql.Append(id, ++second, 1, annotation); };
        const auto bareAppend = [&] { annotated ? bare.AppendWithAnnotation(annotation) : bare.Append(); };
        Compare(system + (annotated ? "/annotated" : "/plain"),
                {{"bare", bareAppend, {}}, {"event", [&] { event.Append(); }, {}}, {"sqlite", insert, {}}});
    }
}
}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2) MeasureIn(fs::temp_directory_path());
    for (int i = 1; i < argc; ++i) MeasureIn(argv[i]);
    return 0;
}
