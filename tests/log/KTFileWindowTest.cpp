#include "log/KTFileWindow.h"

#include <gtest/gtest.h>

#include <string>

#include "log/EventFileFixture.h"

namespace
{
class FileWindow : public testing::Test
{
protected:
    static constexpr int size = 400'000;

    FileWindow()
    {
        std::string bytes;
        for (int i = 0; i < size; ++i) bytes += Byte(static_cast<std::uint32_t>(i * 31 + i / 256));
        files.Put("a", bytes);
        file = files.Open(L"a", KTFiles::Mode::read);
        content = bytes;
        files.Trace();
    }
    // A read whose result must be right; whether it needed the system.
    bool Asks(std::int64_t offset, std::size_t count = 26, std::int64_t limit = INT64_MAX)
    {
        std::string out(count, '?');
        const std::size_t got = window.Read(file, offset, out.data(), count, limit);
        const auto from = static_cast<std::size_t>(offset);
        EXPECT_EQ(out.substr(0, got), from < content.size() ? content.substr(from, count) : "") << offset;
        return !files.Trace().empty();
    }
    int AskedWhileWalking(int begin, int end, int step)
    {
        int asked = 0;
        for (int at = begin; step > 0 ? at < end : at > end; at += step) asked += Asks(at) ? 1 : 0;
        return asked;
    }

    FaultyFiles files;
    std::string content;
    int file = KTFiles::none;
    KTFileWindow window;
};

TEST_F(FileWindow, AWalkForwardAsksForEverLargerPieces)
{
    // 4, 8, 16 and 32 kB, then 64 kB each.
    EXPECT_EQ(AskedWhileWalking(0, size - 26, 26), 4 + (size - 60 * 1024) / (64 * 1024) + 1);
}

TEST_F(FileWindow, AWalkBackwardDoesTheSame)
{
    // The first piece lies around its beginning, half of it behind the walk.
    EXPECT_LE(AskedWhileWalking(size - 26, 0, -26), 4 + (size - 58 * 1024) / (64 * 1024) + 1);
}

TEST_F(FileWindow, AReadElsewhereGetsASmallPieceAroundIt)
{
    EXPECT_TRUE(Asks(200'000));
    EXPECT_FALSE(Asks(200'000 - 2048));
    EXPECT_FALSE(Asks(200'000 + 2048 - 26));
    EXPECT_TRUE(Asks(300'000));
    EXPECT_TRUE(Asks(200'000));
}

TEST_F(FileWindow, ABinarySearchAsksOnceAStepAndNotForItsLastOnes)
{
    int asked = 0;
    for (int low = 0, high = size / 26; high - low > 1;)
    {
        const int middle = (low + high) / 2;
        asked += Asks(middle * 26) ? 1 : 0;
        (middle < 12'345 ? low : high) = middle;
    }
    EXPECT_LE(asked, 8);
}

TEST_F(FileWindow, NothingBehindTheLimitIsKept)
{
    EXPECT_TRUE(Asks(0, 26, 260));
    EXPECT_FALSE(Asks(234, 26, 260));
    EXPECT_TRUE(Asks(260, 26, 286));
}

TEST_F(FileWindow, TheEndOfTheFileCutsAReadShort)
{
    EXPECT_TRUE(Asks(size - 10));
    EXPECT_TRUE(Asks(size));
    EXPECT_TRUE(Asks(size + 1000));
    char byte = 0;
    EXPECT_EQ(window.Read(file, -1, &byte, 1), 0U);
    EXPECT_EQ(window.Read(KTFiles::none, 0, &byte, 1), 0U);
}

TEST_F(FileWindow, WhatIsAppendedBehindThePieceIsSeen)
{
    EXPECT_TRUE(Asks(size - 10, 10));
    content += "appended";
    const int writer = files.Open(L"a", KTFiles::Mode::readWrite);
    ASSERT_EQ(files.WriteAt(writer, size, "appended", 8), 8);
    EXPECT_TRUE(Asks(size - 4, 8));
    (void)Asks(size, 8);
}

TEST_F(FileWindow, ForgettingReadsAnew)
{
    EXPECT_TRUE(Asks(0));
    content[3] = '!';
    const int writer = files.Open(L"a", KTFiles::Mode::readWrite);
    ASSERT_EQ(files.WriteAt(writer, 3, "!", 1), 1);
    window.Forget();
    EXPECT_TRUE(Asks(0));
}

TEST_F(FileWindow, AReadLargerThanAnyPieceIsDoneAtOnce)
{
    EXPECT_TRUE(Asks(5, 100'000));
    EXPECT_TRUE(Asks(5, 300'000));
}

TEST_F(FileWindow, APlaceThatCannotBeReadHidesOnlyItself)
{
    files.SpoilAt("a", 1000);
    EXPECT_TRUE(Asks(0));
    EXPECT_FALSE(Asks(974));
    char bytes[26];
    EXPECT_EQ(window.Read(file, 990, bytes, sizeof bytes), 10U);
    EXPECT_EQ(window.Read(file, 1000, bytes, sizeof bytes), 0U);
    EXPECT_TRUE(Asks(1001));
}
}  // namespace
