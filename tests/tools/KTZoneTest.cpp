// Local time, in zones whose clock changes stand beside the rows.
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "host/KTDateTime.h"

namespace
{
constexpr std::int64_t second = 1'000'000;

// Europe/Madrid     2026-03-29 01:00 UTC: 02:00 becomes 03:00 (+1 to +2 hours)
//                   2026-10-25 01:00 UTC: 03:00 becomes 02:00
// America/New_York  2026-03-08 07:00 UTC: 02:00 becomes 03:00 (-5 to -4 hours)
//                   2026-11-01 06:00 UTC: 02:00 becomes 01:00
// Australia/Lord_Howe, half an hour: 2026-04-04 15:00 UTC: 02:00 of the 5th becomes 01:30 (+11 to +10:30 hours)
//                                    2026-10-03 15:30 UTC: 02:00 of the 4th becomes 02:30
constexpr const char* zones[] = {"Europe/Madrid", "America/New_York", "Australia/Lord_Howe", "UTC"};

// The process's zone for as long as this lives.
class Zone
{
public:
    explicit Zone(const char* name)
    {
        if (const char* const now = std::getenv("TZ"); now != nullptr) before = now;
        setenv("TZ", name, 1);
    }
    Zone(const Zone&) = delete;
    Zone& operator=(const Zone&) = delete;
    ~Zone()
    {
        if (before.empty())
            unsetenv("TZ");
        else
            setenv("TZ", before.c_str(), 1);
    }

private:
    std::string before;
};

KTDateTime Date(const char* text)
{
    int f[6] = {};
    if (std::sscanf(text, "%d-%d-%d %d:%d:%d", &f[0], &f[1], &f[2], &f[3], &f[4], &f[5]) < 5) return KTDateTime();
    return KTDateTime(f[0], f[1], f[2], f[3], f[4], f[5], 0, 0);
}

std::string Show(const KTDateTime& date)
{
    if (!date.Valid()) return "invalid";
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", date.Year(), date.Month(), date.Day(),
                  date.Hour(), date.Minute(), date.Second());
    return text;
}

TEST(KTZone, GivesTheLocalTimeOfAnInstantOnBothSidesOfAChange)
{
    const struct
    {
        const char* zone;
        const char* utc;
        const char* local;
    } rows[] = {
        {"Europe/Madrid", "2026-03-29 00:59:59", "2026-03-29 01:59:59"},
        {"Europe/Madrid", "2026-03-29 01:00:00", "2026-03-29 03:00:00"},
        {"Europe/Madrid", "2026-10-25 00:59:59", "2026-10-25 02:59:59"},
        {"Europe/Madrid", "2026-10-25 01:00:00", "2026-10-25 02:00:00"},
        {"America/New_York", "2026-03-08 06:59:59", "2026-03-08 01:59:59"},
        {"America/New_York", "2026-03-08 07:00:00", "2026-03-08 03:00:00"},
        {"America/New_York", "2026-11-01 05:59:59", "2026-11-01 01:59:59"},
        {"America/New_York", "2026-11-01 06:00:00", "2026-11-01 01:00:00"},
        {"Australia/Lord_Howe", "2026-04-04 14:59:59", "2026-04-05 01:59:59"},
        {"Australia/Lord_Howe", "2026-04-04 15:00:00", "2026-04-05 01:30:00"},
        {"Australia/Lord_Howe", "2026-10-03 15:29:59", "2026-10-04 01:59:59"},
        {"Australia/Lord_Howe", "2026-10-03 15:30:00", "2026-10-04 02:30:00"},
        {"UTC", "2026-10-25 01:00:00", "2026-10-25 01:00:00"},
    };
    for (const auto& r : rows)
    {
        const Zone zone(r.zone);
        const KTDateTime local = KTDateTime::LocalFromUtc(Date(r.utc));
        EXPECT_EQ(Show(local), r.local) << r.zone << ' ' << r.utc;
        EXPECT_EQ(Show(local.LTC2UTC()), r.utc) << r.zone << ": it remembers its offset";
    }
}

