#include "suite/tools/KTSlabs.h"

#include <sanitizer/asan_interface.h>

#include <algorithm>
#include <cstdint>
#include <mutex>
#include <new>

namespace
{
// A slab begins at a multiple of this, and all its blocks in its first part of this size: an address tells its slab.
constexpr std::size_t slabBytes = std::size_t{64} * 1024;

struct alignas(KTSlabs::alignment) Slab
{
    std::size_t bytes;
    std::size_t used;
    std::size_t live;  // blocks
};

std::mutex mutex;
Slab* current = nullptr;  // where the next block comes from

constexpr std::size_t RoundUp(std::size_t bytes)
{
    return (bytes + KTSlabs::alignment - 1) / KTSlabs::alignment * KTSlabs::alignment;
}

// The sanitizer then sees a step over the end of a block, as it does in the heap.
void Forbid(Slab& slab) { ASAN_POISON_MEMORY_REGION(&slab + 1, slab.bytes - sizeof(Slab)); }

Slab* NewSlab(std::size_t bytes)
{
    void* const place = ::operator new (bytes, std::align_val_t{slabBytes});
    auto* const slab = ::new (place) Slab{bytes, sizeof(Slab), 0};
    Forbid(*slab);
    return slab;
}

void DeleteSlab(Slab* slab)
{
    ASAN_UNPOISON_MEMORY_REGION(slab, slab->bytes);
    ::operator delete (slab, std::align_val_t{slabBytes});
}

Slab* SlabOf(void* block)
{
    const std::size_t offset = reinterpret_cast<std::uintptr_t>(block) % slabBytes;
    return reinterpret_cast<Slab*>(static_cast<char*>(block) - offset);
}

// A block that is too large for the usual slab gets one of its own, which is never the current one.
Slab& SlabFor(std::size_t size)
{
    if (size > slabBytes - sizeof(Slab)) return *NewSlab(sizeof(Slab) + size);
    if (current == nullptr || current->bytes - current->used < size)
    {
        Slab* const fresh = NewSlab(slabBytes);
        if (current != nullptr && current->live == 0) DeleteSlab(current);
        current = fresh;
    }
    return *current;
}

void* Take(Slab& slab, std::size_t size)
{
    void* const block = reinterpret_cast<char*>(&slab) + slab.used;
    slab.used += size;
    ++slab.live;
    return block;
}
}  // namespace

void* KTSlabs::Allocate(std::size_t bytes)
{
    const std::size_t size = RoundUp(std::max<std::size_t>(bytes, 1));
    const std::lock_guard guard(mutex);
    void* const block = Take(SlabFor(size), size);
    ASAN_UNPOISON_MEMORY_REGION(block, bytes);
    return block;
}

void KTSlabs::Free(void* block) noexcept
{
    if (block == nullptr) return;
    const std::lock_guard guard(mutex);
    Slab* const slab = SlabOf(block);
    if (--slab->live > 0) return;
    if (slab != current) return DeleteSlab(slab);
    slab->used = sizeof(Slab);
    Forbid(*slab);
}
