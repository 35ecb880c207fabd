// Many small appends to a file, made cheap: they reach it in large pieces.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

/// Bytes that belong at the end of a file and aren't all there yet.
///
/// Errors:  once a piece couldn't be written whole, whatever would stand behind it is lost, and Append and Flush are false.
/// Threads: one at a time, and nobody else writes to the file meanwhile.
/// Memory:  keeps up to `piece` bytes and a bit; what isn't flushed is lost with the object. The file stays the caller's.
class KTFileTail
{
public:
    static constexpr std::size_t piece = 65536;

    /// The first byte will stand at `place` of the file.
    KTFileTail(int itsFile, std::int64_t place) : file(itsFile), begin(place) {}

    /// Where the next byte will stand.
    [[nodiscard]] std::int64_t End() const { return begin + static_cast<std::int64_t>(held.size()); }

    bool Append(const void* data, std::size_t size);
    bool Flush();

private:
    int file;
    std::int64_t begin;  // of what is held
    std::vector<std::uint8_t> held;
    bool lost = false;
};
