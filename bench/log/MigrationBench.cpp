// The conversion of a large old event log, against a plain loop that reads the same records and writes the same bytes.
//
// usage: bench_migration [RECORDS]

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "engine/KTEventSystem.h"
#include "host/KTCorvaneSetup.h"
#include "host/KTText.h"
#include "host/XmlDocument.h"
#include "log/KTTransformEventsFilesTo27.h"

namespace
{
namespace fs = std::filesystem;
using Steady = std::chrono::steady_clock;

constexpr int rounds = 5;
constexpr unsigned events = 100;
constexpr int month = 3;
constexpr int year = 2007;
constexpr std::size_t oldHeader = 11;
constexpr std::size_t oldRecord = 41;

void Must(bool good)
{
    if (good) return;
    std::perror("bench_migration");
    std::abort();
}

std::string Big(std::uint64_t value, int size)
{
    std::string bytes;
    for (int i = size - 1; i >= 0; --i) bytes += static_cast<char>(value >> (8 * i));
    return bytes;
}

std::string NameOf(unsigned event) { return "event " + std::to_string(event); }

// A data directory with the two old files of a month; gone with its object.
class OldLog
{
public:
    explicit OldLog(unsigned records)
    {
        std::string name = (fs::temp_directory_path() / "corvane-migration-XXXXXX").string();
        Must(mkdtemp(name.data()) != nullptr);
        directory = name + "/";
        content = "EVENTv1.000";
        annotations = "ANNOTATIONS";
        for (unsigned i = 0; i < records; ++i)
        {
            const std::string text = "Supply at " + std::to_string(i % 500) + " kW of 300 kW contracted";
            content += Big(i / 3, 16) + Big(i * 2, 4) + Big(i * 7 % events + 1, 4) + Big(0, 12) +
                       static_cast<char>(1 << (i % 3)) + Big(annotations.size(), 4);
            annotations += Big(text.size(), 2) + text;
        }
    }
    OldLog(const OldLog&) = delete;
    OldLog& operator=(const OldLog&) = delete;
    ~OldLog()
    {
        std::error_code ignored;
        fs::remove_all(directory, ignored);
    }

    // As it was before the conversion.
    void Restore() const
    {
        fs::remove_all(directory + "2007");
        std::ofstream(directory + "Events 03-2007.eve", std::ios::binary) << content;
        std::ofstream(directory + "Annotations 03-2007.dat", std::ios::binary) << annotations;
        sync();  // what is measured afterwards pays for its own bytes alone
    }

    // What the conversion made, by name.
    [[nodiscard]] std::map<std::string, std::string> Tree() const
    {
        std::map<std::string, std::string> files;
        for (const auto& entry : fs::recursive_directory_iterator(directory))
        {
            if (!entry.is_regular_file()) continue;
            std::ifstream in(entry.path(), std::ios::binary);
            files[entry.path().lexically_relative(directory).string()] = {std::istreambuf_iterator<char>(in), {}};
        }
        return files;
    }

    std::string directory;
    std::string content;
    std::string annotations;
};

// The plain loop: both files at once into memory, a buffer a new file, each written by one call and committed.
class PlainLoop
{
public:
    static void Run(const std::string& directory)
    {
        const std::string records = Read(directory + "Events 03-2007.eve");
        const std::string texts = Read(directory + "Annotations 03-2007.dat");
        std::vector<Files> all(events + 1);
        for (std::size_t at = oldHeader; at + oldRecord <= records.size(); at += oldRecord)
            Add(all[Number(records, at + 20)], records, at, texts);
        const std::string folder = directory + "2007/03/";
        fs::create_directories(folder);
        for (unsigned event = 1; event <= events; ++event)
        {
            const std::string name = folder + NameOf(event) + " 03-2007.";
            Write(name + "dat", all[event].texts);
            Write(name + "suc", all[event].records);
        }
        fs::remove(directory + "Events 03-2007.eve");
        fs::remove(directory + "Annotations 03-2007.dat");
    }

private:
    struct Files
    {
        std::string records{"EVENTv2.70\x07\xD0\0\x69", 14};
        std::string texts{"ANNOTATIONv2.70", 16};
    };

