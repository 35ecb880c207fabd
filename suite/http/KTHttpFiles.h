// Files of a directory, served as they are.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "suite/http/KTHttpCall.h"

/// False when the file can't be read or has more bytes.
bool ReadWholeFile(const std::string& path, std::size_t limit, std::string& out);

/// The files below one directory. What lies outside it can't be reached, by no way of writing a path and through no link.
///
/// A file goes out with an entity tag of its content, and the client asks each time whether it has changed.
///
/// Threads: any.
class KTHttpFiles
{
public:
    static constexpr std::size_t fileLimit = 16 * 1024 * 1024;  // bytes; a larger file is absent

    explicit KTHttpFiles(std::string root) : directory(std::move(root)) {}

    /// `name` is relative, decoded, with `/` between its parts. Hidden files and directories are absent.
    void Serve(std::string_view name, const KTHttpCall& call, KTHttpAnswer& answer) const;

private:
    [[nodiscard]] std::string Find(std::string_view name) const;  // empty when absent

    const std::string directory;
};
