#include "apps/corvane/WatchedFiles.h"

int corvane::WatchedFiles::Open(const wchar_t* path, Mode mode)
{
    const int file = next.Open(path, mode);
    if (mode == Mode::read || mode == Mode::readWrite) return file;
    // The first attempt may only have met a missing directory.
    if (file == none)
        notMade.insert(path);
    else
        notMade.erase(path);
    return file;
}

std::ptrdiff_t corvane::WatchedFiles::ReadAt(int file, std::int64_t offset, void* buffer, std::size_t size)
{
    const std::ptrdiff_t count = next.ReadAt(file, offset, buffer, size);
    if (count > 0 && onRead) onRead(count);
    return count;
}

std::ptrdiff_t corvane::WatchedFiles::WriteAt(int file, std::int64_t offset, const void* data, std::size_t size)
{
    const std::ptrdiff_t count = next.WriteAt(file, offset, data, size);
    writeFailed = writeFailed || count != static_cast<std::ptrdiff_t>(size);
    return count;
}

bool corvane::WatchedFiles::Commit(int file)
{
    const bool good = next.Commit(file);
    writeFailed = writeFailed || !good;
    return good;
}

KTFiles::Renaming corvane::WatchedFiles::Rename(const wchar_t* from, const wchar_t* to)
{
    const Renaming result = next.Rename(from, to);
    renamed.push_back({KTWideString(from), KTWideString(to), result});
    return result;
}
