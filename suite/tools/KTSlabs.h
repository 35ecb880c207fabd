// Memory for small parts that are read in the order in which they were made.
#pragma once

#include <cstddef>

/// Blocks taken one after the other lie side by side, whatever else is allocated in between: a scan that walks over
/// them reads memory from one end to the other, which the processor fetches ahead by itself.
///
/// Errors:  std::bad_alloc when there is no memory.
/// Threads: any.
/// Memory:  what was freed is used again once all its neighbours are free as well, so it suits parts that come and go
///          together, as those of a loaded configuration.
class KTSlabs
{
public:
    static constexpr std::size_t alignment = 16;

    /// At least `bytes`, aligned to `alignment`; to be given back to Free.
    [[nodiscard]] static void* Allocate(std::size_t bytes);
    /// Null does nothing.
    static void Free(void* block) noexcept;
};
