// The installed files, with somebody looking on.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "host/KTFiles.h"

namespace corvane
{
/// Hands everything on to the files that were installed before, and notes what the module does with them: its maintenance
/// tells nothing but whether it worked.
///
/// Threads: one.
/// Memory:  installs itself while it lives.
class WatchedFiles final : public KTFiles
{
public:
    struct Renamed
    {
        KTWideString from;
        KTWideString to;
        Renaming result;
    };

    WatchedFiles() : next(Get()), before(Install(this)) {}
    ~WatchedFiles() override { Install(before); }

    std::vector<Renamed> renamed;                    // in the order of the attempts
    std::set<std::wstring> notMade;                  // paths of files that couldn't be created
    std::function<void(std::int64_t bytes)> onRead;  // bytes that were read; may be empty
    bool writeFailed = false;                        // or a commit

    int Open(const wchar_t* path, Mode mode) override;
    void Close(int file) override { next.Close(file); }
    std::int64_t Length(int file) override { return next.Length(file); }
    std::ptrdiff_t ReadAt(int file, std::int64_t offset, void* buffer, std::size_t size) override;
    std::ptrdiff_t WriteAt(int file, std::int64_t offset, const void* data, std::size_t size) override;
    bool Commit(int file) override;
    bool CreateDirectories(const wchar_t* path) override { return next.CreateDirectories(path); }
    bool Delete(const wchar_t* path) override { return next.Delete(path); }
    Renaming Rename(const wchar_t* from, const wchar_t* to) override;
    bool Search(const wchar_t* directory, std::vector<KTFoundFile>& found) override
    {
        return next.Search(directory, found);
    }
    int OpenReplacement(const wchar_t* path) override { return next.OpenReplacement(path); }
    bool Replace(int file) override { return next.Replace(file); }

private:
    KTFiles& next;
    KTFiles* const before;  // null: the system's
};
}  // namespace corvane
