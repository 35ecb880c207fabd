#include "suite/http/KTHttpUsers.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <latch>
#include <thread>

#include "suite/support/KTPassword.h"
#include "suite/tools/KTVirtualClock.h"

using Verdict = KTHttpUsers::Verdict;

namespace
{
class KTHttpUsersTest : public testing::Test
{
protected:
    KTHttpUsersTest() { KTClock::Install(&clock); }
    ~KTHttpUsersTest() override { KTClock::Install(nullptr); }

    bool Verify(const std::string& password, const std::string& hash)
    {
        ++hashes;
        const int now = ++running;
        int most = mostRunning;
        while (now > most && !mostRunning.compare_exchange_weak(most, now)) continue;
        if (pause.load().count() > 0) std::this_thread::sleep_for(pause.load());
        --running;
        return hash == "hash of " + password;
    }

    Verdict Check(const char* name, const char* password, const char* address = "10.0.0.1")
    {
        return users.CheckPassword(name, password, address).verdict;
    }

    KTVirtualClock clock{KTDateTime(2024, 3, 10, 8, 0, 0, 0, 0)};
    std::atomic<int> hashes{0};
    std::atomic<int> running{0};
    std::atomic<int> mostRunning{0};
    std::atomic<std::chrono::milliseconds> pause{std::chrono::milliseconds(0)};
    KTHttpUsers users{
        {{"ana", "hash of a", KTUserSettings::Role::viewer}, {"olga", "hash of o", KTUserSettings::Role::engineer}},
        [this](const std::string& password, const std::string& hash) { return Verify(password, hash); }};
};
}  // namespace

TEST_F(KTHttpUsersTest, TellsARightPasswordFromAWrongOne)
{
    const KTHttpUsers::Result right = users.CheckPassword("olga", "o", "10.0.0.1");
    EXPECT_EQ(right.verdict, Verdict::right);
    ASSERT_NE(right.user, nullptr);
    EXPECT_EQ(right.user->name, "olga");
    EXPECT_EQ(Check("olga", "a"), Verdict::wrong);
    EXPECT_EQ(Check("ana", "o"), Verdict::wrong);
    EXPECT_EQ(Check("nobody", "a"), Verdict::wrong);
    EXPECT_EQ(Check("", ""), Verdict::wrong);
}

