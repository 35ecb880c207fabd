// Numbers as people read them.
#pragma once

#include "host/KTString.h"

/// Separators of the settings. Threads: set once at start, then read from any thread.
struct KTLocaleInformation
{
    wchar_t decimalSeparator = L'.';
    wchar_t thousandSeparator = L',';
    wchar_t dateSeparator = L'-';
    wchar_t timeSeparator = L':';
    enum class DateOrder
    {
        mdy,
        dmy,
        ymd
    } dateOrder = DateOrder::ymd;
    int firstDayOfWeek = 2;  // as KTDateTime::DayOfWeek: 1 Sunday, 2 Monday
};
KTLocaleInformation& LocaleInformationWide();

/// Localised number. Negative `decimals`: at most that many, trailing zeros dropped; otherwise exactly that many. `group`
/// adds thousand separators. Rounds half away from zero on the value as written with 15 significant digits. Replaces
/// `out`; returns the number of characters.
int FormatNumber(KTWideString& out, double value, int decimals, bool group);

struct KTEditTemplateWnd
{
    /// `decimalDigits` -1: the shortest text of at most 15 significant digits, from 1e-6 to below 1e15 without exponent and
    /// outside as "1.5e+15", "9e-07". 0 or more: rounds as FormatNumber, never with an exponent; trailing zeros stay only
    /// with `leadingZerosDecimal`. `integerDigits` above 0 with `leadingZerosInteger` pads the integer part. Digits are
    /// never cut off; neither part is padded to more than 65535. Negative zero is zero; "NaN", "Inf", "-Inf". Replaces
    /// `out`.
    static void FormatDouble(KTWideString& out, double value, int integerDigits, int decimalDigits,
                             bool thousandSeparator, bool leadingZerosInteger, bool leadingZerosDecimal);
};

struct KTCardFormule
{
    /// Splits a stored report format: integer part before the `.`, decimal part after it; in each a first `0` followed by
    /// another character sets leading zeros, and the digit is that character's code less the code of `0`. An empty part
    /// is -1; an empty format gives -1, 3, false, false.
    static void ParseFormat(const wchar_t* format, int& integerDigits, int& decimalDigits, bool& leadingZerosInteger,
                            bool& leadingZerosDecimal);
};
