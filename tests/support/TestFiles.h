// The system's files with a test in front of them.
#pragma once

#include "host/KTFiles.h"

/// Installed while it lives; hands everything on to the files that were installed before. A test overrides what it wants to
/// see or to spoil.
class TestFiles : public KTFiles
{
public:
    TestFiles() : next(Get()), before(Install(this)) {}
    ~TestFiles() override { Install(before); }

    int Open(const wchar_t* path, Mode mode) override { return next.Open(path, mode); }
    void Close(int file) override { next.Close(file); }
    std::int64_t Length(int file) override { return next.Length(file); }
    std::ptrdiff_t ReadAt(int file, std::int64_t offset, void* buffer, std::size_t size) override
    {
        return next.ReadAt(file, offset, buffer, size);
    }
    std::ptrdiff_t WriteAt(int file, std::int64_t offset, const void* data, std::size_t size) override
    {
        return next.WriteAt(file, offset, data, size);
    }
    bool Commit(int file) override { return next.Commit(file); }
    bool CreateDirectories(const wchar_t* path) override { return next.CreateDirectories(path); }
    bool Delete(const wchar_t* path) override { return next.Delete(path); }
    Renaming Rename(const wchar_t* from, const wchar_t* to) override { return next.Rename(from, to); }
    bool Search(const wchar_t* directory, std::vector<KTFoundFile>& found) override
    {
        return next.Search(directory, found);
    }
    int OpenReplacement(const wchar_t* path) override { return next.OpenReplacement(path); }
    bool Replace(int file) override { return next.Replace(file); }

private:
    KTFiles& next;
    KTFiles* const before;
};
