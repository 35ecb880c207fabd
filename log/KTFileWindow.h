// Small reads of a file, made cheap: what lies near the last one is already there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

/// A piece of a file in memory. Reads that walk forward or backward get pieces that double up to 64 kB; a read somewhere
/// else gets one of 4 kB around it, so that the last steps of a binary search need none.
///
/// What is read is what single reads would have given at some moment since Forget, provided that bytes once written don't
/// change; those of others that come behind the end of the piece are seen.
///
/// Units:   offsets and sizes are bytes.
/// Threads: one at a time.
/// Memory:  one buffer, made at the first read; the file stays the caller's.
class KTFileWindow
{
public:
    static constexpr std::size_t smallest = 4096;
    static constexpr std::size_t largest = 65536;

    /// Copies up to `size` bytes from `offset` on to `out`, and returns how many there were. Nothing at or behind `limit`
    /// is kept for later.
    std::size_t Read(int file, std::int64_t offset, void* out, std::size_t size, std::int64_t limit = INT64_MAX)
    {
        if (!Holds(offset, size)) return ReadElsewhere(file, offset, out, size, limit);
        std::memcpy(out, buffer.get() + (offset - begin), size);
        return size;
    }

    /// Those bytes if they are here, else null; good until the next Read.
    [[nodiscard]] const std::uint8_t* Peek(std::int64_t offset, std::size_t size) const
    {
        return Holds(offset, size) ? buffer.get() + (offset - begin) : nullptr;
    }

    /// What is here no longer counts: another file, or the file was written to.
    void Forget()
    {
        held = 0;
        step = smallest;
    }

private:
    [[nodiscard]] bool Holds(std::int64_t offset, std::size_t size) const
    {
        return offset >= begin && offset + static_cast<std::int64_t>(size) <= begin + static_cast<std::int64_t>(held);
    }
    std::size_t ReadElsewhere(int file, std::int64_t offset, void* out, std::size_t size, std::int64_t limit);
    void Move(int file, std::int64_t offset, std::size_t size, std::int64_t limit);
    void Reserve(std::size_t size);

    std::unique_ptr<std::uint8_t[]> buffer;
    std::size_t room = 0;         // of the buffer
    std::int64_t begin = 0;       // where in the file the piece begins
    std::size_t held = 0;         // how long it is
    std::size_t step = smallest;  // how long the next one will be if the walk goes on
};
