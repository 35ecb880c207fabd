// Files in memory that fail when a test says so, and lose at a power cut what wasn't committed.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "host/KTFiles.h"

/// Installed while it lives. The root directory is there, and "" is the process's own; all else is made.
///
/// Threads: any, as the contract says.
class FaultyFiles final : public KTFiles
{
public:
    using Random = std::mt19937_64;

    FaultyFiles();
    ~FaultyFiles() override;

    // What a test puts there and finds there.
    void Put(const std::string& path, const std::string& bytes);  // durable, with its directories
    void Clear();                                                 // an empty disk, power and no fault
    [[nodiscard]] bool Exists(const std::string& path) const;
    [[nodiscard]] bool IsDirectory(const std::string& path) const;
    [[nodiscard]] std::string Content(const std::string& path) const;
    [[nodiscard]] std::vector<std::string> Paths() const;  // of files, in order

    /// What was asked since the last call: "write a.suc 14+26", "commit a.suc"; names without their directories.
    std::vector<std::string> Trace();

    // Faults. Numbers count from the next call on, which is 1.
    void FailOpen(int number) { openFault = number; }
    void FailLength(int number) { lengthFault = number; }
    /// A place on the medium that can't be read: a read that comes to it ends there.
    void SpoilAt(const std::string& path, std::size_t offset) { spoiled[path] = offset; }
    void Heal() { spoiled.clear(); }
    /// That write puts down `kept` bytes and no more; with -1 it fails.
    void FailWrite(int number, std::ptrdiff_t kept = -1)
    {
        writeFault = number;
        writeKept = kept;
    }
    void FailCommit(int number) { commitFault = number; }
    void FailDirectories(bool fail) { noDirectories = fail; }

    // A power cut: that operation and all later ones fail; whether something of that one still happened is left to Restart.
    void CutPower(int number) { cutAt = operations + number; }
    [[nodiscard]] bool PowerIsOut() const { return out; }
    [[nodiscard]] int Operations() const { return operations; }

    enum class Loss
    {
        all,   // of what wasn't committed nothing is left
        none,  // everything had reached the medium
        some   // names, lengths and pieces of writes, as it happens
    };
    /// The machine comes up again: no file is open, and what is there is what the medium holds.
    void Restart(Loss loss, Random& random);

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
    struct Write
    {
        std::size_t offset;
        std::string bytes;
    };
    struct File
    {
        std::string now;
        std::string durable;
        std::vector<Write> uncommitted;
    };
    using Names = std::map<std::string, std::shared_ptr<File>>;
    struct Handle
    {
        std::shared_ptr<File> file;
        std::string path;
        bool writable = false;
        bool replacement = false;
    };

    bool Due(int& fault);
    bool Step(const std::string& what);
    Handle* Find(int file);
    bool HasDirectoryOf(const std::string& path) const;
    int Give(Handle handle);
    void MakeDurable(const std::string& path, const std::shared_ptr<File>& file);
    static void Apply(std::string& content, const Write& write, std::size_t size);
    static std::string Left(const File& file, Loss loss, Random& random);

    mutable std::mutex mutex;
    Names names;
    Names durableNames;
    std::set<std::string> directories;
    std::set<std::string> durableDirectories;
    std::map<int, Handle> handles;
    int nextHandle = 100;
    std::vector<std::string> trace;
    int operations = 0;
    int cutAt = 0;  // 0: never
    bool out = false;
    int openFault = 0;
    int lengthFault = 0;
    std::map<std::string, std::size_t> spoiled;
    int writeFault = 0;
    std::ptrdiff_t writeKept = -1;
    int commitFault = 0;
    bool noDirectories = false;
    KTFiles* const before;
};
