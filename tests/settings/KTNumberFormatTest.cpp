#include "host/KTNumberFormat.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>

namespace
{
std::string Narrowed(const KTWideString& wide)
{
    std::string text;
    for (int i = 0; i < wide.Length(); ++i) text += static_cast<char>(wide.Str()[i]);
    return text;
}

std::string Double(double value, int integerDigits = -1, int decimalDigits = -1, bool group = false,
                   bool leadingZerosInteger = false, bool leadingZerosDecimal = false)
{
    KTWideString out(L"what was there before");
    KTEditTemplateWnd::FormatDouble(out, value, integerDigits, decimalDigits, group, leadingZerosInteger,
                                    leadingZerosDecimal);
    return Narrowed(out);
}

std::string Number(double value, int decimals, bool group = false)
{
    KTWideString out(L"what was there before");
    const int length = FormatNumber(out, value, decimals, group);
    EXPECT_EQ(length, out.Length());
    return Narrowed(out);
}

// Gives the separators back at the end of a test.
struct LocaleGuard
{
    KTLocaleInformation before = LocaleInformationWide();
    ~LocaleGuard() { LocaleInformationWide() = before; }
};

// The same numbers with nothing but the C library's exact printing and pencil and paper: the digits before and behind the
// point as texts.
struct Pencil
{
    std::string integer;
    std::string fraction;
    bool negative = false;

    explicit Pencil(double value) : negative(value < 0)
    {
        char text[64];
        (void)std::snprintf(text, sizeof text, "%.14e", std::fabs(value));
        const char* const e = std::strchr(text, 'e');
        const int exponent = std::atoi(e + 1);
        std::string digits = text[0] + std::string(static_cast<const char*>(text) + 2, e);
        if (exponent < 0) digits.insert(0, static_cast<std::size_t>(-exponent), '0');
        const std::size_t point = exponent < 0 ? 1 : static_cast<std::size_t>(exponent) + 1;
        if (digits.size() < point) digits.append(point - digits.size(), '0');
        integer = digits.substr(0, point);
        fraction = digits.substr(point);
    }

    void Round(std::size_t decimals)
    {
        if (fraction.size() <= decimals) return;
        const bool up = fraction[decimals] >= '5';
        fraction.resize(decimals);
        if (!up) return;
        std::string all = '0' + integer + fraction;
        std::size_t i = all.size();
        while (all[--i] == '9') all[i] = '0';
        ++all[i];
        integer = all.substr(0, integer.size() + 1);
        fraction = all.substr(integer.size());
    }

    std::string Text(std::size_t pad, bool group, std::size_t zeros)
    {
        while (!fraction.empty() && fraction.back() == '0') fraction.pop_back();
        while (integer.size() > 1 && integer.front() == '0') integer.erase(0, 1);
        if (integer == "0" && fraction.empty()) negative = false;
        while (fraction.size() < zeros) fraction += '0';
        while (integer.size() < pad) integer.insert(0, 1, '0');
        if (group)
            for (std::size_t i = integer.size(); i > 3; i -= 3) integer.insert(i - 3, 1, ',');
        return (negative ? "-" : "") + integer + (fraction.empty() ? "" : '.' + fraction);
    }
};

// Numbers of the kinds that meet in a plant, and any bit pattern.
rc::Gen<double> Numbers()
{
    const auto decimals = rc::gen::apply(
        [](std::int64_t digits, int places) { return static_cast<double>(digits) / std::pow(10.0, places); },
        rc::gen::inRange<std::int64_t>(-1000000000000, 1000000000000), rc::gen::inRange(0, 13));
    const auto halves = rc::gen::apply([](std::int64_t digits, int places)
                                       { return static_cast<double>(digits * 10 + 5) / std::pow(10.0, places); },
                                       rc::gen::inRange<std::int64_t>(-100000, 100000), rc::gen::inRange(0, 9));
    const auto bits = rc::gen::map(rc::gen::arbitrary<std::uint64_t>(),
                                   [](std::uint64_t pattern)
                                   {
                                       double value = 0;
                                       std::memcpy(&value, &pattern, sizeof value);
                                       return std::isfinite(value) ? value : 0.0;
                                   });
    // Seventeen digits: where rounding to fifteen and rounding to the place can go different ways.
    const auto odd = rc::gen::apply(
        [](std::int64_t a, std::int64_t b) { return static_cast<double>(a) / static_cast<double>(b); },
        rc::gen::inRange<std::int64_t>(-100000000, 100000000), rc::gen::inRange<std::int64_t>(1, 1000000));
    return rc::gen::oneOf(decimals, halves, bits, odd);
}
}  // namespace

