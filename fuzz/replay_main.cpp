// Runs a fuzz target over every file of the directories and files that it is given; a fault ends the process.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace
{
namespace fs = std::filesystem;

void Replay(const fs::path& file)
{
    std::ifstream in(file, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::printf("%s\n", file.c_str());
    std::fflush(stdout);  // the last line names the file that ended us
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}
}  // namespace

int main(int argc, char** argv)
{
    int replayed = 0;
    for (int i = 1; i < argc; ++i)
    {
        if (!fs::is_directory(argv[i]))
        {
            Replay(argv[i]);
            ++replayed;
            continue;
        }
        for (const auto& entry : fs::recursive_directory_iterator(argv[i]))
        {
            if (!entry.is_regular_file()) continue;
            Replay(entry.path());
            ++replayed;
        }
    }
    // An empty corpus would pass for ever.
    return replayed > 0 ? 0 : 1;
}
