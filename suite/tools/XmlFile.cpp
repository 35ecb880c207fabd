#include "suite/tools/XmlFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string>

#include "host/KTText.h"

namespace
{
constexpr mode_t newFileMode = 0640;

std::string NarrowPath(const KTWideString& path)
{
    KTNarrowString narrow;
    Utf16ToUtf8(narrow, path);
    return std::string(narrow.Str());
}

int OpenRegular(const std::string& path)
{
    // Not blocking, since the open of a pipe would wait for somebody at its other end.
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) return -1;
    struct stat status
    {
    };
    if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)) return descriptor;
    close(descriptor);
    return -1;
}

// Where links lead to; the path itself where there is nothing yet.
std::string TargetOf(const std::string& path)
{
    char resolved[PATH_MAX];
    return realpath(path.c_str(), resolved) != nullptr ? std::string(resolved) : path;
}

std::string DirectoryOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string BesideName(const std::string& path)
{
    static std::atomic<unsigned> number{0};
    return path + "." + std::to_string(getpid()) + "-" + std::to_string(number.fetch_add(1)) + ".new";
}

bool Commit(int descriptor)
{
    while (fsync(descriptor) != 0)
        if (errno != EINTR) return false;
    return true;
}

bool CommitDirectory(const std::string& path)
{
    const int descriptor = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) return errno == EACCES;  // a directory that one may write in and not read can't be committed
    // Some file systems commit names by themselves and refuse to be asked.
    const bool good = Commit(descriptor) || errno == EINVAL || errno == ENOTSUP;
    close(descriptor);
    return good;
}

// A file in the making: gone again unless it is put in its place.
class BesideFile
{
public:
    explicit BesideFile(const std::string& place)
    {
        // A process that was killed leaves its file, and the next one may have the same number: such a name is passed over.
        do
        {
            name = BesideName(place);
            descriptor = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, newFileMode);
        } while (descriptor < 0 && errno == EEXIST);
    }
    BesideFile(const BesideFile&) = delete;
    BesideFile& operator=(const BesideFile&) = delete;
    ~BesideFile()
    {
        if (descriptor < 0) return;
        close(descriptor);
        if (!placed) unlink(name.c_str());
    }

    [[nodiscard]] bool Good() const { return descriptor >= 0; }
    [[nodiscard]] int Descriptor() const { return descriptor; }

    // Takes over mode and owner of the file that is to be replaced.
    bool Resemble(const std::string& place) const
    {
        struct stat old
        {
        };
        if (stat(place.c_str(), &old) != 0) return errno == ENOENT;
        if (fchown(descriptor, old.st_uid, old.st_gid) != 0 && errno != EPERM) return false;
        return fchmod(descriptor, old.st_mode & 07777) == 0;
    }

    bool Place(const std::string& place)
    {
        placed = rename(name.c_str(), place.c_str()) == 0;
        return placed;
    }

private:
    std::string name;
    int descriptor = -1;
    bool placed = false;
};
}  // namespace

kt::XmlInputFile::XmlInputFile(const KTWideString& path) : descriptor(OpenRegular(NarrowPath(path))) {}

kt::XmlInputFile::~XmlInputFile()
{
    if (descriptor >= 0) close(descriptor);
}

bool kt::ReplaceFile(const KTWideString& path, const std::function<void(XmlOutput&)>& write)
{
    const std::string place = TargetOf(NarrowPath(path));
    BesideFile file(place);
    if (!file.Good() || !file.Resemble(place)) return false;
    XmlFileOutput output(file.Descriptor());
    write(output);
    if (!output.Flush() || !Commit(file.Descriptor())) return false;
    return file.Place(place) && CommitDirectory(DirectoryOf(place));
}