TEST(FormatDouble, GivesTheShortestTextWithoutDecimalDigits)
{
    const struct
    {
        double value;
        const char* text;
    } rows[] = {
        {0.0, "0"},
        {-0.0, "0"},
        {1.0, "1"},
        {-1.0, "-1"},
        {12.5, "12.5"},
        {0.1, "0.1"},
        {0.1 + 0.2, "0.3"},
        {1.0 / 3.0, "0.333333333333333"},
        {2.0 / 3.0, "0.666666666666667"},
        {100.0, "100"},
        {123456789012345.0, "123456789012345"},
        {999999999999999.0, "999999999999999"},
        {999999999999999.875, "1000000000000000"},  // below 1e15, and its fifteen digits are those of 1e15
        {99999999999999.95, "100000000000000"},
        {1e15, "1e+15"},
        {-1.5e15, "-1.5e+15"},
        {1e16, "1e+16"},
        {1.7976931348623157e308, "1.79769313486232e+308"},
        {0.000001, "0.000001"},
        {0.00000123, "0.00000123"},
        {-0.000001, "-0.000001"},
        {0.0000009, "9e-07"},
        {1e-7, "1e-07"},
        {1.25e-100, "1.25e-100"},
        {5e-324, "5e-324"},
        {0.0001234567890123456, "0.000123456789012346"},
        {-7.0 / 9.0, "-0.777777777777778"},
    };
    for (const auto& row : rows) EXPECT_EQ(Double(row.value), row.text);
}

TEST(FormatDouble, RoundsHalvesAwayFromZeroOnTheNumberAsItIsWritten)
{
    const struct
    {
        double value;
        int decimals;
        const char* text;
    } rows[] = {
        {0.5, 0, "1"},
        {1.5, 0, "2"},
        {2.5, 0, "3"},
        {-0.5, 0, "-1"},
        {-2.5, 0, "-3"},
        {0.49999, 0, "0"},
        {-0.4, 0, "0"},
        {-0.004, 2, "0"},
        {-0.005, 2, "-0.01"},
        {2.675, 2, "2.68"},  // a little less in binary
        {1.005, 2, "1.01"},  // a little less in binary
        {1.115, 2, "1.12"},  // a little more in binary
        {0.285, 2, "0.29"},
        {8.345, 2, "8.35"},
        {9.995, 2, "10"},
        {99.95, 1, "100"},
        {0.045, 1, "0"},
        {0.05, 1, "0.1"},
        {0.0999, 1, "0.1"},
        {0.4999999999999999, 0, "1"},  // fifteen digits make it 0.5 before the half goes up
        {0.499999999999999, 0, "0"},
        {1234.5678, 2, "1234.57"},
        {1234.5, 5, "1234.5"},
        {1234.0, 3, "1234"},
        {1e20, 2, "100000000000000000000"},
        {1.234567890123456e20, 0, "123456789012346000000"},
        {1e-9, 3, "0"},
        {1e-9, 9, "0.000000001"},
        {5e-324, 3, "0"},
        {0.6, 0, "1"},
    };
    for (const auto& row : rows) EXPECT_EQ(Double(row.value, -1, row.decimals), row.text) << row.decimals;
}

TEST(FormatDouble, PadsAndGroups)
{
    const struct
    {
        double value;
        int integer;
        int decimals;
        bool group, zerosInteger, zerosDecimal;
        const char* text;
    } rows[] = {
        {5, 3, 0, false, true, false, "005"},
        {-5, 3, 0, false, true, false, "-005"},
        {0, 3, -1, false, true, false, "000"},
        {0, 1, -1, false, true, false, "0"},
        {0.25, 2, -1, false, true, false, "00.25"},
        {12345, 3, 0, false, true, false, "12345"},  // digits are never cut off
        {5, 3, 0, false, false, false, "5"},
        {5, 0, 0, false, true, false, "5"},
        {5, -1, 0, false, true, false, "5"},
        {1234567.891, -1, 2, true, false, false, "1,234,567.89"},
        {123, -1, 0, true, false, false, "123"},
        {-123, -1, 0, true, false, false, "-123"},
        {1000, -1, 0, true, false, false, "1,000"},
        {-999999.5, -1, 0, true, false, false, "-1,000,000"},
        {5, 7, 0, true, true, false, "0,000,005"},
        {1234, 6, 1, true, true, true, "001,234.0"},
        {1e15, -1, 0, true, false, false, "1,000,000,000,000,000"},
        {5, -1, 2, false, false, true, "5.00"},
        {5.1, -1, 3, false, false, true, "5.100"},
        {5.1, -1, 3, false, false, false, "5.1"},
        {5.1, -1, 0, false, false, true, "5"},
        {5.1, -1, -1, false, false, true, "5.1"},
        {-0.001, 2, 2, false, true, true, "00.00"},
        {0.05, -1, 1, false, false, true, "0.1"},
        {9.96, 2, 1, false, true, true, "10.0"},
        {0.000001, -1, 9, false, false, true, "0.000001000"},
        {2e15, 3, -1, true, true, false, "002e+15"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Double(row.value, row.integer, row.decimals, row.group, row.zerosInteger, row.zerosDecimal),
                  row.text);
}

TEST(FormatDouble, NamesWhatIsNoNumber)
{
    const double infinity = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const int decimals : {-1, 0, 3})
    {
        EXPECT_EQ(Double(nan, 5, decimals, true, true, true), "NaN");
        EXPECT_EQ(Double(-nan, 5, decimals, true, true, true), "NaN");
        EXPECT_EQ(Double(infinity, 5, decimals, true, true, true), "Inf");
        EXPECT_EQ(Double(-infinity, 5, decimals, true, true, true), "-Inf");
    }
}