TEST(KTZone, ABuiltLocalTimeMeansTheFirstOfTwoAndCountsOnBeforeAGap)
{
    const struct
    {
        const char* zone;
        const char* local;
        const char* utc;
    } rows[] = {
        {"Europe/Madrid", "2026-03-29 01:59:59", "2026-03-29 00:59:59"},
        {"Europe/Madrid", "2026-03-29 02:00:00", "2026-03-29 01:00:00"},  // doesn't exist: as if at +1
        {"Europe/Madrid", "2026-03-29 02:30:00", "2026-03-29 01:30:00"},
        {"Europe/Madrid", "2026-03-29 03:00:00", "2026-03-29 01:00:00"},
        {"Europe/Madrid", "2026-10-25 01:59:59", "2026-10-24 23:59:59"},
        {"Europe/Madrid", "2026-10-25 02:00:00", "2026-10-25 00:00:00"},  // the first of two
        {"Europe/Madrid", "2026-10-25 02:59:59", "2026-10-25 00:59:59"},
        {"Europe/Madrid", "2026-10-25 03:00:00", "2026-10-25 02:00:00"},
        {"America/New_York", "2026-03-08 02:30:00", "2026-03-08 07:30:00"},
        {"America/New_York", "2026-03-08 03:00:00", "2026-03-08 07:00:00"},
        {"America/New_York", "2026-11-01 01:30:00", "2026-11-01 05:30:00"},
        {"America/New_York", "2026-11-01 02:00:00", "2026-11-01 07:00:00"},
        {"Australia/Lord_Howe", "2026-04-05 01:29:59", "2026-04-04 14:29:59"},
        {"Australia/Lord_Howe", "2026-04-05 01:30:00", "2026-04-04 14:30:00"},
        {"Australia/Lord_Howe", "2026-04-05 02:00:00", "2026-04-04 15:30:00"},
        {"Australia/Lord_Howe", "2026-10-04 02:15:00", "2026-10-03 15:45:00"},
        {"Australia/Lord_Howe", "2026-10-04 02:30:00", "2026-10-03 15:30:00"},
    };
    for (const auto& r : rows)
    {
        const Zone zone(r.zone);
        EXPECT_EQ(Show(Date(r.local).LTC2UTC()), r.utc) << r.zone << ' ' << r.local;
    }
}

TEST(KTZone, TheRepeatedHourOfAutumnStaysOrdered)
{
    const Zone zone("Europe/Madrid");
    const KTDateTime first = KTDateTime::LocalFromUtc(Date("2026-10-25 00:30:00"));
    const KTDateTime again = KTDateTime::LocalFromUtc(Date("2026-10-25 01:30:00"));
    EXPECT_EQ(Show(first), Show(again));
    EXPECT_TRUE(first < again);
    EXPECT_FALSE(first == again);
    EXPECT_EQ((again - first).TotalSeconds(), 3600);
    EXPECT_EQ(((first + (again - first)) == again), true);
    EXPECT_TRUE(first == Date("2026-10-25 02:30:00")) << "with a built value by the calendar fields";
    EXPECT_TRUE(again == Date("2026-10-25 02:30:00"));
}

