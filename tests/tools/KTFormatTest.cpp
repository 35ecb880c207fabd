#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstdio>
#include <cwchar>
#include <string>

#include "host/KTText.h"

namespace
{
template <class... Arguments>
std::wstring Wide(const wchar_t* format, Arguments... arguments)
{
    wchar_t out[256];
    const int written = KTFormat(out, 256, format, arguments...);
    EXPECT_EQ(out[written], L'\0');
    return std::wstring(out, static_cast<std::size_t>(written));
}

TEST(KTFormat, TakesWideTextForS)
{
    EXPECT_EQ(Wide(L"event?id=%s?", L"{6F9619FF}"), L"event?id={6F9619FF}?");
    EXPECT_EQ(Wide(L"[%6s|%-6s|%.2s|%-5.1s|%.0s]", L"ab", L"cd", L"efg", L"hij", L"k"), L"[    ab|cd    |ef|h    |]");
    EXPECT_EQ(Wide(L"%ls", L"long is the same"), L"long is the same");
    EXPECT_EQ(Wide(L"%s", static_cast<const wchar_t*>(nullptr)), L"(null)");
    EXPECT_EQ(Wide(L"%s", L"caf\u00E9 \u4E2D"), L"caf\u00E9 \u4E2D");
}

TEST(KTFormat, WritesIntegersAsTheCLibraryDoes)
{
    EXPECT_EQ(Wide(L"month%d", 12), L"month12");
    EXPECT_EQ(Wide(L"/day?color=%06X?", 0xABCU), L"/day?color=000ABC?");
    EXPECT_EQ(Wide(L"%d %i %u %x", -5, 7, 4'000'000'000U, 0xBEEFU), L"-5 7 4000000000 beef");
    EXPECT_EQ(
        Wide(L"%lld %llu %ld %lx", -9'223'372'036'854'775'807LL - 1, 18'446'744'073'709'551'615ULL, -1L, 0xFFFFFFFFFUL),
        L"-9223372036854775808 18446744073709551615 -1 fffffffff");
    EXPECT_EQ(Wide(L"[%5d|%-5d|%05d|%.3d|%6.3d|%06.3d|%-05d]", 42, 42, -42, 7, 7, 7, 42),
              L"[   42|42   |-0042|007|   007|   007|42   ]");
    EXPECT_EQ(Wide(L"[%+d|% d|%+d|%.0d]", 5, 5, -5, 0), L"[+5| 5|-5|]");
    EXPECT_EQ(Wide(L"[%*d|%-*d|%.*d]", 4, 1, 4, 2, 3, 3), L"[   1|2   |003]");
    EXPECT_EQ(Wide(L"[%*d]", -4, 1), L"[1   ]");
}

TEST(KTFormat, WritesCharactersAndThePercentSign)
{
    EXPECT_EQ(Wide(L"%c%c 100%%", L'\u00E9', L'x'), L"\u00E9x 100%");
    EXPECT_EQ(Wide(L"[%3c|%-3c]", L'a', L'b'), L"[  a|b  ]");
}

TEST(KTFormat, LeavesWhatItDoesNotKnow)
{
    EXPECT_EQ(Wide(L"%q %f %"), L"%q %f %");
    EXPECT_EQ(Wide(L"50% of"), L"50% of") << "a lone sign before a letter that is no type";
    EXPECT_EQ(Wide(L""), L"");
}

TEST(KTFormat, CutsOffWhatDoesNotFit)
{
    wchar_t wide[5] = {L'x', L'x', L'x', L'x', L'x'};
    EXPECT_EQ(KTFormat(wide, 5, L"%s", L"temperature"), 4);
    EXPECT_STREQ(wide, L"temp");
    EXPECT_EQ(KTFormat(wide, 5, L"%s", L"abcd"), 4);
    EXPECT_STREQ(wide, L"abcd");
    EXPECT_EQ(KTFormat(wide, 1, L"abc"), 0);
    EXPECT_STREQ(wide, L"");
    wide[0] = L'x';
    EXPECT_EQ(KTFormat(wide, 0, L"abc"), 0);
    EXPECT_EQ(KTFormat(wide, -1, L"abc"), 0);
    EXPECT_EQ(wide[0], L'x') << "no room, not even for the terminator";

    char narrow[5];
    EXPECT_EQ(KTFormat(narrow, 5, "%s", "temperature"), 4);
    EXPECT_STREQ(narrow, "temp");
    EXPECT_EQ(KTFormat(narrow, 5, "%d", 12), 2);
    EXPECT_STREQ(narrow, "12");
    EXPECT_EQ(KTFormat(narrow, 1, "%s", "abc"), 0);
    EXPECT_STREQ(narrow, "");
    narrow[0] = 'x';
    EXPECT_EQ(KTFormat(narrow, 0, "%s", "abc"), 0);
    EXPECT_EQ(narrow[0], 'x');
}

TEST(KTFormat, AnAbsurdWidthNeitherHangsNorOverruns)
{
    wchar_t out[8];
    EXPECT_EQ(KTFormat(out, 8, L"%99999999999999d", 1), 7);
    EXPECT_STREQ(out, L"       ");
    EXPECT_EQ(KTFormat(out, 8, L"%.99999999999999d", 1), 7);
    EXPECT_STREQ(out, L"0000000");
}

// Against the C library, for the conversions that mean the same there.
RC_GTEST_PROP(KTFormat, AgreesWithTheNarrowFormOnNumbers, ())
{
    std::string format = "%";
    for (const char flag : {'-', '0', '+', ' '})
        if (*rc::gen::arbitrary<bool>()) format += flag;
    const int width = *rc::gen::inRange(0, 20);
    if (width > 0) format += std::to_string(width);
    const int precision = *rc::gen::inRange(-1, 15);
    if (precision >= 0) format += "." + std::to_string(precision);
    format += "ll";
    const char type = *rc::gen::element('d', 'i', 'u', 'x', 'X');
    // C leaves a sign before an unsigned number undefined.
    if (type != 'd' && type != 'i') RC_PRE(format.find_first_of("+ ") == std::string::npos);
    format += type;
    const auto value = *rc::gen::arbitrary<long long>();

    char expected[128];
    std::snprintf(expected, sizeof expected, format.c_str(), value);  // NOLINT: the format is the test's subject
    const std::wstring wideFormat(format.begin(), format.end());
    wchar_t out[128];
    KTFormat(out, 128, wideFormat.c_str(), value);
    RC_ASSERT(std::wstring(out) == std::wstring(expected, expected + std::char_traits<char>::length(expected)));
}
}  // namespace