TEST(FormatDouble, UsesTheSeparatorsOfTheSettings)
{
    const LocaleGuard guard;
    LocaleInformationWide().decimalSeparator = L',';
    LocaleInformationWide().thousandSeparator = L'\u00A0';
    KTWideString out;
    KTEditTemplateWnd::FormatDouble(out, -1234567.5, -1, 2, true, false, true);
    EXPECT_TRUE(out == L"-1\u00A0234\u00A0567,50");
    EXPECT_EQ(FormatNumber(out, 0.5, -3, false), 3);
    EXPECT_TRUE(out == L"0,5");
}

TEST(FormatDouble, TakesMorePaddingThanAnybodyReads)
{
    EXPECT_EQ(Double(1, 200, 300, false, true, true), std::string(199, '0') + "1." + std::string(300, '0'));
    EXPECT_EQ(Double(1, std::numeric_limits<int>::max(), 0, false, true).size(), 65535u);
    EXPECT_EQ(Double(1, 0, std::numeric_limits<int>::max(), false, false, true).size(), 65537u);
    EXPECT_EQ(Double(1.5, std::numeric_limits<int>::min(), std::numeric_limits<int>::min(), false, true, true), "1.5");
    EXPECT_EQ(Double(-1.7976931348623157e308, -1, 2, true, false, true).size(), 1u + 309 + 102 + 3);
}

RC_GTEST_PROP(FormatDouble, AgreesWithPencilAndPaper, ())
{
    const double value = *Numbers();
    const int decimals = *rc::gen::inRange(0, 20);
    const int pad = *rc::gen::inRange(0, 12);
    const bool group = *rc::gen::arbitrary<bool>();
    const bool zeros = *rc::gen::arbitrary<bool>();
    Pencil pencil(value);
    pencil.Round(static_cast<std::size_t>(decimals));
    RC_ASSERT(Double(value, pad, decimals, group, pad > 0, zeros) ==
              pencil.Text(static_cast<std::size_t>(pad), group, zeros ? static_cast<std::size_t>(decimals) : 0));
}

RC_GTEST_PROP(FormatDouble, GivesTheFifteenDigitsOfTheCLibraryWithoutDecimalDigits, ())
{
    const double value = *Numbers();
    const double magnitude = std::fabs(value);
    if (value == 0.0 || (magnitude >= 1e-6 && magnitude < 1e15))
        RC_ASSERT(Double(value) == Pencil(value).Text(0, false, 0));
    else if (magnitude >= std::numeric_limits<double>::min())  // smaller ones hold fewer digits and need fewer
    {
        char text[64];
        (void)std::snprintf(text, sizeof text, "%.15g", value);
        RC_ASSERT(Double(value) == text);
    }
}

// The sixteenth digit decides here, and the number lies a hair beside what its shortest text says.
TEST(FormatDouble, RoundsToFifteenDigitsFromTheExactValue)
{
    std::uint64_t state = 1;
    for (int i = 0; i < 200000; ++i)
    {
        state = state * 6364136223846793005ULL + 1442695040888963407ULL;
        char text[32];
        (void)std::snprintf(text, sizeof text, "0.%015llu5", static_cast<unsigned long long>(state >> 14));
        const double value = std::strtod(text, nullptr);
        ASSERT_EQ(Double(value), Pencil(value).Text(0, false, 0)) << text;
    }
}