TEST(KTZone, WritesTheOffsetOfTheMomentForMails)
{
    const struct
    {
        const char* zone;
        const char* utc;
        const wchar_t* text;
    } rows[] = {
        {"Europe/Madrid", "2026-01-15 11:30:45", L"Thu, 15 Jan 2026 12:30:45 +0100"},
        {"Europe/Madrid", "2026-10-25 00:30:00", L"Sun, 25 Oct 2026 02:30:00 +0200"},
        {"Europe/Madrid", "2026-10-25 01:30:00", L"Sun, 25 Oct 2026 02:30:00 +0100"},
        {"America/New_York", "2026-07-01 12:00:00", L"Wed, 01 Jul 2026 08:00:00 -0400"},
        {"Australia/Lord_Howe", "2026-07-01 12:00:00", L"Wed, 01 Jul 2026 22:30:00 +1030"},
        {"America/St_Johns", "2026-01-01 12:00:00", L"Thu, 01 Jan 2026 08:30:00 -0330"},
        {"UTC", "2026-07-01 12:00:00", L"Wed, 01 Jul 2026 12:00:00 +0000"},
    };
    for (const auto& r : rows)
    {
        const Zone zone(r.zone);
        KTWideString out;
        EXPECT_STREQ(DateTime2RFC822(out, KTDateTime::LocalFromUtc(Date(r.utc)), false).Str(), r.text) << r.zone;
    }
    const Zone zone("Europe/Madrid");
    KTWideString out;
    EXPECT_STREQ(DateTime2RFC822(out, Date("2026-07-01 12:00:00"), false).Str(), L"Wed, 01 Jul 2026 12:00:00 +0200")
        << "a built value takes the zone's offset";
}

TEST(KTZone, LocalTimesThatLeaveTheCalendarAreInvalid)
{
    const Zone zone("Europe/Madrid");
    EXPECT_FALSE(KTDateTime::LocalFromUtc(Date("9999-12-31 23:30:00")).Valid());
    const Zone west("America/New_York");
    EXPECT_FALSE(KTDateTime::LocalFromUtc(Date("0001-01-01 00:30:00")).Valid());
}

RC_GTEST_PROP(KTZone, EveryInstantComesBackFromItsLocalTime, ())
{
    const Zone zone(*rc::gen::elementOf(std::vector<const char*>(std::begin(zones), std::end(zones))));
    const std::int64_t micros = *rc::gen::inRange<std::int64_t>(0, 4'000'000'000) * second;
    const KTDateTime utc = KTDateTime::FromCalendarMicroseconds(micros);
    RC_ASSERT(KTDateTime::LocalFromUtc(utc).LTC2UTC() == utc);
}

// Against trying every offset there is: of the instants that show these fields the earliest, or, when there is none, the
// one of a clock that nobody has changed yet.
RC_GTEST_PROP(KTZone, ABuiltLocalTimeIsTheEarliestInstantThatShowsIt, ())
{
    const Zone zone(*rc::gen::elementOf(std::vector<const char*>(std::begin(zones), std::end(zones))));
    // Half of the cases lie within two hours of a change.
    const std::int64_t changes[] = {1774746000, 1792890000, 1772953200, 1793512800, 1775314800, 1791041400};
    const std::int64_t base =
        *rc::gen::oneOf(rc::gen::elementOf(std::vector<std::int64_t>(std::begin(changes), std::end(changes))),
                        rc::gen::inRange<std::int64_t>(1'600'000'000, 1'900'000'000));
    const std::int64_t seconds = base + *rc::gen::inRange(-7200, 7200) + *rc::gen::element(0, 3600, -18'000, 37'800);
    const KTDateTime local = KTDateTime::FromCalendarMicroseconds(seconds * second);

    KTDateTime expected;
    for (int quarter = 14 * 4; quarter >= -14 * 4; --quarter)
    {
        const KTDateTime candidate = KTDateTime::FromCalendarMicroseconds((seconds - quarter * 900) * second);
        if (expected.Valid() || Show(KTDateTime::LocalFromUtc(candidate)) != Show(local)) continue;
        expected = candidate;
    }
    if (!expected.Valid())
    {
        const KTDateTime dayBefore = KTDateTime::FromCalendarMicroseconds((seconds - 86'400) * second);
        const std::int64_t offset =
            KTDateTime::LocalFromUtc(dayBefore).CalendarMicroseconds() - dayBefore.CalendarMicroseconds();
        expected = KTDateTime::FromCalendarMicroseconds(seconds * second - offset);
    }
    RC_ASSERT(Show(local.LTC2UTC()) == Show(expected));
}
}  // namespace