    static std::string Read(const std::string& path)
    {
        std::string bytes(fs::file_size(path), '\0');
        std::ifstream(path, std::ios::binary).read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        return bytes;
    }
    static void Write(const std::string& path, const std::string& bytes)
    {
        const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0640);
        Must(write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
        Must(fdatasync(file) == 0 && close(file) == 0);
    }
    static std::uint32_t Number(const std::string& bytes, std::size_t at, int size = 4)
    {
        std::uint32_t value = 0;
        for (int i = 0; i < size; ++i)
            value = value << 8 | static_cast<std::uint8_t>(bytes[at + static_cast<std::size_t>(i)]);
        return value;
    }
    static void Put(std::string& out, std::uint32_t value, int size)
    {
        for (int i = size - 1; i >= 0; --i) out += static_cast<char>(value >> (8 * i));
    }

    static void Add(Files& files, const std::string& records, std::size_t at, const std::string& texts)
    {
        const std::uint32_t seconds = Number(records, at + 16);
        const std::uint32_t annotation = Number(records, at + 37);
        const std::uint32_t length = Number(texts, annotation, 2);
        const auto place = static_cast<std::uint32_t>(files.texts.size());
        Put(files.texts, length + 1, 2);
        files.texts.append(texts, annotation + 2, length);
        files.texts += '\0';

        const std::uint32_t day = 1 + seconds / 86400;
        const std::size_t begin = files.records.size();
        Put(files.records,
            (year - 2000U) << 26 | month << 22 | day << 17 | seconds / 3600 % 24 << 12 | seconds / 60 % 60 << 6 |
                seconds % 60,
            4);
        files.records.append(records, at, 16);
        files.records += records[at + 36];
        Put(files.records, place, 4);
        unsigned sum = 0;
        for (std::size_t i = begin; i < files.records.size(); ++i) sum += static_cast<std::uint8_t>(files.records[i]);
        files.records += static_cast<char>(~sum);
    }
};

// The registry that the conversion asks for names.
class Registry
{
public:
    explicit Registry(const std::string& dataPath)
    {
        KTSetupData setup;
        Utf8ToUtf16(setup.dataPath, KTNarrowString(dataPath.c_str()));
        KTCorvaneSetup::Get().Configure(setup);
        std::string text = "<main><eventsGroups/><events>";
        char id[48];
        for (unsigned event = 1; event <= events; ++event)
        {
            std::snprintf(id, sizeof id, "{%08X-0000-0000-0000-000000000000}", event);
            text += "<event><id>" + std::string(id) + "</id><name>" + NameOf(event) +
                    "</name><condition>1=1</condition></event>";
        }
        Must(document.Parse((text + "</events></main>").c_str()));
        system.LoadXml(document);
        Must(system.EventsSize() == static_cast<int>(events));
    }

private:
    XmlDocument document;
    KTEventSystem system;
};

template <class Work>
double Seconds(const OldLog& log, const Work& work)
{
    log.Restore();
    const auto begin = Steady::now();
    work();
    return std::chrono::duration<double>(Steady::now() - begin).count();
}

double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}
}  // namespace

int main(int argc, char** argv)
{
    const unsigned records = argc > 1 ? static_cast<unsigned>(std::atoi(argv[1])) : 1'000'000;
    const OldLog log(records);
    const Registry registry(log.directory);
    const auto plain = [&] { PlainLoop::Run(log.directory); };
    const auto transform = [] { KTTransformEventsFilesTo27().Transform(); };

    (void)Seconds(log, plain);
    const auto expected = log.Tree();
    (void)Seconds(log, transform);
    if (log.Tree() != expected)
    {
        std::fprintf(stderr, "the two don't write the same bytes\n");
        return 1;
    }
    std::vector<double> plainSeconds;
    std::vector<double> transformSeconds;
    for (int round = 0; round < rounds; ++round)
    {
        plainSeconds.push_back(Seconds(log, plain));
        transformSeconds.push_back(Seconds(log, transform));
    }
    std::printf("migrate/%u_records/plain_loop %8.3f s\n", records, Median(plainSeconds));
    std::printf("migrate/%u_records/transform  %8.3f s  %5.2f times the plain loop\n", records,
                Median(transformSeconds), Median(transformSeconds) / Median(plainSeconds));
    return 0;
}
