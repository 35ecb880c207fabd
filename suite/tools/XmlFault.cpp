#include "suite/tools/XmlFault.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "host/KTText.h"
#include "suite/tools/XmlFile.h"
#include "suite/tools/XmlReader.h"

namespace
{
// Why the file can't be opened for reading, or empty.
std::string OpeningFault(const std::string& path)
{
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) return std::strerror(errno);
    struct stat status
    {
    };
    const bool regular = fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
    close(descriptor);
    return regular ? "" : "not a regular file";
}
}  // namespace

std::string kt::XmlFaultOf(const std::string& path)
{
    if (std::string fault = OpeningFault(path); !fault.empty()) return fault;
    KTWideString wide;
    Utf8ToUtf16(wide, KTNarrowString(path.c_str()));
    const XmlInputFile file(wide);
    if (!file.Good()) return "it can't be opened";
    XmlStore store;
    XmlReader reader(store);
    return reader.ReadFile(file.Handle()) ? std::string() : reader.Fault();
}