TEST(FormatNumber, DropsTrailingZerosForANegativeCountAndKeepsThemOtherwise)
{
    const struct
    {
        double value;
        int decimals;
        bool group;
        const char* text;
    } rows[] = {
        {1.5, -3, false, "1.5"},
        {1.0, -3, false, "1"},
        {0.0, -3, false, "0"},
        {-0.0, -3, false, "0"},
        {1.2345, -3, false, "1.235"},
        {-1.2345, -3, false, "-1.235"},
        {0.0004, -3, false, "0"},
        {-0.0004, -3, false, "0"},
        {1e15, -3, false, "1000000000000000"},
        {1234567.891, -3, false, "1234567.891"},
        {1234567.891, -3, true, "1,234,567.891"},
        {1.5, 3, false, "1.500"},
        {1.0, 0, false, "1"},
        {-0.4, 0, false, "0"},
        {-0.0004, 3, false, "0.000"},
        {2.5, 0, false, "3"},
        {1234.5, 2, true, "1,234.50"},
    };
    for (const auto& row : rows) EXPECT_EQ(Number(row.value, row.decimals, row.group), row.text);
    EXPECT_EQ(Number(std::nan(""), 3), "NaN");
    EXPECT_EQ(Number(-std::numeric_limits<double>::infinity(), -3), "-Inf");
    EXPECT_EQ(Number(1.5, std::numeric_limits<int>::min()), "1.5");
}

TEST(ParseFormat, SplitsAStoredFormat)
{
    const struct
    {
        const wchar_t* format;
        int integer, decimals;
        bool zerosInteger, zerosDecimal;
    } rows[] = {
        {L"", -1, 3, false, false},     {L".", -1, -1, false, false},  {L"02.3", 2, 3, true, false},
        {L"2.03", 2, 3, false, true},   {L"05.02", 5, 2, true, true},  {L".0", -1, 0, false, false},
        {L".00", -1, 0, false, true},   {L"0.", 0, -1, false, false},  {L"00.", 0, -1, true, false},
        {L"9.9", 9, 9, false, false},   {L":.", 10, -1, false, false}, {L"0:.", 10, -1, true, false},
        {L"0;.01", 11, 1, true, true},  {L"<.5", 12, 5, false, false}, {L"5", 5, -1, false, false},
        {L"05", 5, -1, true, false},    {L"0", 0, -1, false, false},   {L".3.4", -1, 3, false, false},
        {L"25.61", 2, 6, false, false},  // one digit counts
    };
    for (const auto& row : rows)
    {
        int integer = 77;
        int decimals = 77;
        bool zerosInteger = !row.zerosInteger;
        bool zerosDecimal = !row.zerosDecimal;
        KTCardFormule::ParseFormat(row.format, integer, decimals, zerosInteger, zerosDecimal);
        const std::string shown(row.format, row.format + KTWideChar::Length(row.format));
        EXPECT_EQ(integer, row.integer) << shown;
        EXPECT_EQ(decimals, row.decimals) << shown;
        EXPECT_EQ(zerosInteger, row.zerosInteger) << shown;
        EXPECT_EQ(zerosDecimal, row.zerosDecimal) << shown;
    }
}

TEST(ParseFormat, ReadsWhatTheArgumentEditorStores)
{
    for (int integerDigits = 0; integerDigits <= 12; ++integerDigits)
        for (int decimalDigits = -1; decimalDigits <= 9; ++decimalDigits)
            for (const bool zerosInteger : {false, true})
                for (const bool zerosDecimal : {false, true})
                {
                    std::wstring stored;
                    if (integerDigits > 0)
                    {
                        if (zerosInteger) stored += L'0';
                        stored += static_cast<wchar_t>(L'0' + integerDigits);
                    }
                    stored += L'.';
                    if (decimalDigits >= 0)
                    {
                        if (zerosDecimal) stored += L'0';
                        stored += static_cast<wchar_t>(L'0' + decimalDigits);
                    }
                    int integer = 77;
                    int decimals = 77;
                    bool leadingInteger = false;
                    bool leadingDecimal = false;
                    KTCardFormule::ParseFormat(stored.c_str(), integer, decimals, leadingInteger, leadingDecimal);
                    EXPECT_EQ(integer, integerDigits > 0 ? integerDigits : -1);
                    EXPECT_EQ(decimals, decimalDigits);
                    EXPECT_EQ(leadingInteger, zerosInteger && integerDigits > 0);
                    EXPECT_EQ(leadingDecimal, zerosDecimal && decimalDigits >= 0);
                }
}
