// An exclusive hold on a directory, between processes.
#pragma once

#include <string>

/// Only one process at a time writes below a data directory. The kernel gives the lock up when the holder dies, however it
/// dies, so nothing has to be cleaned up.
///
/// Errors:  Lock is false with a reason when somebody else holds the directory or it can't be opened.
/// Memory:  released by the destructor.
class KTDirectoryLock
{
public:
    KTDirectoryLock() = default;
    KTDirectoryLock(const KTDirectoryLock&) = delete;
    KTDirectoryLock& operator=(const KTDirectoryLock&) = delete;
    ~KTDirectoryLock();

    [[nodiscard]] bool Lock(const std::string& directory, std::string& error);

private:
    int descriptor = -1;
};
