#include "apps/corvane/Texts.h"

#include <gtest/gtest.h>

#include <clocale>

using namespace corvane;

TEST(Texts, MakeWhatWasReadWellFormed)
{
    const struct
    {
        const char* bytes;
        const char* text;
    } rows[] = {
        {"", ""},
        {"plain", "plain"},
        {"weiß 泵 😀", "weiß 泵 😀"},
        {"a\xFFz", "a\uFFFDz"},
        {"cut \xE6\xB3", "cut \uFFFD"},
        {"half a pair \xED\xA0\x80", "half a pair \uFFFD\uFFFD\uFFFD"},
    };
    for (const auto& r : rows) EXPECT_EQ(WellFormed(KTNarrowString(r.bytes)), r.text);
}

TEST(Texts, KeepATerminalFromObeyingThem)
{
    EXPECT_EQ(OneLine("two\r\nlines\tand \x1b[31mred\x7f"), "two  lines and  [31mred ");
    EXPECT_EQ(OneLine("C1 \xC2\x9B"
                      "31m \xC2\x80 \xC2\x9F \xC2\xA0"),
              "C1  31m     \xC2\xA0");
    EXPECT_EQ(OneLine("泵 é"), "泵 é");
    EXPECT_EQ(OneLine("ends in \xC2"), "ends in \xC2");
}

TEST(Texts, AreAsWideAsTheyLook)
{
    const struct
    {
        const char* text;
        int width;
    } rows[] = {
        {"", 0}, {"abc", 3}, {"Bomba nº 1", 10}, {"泵", 2}, {"e\u0301", 1}, {"ﾊﾝｶｸ", 4}, {"Ω±°", 3}, {"\uFFFD", 1},
    };
    // Whatever the user's locale is: a program that doesn't ask for it has "C".
    ASSERT_STREQ(std::setlocale(LC_ALL, nullptr), "C");
    for (const auto& r : rows) EXPECT_EQ(DisplayWidth(r.text), r.width) << r.text;
}

TEST(Texts, GoFromOneFormToTheOtherAndBack)
{
    for (const char* text : {"", "abc", "weiß 泵 😀"}) EXPECT_EQ(Utf8(Wide(text)), text);
}
