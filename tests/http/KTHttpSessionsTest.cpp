#include "suite/http/KTHttpSessions.h"

#include <gtest/gtest.h>

#include <set>

namespace
{
constexpr std::uint64_t hour = 3'600'000;
}

TEST(KTHttpSessions, KnowsAUserUntilTwelveHoursWithoutARequest)
{
    KTHttpSessions sessions;
    const std::string token = sessions.Begin("ana", 0);
    EXPECT_EQ(sessions.Use(token, 11 * hour), "ana");
    EXPECT_EQ(sessions.Use(token, 22 * hour), "ana");  // each use begins the twelve hours anew
    EXPECT_EQ(sessions.Use(token, 34 * hour - 1), "ana");
    EXPECT_EQ(sessions.Use(token, 46 * hour - 1), "");
    EXPECT_EQ(sessions.Use(token, 46 * hour - 1), "");
    EXPECT_EQ(sessions.Size(), 0u);
}

TEST(KTHttpSessions, EndsOneSessionAndLeavesTheOthers)
{
    KTHttpSessions sessions;
    const std::string first = sessions.Begin("ana", 0);
    const std::string second = sessions.Begin("ana", 0);
    sessions.End(first);
    sessions.End("no such token");
    EXPECT_EQ(sessions.Use(first, 1), "");
    EXPECT_EQ(sessions.Use(second, 1), "ana");
}

TEST(KTHttpSessions, GivesTokensThatNobodyGuesses)
{
    KTHttpSessions sessions;
    std::set<std::string> tokens;
    for (int i = 0; i < 100; ++i) tokens.insert(sessions.Begin("u" + std::to_string(i), 0));
    EXPECT_EQ(tokens.size(), 100u);
    for (const std::string& token : tokens)
    {
        EXPECT_EQ(token.size(), 64u);
        EXPECT_EQ(token.find_first_not_of("0123456789abcdef"), token.npos);
    }
    EXPECT_EQ(sessions.Use("", 0), "");
    EXPECT_EQ(sessions.Use(tokens.begin()->substr(1), 0), "");
}

TEST(KTHttpSessions, MakesRoomWithTheUsersOwnOldestSession)
{
    KTHttpSessions sessions;
    const std::string other = sessions.Begin("olga", 0);
    std::vector<std::string> own;
    for (std::size_t i = 0; i <= KTHttpSessions::userLimit; ++i) own.push_back(sessions.Begin("ana", 1 + i));
    EXPECT_EQ(sessions.Size(), KTHttpSessions::userLimit + 1);
    EXPECT_EQ(sessions.Use(own[0], 100), "");
    EXPECT_EQ(sessions.Use(own[1], 100), "ana");
    EXPECT_EQ(sessions.Use(other, 100), "olga");
}

TEST(KTHttpSessions, AreBoundedInNumber)
{
    KTHttpSessions sessions;
    const std::string oldest = sessions.Begin("first", 0);
    for (std::size_t i = 0; i < KTHttpSessions::sessionLimit; ++i) sessions.Begin("u" + std::to_string(i), 1);
    EXPECT_EQ(sessions.Size(), KTHttpSessions::sessionLimit);
    EXPECT_EQ(sessions.Use(oldest, 2), "");
    sessions.Begin("late", 13 * hour);  // the others have ended by then
    EXPECT_EQ(sessions.Size(), 1u);
}
