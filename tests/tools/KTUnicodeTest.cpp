#include "suite/tools/KTUnicode.h"

#include <gtest/gtest.h>

namespace
{
TEST(KTUnicode, MapsCaseOneCharacterForOne)
{
    const struct
    {
        char32_t upper;
        char32_t lower;
    } pairs[] = {
        {U'A', U'a'},     {U'Z', U'z'},       {U'Ñ', U'ñ'},       {U'Ý', U'ý'},       {U'Ÿ', U'ÿ'},
        {U'Ω', U'ω'},     {U'Я', U'я'},       {U'Ђ', U'ђ'},       {U'Ա', U'ա'},       {0x10A0, 0x2D00},
        {0x13A0, 0xAB70}, {0x1E9E, 0xDF},     {0x1F88, 0x1F80},   {0x24B6, 0x24D0},   {0x2C2F, 0x2C5F},
        {0xFF21, 0xFF41}, {0x10400, 0x10428}, {0x1E921, 0x1E943}, {0x10570, 0x10597}, {0x1C90, 0x10D0},
    };
    for (const auto& pair : pairs)
    {
        EXPECT_EQ(kt::ToLower(pair.upper), pair.lower) << std::hex << static_cast<std::uint32_t>(pair.upper);
        if (pair.upper == 0x1E9E) continue;  // the way back isn't one character for one
        EXPECT_EQ(kt::ToUpper(pair.lower), pair.upper) << std::hex << static_cast<std::uint32_t>(pair.lower);
    }
}

TEST(KTUnicode, LeavesWhatHasNoCase)
{
    for (const char32_t c :
         {U'0', U'@', U'[', U'`', U'{', U'×', U'÷', U'ß', U'中', U'あ', U'א', char32_t{0x3000}, char32_t{0x1F600},
          char32_t{0xD800}, char32_t{0xFFFD}, char32_t{0x10FFFF}, char32_t{0x7FFFFFFF}})
        EXPECT_EQ(kt::ToUpper(c), c) << std::hex << static_cast<std::uint32_t>(c);
    for (const char32_t c : {U'a', U'ß', U'ı', U'中', char32_t{0x10FFFF}}) EXPECT_EQ(kt::ToLower(c), c);
}

TEST(KTUnicode, KnowsNoLocale)
{
    EXPECT_EQ(kt::ToLower(U'I'), U'i');
    EXPECT_EQ(kt::ToUpper(U'i'), U'I');
    EXPECT_EQ(kt::ToLower(U'İ'), U'i');
    EXPECT_EQ(kt::ToUpper(U'ı'), U'I');
    EXPECT_EQ(kt::ToLower(U'Σ'), U'σ');
    EXPECT_EQ(kt::ToUpper(U'ς'), U'Σ');
    EXPECT_EQ(kt::ToLower(U'ς'), U'ς');
    EXPECT_EQ(kt::ToLower(U'ǅ'), U'ǆ') << "a title-case letter";
    EXPECT_EQ(kt::ToUpper(U'ǅ'), U'Ǆ');
}

// Lower-casing twice is lower-casing once, and no result leaves the range of characters: a sort by it is an order.
TEST(KTUnicode, LowerCasingIsDoneOnceForAllCharacters)
{
    for (char32_t c = 0; c <= 0x10FFFF; ++c)
    {
        const char32_t lower = kt::ToLower(c);
        ASSERT_EQ(kt::ToLower(lower), lower) << std::hex << static_cast<std::uint32_t>(c);
        ASSERT_LE(lower, char32_t{0x10FFFF});
        ASSERT_FALSE(kt::IsSurrogate(lower) && lower != c);
        ASSERT_LE(kt::ToUpper(c), char32_t{0x10FFFF});
    }
}

TEST(KTUnicode, TellsLettersDigitsAndMarksOfAnyScript)
{
    const struct
    {
        char32_t c;
        bool letter;
        bool digit;
        bool mark;
    } rows[] = {
        {U'a', true, false, false},    {U'Z', true, false, false},     {U'ñ', true, false, false},
        {U'ß', true, false, false},    {U'ж', true, false, false},     {U'ش', true, false, false},
        {U'ก', true, false, false},    {U'中', true, false, false},    {U'한', true, false, false},
        {U'Ⅷ', true, false, false},    {U'〇', true, false, false},    {0x20000, true, false, false},
        {U'0', false, true, false},    {U'9', false, true, false},     {U'٣', false, true, false},
        {U'५', false, true, false},    {U'９', false, true, false},    {0x1D7D8, false, true, false},
        {0x0301, false, false, true},  {0x0E31, false, false, true},   {0x093E, false, false, true},
        {U' ', false, false, false},   {U'_', false, false, false},    {U'½', false, false, false},
        {U'²', false, false, false},   {U'€', false, false, false},    {0x00A0, false, false, false},
        {0x200D, false, false, false}, {0x1F600, false, false, false}, {0xFFFD, false, false, false},
        {0xD800, false, false, false}, {0xE000, false, false, false},  {0x10FFFF, false, false, false},
    };
    for (const auto& r : rows)
    {
        EXPECT_EQ(kt::IsLetter(r.c), r.letter) << std::hex << static_cast<std::uint32_t>(r.c);
        EXPECT_EQ(kt::IsDigit(r.c), r.digit) << std::hex << static_cast<std::uint32_t>(r.c);
        EXPECT_EQ(kt::IsMark(r.c), r.mark) << std::hex << static_cast<std::uint32_t>(r.c);
    }
}
}  // namespace
