#include "host/KTText.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <string>
#include <vector>

namespace
{
std::string Narrow(const std::wstring& wide)
{
    KTNarrowString out("old");
    KTWideString in;
    in.Assign(wide.data(), static_cast<int>(wide.size()));
    Utf16ToUtf8(out, in);
    return {out.Str(), static_cast<std::size_t>(out.Length())};
}

std::wstring Wide(const std::string& narrow)
{
    KTWideString out(L"old");
    KTNarrowString in;
    in.Assign(narrow.data(), static_cast<int>(narrow.size()));
    Utf8ToUtf16(out, in);
    return {out.Str(), static_cast<std::size_t>(out.Length())};
}

std::string Escaped(const std::string& text)
{
    KTNarrowString in;
    in.Assign(text.data(), static_cast<int>(text.size()));
    KTNarrowString out("old");
    Text2Xml(out, in);
    return {out.Str(), static_cast<std::size_t>(out.Length())};
}

std::string Unescaped(const std::string& text)
{
    KTNarrowString out("old");
    Xml2Text(out, KTNarrowString(text.c_str()));
    return {out.Str(), static_cast<std::size_t>(out.Length())};
}

std::wstring Unescaped(const std::wstring& text)
{
    KTWideString out(L"old");
    Xml2Text(out, KTWideString(text.c_str()));
    return {out.Str(), static_cast<std::size_t>(out.Length())};
}

TEST(KTText, GoodTextIsTheSameInBothForms)
{
    const struct
    {
        std::string narrow;
        std::wstring wide;
    } rows[] = {
        {"", L""},
        {"Pump 7", L"Pump 7"},
        {"\x7F\xC2\x80\xDF\xBF", L"\x7F\x80\x7FF"},
        {"\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBD", L"\x800\xD7FF\xE000\xFFFD"},
        {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", {0xD800, 0xDC00, 0xDBFF, 0xDFFF}},
        {std::string("a\0b", 3), std::wstring(L"a\0b", 3)},
    };
    for (const auto& r : rows)
    {
        EXPECT_EQ(Narrow(r.wide), r.narrow);
        EXPECT_EQ(Wide(r.narrow), r.wide);
    }
}

TEST(KTText, IllFormedWideTextBecomesTheReplacementCharacter)
{
    const struct
    {
        std::wstring wide;
        std::string narrow;
    } rows[] = {
        {{0xD800}, "\xEF\xBF\xBD"},  // alone at the end
        {{0xD800, L'a'},
         "\xEF\xBF\xBD"
         "a"},  // before something else
        {{0xDC00, L'a'},
         "\xEF\xBF\xBD"
         "a"},                                                       // a second half alone
        {{0xDC00, 0xD800}, "\xEF\xBF\xBD\xEF\xBF\xBD"},              // in the wrong order
        {{0xD800, 0xD83D, 0xDE00}, "\xEF\xBF\xBD\xF0\x9F\x98\x80"},  // the next pair is whole
        {{0x1F600}, "\xF0\x9F\x98\x80"},                             // one element above 16 bits
        {{0x110000}, "\xEF\xBF\xBD"},                                // no character
        {{static_cast<wchar_t>(0xFFFFFFFF)}, "\xEF\xBF\xBD"},
        {{0xD800, 0x1F600}, "\xEF\xBF\xBD\xF0\x9F\x98\x80"},
    };
    for (const auto& r : rows) EXPECT_EQ(Narrow(r.wide), r.narrow);
}

TEST(KTText, IllFormedUtf8BecomesOneReplacementForEachMaximalSubpart)
{
    const wchar_t R = 0xFFFD;
    const struct
    {
        const char* narrow;
        std::wstring wide;
    } rows[] = {
        {"\x80", {R}},  // a following byte alone
        {"\xBF"
         "a",
         {R, L'a'}},
        {"\xC0\xAF", {R, R}},  // overlong
        {"\xC1\xBF", {R, R}},
        {"\xE0\x80\xAF", {R, R, R}},
        {"\xE0\x9F\xBF", {R, R, R}},
        {"\xF0\x8F\xBF\xBF", {R, R, R, R}},
        {"\xED\xA0\x80", {R, R, R}},         // a surrogate
        {"\xF4\x90\x80\x80", {R, R, R, R}},  // above the last character
        {"\xF5\x80\x80\x80", {R, R, R, R}},
        {"\xFE\xFF", {R, R}},
        {"\xC3", {R}},  // cut at the end
        {"\xE2\x82", {R}},
        {"\xF0\x9F\x98", {R}},
        {"\xC3"
         "A",
         {R, L'A'}},  // cut by something else
        {"\xE2\x82"
         "A",
         {R, L'A'}},
        {"\xF0\x9F\x98"
         "A",
         {R, L'A'}},
        {"\xE2\xE2\x82\xAC", {R, 0x20AC}},
        // The row of the Unicode standard's own example.
        {"\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64", {L'a', R, R, R, L'b', R, L'c', R, R, L'd'}},
    };
    for (const auto& r : rows) EXPECT_EQ(Wide(r.narrow), r.wide);
}

RC_GTEST_PROP(KTText, WellFormedTextSurvivesTheRoundTrip, ())
{
    std::string narrow;
    for (const char32_t c : *rc::gen::container<std::vector<char32_t>>(rc::gen::oneOf(
             rc::gen::inRange<char32_t>(0, 0x80), rc::gen::inRange<char32_t>(0x80, 0xD800),
             rc::gen::inRange<char32_t>(0xE000, 0x10000), rc::gen::inRange<char32_t>(0x10000, 0x110000))))
    {
        if (c < 0x80)
            narrow += static_cast<char>(c);
        else if (c < 0x800)
            narrow += {static_cast<char>(0xC0 + c / 64), static_cast<char>(0x80 + c % 64)};
        else if (c < 0x10000)
            narrow += {static_cast<char>(0xE0 + c / 4096), static_cast<char>(0x80 + c / 64 % 64),
                       static_cast<char>(0x80 + c % 64)};
        else
            narrow += {static_cast<char>(0xF0 + c / 262144), static_cast<char>(0x80 + c / 4096 % 64),
                       static_cast<char>(0x80 + c / 64 % 64), static_cast<char>(0x80 + c % 64)};
    }
    const std::wstring wide = Wide(narrow);
    for (const wchar_t unit : wide) RC_ASSERT(unit >= 0 && unit <= 0xFFFF);
    RC_ASSERT(Narrow(wide) == narrow);
}

// Whatever the bytes: a result, and one that converts cleanly from then on.
RC_GTEST_PROP(KTText, HostileBytesGiveGoodText, (const std::string& bytes))
{
    const std::wstring once = Wide(bytes);
    RC_ASSERT(Wide(Narrow(once)) == once);
}

RC_GTEST_PROP(KTText, HostileWideElementsGiveGoodText, (const std::vector<std::uint32_t>& raw))
{
    std::wstring wide;
    for (const std::uint32_t value : raw)
        wide +=
            static_cast<wchar_t>(value % 3 == 0 ? value : (value % 3 == 1 ? 0xD800 + value % 0x800 : value % 0x10000));
    const std::string once = Narrow(wide);
    RC_ASSERT(Narrow(Wide(once)) == once);
}

TEST(KTText, LongTextsConvertToo)
{
    const std::wstring wide(1'000'000, 0x20AC);
    const std::string narrow = Narrow(wide);
    EXPECT_EQ(narrow.size(), 3'000'000U);
    EXPECT_EQ(Wide(narrow), wide);
    EXPECT_EQ(Escaped(std::string(100'000, '&')).size(), 500'000U);
    EXPECT_EQ(Unescaped(Escaped(std::string(100'000, '&'))), std::string(100'000, '&'));
}

TEST(KTText, EscapesMarkupAndDropsWhatXmlCannotHold)
{
    EXPECT_EQ(Escaped("a < b && c > \"d\" 'e'"), "a &lt; b &amp;&amp; c &gt; &quot;d&quot; &apos;e&apos;");
    EXPECT_EQ(Escaped("&amp;"), "&amp;amp;");
    std::string controls;
    for (char c = 0; c < 0x20; ++c) controls += c;
    EXPECT_EQ(Escaped(controls + "x\x7F"), "\t\n\rx\x7F");
    EXPECT_EQ(Escaped("caf\xC3\xA9 \xE2\x82\xAC"), "caf\xC3\xA9 \xE2\x82\xAC");
    EXPECT_EQ(Escaped(""), "");
    KTNarrowString text("a&b");
    Text2Xml(text, text);
    EXPECT_STREQ(text.Str(), "a&amp;b");
    Xml2Text(text, text);
    EXPECT_STREQ(text.Str(), "a&b");
}

TEST(KTText, ReadsNamedAndNumericReferences)
{
    const struct
    {
        const char* xml;
        const char* text;
    } rows[] = {
        {"&amp;&lt;&gt;&quot;&apos;", "&<>\"'"},
        {"&#65;&#x41;&#x20ac;&#X41;", "AA\xE2\x82\xAC&#X41;"},  // the x is a small one in XML
        {"&#x1F600;", "\xF0\x9F\x98\x80"},
        {"&#0000000000000000000065;", "A"},
        {"&#13;&#10;&#9;", "\r\n\t"},
        {"&amp;lt;", "&lt;"},  // once, not again
        // Everything else stays.
        {"a & b", "a & b"},
        {"&", "&"},
        {"&amp", "&amp"},
        {"&nbsp;", "&nbsp;"},
        {"&AMP;", "&AMP;"},
        {"&#;", "&#;"},
        {"&#x;", "&#x;"},
        {"&#65", "&#65"},
        {"&#65x;", "&#65x;"},
        {"&#-1;", "&#-1;"},
        {"&#0;", "&#0;"},
        {"&#x1F;", "&#x1F;"},
        {"&#xD800;", "&#xD800;"},
        {"&#xFFFF;", "&#xFFFF;"},
        {"&#x110000;", "&#x110000;"},
        {"&#99999999999999999999999999;", "&#99999999999999999999999999;"},
        {"&#4294967361;", "&#4294967361;"},  // 65 again, if one counts in 32 bits
    };
    for (const auto& r : rows)
    {
        EXPECT_EQ(Unescaped(std::string(r.xml)), r.text) << r.xml;
        EXPECT_EQ(Unescaped(Wide(r.xml)), Wide(r.text)) << r.xml;
    }
}

RC_GTEST_PROP(KTText, EscapingComesBackAndLeavesNoMarkup, (const std::string& raw))
{
    std::string text;
    for (const char c : raw)
        if (static_cast<unsigned char>(c) >= 0x20 || c == '\n') text += c;
    const std::string escaped = Escaped(text);
    RC_ASSERT(escaped.find_first_of("<>\"'") == std::string::npos);
    RC_ASSERT(Unescaped(escaped) == text);
}

RC_GTEST_PROP(KTText, AnyTextCanBeUnescaped, (const std::string& raw))
{
    RC_ASSERT(Unescaped(std::string(raw.c_str())).size() <= raw.size());
}

TEST(KTText, ParsesLabelsToWideText)
{
    KTWideString out(L"old");
    EXPECT_EQ(&ParseXMLText(KTNarrowString("Encendido &amp; cerrado \xC2\xB0 &#x20AC;"), out), &out);
    EXPECT_STREQ(out.Str(), L"Encendido & cerrado \u00B0 \u20AC");
}

TEST(KTText, ComparesNamesWithoutCaseAndWithoutLocale)
{
    const std::wstring smallDeseret{0xD801, 0xDC28};
    const std::wstring capitalDeseret{0xD801, 0xDC00};
    const struct
    {
        std::wstring a;
        std::wstring b;
        int order;
    } rows[] = {
        {L"", L"", 0},
        {L"Pump", L"pUMP", 0},
        {L"pump", L"pump 2", -1},
        {L"a", L"B", -1},
        {L"Z", L"a", 1},
        {L"_", L"A", -1},  // by lower case: 0x5F before 0x61
        {L"\u00C9T\u00C9", L"\u00E9t\u00E9", 0},
        {L"\u042F\u0416", L"\u044F\u0436", 0},
        {L"\u03A3", L"\u03C3", 0},
        {L"STRASSE", L"stra\u00DFe", -1},  // one character for one: ss isn't sharp s
        {L"I", L"i", 0},
        {L"\u0130", L"i", 0},
        {L"\u0131", L"i", 1},
        {smallDeseret, capitalDeseret, 0},
        {smallDeseret, {0x10400}, 0},
        {{0xD801}, {0xD801}, 0},
        {{0xD801}, capitalDeseret, -1},
        {{0xDC00}, {0xDC01}, -1},
    };
    for (const auto& r : rows)
    {
        const auto sign = [](int value) { return (value > 0) - (value < 0); };
        EXPECT_EQ(sign(_wcsicmp(r.a.c_str(), r.b.c_str())), r.order) << Narrow(r.a) << ' ' << Narrow(r.b);
        EXPECT_EQ(sign(_wcsicmp(r.b.c_str(), r.a.c_str())), -r.order) << Narrow(r.a) << ' ' << Narrow(r.b);
    }
}

TEST(KTText, ReadsIntegersAsFarAsTheyGo)
{
    const struct
    {
        const wchar_t* text;
        int value;
    } rows[] = {
        {L"", 0},
        {L"0", 0},
        {L"42", 42},
        {L"-42", -42},
        {L"+42", 42},
        {L" \t\n 42 ", 42},
        {L"42abc", 42},
        {L"4.9", 4},
        {L"abc", 0},
        {L"-", 0},
        {L"+-3", 0},
        {L"- 3", 0},
        {L"0x10", 0},
        {L"2147483647", 2147483647},
        {L"2147483648", 2147483647},
        {L"-2147483648", -2147483647 - 1},
        {L"-2147483649", -2147483647 - 1},
        {L"99999999999999999999999999999", 2147483647},
        {L"-99999999999999999999999999999", -2147483647 - 1},
        {L"0000000000000000000000000000007", 7},
        {L"\u0663", 0},  // a digit, but no decimal one of ours
    };
    for (const auto& r : rows) EXPECT_EQ(_wtoi(r.text), r.value) << Narrow(r.text);
}

TEST(KTText, UpperCasesOneCharacter)
{
    EXPECT_EQ(KTWideChar::ToUpper(L'a'), L'A');
    EXPECT_EQ(KTWideChar::ToUpper(L'\u00F1'), L'\u00D1');
    EXPECT_EQ(KTWideChar::ToUpper(L'\u00DF'), L'\u00DF');
    EXPECT_EQ(KTWideChar::ToUpper(L'5'), L'5');
    EXPECT_EQ(KTWideChar::ToUpper(0xD801), 0xD801);
}

TEST(KTText, TellsWhatMayServeAsAnIdentifier)
{
    const struct
    {
        std::wstring text;
        bool plain;
        bool withBlank;
    } rows[] = {
        {L"", false, false},
        {L"a", true, true},
        {L"Pump_7-(A)+#&", true, true},
        {L"0123456789", true, true},
        {L"Se\u00F1al", true, true},
        {L"\u0416\u0443\u043A", true, true},
        {L"\u6E29\u5EA6\u8A08", true, true},
        {L"\u0661\u0662", true, true},
        {L"e\u0301", true, true},                               // a letter in two parts
        {L"\u0939\u093F\u0928\u094D\u0926\u0940", true, true},  // vowel signs and a virama
        {L"\u0E1E\u0E25\u0E31\u0E07\u0E07\u0E32\u0E19", true, true},
        {L"\u0301", false, false},  // a mark with no letter
        {L"-\u0301", false, false},
        {L"Pump 7", false, true},
        {L"a  b", false, true},
        {L" a", false, false},
        {L"a ", false, false},
        {L" ", false, false},
        {L"a\tb", false, false},
        {L"a\u00A0b", false, false},
        {L"a\u200Db", false, false},
        {{0xD835, 0xDC00, 0xD840, 0xDC00}, true, true},  // letters in two elements each
        {{0xD83D, 0xDE00}, false, false},                // a smiling face
        {{L'a', 0xD835}, false, false},
        {{0xDC00, L'a'}, false, false},
        {{0x20000}, true, true},
        {{0x110000}, false, false},
        {L"\uFFFD", false, false},
    };
    for (const auto& r : rows)
    {
        EXPECT_EQ(IsValidId(r.text.c_str(), false), r.plain) << Narrow(r.text);
        EXPECT_EQ(IsValidId(r.text.c_str(), true), r.withBlank) << Narrow(r.text);
    }
    for (wchar_t c = 1; c < 0x80; ++c)
    {
        const std::wstring text{L'a', c, L'b'};
        const bool good = (c >= L'0' && c <= L'9') || (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z') ||
                          std::wstring(L"_-+()#&").find(c) != std::wstring::npos;
        EXPECT_EQ(IsValidId(text.c_str(), false), good) << static_cast<int>(c);
        EXPECT_EQ(IsValidId(text.c_str(), true), good || c == L' ') << static_cast<int>(c);
    }
    EXPECT_TRUE(IsValidId(std::wstring(250, L'x').c_str(), false));
    EXPECT_FALSE(IsValidId(std::wstring(251, L'x').c_str(), false));
}
}  // namespace
