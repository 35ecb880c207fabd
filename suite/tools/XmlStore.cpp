#include "suite/tools/XmlStore.h"

#include <sanitizer/asan_interface.h>

#include <cstdlib>
#include <cstring>
#include <new>

#include "host/XmlDocument.h"
#include "suite/tools/XmlIndex.h"

namespace
{
constexpr std::size_t RoundUp(std::size_t size) { return (size + 7) & ~std::size_t{7}; }

std::uint32_t HashOf(const wchar_t* tag, int length)
{
    std::uint32_t hash = 2166136261U;
    for (int i = 0; i < length; ++i) hash = (hash ^ static_cast<std::uint32_t>(tag[i])) * 16777619U;
    return hash ^ hash >> 15;
}

bool Equals(const KTWideString& tag, const wchar_t* text, int length)
{
    return tag.Length() == length &&
           std::memcmp(tag.Str(), text, static_cast<std::size_t>(length) * sizeof(wchar_t)) == 0;
}
}  // namespace

void* kt::TakeFromXmlStore(XmlStore* store, std::size_t size) { return store->Take(size); }

void kt::GiveToXmlStore(XmlStore* store, void* place, std::size_t size) noexcept { store->Give(place, size); }

kt::XmlStore::XmlStore() = default;

kt::XmlStore::~XmlStore()
{
    while (blocks != nullptr)
    {
        Block* const next = blocks->next;
        std::free(blocks);
        blocks = next;
    }
    for (Large* piece = large.next; piece != &large;)
    {
        Large* const next = piece->next;
        std::free(piece);
        piece = next;
    }
}

kt::XmlIndexes& kt::XmlStore::Indexes()
{
    if (!indexes) indexes = std::make_unique<XmlIndexes>();
    return *indexes;
}

void* kt::XmlStore::Take(std::size_t size)
{
    if (size > smallLimit) return TakeLarge(size);
    const std::size_t rounded = RoundUp(size);
    Free*& list = returned[rounded / 8];
    if (list != nullptr)
    {
        Free* const place = list;
        ASAN_UNPOISON_MEMORY_REGION(place, rounded);
        list = place->next;
        return place;
    }
    if (static_cast<std::size_t>(freeEnd - free) < rounded) AddBlock();
    void* const place = free;
    free += rounded;
    return place;
}

void kt::XmlStore::Give(void* place, std::size_t size) noexcept
{
    if (size > smallLimit)
    {
        GiveLarge(place);
        return;
    }
    Free*& list = returned[RoundUp(size) / 8];
    list = new (place) Free{list};
    // For the address sanitizer, a piece that came back is as good as freed.
    ASAN_POISON_MEMORY_REGION(place, RoundUp(size));
}

kt::XmlStore& kt::XmlStore::Of(const void* place)
{
    const auto address = reinterpret_cast<std::uintptr_t>(place);
    return *reinterpret_cast<const Block*>(address & ~(blockAlignment - 1))->store;
}

void kt::XmlStore::AddBlock()
{
    void* place = nullptr;
    if (posix_memalign(&place, blockAlignment, blockSize) != 0) throw std::bad_alloc();
    blocks = new (place) Block{this, blocks};
    free = static_cast<char*>(place) + sizeof(Block);
    freeEnd = static_cast<char*>(place) + blockSize;
}

void* kt::XmlStore::TakeLarge(std::size_t size)
{
    void* const place = std::malloc(sizeof(Large) + size);
    if (place == nullptr) throw std::bad_alloc();
    auto* const piece = new (place) Large{large.previous, &large};
    piece->previous->next = piece;
    large.previous = piece;
    return piece + 1;
}

void kt::XmlStore::GiveLarge(void* place) noexcept
{
    Large* const piece = static_cast<Large*>(place) - 1;
    piece->previous->next = piece->next;
    piece->next->previous = piece->previous;
    std::free(piece);
}

const KTWideString* kt::XmlStore::Intern(const wchar_t* tag, int length)
{
    if ((tagCount + 1) * 2 > tags.size()) GrowTags();
    const std::uint32_t hash = HashOf(tag, length);
    const std::size_t mask = tags.size() - 1;
    std::size_t at = hash & mask;
    for (; tags[at].tag != nullptr; at = (at + 1) & mask)
        if (tags[at].hash == hash && Equals(*tags[at].tag, tag, length)) return tags[at].tag;
    tags[at] = {hash, NewTag(tag, length)};
    ++tagCount;
    return tags[at].tag;
}

void kt::XmlStore::GrowTags()
{
    std::vector<TagSlot> larger(tags.empty() ? 64 : tags.size() * 2);
    const std::size_t mask = larger.size() - 1;
    for (const TagSlot& slot : tags)
    {
        if (slot.tag == nullptr) continue;
        std::size_t at = slot.hash & mask;
        while (larger[at].tag != nullptr) at = (at + 1) & mask;
        larger[at] = slot;
    }
    tags.swap(larger);
}

const KTWideString* kt::XmlStore::NewTag(const wchar_t* tag, int length)
{
    const std::size_t bytes = (static_cast<std::size_t>(length) + 1) * sizeof(wchar_t);
    // The text borrows the characters behind it, so nothing of it needs to be destroyed.
    auto* const place = static_cast<char*>(Take(sizeof(KTWideString) + bytes));
    auto* const characters = reinterpret_cast<wchar_t*>(place + sizeof(KTWideString));
    std::memcpy(characters, tag, bytes - sizeof(wchar_t));
    characters[length] = L'\0';
    return new (place) KTWideString(characters, false);
}
