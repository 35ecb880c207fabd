#include "host/KTDateTime.h"

#include <cmath>
#include <cstdint>
#include <ctime>
#include <limits>

#include "host/KTClock.h"
#include "suite/tools/KTTimeZone.h"

namespace
{
constexpr std::int64_t microsPerSecond = 1'000'000;
constexpr std::int64_t secondsPerDay = 86'400;
constexpr std::int64_t microsPerDay = secondsPerDay * microsPerSecond;
constexpr int oleEpoch = -25'569;  // days from 1970-01-01 to 1899-12-30

constexpr const char* dayNames[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr const char* monthNames[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

struct CivilDate
{
    int year;
    int month;
    int day;
};

constexpr bool IsLeapYear(int year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

constexpr int DaysIn(int year, int month)
{
    constexpr int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && IsLeapYear(year) ? 29 : days[month - 1];
}

// Days since 1970-01-01. The year is taken to begin in March, so that the leap day is its last.
constexpr std::int64_t DaysFromCivil(int year, int month, int day)
{
    const int y = month <= 2 ? year - 1 : year;  // 0 or more
    const int era = y / 400;
    const int yearOfEra = y - era * 400;
    const int dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
    const int dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return std::int64_t{era} * 146'097 + dayOfEra - 719'468;
}

constexpr CivilDate CivilFromDays(std::int64_t days)
{
    const int z = static_cast<int>(days) + 719'468;  // positive from year 1 on
    const int era = z / 146'097;
    const int dayOfEra = z - era * 146'097;
    const int yearOfEra = (dayOfEra - dayOfEra / 1'460 + dayOfEra / 36'524 - dayOfEra / 146'096) / 365;
    const int dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const int shifted = (5 * dayOfYear + 2) / 153;
    const int month = shifted < 10 ? shifted + 3 : shifted - 9;
    return {yearOfEra + era * 400 + (month <= 2 ? 1 : 0), month, dayOfYear - (153 * shifted + 2) / 5 + 1};
}

constexpr std::int64_t firstTick = DaysFromCivil(1, 1, 1) * microsPerDay;
constexpr std::int64_t lastTick = (DaysFromCivil(9999, 12, 31) + 1) * microsPerDay - 1;

constexpr std::int64_t FloorDiv(std::int64_t a, std::int64_t b) { return a / b - (a % b < 0 ? 1 : 0); }
constexpr std::int64_t FloorMod(std::int64_t a, std::int64_t b) { return a - FloorDiv(a, b) * b; }

std::int64_t MicrosOfDay(std::int64_t ticks) { return FloorMod(ticks, microsPerDay); }
CivilDate DateOf(std::int64_t ticks) { return CivilFromDays(FloorDiv(ticks, microsPerDay)); }

std::int64_t TicksOfOle(const KTOleDateTime& ole)
{
    // The range is that of the calendar, so that the conversion to an integer below is defined.
    if (ole.status != 0 || !(ole.date > -700'000.0 && ole.date < 3'000'000.0))
        return std::numeric_limits<std::int64_t>::min();
    // The fraction counts forward on both sides of the epoch: -1.25 is 29 December 1899, 06:00.
    const double whole = std::trunc(ole.date);
    const double fraction = std::fabs(ole.date - whole);
    const auto seconds = static_cast<std::int64_t>(std::floor(fraction * static_cast<double>(secondsPerDay) + 0.5));
    return ((static_cast<std::int64_t>(whole) + oleEpoch) * secondsPerDay + seconds) * microsPerSecond;
}

// The offset that a local time without one has: the first of two, or in a gap the one before the change.
std::int32_t OffsetOfLocal(std::int64_t localSeconds)
{
    // No zone is a day from UTC, so these two instants lie on either side of a change near that time.
    const std::int32_t before = kt::ZoneOffset(localSeconds - secondsPerDay);
    const std::int32_t after = kt::ZoneOffset(localSeconds + secondsPerDay);
    if (before == after || kt::ZoneOffset(localSeconds - before) == before) return before;
    if (kt::ZoneOffset(localSeconds - after) == after) return after;
    return before;
}

char* PutDigits(char* out, int value, int digits)
{
    for (int i = digits - 1; i >= 0; --i)
    {
        out[i] = static_cast<char>('0' + value % 10);
        value /= 10;
    }
    return out + digits;
}

char* PutText(char* out, const char* text)
{
    while (*text != '\0') *out++ = *text++;
    return out;
}
}  // namespace

void KTDateTimeSpan::SetDateTimeSpan(int days, int hours, int minutes, int seconds, int milliseconds, int microsecs)
{
    // 2^31 days are more microseconds than 64 bits hold: the sum stops at the ends.
    __extension__ using Wide = __int128;
    Wide total = Wide{days} * secondsPerDay + Wide{hours} * 3600 + Wide{minutes} * 60 + seconds;
    total = total * microsPerSecond + Wide{milliseconds} * 1000 + microsecs;
    constexpr Wide largest = std::numeric_limits<std::int64_t>::max();
    constexpr Wide smallest = -largest;
    microseconds = static_cast<std::int64_t>(total > largest ? largest : (total < smallest ? smallest : total));
}

int KTDateTimeSpan::TotalSeconds() const
{
    const std::int64_t seconds = microseconds / microsPerSecond;
    if (seconds > std::numeric_limits<int>::max()) return std::numeric_limits<int>::max();
    if (seconds < std::numeric_limits<int>::min()) return std::numeric_limits<int>::min();
    return static_cast<int>(seconds);
}

KTDateTime::KTDateTime(int year, int month, int day, int hour, int minute, int second, int millisecond, int microsecond)
{
    SetDateTime(year, month, day, hour, minute, second, millisecond, microsecond);
}

KTDateTime::KTDateTime(const KTOleDateTime& date) : KTDateTime(FromCalendarMicroseconds(TicksOfOle(date))) {}

KTDateTime& KTDateTime::operator=(const KTOleDateTime& date) { return *this = KTDateTime(date); }

KTDateTime KTDateTime::UTC() { return KTClock::Get().UTC(); }

KTDateTime KTDateTime::LTC() { return KTClock::Get().LTC(); }

KTDateTime KTDateTime::LTC2UTC() const
{
    if (!Valid()) return KTDateTime();
    const std::int32_t east = offset != noOffset ? offset : OffsetOfLocal(FloorDiv(ticks, microsPerSecond));
    return FromCalendarMicroseconds(ticks - east * microsPerSecond);
}

KTDateTime KTDateTime::LocalFromUtc(const KTDateTime& utc)
{
    if (!utc.Valid()) return KTDateTime();
    const std::int32_t east = kt::ZoneOffset(FloorDiv(utc.ticks, microsPerSecond));
    KTDateTime local = FromCalendarMicroseconds(utc.ticks + east * microsPerSecond);
    if (local.Valid()) local.offset = east;
    return local;
}

KTDateTime KTDateTime::FromCalendarMicroseconds(std::int64_t microseconds)
{
    KTDateTime date;
    if (microseconds >= firstTick && microseconds <= lastTick) date.ticks = microseconds;
    return date;
}

void KTDateTime::SetDate(int year, int month, int day) { SetDateTime(year, month, day, 0, 0, 0, 0, 0); }

void KTDateTime::SetDateTime(int year, int month, int day, int hour, int minute, int second, int millisecond,
                             int microsecond)
{
    Invalidate();
    if (year < 1 || year > 9999 || month < 1 || month > 12 || day < 1 || day > DaysIn(year, month)) return;
    if (hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 59) return;
    if (millisecond < 0 || millisecond > 999 || microsecond < 0 || microsecond > 999) return;
    const std::int64_t seconds =
        DaysFromCivil(year, month, day) * secondsPerDay + std::int64_t{hour} * 3600 + minute * 60 + second;
    ticks = seconds * microsPerSecond + millisecond * 1000 + microsecond;
}

int KTDateTime::Year() const { return Valid() ? DateOf(ticks).year : 0; }
int KTDateTime::Month() const { return Valid() ? DateOf(ticks).month : 0; }
int KTDateTime::Day() const { return Valid() ? DateOf(ticks).day : 0; }

int KTDateTime::Hour() const { return Valid() ? static_cast<int>(MicrosOfDay(ticks) / (3600 * microsPerSecond)) : 0; }

int KTDateTime::Minute() const
{
    return Valid() ? static_cast<int>(MicrosOfDay(ticks) / (60 * microsPerSecond) % 60) : 0;
}

int KTDateTime::Second() const { return Valid() ? static_cast<int>(MicrosOfDay(ticks) / microsPerSecond % 60) : 0; }

int KTDateTime::MSecond() const { return USecondInS() / 1000; }

int KTDateTime::USecondInS() const { return Valid() ? static_cast<int>(FloorMod(ticks, microsPerSecond)) : 0; }

int KTDateTime::DayOfWeek() const
{
    // 1970-01-01 was a Thursday.
    return Valid() ? static_cast<int>(FloorMod(FloorDiv(ticks, microsPerDay) + 4, 7)) + 1 : 0;
}

KTOleDateTime KTDateTime::OleDateTime() const
{
    if (!Valid()) return {};
    const auto days = static_cast<double>(FloorDiv(ticks, microsPerDay) - oleEpoch);
    const double fraction = static_cast<double>(MicrosOfDay(ticks)) / static_cast<double>(microsPerDay);
    return {days < 0 ? days - fraction : days + fraction, 0};
}

KTDateTimeSpan KTDateTime::operator-(const KTDateTime& other) const
{
    if (!Valid() || !other.Valid()) return {};
    std::int64_t difference = ticks - other.ticks;
    if (offset != noOffset && other.offset != noOffset) difference -= (offset - other.offset) * microsPerSecond;
    return KTDateTimeSpan(difference);
}

KTDateTime KTDateTime::operator+(const KTDateTimeSpan& span) const
{
    std::int64_t sum = 0;
    if (!Valid() || __builtin_add_overflow(ticks, span.TotalMicroseconds(), &sum)) return KTDateTime();
    KTDateTime result = FromCalendarMicroseconds(sum);
    if (result.Valid()) result.offset = offset;
    return result;
}

int DaysOfMonth(const KTDateTime& date) { return date.Valid() ? DaysIn(date.Year(), date.Month()) : 0; }

KTWideString& DateTime2RFC822(KTWideString& out, const KTDateTime& date, bool gmt)
{
    out.Clear();
    if (!date.Valid()) return out;
    char text[40];
    char* p = PutText(text, dayNames[date.DayOfWeek() - 1]);
    p = PutText(p, ", ");
    p = PutDigits(p, date.Day(), 2);
    *p++ = ' ';
    p = PutText(p, monthNames[date.Month() - 1]);
    *p++ = ' ';
    p = PutDigits(p, date.Year(), 4);
    *p++ = ' ';
    p = PutDigits(p, date.Hour(), 2);
    *p++ = ':';
    p = PutDigits(p, date.Minute(), 2);
    *p++ = ':';
    p = PutDigits(p, date.Second(), 2);
    *p++ = ' ';
    if (gmt)
        p = PutText(p, "GMT");
    else
    {
        const KTDateTime utc = date.LTC2UTC();
        const std::int64_t micros =
            utc.Valid() ? date.CalendarMicroseconds() - utc.CalendarMicroseconds() : std::int64_t{0};
        const int minutes = static_cast<int>(micros / (60 * microsPerSecond));
        *p++ = minutes < 0 ? '-' : '+';
        p = PutDigits(p, std::abs(minutes) / 60, 2);
        p = PutDigits(p, std::abs(minutes) % 60, 2);
    }
    wchar_t wide[sizeof text];
    const int length = static_cast<int>(p - text);
    for (int i = 0; i < length; ++i) wide[i] = static_cast<wchar_t>(text[i]);
    out.Assign(wide, length);
    return out;
}

bool DateTime2String(KTNarrowString& out, const KTDateTime& date, bool milliseconds, bool microseconds)
{
    out.Clear();
    if (!date.Valid()) return false;
    // Taken apart once: a log of many rows has as many dates.
    const CivilDate civil = DateOf(date.CalendarMicroseconds());
    const int second = static_cast<int>(MicrosOfDay(date.CalendarMicroseconds()) / microsPerSecond);
    char text[24];
    char* p = PutDigits(text, civil.day, 2);
    p = PutDigits(p, civil.month, 2);
    p = PutDigits(p, civil.year, 4);
    p = PutDigits(p, second / 3600, 2);
    p = PutDigits(p, second / 60 % 60, 2);
    p = PutDigits(p, second % 60, 2);
    if (microseconds)
        p = PutDigits(p, date.USecondInS(), 6);
    else if (milliseconds)
        p = PutDigits(p, date.MSecond(), 3);
    out.Assign(text, static_cast<int>(p - text));
    return true;
}
