#include "suite/tools/KTSystemFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "host/KTText.h"
#include "suite/tools/KTUnicode.h"

namespace
{
constexpr mode_t fileMode = 0640;
constexpr mode_t directoryMode = 0750;
// Not blocking, since the open of a pipe would wait for somebody at its other end.
constexpr int always = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

// The path as the system takes it, without an allocation for what is usual.
class NarrowPath
{
public:
    explicit NarrowPath(const wchar_t* wide)
    {
        const int length = KTWideChar::Length(wide);
        const std::size_t room = static_cast<std::size_t>(length) * 4 + 1;
        if (room > sizeof local) heap.reset(new char[room]);
        begin = heap ? heap.get() : local;
        char* out = begin;
        for (const wchar_t* const end = wide + length; wide != end;) out = kt::PutUtf8(out, kt::NextWide(wide, end));
        *out = '\0';
        size = static_cast<std::size_t>(out - begin);
    }

    [[nodiscard]] const char* Str() const { return begin; }
    [[nodiscard]] std::string_view View() const { return {begin, size}; }
    [[nodiscard]] std::string Text() const { return {begin, size}; }

private:
    char* begin;
    std::size_t size;
    std::unique_ptr<char[]> heap;
    char local[1100];  // a path of the log has at most 259 elements
};

bool IsRegular(int descriptor)
{
    struct stat status
    {
    };
    return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

int OpenWith(const char* path, int flags)
{
    int descriptor = -1;
    do descriptor = open(path, flags | always, fileMode);
    while (descriptor < 0 && errno == EINTR);
    return descriptor;
}

int Regular(int descriptor)
{
    if (descriptor < 0 || IsRegular(descriptor)) return descriptor;
    close(descriptor);
    errno = EINVAL;
    return KTFiles::none;
}

std::string DirectoryOf(std::string_view path)
{
    const std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos) return ".";
    const std::size_t end = path.find_last_not_of('/', slash);  // "a//b" lies in "a"
    return end == std::string_view::npos ? "/" : std::string(path.substr(0, end + 1));
}

// Where links lead to; the path itself where there is nothing yet.
std::string TargetOf(const char* path)
{
    char resolved[PATH_MAX];
    return realpath(path, resolved) != nullptr ? resolved : path;
}

std::string BesideName(const std::string& path)
{
    static std::atomic<unsigned> number{0};
    return path + "." + std::to_string(getpid()) + "-" + std::to_string(number.fetch_add(1)) + ".new";
}

// Takes over mode and owner of the file that is to be replaced.
bool Resemble(int descriptor, const std::string& place)
{
    struct stat old
    {
    };
    if (stat(place.c_str(), &old) != 0) return errno == ENOENT;
    if (fchown(descriptor, old.st_uid, old.st_gid) != 0 && errno != EPERM) return false;
    return fchmod(descriptor, old.st_mode & 07777) == 0;
}

bool Sync(int descriptor, int (*call)(int))
{
    while (call(descriptor) != 0)
    {
        // Some file systems commit by themselves and refuse to be asked.
        if (errno == EINVAL || errno == ENOTSUP) return true;
        if (errno != EINTR) return false;
    }
    return true;
}

bool IsDirectory(const std::string& path)
{
    struct stat status
    {
    };
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool IsDirectory(int parent, const dirent& entry)
{
    if (entry.d_type != DT_UNKNOWN && entry.d_type != DT_LNK) return entry.d_type == DT_DIR;
    struct stat status
    {
    };
    return fstatat(parent, entry.d_name, &status, 0) == 0 && S_ISDIR(status.st_mode);
}

KTSystemFiles& TheSystemFiles()
{
    static auto* const files = new KTSystemFiles;  // never destroyed: threads may still write at the end of the process
    return *files;
}

std::atomic<KTFiles*> installed{nullptr};
}  // namespace

KTFiles& KTFiles::Get()
{
    KTFiles* const files = installed.load(std::memory_order_acquire);
    return files != nullptr ? *files : TheSystemFiles();
}

KTFiles* KTFiles::Install(KTFiles* files) { return installed.exchange(files, std::memory_order_acq_rel); }

int KTSystemFiles::Open(const wchar_t* path, Mode mode)
{
    const NarrowPath narrow(path);
    int file = none;
    if (mode == Mode::read)
        file = OpenWith(narrow.Str(), O_RDONLY);
    else if (mode != Mode::createNew)
        file = OpenWith(narrow.Str(), mode == Mode::readWrite ? O_RDWR : O_RDWR | O_TRUNC);
    if (file < 0 && (mode == Mode::createNew || (mode == Mode::create && errno == ENOENT)))
        file = OpenNew(narrow.Text(), mode == Mode::createNew);
    file = Regular(file);
    if (file >= 0 && mode != Mode::read && watched != 0) NoteOpened(file, narrow.View());
    return file;
}

int KTSystemFiles::OpenNew(const std::string& path, bool exclusive)
{
    NoteMade(path);
    int file = OpenWith(path.c_str(), O_RDWR | O_CREAT | O_EXCL);
    if (file >= 0)
        NoteMade(path);
    else if (errno == EEXIST && !exclusive)
        file = OpenWith(path.c_str(), O_RDWR | O_CREAT | O_TRUNC);  // a link that leads nowhere yet
    return file;
}

void KTSystemFiles::Close(int file)
{
    if (file < 0) return;
    std::string unfinished;
    if (watched != 0)
    {
        const std::lock_guard guard(mutex);
        if (const auto found = replacements.find(file); found != replacements.end())
            unfinished = std::move(found->second.name);
        replacements.erase(file);
        opened.erase(file);
        Count();
    }
    if (!unfinished.empty()) unlink(unfinished.c_str());
    close(file);  // the descriptor is gone even where this is interrupted
}

std::int64_t KTSystemFiles::Length(int file)
{
    struct stat status
    {
    };
    return fstat(file, &status) == 0 ? status.st_size : -1;
}

std::ptrdiff_t KTSystemFiles::ReadAt(int file, std::int64_t offset, void* buffer, std::size_t size)
{
    auto* const out = static_cast<char*>(buffer);
    std::size_t done = 0;
    while (done < size)
    {
        const ssize_t count = pread(file, out + done, size - done, offset + static_cast<std::int64_t>(done));
        if (count < 0 && errno == EINTR) continue;
        if (count < 0 && done == 0) return -1;
        if (count <= 0) break;
        done += static_cast<std::size_t>(count);
    }
    return static_cast<std::ptrdiff_t>(done);
}

std::ptrdiff_t KTSystemFiles::WriteAt(int file, std::int64_t offset, const void* data, std::size_t size)
{
    const auto* const in = static_cast<const char*>(data);
    std::size_t done = 0;
    while (done < size)
    {
        const ssize_t count = pwrite(file, in + done, size - done, offset + static_cast<std::int64_t>(done));
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0 && done == 0) return -1;
        if (count <= 0) break;
        done += static_cast<std::size_t>(count);
    }
    return static_cast<std::ptrdiff_t>(done);
}

