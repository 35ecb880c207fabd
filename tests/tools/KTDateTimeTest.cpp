#include "host/KTDateTime.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "host/KTClock.h"

namespace
{
constexpr std::int64_t second = 1'000'000;
constexpr std::int64_t day = 86'400 * second;

KTDateTime Date(int year, int month, int dayOfMonth, int hour = 0, int minute = 0, int sec = 0, int milli = 0,
                int micro = 0)
{
    return KTDateTime(year, month, dayOfMonth, hour, minute, sec, milli, micro);
}

std::string Show(const KTDateTime& date)
{
    if (!date.Valid()) return "invalid";
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%06d", date.Year(), date.Month(), date.Day(),
                  date.Hour(), date.Minute(), date.Second(), date.USecondInS());
    return text;
}

// The calendar as one counts it on the fingers.
struct FingerCalendar
{
    int year = 1;
    int month = 1;
    int dayOfMonth = 1;
    int dayOfWeek = 2;  // 1 January of the year 1 is a Monday in this calendar

    [[nodiscard]] int MonthLength() const
    {
        if (month == 4 || month == 6 || month == 9 || month == 11) return 30;
        if (month != 2) return 31;
        if (year % 400 == 0) return 29;
        if (year % 100 == 0) return 28;
        return year % 4 == 0 ? 29 : 28;
    }
    void Next()
    {
        dayOfWeek = dayOfWeek % 7 + 1;
        if (++dayOfMonth <= MonthLength()) return;
        dayOfMonth = 1;
        if (++month <= 12) return;
        month = 1;
        ++year;
    }
};

TEST(KTDateTime, AgreesWithTheCalendarOnEveryDayOfTenThousandYears)
{
    FingerCalendar naive;
    std::int64_t ticks = Date(1, 1, 1).CalendarMicroseconds();
    for (; naive.year <= 9999; naive.Next(), ticks += day)
    {
        const KTDateTime date = Date(naive.year, naive.month, naive.dayOfMonth);
        ASSERT_EQ(date.CalendarMicroseconds(), ticks) << Show(date);
        const KTDateTime back = KTDateTime::FromCalendarMicroseconds(ticks + day - 1);
        ASSERT_TRUE(back.Year() == naive.year && back.Month() == naive.month && back.Day() == naive.dayOfMonth)
            << Show(back);
        ASSERT_EQ(date.DayOfWeek(), naive.dayOfWeek) << Show(date);
        ASSERT_EQ(DaysOfMonth(date), naive.MonthLength()) << Show(date);
        const KTDateTime beyond = Date(naive.year, naive.month, naive.MonthLength() + 1);
        ASSERT_FALSE(beyond.Valid()) << Show(beyond);
    }
    EXPECT_EQ(Date(1970, 1, 1).CalendarMicroseconds(), 0);
}

TEST(KTDateTime, StartsInvalidAndBecomesSoAgain)
{
    KTDateTime date;
    EXPECT_FALSE(date.Valid());
    date.SetDate(2024, 2, 29);
    EXPECT_TRUE(date.Valid());
    date.Invalidate();
    EXPECT_FALSE(date.Valid());
    EXPECT_EQ(date.Year() + date.Month() + date.Day() + date.Hour() + date.Minute() + date.Second() + date.MSecond() +
                  date.USecondInS() + date.DayOfWeek() + DaysOfMonth(date),
              0);
    EXPECT_EQ(date.OleDateTime().status, 1);
    EXPECT_FALSE(date.LTC2UTC().Valid());
    EXPECT_FALSE(KTDateTime::LocalFromUtc(date).Valid());
}

