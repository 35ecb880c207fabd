#include "suite/http/KTHttpReply.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

namespace
{
std::string All(const KTHttpReply& reply)
{
    std::string text(reply.Size(), '\0');
    EXPECT_EQ(reply.Copy(0, text.data(), text.size()), text.size());
    return text;
}
}  // namespace

TEST(KTHttpReply, CollectsWhatIsWritten)
{
    KTHttpReply reply(nullptr, "");
    EXPECT_EQ(reply.Status(), 0);
    EXPECT_EQ(reply.Start(200, 3), 0);
    EXPECT_EQ(reply.Write(KTNarrowString("<a>")), 3);
    EXPECT_EQ(reply.Write("text and more", 4), 4);
    EXPECT_EQ(reply.Write("</a>", -1), 4);
    EXPECT_EQ(reply.Flush(), 0);
    EXPECT_TRUE(reply.Finish());
    EXPECT_EQ(All(reply), "<a>text</a>");
    EXPECT_EQ(reply.Status(), 200);
}

TEST(KTHttpReply, HasOneBeginningAndOneEnd)
{
    KTHttpReply reply(nullptr, "");
    EXPECT_EQ(reply.Write("early", -1), -1);
    EXPECT_FALSE(reply.Finish());
    EXPECT_EQ(reply.Start(503, 0), 0);
    EXPECT_EQ(reply.Start(200, 3), -1);
    EXPECT_TRUE(reply.Finish());
    EXPECT_EQ(reply.Write("late", -1), -1);
    EXPECT_FALSE(reply.Finish());
    EXPECT_EQ(reply.Status(), 503);
    EXPECT_EQ(reply.Size(), 0u);

    reply.Reset();
    EXPECT_EQ(reply.Start(200, 3), 0);
    EXPECT_EQ(reply.Write("again", -1), 5);
    EXPECT_TRUE(reply.Finish());
    EXPECT_EQ(All(reply), "again");
}

TEST(KTHttpReply, CopiesFromAnyPositionAcrossItsPieces)
{
    KTHttpReply reply(nullptr, "");
    reply.Start(200, 0);
    std::string expected;
    for (int i = 0; expected.size() < 3 * KTHttpReply::pieceSize; ++i)
    {
        const std::string part = std::to_string(i) + ',';
        reply.Write(part.c_str(), -1);
        expected += part;
    }
    EXPECT_TRUE(reply.Finish());
    EXPECT_EQ(All(reply), expected);
    for (const std::size_t at :
         {std::size_t{0}, KTHttpReply::pieceSize - 3, KTHttpReply::pieceSize, expected.size() - 1})
    {
        std::string part(10, '\0');
        part.resize(reply.Copy(at, part.data(), part.size()));
        EXPECT_EQ(part, expected.substr(at, 10)) << at;
    }
    char none = 0;
    EXPECT_EQ(reply.Copy(expected.size(), &none, 1), 0u);
}

RC_GTEST_PROP(KTHttpReply, HoldsWhatAStringWouldHold, (const std::vector<std::uint16_t>& lengths, std::uint32_t at))
{
    KTHttpReply reply(nullptr, "");
    reply.Start(200, 0);
    std::string expected;
    for (const std::uint16_t length : lengths)
    {
        const std::string part(static_cast<std::size_t>(length) * 3, static_cast<char>('a' + length % 26));
        RC_ASSERT(reply.Write(part.data(), static_cast<int>(part.size())) == static_cast<int>(part.size()));
        expected += part;
    }
    RC_ASSERT(All(reply) == expected);
    const std::size_t position = expected.empty() ? 0 : at % expected.size();
    std::string part(100'000, '\0');
    part.resize(reply.Copy(position, part.data(), part.size()));
    RC_ASSERT(part == expected.substr(position, 100'000));
}

// The module writes on to the end of its document whatever becomes of it.
TEST(KTHttpReply, ForgetsItsTextWhenItGrowsTooLarge)
{
    KTHttpBudget budget(1 << 30, 1 << 30);
    KTHttpReply reply(&budget, "10.0.0.1", 3 * KTHttpReply::pieceSize);
    const std::string text(KTHttpReply::pieceSize, 'x');
    reply.Start(200, 0);
    for (int i = 0; i < 3; ++i) EXPECT_GT(reply.Write(text.data(), static_cast<int>(text.size())), 0);
    EXPECT_EQ(budget.Taken(), 2 * KTHttpReply::pieceSize);
    EXPECT_EQ(reply.Write("x", 1), -1);
    EXPECT_TRUE(reply.TooLarge());
    EXPECT_EQ(reply.Size(), 0u);
    EXPECT_EQ(budget.Taken(), 0u);
    EXPECT_EQ(reply.Write("y", 1), -1);
    EXPECT_FALSE(reply.Finish());
}

TEST(KTHttpReply, HoldsAsMuchAsTheLimitSays)
{
    KTHttpReply reply(nullptr, "");
    const std::string text(KTHttpReply::sizeLimit / 256, 'x');
    reply.Start(200, 0);
    for (int i = 0; i < 256; ++i) ASSERT_GT(reply.Write(text.data(), static_cast<int>(text.size())), 0);
    EXPECT_EQ(reply.Size(), std::size_t{256} * 1024 * 1024);
    EXPECT_EQ(reply.Write("x", 1), -1);
    EXPECT_TRUE(reply.TooLarge());
}

TEST(KTHttpReply, PaysForAllPiecesButTheFirst)
{
    KTHttpBudget budget(2 * KTHttpReply::pieceSize, 2 * KTHttpReply::pieceSize);
    const std::string piece(KTHttpReply::pieceSize, 'x');
    const auto write = [&](KTHttpReply& reply, int pieces)
    {
        reply.Start(200, 0);
        for (int i = 0; i < pieces; ++i) reply.Write(piece.data(), static_cast<int>(piece.size()));
        return reply.Finish();
    };
    {
        KTHttpReply large(&budget, "10.0.0.1");
        EXPECT_TRUE(write(large, 3));
        KTHttpReply further(&budget, "10.0.0.2");
        EXPECT_FALSE(write(further, 2));
        EXPECT_TRUE(further.NoRoom());
        EXPECT_FALSE(further.TooLarge());
        KTHttpReply small(&budget, "10.0.0.2");
        EXPECT_TRUE(write(small, 1));
    }
    EXPECT_EQ(budget.Taken(), 0u);
    KTHttpReply later(&budget, "10.0.0.2");
    EXPECT_TRUE(write(later, 3));
}

TEST(KTHttpBudget, KeepsRoomForOthers)
{
    KTHttpBudget budget(100, 60);
    EXPECT_TRUE(budget.Take("greedy", 60));
    EXPECT_FALSE(budget.Take("greedy", 1));
    EXPECT_TRUE(budget.Take("modest", 40));
    EXPECT_FALSE(budget.Take("late", 1));
    EXPECT_TRUE(budget.Take("late", 0));
    budget.Give("greedy", 60);
    EXPECT_FALSE(budget.Take("late", 61));
    EXPECT_TRUE(budget.Take("late", 60));
    budget.Give("nobody", 10);
    budget.Give("modest", 40);
    budget.Give("late", 60);
    EXPECT_EQ(budget.Taken(), 0u);
    EXPECT_FALSE(budget.Take("any", static_cast<std::size_t>(-1)));
}
