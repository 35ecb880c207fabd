// Calendar dates with microseconds, their differences, and the texts that the protocols want of them.
#pragma once

#include <cstdint>

#include "host/KTString.h"

/// An OLE date as the comparison form of the log search: whole days since 30 December 1899, the time of day as the
/// fraction. Usable only while status is 0.
struct KTOleDateTime
{
    double date = 0.0;  // days
    int status = 1;     // 0 valid
};

/// A difference of two dates.
///
/// Units:   microseconds inside; TotalSeconds cuts towards zero.
/// Threads: a plain value.
class KTDateTimeSpan
{
public:
    KTDateTimeSpan() = default;
    explicit KTDateTimeSpan(std::int64_t total) : microseconds(total) {}

    /// Any sign and size; the parts are added up.
    void SetDateTimeSpan(int days, int hours, int minutes, int seconds, int milliseconds, int microsecs);

    /// Whole seconds, held at the largest or smallest int where they don't fit.
    [[nodiscard]] int TotalSeconds() const;
    [[nodiscard]] std::int64_t TotalMicroseconds() const { return microseconds; }

private:
    std::int64_t microseconds = 0;
};

/// A calendar date and time of day with microseconds, or the invalid state.
///
/// Units:   proleptic Gregorian calendar, years 1 to 9999. Whether a value means UTC or local time is the holder's
///          knowledge; a value of LTC also remembers its offset from UTC, so that it stays exact in the repeated hour of
///          autumn. Two values that both remember an offset compare and subtract as instants, all others by their
///          calendar fields.
/// Errors:  fields out of range make an invalid value. An invalid value has zero in every field, equals only another
///          invalid one and is less than every valid one.
/// Threads: a plain value. The time zone is the process's (TZ).
class KTDateTime
{
public:
    KTDateTime() = default;
    KTDateTime(int year, int month, int day, int hour, int minute, int second, int millisecond, int microsecond);

    /// Rounds to the nearest second: a double can't tell a whole second from a hair less.
    explicit KTDateTime(const KTOleDateTime& date);
    KTDateTime& operator=(const KTOleDateTime& date);

    static KTDateTime UTC();
    static KTDateTime LTC();

    /// The same instant in UTC; only for a local value. A built local value in the repeated hour of autumn means the first
    /// of the two; one in the missing hour of spring counts with the offset before the change.
    [[nodiscard]] KTDateTime LTC2UTC() const;

    [[nodiscard]] bool Valid() const { return ticks != invalidTicks; }
    void Invalidate() { *this = KTDateTime(); }

    void SetDate(int year, int month, int day);  // midnight of that date
    void SetDateTime(int year, int month, int day, int hour, int minute, int second, int millisecond, int microsecond);

    [[nodiscard]] int Year() const;
    [[nodiscard]] int Month() const;  // 1 to 12
    [[nodiscard]] int Day() const;    // 1 to 31
    [[nodiscard]] int Hour() const;
    [[nodiscard]] int Minute() const;
    [[nodiscard]] int Second() const;
    [[nodiscard]] int MSecond() const;     // milliseconds of the second
    [[nodiscard]] int USecondInS() const;  // microseconds of the second, 0 to 999999
    [[nodiscard]] int DayOfWeek() const;   // 1 Sunday to 7 Saturday; 0 for an invalid value

    [[nodiscard]] KTOleDateTime OleDateTime() const;

    bool operator==(const KTDateTime& other) const
    {
        return ByFields(other) ? ticks == other.ticks : Since(other) == 0;
    }
    bool operator<(const KTDateTime& other) const { return ByFields(other) ? ticks < other.ticks : Since(other) < 0; }
    bool operator>(const KTDateTime& other) const { return other < *this; }
    bool operator<=(const KTDateTime& other) const { return !(other < *this); }
    bool operator>=(const KTDateTime& other) const { return !(*this < other); }

    /// Zero when one of the two is invalid.
    KTDateTimeSpan operator-(const KTDateTime& other) const;

    /// Invalid when this is, or when the sum leaves the years 1 to 9999. An offset is kept.
    KTDateTime operator+(const KTDateTimeSpan& span) const;

    /// Microseconds of the calendar fields since 1970-01-01 00:00:00, as if they were UTC. Only for a valid value.
    [[nodiscard]] std::int64_t CalendarMicroseconds() const { return ticks; }

    /// The value with those calendar fields; invalid outside the years 1 to 9999.
    static KTDateTime FromCalendarMicroseconds(std::int64_t microseconds);

    /// The local time of an instant in the process's zone, remembering its offset.
    static KTDateTime LocalFromUtc(const KTDateTime& utc);

private:
    // An invalid value remembers no offset and has the least of all ticks.
    [[nodiscard]] bool ByFields(const KTDateTime& other) const
    {
        return offset == noOffset || other.offset == noOffset;
    }
    [[nodiscard]] std::int64_t Since(const KTDateTime& other) const { return (*this - other).TotalMicroseconds(); }

    static constexpr std::int64_t invalidTicks = INT64_MIN;
    static constexpr std::int32_t noOffset = INT32_MIN;

    std::int64_t ticks = invalidTicks;  // microseconds of the calendar fields since 1970-01-01
    std::int32_t offset = noOffset;     // seconds east of UTC, for values of LTC
};

/// 28 to 31; 0 for an invalid date.
int DaysOfMonth(const KTDateTime& date);

/// RFC 822 date with a four-digit year and English names: "Thu, 15 Mar 2007 12:30:45 GMT", or the local offset ("+0100")
/// when `gmt` is false. Replaces `out`, and returns it; empty for an invalid date.
KTWideString& DateTime2RFC822(KTWideString& out, const KTDateTime& date, bool gmt);

/// "DDMMYYYYhhmmss", followed by three digits with `milliseconds`, or by six with `microseconds` instead. Replaces `out`;
/// false, with an empty text, for an invalid date.
bool DateTime2String(KTNarrowString& out, const KTDateTime& date, bool milliseconds, bool microseconds);
