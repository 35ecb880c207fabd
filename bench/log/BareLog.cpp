#include "bench/log/BareLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace
{
constexpr int headerSize = 14;
constexpr int recordSize = 26;
constexpr int blockSize = 4096;
constexpr int flags = O_RDWR | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

void Must(bool good)
{
    if (good) return;
    std::perror("bare loop");
    std::abort();
}

off_t LengthOf(int file)
{
    struct stat status
    {
    };
    Must(fstat(file, &status) == 0);
    return status.st_size;
}

void Make(const std::string& path, std::size_t length)
{
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0640);
    const std::string header(length, '\0');
    Must(file >= 0 && write(file, header.data(), length) == static_cast<ssize_t>(length));
    close(file);
}
}  // namespace

// As deep in the tree as an event's files, since the system walks the path each time.
BareLog::BareLog(const std::string& directory)
{
    const std::string month = directory + "/bare/03";
    std::filesystem::create_directories(month);
    records = month + "/bench 03-2024.suc";
    annotations = month + "/bench 03-2024.dat";
    Make(records, headerSize);
    Make(annotations, 16);
}

int BareLog::OpenAndJudge()
{
    char block[blockSize];
    const int file = open(records.c_str(), flags);
    Must(file >= 0);
    (void)LengthOf(file);  // is it a file at all
    Must(pread(file, block, blockSize, 0) >= headerSize);
    const off_t length = LengthOf(file);
    if (length > blockSize)
    {
        const off_t around = blockSize / 2 + recordSize;
        Must(pread(file, block, static_cast<std::size_t>(around), length - around) == around);
    }
    return file;
}

void BareLog::Append()
{
    const int file = OpenAndJudge();
    const char record[recordSize] = {};
    Must(pwrite(file, record, recordSize, LengthOf(file)) == recordSize && fdatasync(file) == 0);
    close(file);
}

void BareLog::AppendWithAnnotation(const std::string& text)
{
    const int file = OpenAndJudge();
    const off_t end = LengthOf(file);
    const int side = open(annotations.c_str(), flags);
    Must(side >= 0);
    (void)LengthOf(side);
    Must(pwrite(side, text.c_str(), text.size() + 1, LengthOf(side)) == static_cast<ssize_t>(text.size() + 1));
    const char record[recordSize] = {};
    Must(pwrite(file, record, recordSize, end) == recordSize && fdatasync(file) == 0);
    close(side);
    close(file);
}