TEST(KTDateTime, FieldsOutOfRangeMakeAnInvalidValue)
{
    const struct
    {
        int fields[8];
        bool valid;
    } rows[] = {
        {{1, 1, 1, 0, 0, 0, 0, 0}, true},           {{9999, 12, 31, 23, 59, 59, 999, 999}, true},
        {{0, 1, 1, 0, 0, 0, 0, 0}, false},          {{10000, 1, 1, 0, 0, 0, 0, 0}, false},
        {{-1, 1, 1, 0, 0, 0, 0, 0}, false},         {{2024, 0, 1, 0, 0, 0, 0, 0}, false},
        {{2024, 13, 1, 0, 0, 0, 0, 0}, false},      {{2024, 1, 0, 0, 0, 0, 0, 0}, false},
        {{2024, 1, 32, 0, 0, 0, 0, 0}, false},      {{2024, 2, 29, 0, 0, 0, 0, 0}, true},
        {{2023, 2, 29, 0, 0, 0, 0, 0}, false},      {{1900, 2, 29, 0, 0, 0, 0, 0}, false},
        {{2000, 2, 29, 0, 0, 0, 0, 0}, true},       {{2024, 4, 31, 0, 0, 0, 0, 0}, false},
        {{2024, 1, 1, 24, 0, 0, 0, 0}, false},      {{2024, 1, 1, -1, 0, 0, 0, 0}, false},
        {{2024, 1, 1, 0, 60, 0, 0, 0}, false},      {{2024, 1, 1, 0, -1, 0, 0, 0}, false},
        {{2024, 1, 1, 0, 0, 60, 0, 0}, false},      {{2024, 1, 1, 0, 0, -1, 0, 0}, false},
        {{2024, 1, 1, 0, 0, 0, 1000, 0}, false},    {{2024, 1, 1, 0, 0, 0, -1, 0}, false},
        {{2024, 1, 1, 0, 0, 0, 0, 1000}, false},    {{2024, 1, 1, 0, 0, 0, 0, -1}, false},
        {{2147483647, 1, 1, 0, 0, 0, 0, 0}, false}, {{2024, -2147483647, 1, 0, 0, 0, 0, 0}, false},
    };
    for (const auto& r : rows)
    {
        const auto& f = r.fields;
        KTDateTime date = Date(2000, 1, 1);
        date.SetDateTime(f[0], f[1], f[2], f[3], f[4], f[5], f[6], f[7]);
        EXPECT_EQ(date.Valid(), r.valid) << f[0] << '-' << f[1] << '-' << f[2] << ' ' << f[3] << ':' << f[4] << ':'
                                         << f[5];
    }
    EXPECT_FALSE(KTDateTime::FromCalendarMicroseconds(Date(1, 1, 1).CalendarMicroseconds() - 1).Valid());
    EXPECT_FALSE(KTDateTime::FromCalendarMicroseconds(Date(9999, 12, 31).CalendarMicroseconds() + day).Valid());
    EXPECT_FALSE(KTDateTime::FromCalendarMicroseconds(std::numeric_limits<std::int64_t>::max()).Valid());
}

