#include "log/KTEventRowIndex.h"

#include <random>

namespace
{
struct Secret
{
    std::uint64_t words[3];

    Secret()
    {
        std::random_device source;
        for (std::uint64_t& word : words) word = (std::uint64_t{source()} << 32) | source();
        words[2] |= 1;
    }
};
}  // namespace

std::uint32_t KTEventRowIndex::Hash(const GUID& id)
{
    static const Secret secret;
    std::uint64_t words[2];
    static_assert(sizeof words == sizeof id);
    std::memcpy(words, &id, sizeof id);
    __extension__ using Wide = unsigned __int128;
    const Wide product = Wide{words[0] + secret.words[0]} * (words[1] + secret.words[1]);
    const auto folded = static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
    return static_cast<std::uint32_t>((folded * secret.words[2]) >> 32);
}

void KTEventRowIndex::Grow()
{
    const std::vector<Slot> old = std::move(slots);
    slots.assign(old.empty() ? 64 : 2 * old.size(), Slot());
    mask = slots.size() - 1;
    for (const Slot& slot : old)
    {
        if (slot.row == none) continue;
        std::size_t at = slot.hash & mask;
        while (slots[at].row != none) at = (at + 1) & mask;
        slots[at] = slot;
    }
}
