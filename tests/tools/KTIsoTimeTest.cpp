#include "suite/tools/KTIsoTime.h"

#include <gtest/gtest.h>

#include <string>

TEST(KTIsoTime, WritesWholeSeconds)
{
    EXPECT_EQ(kt::IsoTime({2026, 3, 1, 10, 2, 3, 999, 999}), "2026-03-01T10:02:03Z");
    EXPECT_EQ(kt::IsoTime({1, 1, 1, 0, 0, 0, 0, 0}), "0001-01-01T00:00:00Z");
    EXPECT_EQ(kt::IsoTime(KTDateTime()), "");
}

TEST(KTIsoTime, ReadsWhatItWrites)
{
    KTDateTime date;
    ASSERT_TRUE(kt::ParseIsoTime("2024-02-29T23:59:59Z", date));
    EXPECT_TRUE(date == KTDateTime(2024, 2, 29, 23, 59, 59, 0, 0));
    ASSERT_TRUE(kt::ParseIsoTime("9999-12-31T00:00:00Z", date));
    EXPECT_EQ(kt::IsoTime(date), "9999-12-31T00:00:00Z");
}

TEST(KTIsoTime, ReadsNothingElse)
{
    for (const char* text : {"",
                             "2026-03-01",
                             "2026-03-01T10:00:00",
                             "2026-03-01T10:00:00z",
                             "2026-03-01 10:00:00Z",
                             "2026-03-01T10:00:00+00:00",
                             "2026-03-01T10:00:00.5Z",
                             " 2026-03-01T10:00:00Z",
                             "2026-03-01T10:00:00Z ",
                             "2026-3-01T10:00:00ZZ",
                             "2026-03-01T1a:00:00Z",
                             "+026-03-01T10:00:00Z",
                             "2026-02-30T10:00:00Z",
                             "2025-02-29T10:00:00Z",
                             "2026-13-01T10:00:00Z",
                             "2026-00-01T10:00:00Z",
                             "2026-03-01T24:00:00Z",
                             "2026-03-01T10:60:00Z",
                             "2026-03-01T10:00:60Z",
                             "0000-03-01T10:00:00Z",
                             "20260301T100000Z"})
    {
        KTDateTime date(2000, 1, 1, 0, 0, 0, 0, 0);
        EXPECT_FALSE(kt::ParseIsoTime(text, date)) << text;
        EXPECT_EQ(kt::IsoTime(date), "2000-01-01T00:00:00Z") << text;
    }
}
