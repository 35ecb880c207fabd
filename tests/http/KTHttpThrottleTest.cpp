#include "suite/http/KTHttpThrottle.h"

#include <gtest/gtest.h>

TEST(KTHttpThrottle, LetsAnAddressWaitAMinuteAfterFiveWrongPasswords)
{
    KTHttpThrottle throttle;
    for (std::uint64_t i = 0; i < 4; ++i)
    {
        throttle.CountWrong("a", 1000 * i);
        EXPECT_EQ(throttle.Wait("a", 1000 * i), 0u);
    }
    EXPECT_EQ(throttle.Wrong("a", 4000), 4u);
    throttle.CountWrong("a", 4000);
    EXPECT_EQ(throttle.Wait("a", 4000), 60'000u);
    EXPECT_EQ(throttle.Wait("b", 4000), 0u);
    EXPECT_EQ(throttle.Wait("a", 63'999), 1u);
    EXPECT_EQ(throttle.Wait("a", 64'000), 0u);
}

TEST(KTHttpThrottle, BeginsANewCountAfterThePause)
{
    KTHttpThrottle throttle;
    for (int i = 0; i < 5; ++i) throttle.CountWrong("a", 0);
    EXPECT_EQ(throttle.Wrong("a", 60'000), 0u);
    throttle.CountWrong("a", 60'000);
    EXPECT_EQ(throttle.Wait("a", 60'000), 0u);
    EXPECT_EQ(throttle.Wrong("a", 60'000), 1u);
}

TEST(KTHttpThrottle, ForgetsWrongPasswordsAfterAMinute)
{
    KTHttpThrottle throttle;
    for (std::uint64_t i = 0; i < 50; ++i)
    {
        throttle.CountWrong("a", 15'001 * i);  // never five within 60 s
        EXPECT_EQ(throttle.Wait("a", 15'001 * i), 0u) << i;
    }
    throttle.CountWrong("b", 0);
    for (int i = 0; i < 4; ++i) throttle.CountWrong("b", 60'000);
    EXPECT_GT(throttle.Wait("b", 60'000), 0u);  // the first is just within the minute
}

TEST(KTHttpThrottle, RemembersABoundedNumberOfAddresses)
{
    KTHttpThrottle throttle;
    for (int i = 0; i < 5; ++i) throttle.CountWrong("blocked", 10);
    for (std::size_t i = 0; i < KTHttpThrottle::addressLimit + 200; ++i) throttle.CountWrong(std::to_string(i), 20);
    EXPECT_EQ(throttle.Addresses(), KTHttpThrottle::addressLimit);
    throttle.CountWrong("new", 200'000);  // everything older is over
    EXPECT_EQ(throttle.Addresses(), 1u);
}
