// The files of the operating system.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/KTFiles.h"

/// KTFiles on POSIX: a handle is a file descriptor. After a failure errno says why.
///
/// Threads: any. The mutex guards the tables of what isn't committed yet; while they are empty, which is the rule, no
///          operation takes it.
class KTSystemFiles final : public KTFiles
{
public:
    enum class Commits
    {
        made,
        leftOut  // for a replay, whose files nobody misses after a power cut
    };

    explicit KTSystemFiles(Commits wanted = Commits::made) : commits(wanted == Commits::made) {}

    int Open(const wchar_t* path, Mode mode) override;
    void Close(int file) override;
    std::int64_t Length(int file) override;
    std::ptrdiff_t ReadAt(int file, std::int64_t offset, void* buffer, std::size_t size) override;
    std::ptrdiff_t WriteAt(int file, std::int64_t offset, const void* data, std::size_t size) override;
    bool Commit(int file) override;
    bool CreateDirectories(const wchar_t* path) override;
    bool Delete(const wchar_t* path) override;
    Renaming Rename(const wchar_t* from, const wchar_t* to) override;
    bool Search(const wchar_t* directory, std::vector<KTFoundFile>& found) override;
    int OpenReplacement(const wchar_t* path) override;
    bool Replace(int file) override;

private:
    struct Replacement
    {
        std::string name;   // the file in the making
        std::string place;  // what it shall replace, links followed
    };

    int OpenNew(const std::string& path, bool exclusive);
    void NoteMade(std::string_view path);
    void NoteOpened(int file, std::string_view path);
    bool MakeDirectory(const std::string& path);
    bool CommitContent(int file) const;
    bool CommitDirectory(const std::string& directory) const;
    bool CommitDirectoriesOf(int file);
    std::vector<std::pair<std::string, std::uint64_t>> FreshAbove(const std::string& path);
    void Count() { watched = static_cast<int>(fresh.size() + opened.size() + replacements.size()); }

    const bool commits;
    std::atomic<int> watched{0};  // entries of the three tables together
    std::mutex mutex;
    std::unordered_map<std::string, std::uint64_t> fresh;  // directories with names that we made and didn't commit
    std::unordered_map<int, std::string> opened;           // paths of open files below such directories, by handle
    std::unordered_map<int, Replacement> replacements;     // by handle
    std::uint64_t made = 0;                                // names made so far: tells whether a directory got another
};
