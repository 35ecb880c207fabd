// Runs a fuzz target over every file of the directories and files that it is given, whole and, where it is short, cut at
// every length; a fault ends the process.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace
{
namespace fs = std::filesystem;

constexpr std::size_t shortFile = 2048;  // bytes

void Run(const std::vector<char>& bytes, std::size_t size)
{
    // A block of exactly that size, so that a sanitizer sees the first byte read beyond it.
    const std::unique_ptr<std::uint8_t[]> exact(new std::uint8_t[size]);
    std::transform(bytes.data(), bytes.data() + size, exact.get(), [](char c) { return static_cast<std::uint8_t>(c); });
    (void)LLVMFuzzerTestOneInput(exact.get(), size);
}

void Replay(const fs::path& file)
{
    std::ifstream in(file, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::printf("%s\n", file.c_str());
    std::fflush(stdout);  // the last line names the file that ended us
    Run(bytes, bytes.size());
    for (std::size_t size = 0; size < bytes.size() && bytes.size() <= shortFile; ++size) Run(bytes, size);
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