bool KTSystemFiles::Commit(int file)
{
    // The length belongs to what fdatasync keeps; the times of the last change aren't worth a write.
    if (!CommitContent(file)) return false;
    return watched == 0 || CommitDirectoriesOf(file);
}

bool KTSystemFiles::CommitContent(int file) const { return !commits || Sync(file, fdatasync); }

bool KTSystemFiles::CommitDirectory(const std::string& directory) const
{
    if (!commits) return true;
    const int descriptor = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) return errno == EACCES;  // a directory that one may write in and not read can't be committed
    const bool good = Sync(descriptor, fsync);
    close(descriptor);
    return good;
}

// A name lasts only when the directory that holds it is committed, and so on upwards. Told before the name is made, so that
// whoever opens it at once knows, and again afterwards, so that a commit in between doesn't count for it. Where nothing was
// made a directory is committed once too often.
void KTSystemFiles::NoteMade(std::string_view path)
{
    if (!commits) return;
    const std::lock_guard guard(mutex);
    fresh[DirectoryOf(path)] = ++made;
    Count();
}

void KTSystemFiles::NoteOpened(int file, std::string_view path)
{
    const std::lock_guard guard(mutex);
    std::string text(path);
    if (FreshAbove(text).empty()) return;
    opened[file] = std::move(text);
    Count();
}

std::vector<std::pair<std::string, std::uint64_t>> KTSystemFiles::FreshAbove(const std::string& path)
{
    std::vector<std::pair<std::string, std::uint64_t>> above;
    std::string directory = DirectoryOf(path);
    for (std::string last; directory != last; directory = DirectoryOf(last))
    {
        if (const auto found = fresh.find(directory); found != fresh.end()) above.emplace_back(*found);
        last = directory;
    }
    return above;
}

bool KTSystemFiles::CommitDirectoriesOf(int file)
{
    std::vector<std::pair<std::string, std::uint64_t>> above;
    {
        const std::lock_guard guard(mutex);
        const auto found = opened.find(file);
        if (found == opened.end()) return true;
        above = FreshAbove(found->second);
    }
    for (const auto& [directory, number] : above)
        if (!CommitDirectory(directory)) return false;
    // Only now: until then another thread that commits there must not count on us. And only when nobody made another
    // name there meanwhile.
    const std::lock_guard guard(mutex);
    for (const auto& [directory, number] : above)
        if (const auto found = fresh.find(directory); found != fresh.end() && found->second == number)
            fresh.erase(found);
    opened.erase(file);
    Count();
    return true;
}

