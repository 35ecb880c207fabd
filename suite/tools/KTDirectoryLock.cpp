#include "suite/tools/KTDirectoryLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

KTDirectoryLock::~KTDirectoryLock()
{
    if (descriptor >= 0) close(descriptor);
}

bool KTDirectoryLock::Lock(const std::string& directory, std::string& error)
{
    descriptor = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
    {
        error = directory + ": " + std::strerror(errno);
        return false;
    }
    if (flock(descriptor, LOCK_EX | LOCK_NB) == 0) return true;
    error = errno == EWOULDBLOCK ? directory + ": another program is writing there; stop it first"
                                 : directory + ": " + std::strerror(errno);
    close(descriptor);
    descriptor = -1;
    return false;
}
