// Room for many small texts that go together.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

/// Keeps texts until it is cleared; each keeps its address.
///
/// Threads: one at a time.
/// Memory:  owns the texts.
class KTTextArena
{
public:
    /// A copy of `length` characters of `text`, terminated.
    const char* Keep(const char* text, std::size_t length);

    void Clear();

private:
    static constexpr std::size_t chunkSize = 64 * 1024;  // bytes

    char* Take(std::size_t size);

    std::vector<std::unique_ptr<char[]>> chunks;
    char* place = nullptr;
    std::size_t room = 0;  // bytes from `place` on
};
