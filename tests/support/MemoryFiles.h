// Files in memory that count who opens them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/KTFiles.h"
#include "host/KTText.h"

/// Installed while it lives. Directories are there as soon as somebody names them.
///
/// Threads: one at a time.
class MemoryFiles : public KTFiles
{
public:
    using Bytes = std::vector<std::uint8_t>;

    /// A path as the key of `files`.
    static std::string Name(const wchar_t* path)
    {
        KTNarrowString narrow;
        Utf16ToUtf8(narrow, KTWideString(path, false));
        return narrow.Str();
    }

    MemoryFiles() : before(Install(this)) {}
    ~MemoryFiles() override { Install(before); }

    int Open(const wchar_t* path, Mode mode) override
    {
        const std::string name = Name(path);
        if (name.empty()) return none;
        const auto found = files.find(name);
        const bool there = found != files.end();
        if (there ? mode == Mode::createNew : mode == Mode::read || mode == Mode::readWrite) return none;
        if (!there || mode == Mode::create) files[name] = std::make_shared<Bytes>();
        opened.push_back(name);
        handles.push_back(files[name]);
        return static_cast<int>(handles.size()) - 1;
    }
    void Close(int file) override { At(file) = nullptr; }
    std::int64_t Length(int file) override { return static_cast<std::int64_t>(At(file)->size()); }
    std::ptrdiff_t ReadAt(int file, std::int64_t offset, void* buffer, std::size_t size) override
    {
        const Bytes& bytes = *At(file);
        const auto from = std::min(static_cast<std::size_t>(offset), bytes.size());
        const std::size_t count = std::min(size, bytes.size() - from);
        if (count > 0) std::memcpy(buffer, bytes.data() + from, count);
        return static_cast<std::ptrdiff_t>(count);
    }
    std::ptrdiff_t WriteAt(int file, std::int64_t offset, const void* data, std::size_t size) override
    {
        Bytes& bytes = *At(file);
        const auto from = static_cast<std::size_t>(offset);
        bytes.resize(std::max(bytes.size(), from + size));
        if (size > 0) std::memcpy(bytes.data() + from, data, size);
        return static_cast<std::ptrdiff_t>(size);
    }
    bool Commit(int) override { return true; }
    bool CreateDirectories(const wchar_t*) override { return true; }
    bool Delete(const wchar_t* path) override { return files.erase(Name(path)) == 1; }
    Renaming Rename(const wchar_t*, const wchar_t*) override { return Renaming::failed; }
    bool Search(const wchar_t*, std::vector<KTFoundFile>& found) override
    {
        found.clear();
        return false;
    }
    int OpenReplacement(const wchar_t*) override { return none; }
    bool Replace(int) override { return false; }

    [[nodiscard]] bool AllClosed() const
    {
        return std::all_of(handles.begin(), handles.end(), [](const auto& handle) { return handle == nullptr; });
    }

    std::map<std::string, std::shared_ptr<Bytes>> files;
    std::vector<std::string> opened;  // each success, in order

private:
    std::shared_ptr<Bytes>& At(int file) { return handles.at(static_cast<std::size_t>(file)); }

    KTFiles* const before;
    std::vector<std::shared_ptr<Bytes>> handles;
};
