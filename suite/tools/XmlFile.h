// How a document comes from a file and goes to one.
#pragma once

#include <functional>

#include "host/KTString.h"
#include "suite/tools/XmlWriter.h"

namespace kt
{
/// A regular file, open for reading as long as this lives.
class XmlInputFile
{
public:
    explicit XmlInputFile(const KTWideString& path);
    XmlInputFile(const XmlInputFile&) = delete;
    XmlInputFile& operator=(const XmlInputFile&) = delete;
    ~XmlInputFile();

    [[nodiscard]] bool Good() const { return file >= 0; }
    [[nodiscard]] int Handle() const { return file; }

private:
    int file;  // of KTFiles
};

/// Writes a file beside the one at `path` and puts it in that one's place: readers and power cuts meet the old file or the
/// new one. An existing file keeps its mode, and its owner where the process may give it; a new one gets 0640. A link
/// stays a link: what it leads to is replaced.
///
/// Errors: false, with the old file untouched and nothing left beside it; only when the directory's commit fails the new
///         file stands already.
bool ReplaceFile(const KTWideString& path, const std::function<void(XmlOutput&)>& write);
}  // namespace kt
