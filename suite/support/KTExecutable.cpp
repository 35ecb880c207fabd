#include "suite/support/KTExecutable.h"

#include <filesystem>
#include <system_error>

std::string ExecutableDirectory()
{
    std::error_code failure;
    const std::filesystem::path file = std::filesystem::read_symlink("/proc/self/exe", failure);
    return failure ? "." : file.parent_path().string();
}
