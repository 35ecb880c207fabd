// A directory for one test.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

/// Made empty, removed with all its content.
class TemporaryDirectory
{
public:
    TemporaryDirectory()
    {
        std::string name = (std::filesystem::temp_directory_path() / "corvane-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) std::abort();
        path = name;
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    ~TemporaryDirectory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }

    [[nodiscard]] const std::filesystem::path& Path() const { return path; }

private:
    std::filesystem::path path;
};