TEST_F(KTHttpUsersTest, RemembersARightPasswordForFiveMinutes)
{
    EXPECT_EQ(Check("ana", "a"), Verdict::right);
    EXPECT_EQ(hashes, 1);
    clock.Advance(std::chrono::milliseconds(299'999));
    EXPECT_EQ(Check("ana", "a", "10.0.0.2"), Verdict::right);
    EXPECT_EQ(hashes, 1);
    clock.Advance(std::chrono::milliseconds(1));
    EXPECT_EQ(Check("ana", "a"), Verdict::right);  // use doesn't prolong it
    EXPECT_EQ(hashes, 2);
}

TEST_F(KTHttpUsersTest, RemembersNoWrongPasswordAndMixesNoNamesUp)
{
    EXPECT_EQ(Check("ana", "a"), Verdict::right);
    EXPECT_EQ(Check("an", "aa"), Verdict::wrong);
    EXPECT_EQ(Check("an", "aa"), Verdict::wrong);
    EXPECT_EQ(hashes, 3);
}

// The time must not tell which names exist.
TEST_F(KTHttpUsersTest, WorksAsHardForAnUnknownNameAsForAWrongPassword)
{
    EXPECT_EQ(Check("nobody", "x"), Verdict::wrong);
    EXPECT_EQ(hashes, 1);
    EXPECT_EQ(Check("ana", "x"), Verdict::wrong);
    EXPECT_EQ(hashes, 2);
    EXPECT_EQ(Check("nobody", "a"), Verdict::wrong);  // the password of the user whose hash is tried in its place
    EXPECT_EQ(hashes, 3);
}

TEST_F(KTHttpUsersTest, TakesNoPasswordForAMinuteAfterFiveWrongOnes)
{
    EXPECT_EQ(Check("ana", "a"), Verdict::right);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(Check("ana", ("wrong" + std::to_string(i)).c_str()), Verdict::wrong);
    const int before = hashes;
    const KTHttpUsers::Result refused = users.CheckPassword("ana", "a", "10.0.0.1");  // right, and even remembered
    EXPECT_EQ(refused.verdict, Verdict::throttled);
    EXPECT_EQ(refused.wait, 60'000u);
    EXPECT_EQ(Check("olga", "o"), Verdict::throttled);
    EXPECT_EQ(hashes, before);  // nothing is computed for it
    EXPECT_EQ(Check("olga", "o", "10.0.0.2"), Verdict::right);

    clock.Advance(std::chrono::milliseconds(59'999));
    EXPECT_EQ(Check("ana", "a"), Verdict::throttled);
    clock.Advance(std::chrono::milliseconds(1));
    EXPECT_EQ(Check("ana", "a"), Verdict::right);
}

TEST_F(KTHttpUsersTest, KeepsSessionsApartFromWrongPasswords)
{
    const std::string token = users.SignIn(*users.CheckPassword("ana", "a", "10.0.0.1").user);
    for (int i = 0; i < 5; ++i) Check("ana", "wrong");
    EXPECT_EQ(Check("ana", "a"), Verdict::throttled);
    ASSERT_NE(users.Session(token), nullptr);
    EXPECT_EQ(users.Session(token)->name, "ana");
    users.SignOut(token);
    EXPECT_EQ(users.Session(token), nullptr);
    EXPECT_EQ(users.Session(""), nullptr);
}

TEST_F(KTHttpUsersTest, EndsASessionAfterTwelveHoursPastTheWrapOfTheTicks)
{
    // The tick counter wraps after 49.7 days; a session that is used every eleven hours lives on across it.
    const std::string token = users.SignIn(*users.CheckPassword("ana", "a", "10.0.0.1").user);
    for (int i = 0; i < 120; ++i)
    {
        clock.Advance(std::chrono::hours(11));
        ASSERT_NE(users.Session(token), nullptr) << i;
    }
    clock.Advance(std::chrono::hours(12));
    EXPECT_EQ(users.Session(token), nullptr);
}

// A page asks for many things at once; a stale password in it is one wrong password.
TEST_F(KTHttpUsersTest, SharesOneHashAmongEqualRequestsAtTheSameTime)
{
    pause = std::chrono::milliseconds(300);
    for (const char* password : {"a", "wrong"})
    {
        hashes = 0;
        std::latch together(8);
        std::vector<std::jthread> requests;
        for (int i = 0; i < 8; ++i)
            requests.emplace_back(
                [&]
                {
                    together.arrive_and_wait();
                    EXPECT_EQ(Check("ana", password), password[0] == 'a' ? Verdict::right : Verdict::wrong);
                });
        requests.clear();
        EXPECT_EQ(hashes, 1) << password;
    }
    pause = std::chrono::milliseconds(0);
    EXPECT_EQ(Check("ana", "a"), Verdict::right);  // far from throttled
}

TEST_F(KTHttpUsersTest, NeverRunsMoreThanTwoHashesAtATime)
{
    pause = std::chrono::milliseconds(30);
    std::vector<std::jthread> requests;
    for (int i = 0; i < 16; ++i)
        requests.emplace_back(
            [this, i] { Check("ana", ("w" + std::to_string(i)).c_str(), ("10.0.1." + std::to_string(i)).c_str()); });
    requests.clear();
    EXPECT_EQ(hashes, 16);
    EXPECT_EQ(mostRunning, KTHttpUsers::hashLimit);
}

// Waiting passwords hold threads that others need.
TEST_F(KTHttpUsersTest, LetsABoundedNumberOfPasswordsWait)
{
    pause = std::chrono::milliseconds(500);
    std::atomic<int> busy{0};
    std::vector<std::jthread> requests;
    for (int i = 0; i < 80; ++i)
        requests.emplace_back(
            [this, i, &busy]
            {
                if (Check("ana", "wrong", ("10.0.1." + std::to_string(i)).c_str()) == Verdict::busy) ++busy;
                pause = std::chrono::milliseconds(0);  // the first ones have shown it
            });
    requests.clear();
    EXPECT_GE(busy, 80 - KTHttpUsers::queueLimit - KTHttpUsers::hashLimit);
    EXPECT_EQ(busy + hashes, 80);
}

// Many guesses at once gain nothing on guesses one by one.
TEST_F(KTHttpUsersTest, HashesNoMoreThanFiveWrongPasswordsOfAnAddressHoweverManyComeAtOnce)
{
    pause = std::chrono::milliseconds(20);
    std::atomic<int> throttled{0};
    std::vector<std::jthread> requests;
    for (int i = 0; i < 24; ++i)
        requests.emplace_back(
            [this, i, &throttled]
            {
                if (Check("ana", ("w" + std::to_string(i)).c_str()) == Verdict::throttled) ++throttled;
            });
    requests.clear();
    EXPECT_EQ(hashes, 5);
    EXPECT_EQ(throttled, 19);
}

TEST(KTHttpUsers, VerifiesTheHashesOfTheSettings)
{
    std::string hash;
    ASSERT_TRUE(KTPassword::Make("s3cret", hash));
    KTHttpUsers users({{"ana", hash, KTUserSettings::Role::viewer}});
    EXPECT_EQ(users.CheckPassword("ana", "s3cret", "::1").verdict, Verdict::right);
    EXPECT_EQ(users.CheckPassword("ana", "secret", "::1").verdict, Verdict::wrong);

    // The unknown name takes about as long as the wrong password.
    const auto timed = [&](const char* name)
    {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(users.CheckPassword(name, "guess", "::1").verdict, Verdict::wrong);
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    const double known = timed("ana");
    const double unknown = timed("bob");
    EXPECT_GT(unknown, known / 4);
    EXPECT_LT(unknown, known * 4);
}

TEST(KTHttpUsers, WithoutUsersThereIsNoRightPassword)
{
    KTHttpUsers users({});
    EXPECT_TRUE(users.None());
    EXPECT_EQ(users.CheckPassword("ana", "", "::1").verdict, Verdict::wrong);
}
