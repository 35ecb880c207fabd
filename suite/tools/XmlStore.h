// Where a document keeps its nodes, lists and texts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "host/KTString.h"

namespace kt
{
class XmlIndexes;

/// A pool that gives room in sizes of 8 bytes, takes it back for the same size, and frees everything at once.
///
/// A document of 100,000 events has millions of small pieces: without a header each, side by side, they take a third of
/// what single allocations would, and a document goes in the time of its blocks rather than of its pieces.
///
/// Errors:  Take and Intern throw std::bad_alloc.
/// Threads: not synchronised, apart from what lies under SharedMutex.
class XmlStore
{
public:
    XmlStore();
    XmlStore(const XmlStore&) = delete;
    XmlStore& operator=(const XmlStore&) = delete;
    ~XmlStore();

    /// Room for `size` bytes, aligned to 8.
    void* Take(std::size_t size);
    void Give(void* place, std::size_t size) noexcept;

    /// The store that gave `place`, which must not be larger than smallLimit.
    static XmlStore& Of(const void* place);

    /// The one text for all nodes of that tag, which lives as long as the store.
    const KTWideString* Intern(const wchar_t* tag, int length);

    /// Rises with every change of a tree that lives here.
    [[nodiscard]] std::uint64_t Version() const { return version; }
    void Change() { ++version; }

    /// What speeds the selectors of paths up; under SharedMutex.
    XmlIndexes& Indexes();

    /// Held by readers who add something: the wide form of a text, an index.
    std::mutex& SharedMutex() { return sharedMutex; }

    static constexpr std::size_t smallLimit = 1024;  // bytes; larger pieces are allocated singly

private:
    struct Block
    {
        XmlStore* store;
        Block* next;
    };
    struct Large
    {
        Large* previous;
        Large* next;
    };
    struct Free
    {
        Free* next;
    };
    struct TagSlot
    {
        std::uint32_t hash = 0;
        const KTWideString* tag = nullptr;
    };

    static constexpr std::size_t blockAlignment = 64 * 1024;
    // A little less, so that with the heap's own header the next block follows without a gap.
    static constexpr std::size_t blockSize = blockAlignment - 64;

    void* TakeLarge(std::size_t size);
    void GiveLarge(void* place) noexcept;
    void AddBlock();
    void GrowTags();
    const KTWideString* NewTag(const wchar_t* tag, int length);

    char* free = nullptr;     // the unused rest of the newest block
    char* freeEnd = nullptr;  // its end
    Block* blocks = nullptr;  // owned
    Large large{&large, &large};
    Free* returned[smallLimit / 8 + 1] = {};  // by size in units of 8 bytes
    std::vector<TagSlot> tags;                // open addressing; a power of two
    std::size_t tagCount = 0;
    std::uint64_t version = 0;
    std::unique_ptr<XmlIndexes> indexes;  // null until somebody needs them; guarded by sharedMutex
    std::mutex sharedMutex;
};
}  // namespace kt