bool KTSystemFiles::CreateDirectories(const wchar_t* path)
{
    const NarrowPath narrow(path);
    const std::string_view view = narrow.View();
    if (view.find('/') == std::string_view::npos) return !view.empty();
    return MakeDirectory(DirectoryOf(view));
}

// From the deepest upwards, since usually only the last one or two are missing.
bool KTSystemFiles::MakeDirectory(const std::string& path)
{
    if (IsDirectory(path)) return true;
    const std::string parent = DirectoryOf(path);
    if (parent == path || !MakeDirectory(parent)) return false;
    NoteMade(path);
    const int result = mkdir(path.c_str(), directoryMode);
    if (result != 0) return errno == EEXIST && IsDirectory(path);  // somebody else made it meanwhile
    NoteMade(path);
    return true;
}

bool KTSystemFiles::Delete(const wchar_t* path)
{
    const NarrowPath narrow(path);
    if (unlink(narrow.Str()) != 0) return false;
    (void)CommitDirectory(DirectoryOf(narrow.View()));  // the file is gone either way
    return true;
}

KTFiles::Renaming KTSystemFiles::Rename(const wchar_t* from, const wchar_t* to)
{
    const NarrowPath source(from);
    const NarrowPath target(to);
    bool good = renameat2(AT_FDCWD, source.Str(), AT_FDCWD, target.Str(), RENAME_NOREPLACE) == 0;
    if (!good && (errno == EINVAL || errno == ENOSYS))
    {
        // The file system can't refuse to replace. A second name can.
        good = link(source.Str(), target.Str()) == 0;
        if (good && unlink(source.Str()) != 0)
        {
            unlink(target.Str());
            return Renaming::failed;
        }
    }
    if (!good) return errno == ENOENT ? Renaming::missing : Renaming::failed;
    const std::string newDirectory = DirectoryOf(target.View());
    const std::string oldDirectory = DirectoryOf(source.View());
    if (!CommitDirectory(newDirectory)) return Renaming::failed;
    return oldDirectory == newDirectory || CommitDirectory(oldDirectory) ? Renaming::done : Renaming::failed;
}

bool KTSystemFiles::Search(const wchar_t* directory, std::vector<KTFoundFile>& found)
{
    found.clear();
    const NarrowPath narrow(directory);
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(opendir(narrow.Str()), closedir);
    if (listing == nullptr) return false;
    std::vector<std::pair<std::string, bool>> entries;
    errno = 0;
    while (const dirent* const entry = readdir(listing.get()))
    {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") entries.emplace_back(name, IsDirectory(dirfd(listing.get()), *entry));
        errno = 0;
    }
    if (errno != 0) return false;
    std::sort(entries.begin(), entries.end());
    for (const auto& [name, isDirectory] : entries)
    {
        KTFoundFile file{{}, isDirectory};
        Utf8ToUtf16(file.name, KTNarrowString(name.c_str(), false));
        KTNarrowString back;
        Utf16ToUtf8(back, file.name);
        if (name == back.Str()) found.push_back(std::move(file));
    }
    return true;
}

int KTSystemFiles::OpenReplacement(const wchar_t* path)
{
    Replacement replacement;
    replacement.place = TargetOf(NarrowPath(path).Str());
    int file = none;
    // A process that was killed leaves its file, and the next one may have the same number: such a name is passed over.
    do
    {
        replacement.name = BesideName(replacement.place);
        file = OpenWith(replacement.name.c_str(), O_RDWR | O_CREAT | O_EXCL);
    } while (file < 0 && errno == EEXIST);
    if (file < 0) return none;
    if (!Resemble(file, replacement.place))
    {
        unlink(replacement.name.c_str());
        close(file);
        return none;
    }
    const std::lock_guard guard(mutex);
    replacements[file] = std::move(replacement);
    Count();
    return file;
}

bool KTSystemFiles::Replace(int file)
{
    Replacement replacement;
    {
        const std::lock_guard guard(mutex);
        const auto found = replacements.find(file);
        if (found == replacements.end()) return false;
        replacement = found->second;
    }
    if (!CommitContent(file) || rename(replacement.name.c_str(), replacement.place.c_str()) != 0)
    {
        Close(file);
        return false;
    }
    {
        const std::lock_guard guard(mutex);
        replacements.erase(file);
        Count();
    }
    close(file);
    return CommitDirectory(DirectoryOf(replacement.place));
}
