#include "host/KTNumberFormat.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

namespace
{
constexpr int mostDigits = 15;         // significant ones; what a double holds of any decimal number
constexpr int mostPadding = 65535;     // digits; a stored format can't ask for more
constexpr double fixedFrom = 1e-6;     // below and
constexpr double fixedBelow = 1e15;    // from here on the shortest text has an exponent
constexpr std::size_t usualSize = 64;  // characters

// A magnitude in decimal: 0.d1d2d3... times ten to the power of `point`. Neither the first nor the last digit is 0; zero has
// no digits.
struct Decimal
{
    char digits[20];
    int count = 0;
    int point = 0;

    void DropZeros()
    {
        while (count > 0 && digits[count - 1] == '0') --count;
        if (count == 0) point = 0;
    }

    // Halves go away from zero.
    void KeepDigits(int keep)
    {
        if (keep >= count) return;
        const bool up = keep >= 0 && digits[keep] >= '5';
        count = std::max(keep, 0);
        if (up)
        {
            while (count > 0 && digits[count - 1] == '9') --count;
            if (count > 0)
                ++digits[count - 1];
            else
            {
                digits[count++] = '1';
                ++point;
            }
        }
        DropZeros();
    }
};

// Reads "d.ddde+xx".
Decimal FromScientific(const char* text, const char* end)
{
    Decimal decimal;
    for (; text != end && *text != 'e'; ++text)
        if (*text != '.') decimal.digits[decimal.count++] = *text;
    ++text;
    const bool negative = *text++ == '-';
    int exponent = 0;
    for (; text != end; ++text) exponent = exponent * 10 + (*text - '0');
    decimal.point = (negative ? -exponent : exponent) + 1;
    decimal.DropZeros();
    return decimal;
}

Decimal FromWhole(std::uint64_t magnitude)
{
    Decimal decimal;
    decimal.count = static_cast<int>(
        std::to_chars(decimal.digits, decimal.digits + sizeof decimal.digits, magnitude).ptr - decimal.digits);
    decimal.point = decimal.count;
    decimal.DropZeros();
    return decimal;
}

// Most values of a plant are whole or have few decimals, and need no search for their shortest text. Where a whole number
// over a million is the number again, that decimal of at most 15 digits is what it stands for: no other one of so few
// digits lies nearer.
bool FromFewDecimals(double magnitude, Decimal& decimal)
{
    constexpr double million = 1e6;  // exact, so that the division rounds once
    if (magnitude >= fixedBelow) return false;
    if (const auto whole = static_cast<std::uint64_t>(magnitude); static_cast<double>(whole) == magnitude)
    {
        decimal = FromWhole(whole);
        return true;
    }
    if (magnitude >= fixedBelow / million) return false;
    const auto millionths = static_cast<std::uint64_t>(std::llround(magnitude * million));
    if (static_cast<double>(millionths) / million != magnitude) return false;
    decimal = FromWhole(millionths);
    decimal.point -= 6;
    return true;
}

// The finite magnitude rounded to 15 significant digits, as if from its exact value.
Decimal ToDecimal(double magnitude)
{
    Decimal decimal;
    if (FromFewDecimals(magnitude, decimal)) return decimal;
    char text[32];
    const auto shortest = std::to_chars(text, text + sizeof text, magnitude, std::chars_format::scientific);
    decimal = FromScientific(text, shortest.ptr);
    // The shortest text that gives the number back is the nearest to it of that length. Rounding it once more goes wrong
    // only where it lies exactly between two results while the number itself doesn't: a 16th and last digit 5.
    if (decimal.count == mostDigits + 1 && decimal.digits[mostDigits] == '5')
    {
        const auto exact =
            std::to_chars(text, text + sizeof text, magnitude, std::chars_format::scientific, mostDigits - 1);
        return FromScientific(text, exact.ptr);
    }
    decimal.KeepDigits(mostDigits);
    return decimal;
}

struct Layout
{
    int integerDigits = 1;  // at least so many, filled up with zeros
    int decimals = -1;      // exactly so many, filled up with zeros; -1: as many as there are
    bool group = false;
};

// An upper bound of the characters that Write needs.
std::size_t SizeFor(const Decimal& decimal, const Layout& layout)
{
    const int integer = std::max(decimal.point, layout.integerDigits);
    const int fraction = std::max(layout.decimals, decimal.count - decimal.point);
    return static_cast<std::size_t>(integer + integer / 3 + std::max(fraction, 0) + 10);  // sign, separator, exponent
}

wchar_t* Write(wchar_t* out, const Decimal& decimal, const Layout& layout)
{
    const KTLocaleInformation& locale = LocaleInformationWide();
    // The digit that stands `place` places behind the first one of the number; there are zeros on both sides of it.
    const auto digit = [&](int place)
    { return place >= 0 && place < decimal.count ? static_cast<wchar_t>(decimal.digits[place]) : L'0'; };

    const int integer = std::max(decimal.point, layout.integerDigits);
    for (int left = integer; left > 0; --left)
    {
        *out++ = digit(decimal.point - left);
        if (layout.group && left > 1 && left % 3 == 1) *out++ = locale.thousandSeparator;
    }
    const int fraction = layout.decimals >= 0 ? layout.decimals : decimal.count - decimal.point;
    if (fraction > 0) *out++ = locale.decimalSeparator;
    for (int place = 0; place < fraction; ++place) *out++ = digit(decimal.point + place);
    return out;
}

// "e+15", "e-07": at least two digits.
wchar_t* WriteExponent(wchar_t* out, int exponent)
{
    *out++ = L'e';
    *out++ = exponent < 0 ? L'-' : L'+';
    const int magnitude = std::abs(exponent);
    if (magnitude >= 100) *out++ = static_cast<wchar_t>(L'0' + magnitude / 100);
    *out++ = static_cast<wchar_t>(L'0' + magnitude / 10 % 10);
    *out++ = static_cast<wchar_t>(L'0' + magnitude % 10);
    return out;
}

void WriteNumber(KTWideString& out, Decimal decimal, bool negative, bool scientific, const Layout& layout)
{
    const int exponent = decimal.point - 1;
    if (scientific) decimal.point = 1;

    wchar_t usual[usualSize];
    std::vector<wchar_t> large;  // for magnitudes and paddings that nobody reads
    wchar_t* begin = usual;
    if (const std::size_t size = SizeFor(decimal, layout); size > usualSize)
    {
        large.resize(size);
        begin = large.data();
    }
    wchar_t* end = begin;
    if (negative && decimal.count > 0) *end++ = L'-';
    end = Write(end, decimal, layout);
    if (scientific) end = WriteExponent(end, exponent);
    out.Assign(begin, static_cast<int>(end - begin));
}

// A digit of a stored format, with a first 0 for leading zeros; -1 for an empty part.
int ParsePart(const wchar_t* part, const wchar_t* end, bool& leadingZeros)
{
    leadingZeros = end - part >= 2 && *part == L'0';
    if (part == end) return -1;
    return static_cast<int>(leadingZeros ? part[1] : part[0]) - L'0';
}
}  // namespace

