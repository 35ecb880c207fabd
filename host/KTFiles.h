// The one way to the disk: low-level binary files, their directories, and what makes them last.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "host/KTString.h"

/// An entry of a directory.
struct KTFoundFile
{
    KTWideString name;  // without the directory
    bool directory = false;
};

/// What the module asks of the file system.
///
/// A file is a handle: an int of at least 0, or -1 for none. It knows no position; each access says where. Files are shared:
/// others may read, write, rename and delete while they are open. Only regular files open, and links lead to them; anything
/// else (a directory, a pipe, a device) fails and never makes the caller wait.
///
/// Units:   offsets and sizes are bytes. Paths are wide text with `/` between the names.
/// Errors:  -1 or false, never an exception but for want of memory.
/// Threads: all operations may be called from any thread, and an operation on one handle from several; Close ends the
///          handle for all. Install only while no other thread works on files.
/// Memory:  installed files stay the caller's and must outlive their installation and every handle that they gave.
class KTFiles
{
public:
    static constexpr int none = -1;  // no file

    enum class Mode
    {
        read,
        readWrite,  // both without creating
        create,     // makes the file or empties the present one, for reading and writing
        createNew   // the same, and fails where there is one
    };

    enum class Renaming
    {
        done,
        missing,  // there is no file of the old name
        failed    // also where the new name is taken
    };

    KTFiles() = default;
    KTFiles(const KTFiles&) = delete;
    KTFiles& operator=(const KTFiles&) = delete;
    virtual ~KTFiles() = default;

    /// A new file is made with mode 0640; its directory must be there. -1 on failure.
    virtual int Open(const wchar_t* path, Mode mode) = 0;
    virtual void Close(int file) = 0;

    /// -1 on failure.
    virtual std::int64_t Length(int file) = 0;

    /// Reads `size` bytes, fewer at the end of the file and where the rest can't be read. The number of bytes read; -1 when
    /// the first of them couldn't be.
    virtual std::ptrdiff_t ReadAt(int file, std::int64_t offset, void* buffer, std::size_t size) = 0;

    /// Writes `size` bytes, fewer where the rest can't be written (a full disk). The number of bytes written; -1 when the
    /// first of them couldn't be.
    virtual std::ptrdiff_t WriteAt(int file, std::int64_t offset, const void* data, std::size_t size) = 0;

    /// Waits until the file's content stands on the medium. The first commit of a file that this process made also commits
    /// the directories that it made for it. A replay installs files that leave this out.
    virtual bool Commit(int file) = 0;

    /// Makes the missing directories of a file's path, with mode 0750; the last component is the file's name and isn't
    /// made. True when all are there. The host's CreateDirectoryW.
    virtual bool CreateDirectories(const wchar_t* path) = 0;

    /// False also when there was no such file. A file that is gone doesn't come back after a power cut.
    virtual bool Delete(const wchar_t* path) = 0;

    /// Never replaces a file. The new name stands on the medium on return.
    virtual Renaming Rename(const wchar_t* from, const wchar_t* to) = 0;

    /// The entries of a directory in the order of their names, `.` and `..` left out; names that aren't UTF-8 are left out
    /// too, since no path leads to them. Replaces `found`; false, with nothing found, when the directory can't be read.
    virtual bool Search(const wchar_t* directory, std::vector<KTFoundFile>& found) = 0;

    /// A file beside the one at `path`, to be written by the caller and then put in its place by Replace; Close gives it
    /// up. An existing file's mode goes over to it, and its owner where the process may give it; a new one gets 0640. A
    /// link stays a link: what it leads to is replaced. -1 on failure.
    virtual int OpenReplacement(const wchar_t* path) = 0;

    /// Commits what was written, puts it in the place of the old file and commits the directory; the handle is closed
    /// either way. Readers and power cuts meet the old file or the new one, never something between. False, with the old
    /// file untouched; only when the directory's commit fails the new file stands already.
    virtual bool Replace(int file) = 0;

    static KTFiles& Get();

    /// Null installs the system's files. Returns what was installed before, null for the system's.
    static KTFiles* Install(KTFiles* files);
};

/// Makes all missing directories of a file's path, the last component being the file's name.
inline bool CreateDirectoryW(const wchar_t* path) { return KTFiles::Get().CreateDirectories(path); }