RC_GTEST_PROP(KTDateTime, GivesBackTheFieldsItWasMadeOf, ())
{
    const int year = *rc::gen::inRange(1, 10'000);
    const int month = *rc::gen::inRange(1, 13);
    const int dayOfMonth = *rc::gen::inRange(1, 29);
    const int hour = *rc::gen::inRange(0, 24);
    const int minute = *rc::gen::inRange(0, 60);
    const int sec = *rc::gen::inRange(0, 60);
    const int milli = *rc::gen::inRange(0, 1000);
    const int micro = *rc::gen::inRange(0, 1000);
    const KTDateTime date = Date(year, month, dayOfMonth, hour, minute, sec, milli, micro);
    RC_ASSERT(date.Valid());
    RC_ASSERT(date.Year() == year && date.Month() == month && date.Day() == dayOfMonth);
    RC_ASSERT(date.Hour() == hour && date.Minute() == minute && date.Second() == sec);
    RC_ASSERT(date.MSecond() == milli);
    RC_ASSERT(date.USecondInS() == milli * 1000 + micro);
    RC_ASSERT(KTDateTime::FromCalendarMicroseconds(date.CalendarMicroseconds()) == date);
}

TEST(KTDateTime, SetDateMeansMidnight)
{
    KTDateTime date = Date(2024, 5, 6, 7, 8, 9, 10, 11);
    date.SetDate(2024, 5, 7);
    EXPECT_EQ(Show(date), "2024-05-07 00:00:00.000000");
}

TEST(KTDateTime, ComparesChronologically)
{
    const KTDateTime early = Date(2024, 1, 1, 0, 0, 0, 0, 0);
    const KTDateTime late = Date(2024, 1, 1, 0, 0, 0, 0, 1);
    const KTDateTime invalid;
    EXPECT_TRUE(early < late && late > early && early <= late && late >= early && early <= early && early >= early);
    EXPECT_FALSE(late < early || late <= early || early == late || early > late);
    EXPECT_TRUE(early != late);
    EXPECT_TRUE(invalid == KTDateTime());
    EXPECT_TRUE(invalid < early && early > invalid && invalid <= early);
    EXPECT_FALSE(early < invalid || invalid == early || invalid < invalid);
}

TEST(KTDateTime, DifferencesAndSumsFitTogether)
{
    const KTDateTime a = Date(2024, 2, 28, 23, 59, 59, 999, 0);
    const KTDateTime b = Date(2024, 3, 1);
    const KTDateTimeSpan span = b - a;
    EXPECT_EQ(span.TotalMicroseconds(), day + 1000);
    EXPECT_EQ((a + span) == b, true);
    EXPECT_EQ((a - b).TotalSeconds(), -86'400) << "cut towards zero";
    EXPECT_EQ((a - KTDateTime()).TotalMicroseconds(), 0);
    EXPECT_FALSE((KTDateTime() + span).Valid());
    EXPECT_FALSE((Date(9999, 12, 31) + KTDateTimeSpan(day)).Valid());
    EXPECT_FALSE((Date(1, 1, 1) + KTDateTimeSpan(-1)).Valid());
    EXPECT_FALSE((Date(2024, 1, 1) + KTDateTimeSpan(std::numeric_limits<std::int64_t>::max())).Valid());
    EXPECT_FALSE((Date(2024, 1, 1) + KTDateTimeSpan(std::numeric_limits<std::int64_t>::min())).Valid());
}

TEST(KTDateTimeSpan, AddsItsPartsUp)
{
    constexpr int largest = std::numeric_limits<int>::max();
    constexpr int smallest = std::numeric_limits<int>::min();
    const struct
    {
        int parts[6];
        std::int64_t micros;
        int seconds;
    } rows[] = {
        {{0, 0, 0, 0, 0, 0}, 0, 0},
        {{1, 2, 3, 4, 5, 6}, 93'784'005'006, 93'784},
        {{0, 0, 0, 0, 999, 999}, 999'999, 0},
        {{0, 0, 0, -1, -999, 0}, -1'999'000, -1},
        {{1, -24, 0, 0, 0, 0}, 0, 0},
        {{0, 0, 0, largest, 0, 0}, largest * second, largest},
        {{0, 0, 0, largest, 1000, 0}, (largest + std::int64_t{1}) * second, largest},
        {{0, 0, 0, smallest, -1000, 0}, (smallest - std::int64_t{1}) * second, smallest},
        {{largest, 0, 0, 0, 0, 0}, std::numeric_limits<std::int64_t>::max(), largest},
        {{smallest, 0, 0, 0, 0, 0}, -std::numeric_limits<std::int64_t>::max(), smallest},
    };
    for (const auto& r : rows)
    {
        KTDateTimeSpan span(7);
        span.SetDateTimeSpan(r.parts[0], r.parts[1], r.parts[2], r.parts[3], r.parts[4], r.parts[5]);
        EXPECT_EQ(span.TotalMicroseconds(), r.micros) << r.parts[0] << ' ' << r.parts[3];
        EXPECT_EQ(span.TotalSeconds(), r.seconds) << r.parts[0] << ' ' << r.parts[3];
    }
}

TEST(KTDateTime, ConvertsToAnOleDate)
{
    const struct
    {
        KTDateTime date;
        double ole;
    } rows[] = {
        {Date(1899, 12, 30), 0.0},         {Date(1899, 12, 31), 1.0},           {Date(1900, 1, 1), 2.0},
        {Date(2000, 1, 1), 36526.0},       {Date(2007, 3, 15, 12, 0), 39156.5}, {Date(1899, 12, 30, 6, 0), 0.25},
        {Date(1899, 12, 29, 6, 0), -1.25}, {Date(1899, 12, 29), -1.0},          {Date(1899, 12, 28, 18, 0), -2.75},
        {Date(1, 1, 1), -693593.0},        {Date(9999, 12, 31), 2958465.0},
    };
    for (const auto& r : rows)
    {
        EXPECT_EQ(r.date.OleDateTime().status, 0);
        EXPECT_DOUBLE_EQ(r.date.OleDateTime().date, r.ole) << Show(r.date);
        EXPECT_EQ(Show(KTDateTime(KTOleDateTime{r.ole, 0})), Show(r.date)) << r.ole;
    }
}

TEST(KTDateTime, RoundsAnOleDateToTheNearestSecond)
{
    constexpr double perDay = 86'400.0;
    const struct
    {
        double ole;
        const char* expected;
    } rows[] = {
        {39156.0 + 0.4 / perDay, "2007-03-15 00:00:00.000000"},
        {39156.0 + 0.6 / perDay, "2007-03-15 00:00:01.000000"},
        {39156.0 + 45044.9 / perDay, "2007-03-15 12:30:45.000000"},
        {39156.0 + 86'399.7 / perDay, "2007-03-16 00:00:00.000000"},  // into the next day
        {-1.0 - 86'399.7 / perDay, "1899-12-30 00:00:00.000000"},     // the fraction counts forward here too
        {-0.25, "1899-12-30 06:00:00.000000"},
        {2958465.0 + 86'399.0 / perDay, "9999-12-31 23:59:59.000000"},
        {2958465.0 + 86'399.9 / perDay, "invalid"},
    };
    for (const auto& r : rows) EXPECT_EQ(Show(KTDateTime(KTOleDateTime{r.ole, 0})), r.expected) << r.ole;
}

TEST(KTDateTime, AnOleDateThatMeansNothingIsInvalid)
{
    constexpr double infinity = std::numeric_limits<double>::infinity();
    for (const double bad : {std::nan(""), infinity, -infinity, 1e300, -1e300, 2958466.0, -693594.0, 9.3e18})
    {
        KTDateTime date = Date(2024, 1, 1);
        date = KTOleDateTime{bad, 0};
        EXPECT_FALSE(date.Valid()) << bad;
    }
    EXPECT_FALSE(KTDateTime(KTOleDateTime{39156.0, 1}).Valid());
    EXPECT_FALSE(KTDateTime(KTOleDateTime{}).Valid());
}

RC_GTEST_PROP(KTDateTime, WholeSecondsSurviveTheOleForm, ())
{
    const std::int64_t seconds = *rc::gen::inRange<std::int64_t>(-62'135'596'800, 253'402'300'800);
    const KTDateTime date = KTDateTime::FromCalendarMicroseconds(seconds * second);
    RC_ASSERT(KTDateTime(date.OleDateTime()) == date);
}

RC_GTEST_PROP(KTDateTime, OleDatesOfOurTimesOrderAsTheDatesDo, ())
{
    const std::int64_t a = *rc::gen::inRange<std::int64_t>(-2'000'000'000, 253'402'300'800);
    const std::int64_t b = a + *rc::gen::inRange<std::int64_t>(1, 100'000);
    RC_PRE(b < 253'402'300'800);
    const KTDateTime early = KTDateTime::FromCalendarMicroseconds(a * second);
    const KTDateTime late = KTDateTime::FromCalendarMicroseconds(b * second);
    RC_ASSERT(early.OleDateTime().date < late.OleDateTime().date);
}

TEST(KTDateTime, IsWrittenForTheFeedInEnglish)
{
    const struct
    {
        KTDateTime date;
        const wchar_t* text;
    } rows[] = {
        {Date(2007, 3, 15, 12, 30, 45, 999, 999), L"Thu, 15 Mar 2007 12:30:45 GMT"},
        {Date(2024, 2, 29, 0, 0, 0), L"Thu, 29 Feb 2024 00:00:00 GMT"},
        {Date(2024, 12, 1, 1, 2, 3), L"Sun, 01 Dec 2024 01:02:03 GMT"},
        {Date(33, 4, 2), L"Sat, 02 Apr 0033 00:00:00 GMT"},
        {KTDateTime(), L""},
    };
    for (const auto& r : rows)
    {
        KTWideString out(L"old");
        EXPECT_EQ(&DateTime2RFC822(out, r.date, true), &out);
        EXPECT_STREQ(out.Str(), r.text) << Show(r.date);
    }
}

TEST(KTDateTime, IsWrittenForTheServicesAsDigits)
{
    const KTDateTime date = Date(2007, 3, 5, 2, 30, 9, 7, 85);
    const struct
    {
        bool millis;
        bool micros;
        const char* text;
    } rows[] = {{false, false, "05032007023009"},
                {true, false, "05032007023009007"},
                {false, true, "05032007023009007085"},
                {true, true, "05032007023009007085"}};
    for (const auto& r : rows)
    {
        KTNarrowString out("old");
        EXPECT_TRUE(DateTime2String(out, date, r.millis, r.micros));
        EXPECT_STREQ(out.Str(), r.text);
    }
    KTNarrowString out("old");
    EXPECT_FALSE(DateTime2String(out, KTDateTime(), false, false));
    EXPECT_STREQ(out.Str(), "");
}
}  // namespace