KTLocaleInformation& LocaleInformationWide()
{
    static KTLocaleInformation information;
    return information;
}

int FormatNumber(KTWideString& out, double value, int decimals, bool group)
{
    const int digits = decimals >= 0 ? decimals : -std::max(decimals, -mostPadding);
    KTEditTemplateWnd::FormatDouble(out, value, 0, digits, group, false, decimals >= 0);
    return out.Length();
}

void KTEditTemplateWnd::FormatDouble(KTWideString& out, double value, int integerDigits, int decimalDigits,
                                     bool thousandSeparator, bool leadingZerosInteger, bool leadingZerosDecimal)
{
    if (!std::isfinite(value))
    {
        out = std::isnan(value) ? L"NaN" : value < 0 ? L"-Inf" : L"Inf";
        return;
    }
    const double magnitude = std::fabs(value);
    Decimal decimal = ToDecimal(magnitude);
    const int decimals = std::min(decimalDigits, mostPadding);
    if (decimals >= 0) decimal.KeepDigits(decimal.point + decimals);

    Layout layout;
    layout.group = thousandSeparator;
    if (leadingZerosInteger) layout.integerDigits = std::clamp(integerDigits, 1, mostPadding);
    if (leadingZerosDecimal && decimals >= 0) layout.decimals = decimals;
    const bool scientific = decimals < 0 && decimal.count > 0 && (magnitude < fixedFrom || magnitude >= fixedBelow);
    WriteNumber(out, decimal, value < 0, scientific, layout);
}

void KTCardFormule::ParseFormat(const wchar_t* format, int& integerDigits, int& decimalDigits,
                                bool& leadingZerosInteger, bool& leadingZerosDecimal)
{
    const wchar_t* const end = format + KTWideChar::Length(format);
    if (format == end)
    {
        integerDigits = -1;
        decimalDigits = 3;
        leadingZerosInteger = false;
        leadingZerosDecimal = false;
        return;
    }
    const wchar_t* const point = std::find(format, end, L'.');
    integerDigits = ParsePart(format, point, leadingZerosInteger);
    decimalDigits = ParsePart(point == end ? end : point + 1, end, leadingZerosDecimal);
}
