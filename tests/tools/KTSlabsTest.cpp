#include "suite/tools/KTSlabs.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

namespace
{
std::uintptr_t Address(const void* block) { return reinterpret_cast<std::uintptr_t>(block); }

// Blocks of random sizes, each filled with a byte of its own, freed in random order.
void Churn(unsigned seed)
{
    struct Block
    {
        unsigned char* bytes;
        std::size_t size;
        unsigned char fill;
    };
    std::mt19937 random(seed);
    std::vector<Block> blocks;
    for (int i = 0; i < 4000; ++i)
    {
        if (blocks.empty() || random() % 3 != 0)
        {
            const std::size_t size = random() % (i % 50 == 0 ? 200'000 : 700);
            const auto fill = static_cast<unsigned char>(random());
            auto* const bytes = static_cast<unsigned char*>(KTSlabs::Allocate(size));
            ASSERT_EQ(Address(bytes) % KTSlabs::alignment, 0U);
            std::memset(bytes, fill, size);
            blocks.push_back({bytes, size, fill});
            continue;
        }
        std::swap(blocks[random() % blocks.size()], blocks.back());
        const Block& last = blocks.back();
        for (std::size_t at = 0; at < last.size; ++at) ASSERT_EQ(last.bytes[at], last.fill);
        KTSlabs::Free(last.bytes);
        blocks.pop_back();
    }
    for (const Block& block : blocks) KTSlabs::Free(block.bytes);
}
}  // namespace

TEST(KTSlabs, LaysBlocksSideBySideWhateverElseIsAllocated)
{
    void* const first = KTSlabs::Allocate(64);
    const std::vector<int> other(1000);
    void* const second = KTSlabs::Allocate(40);
    void* const third = KTSlabs::Allocate(64);
    // One of the three may be the first of a new slab.
    EXPECT_TRUE(Address(second) == Address(first) + 64 || Address(third) == Address(second) + 48);
    for (void* block : {first, second, third}) KTSlabs::Free(block);
}

TEST(KTSlabs, UsesAgainWhatWasFreedTogether)
{
    // The place of a lone block: the slab is empty before and after it.
    void* const before = KTSlabs::Allocate(1000);
    KTSlabs::Free(before);
    for (int i = 0; i < 1000; ++i)
    {
        void* const block = KTSlabs::Allocate(1000);
        EXPECT_LT(Address(block) - Address(before) + 65536, 2U * 65536) << i;
        KTSlabs::Free(block);
    }
}

TEST(KTSlabs, TakesNoBytesAndNullAndMoreThanASlab)
{
    KTSlabs::Free(nullptr);
    void* const nothing = KTSlabs::Allocate(0);
    void* const other = KTSlabs::Allocate(0);
    EXPECT_NE(nothing, other);
    auto* const large = static_cast<char*>(KTSlabs::Allocate(10'000'000));
    std::memset(large, 7, 10'000'000);
    for (void* block : {nothing, other, static_cast<void*>(large)}) KTSlabs::Free(block);
}

TEST(KTSlabs, KeepsBlocksApartOnManyThreads)
{
    std::vector<std::thread> threads;
    for (unsigned seed = 1; seed <= 3; ++seed) threads.emplace_back(Churn, seed);
    for (std::thread& thread : threads) thread.join();
}
