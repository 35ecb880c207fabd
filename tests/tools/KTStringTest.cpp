#include "host/KTString.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <limits>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace
{
TEST(KTString, StartsEmptyOnTheSharedTextWithoutAnAllocation)
{
    const KTWideString wide;
    EXPECT_EQ(wide.Str(), KTWideChar::EmptyString());
    EXPECT_TRUE(wide.Borrowed());
    EXPECT_TRUE(wide.Empty());
    const KTNarrowString narrow;
    EXPECT_EQ(narrow.Str(), KTChar::EmptyString());
    EXPECT_STREQ(narrow.Str(), "");
}

TEST(KTString, HasThreeFieldsAndNothingElse)
{
    EXPECT_EQ(sizeof(KTWideString), sizeof(void*) + 2 * sizeof(std::int32_t));
    EXPECT_EQ(sizeof(KTNarrowString), sizeof(KTWideString));
}

TEST(KTString, AppendingToADefaultTextLeavesTheSharedEmptyTextAlone)
{
    KTNarrowString text;
    text.Append("valve");
    text.Append('!');
    EXPECT_STREQ(text.Str(), "valve!");
    EXPECT_STREQ(KTChar::EmptyString(), "");
    EXPECT_STREQ(KTNarrowString().Str(), "");
}

TEST(KTString, ReservesSpareByTheGrowthPolicy)
{
    const struct
    {
        int flags;
        std::uint32_t spare;
    } rows[] = {{0x00, 0}, {0x20, 0xFF}, {0x21, 0xFFFF}, {0x01, 0}, {0x10, 0}, {0xDE, 0}, {0xFF, 0xFFFF}};
    for (const auto& r : rows)
    {
        KTNarrowString text(r.flags);
        EXPECT_TRUE(text.Borrowed()) << r.flags;
        text.Assign("abc");
        EXPECT_EQ(text.Spare(), r.spare) << r.flags;
        EXPECT_FALSE(text.Borrowed()) << r.flags;
    }
}

TEST(KTString, AnAccumulatorReallocatesOnlyAfter255FurtherCharacters)
{
    KTNarrowString text(32);
    text.Append('a');
    const char* const first = text.Str();
    EXPECT_EQ(text.Spare(), 254U);
    for (int i = 0; i < 254; ++i)
    {
        text.Append('b');
        ASSERT_EQ(text.Str(), first) << i;
    }
    EXPECT_EQ(text.Spare(), 0U);
    text.Append('c');
    EXPECT_NE(text.Str(), first);
    EXPECT_EQ(text.Length(), 256);
    EXPECT_EQ(text.Spare(), 0xFFU);
}

TEST(KTString, AnExactTextReallocatesAtEachAppend)
{
    KTNarrowString text;
    text.Append("a");
    EXPECT_EQ(text.Spare(), 0U);
    const char* const first = text.Str();
    text.Append("b");
    EXPECT_NE(text.Str(), first);
    EXPECT_STREQ(text.Str(), "ab");
}

TEST(KTString, TheKeepingPolicyReservesTheSpareOfTheMoment)
{
    KTNarrowString text(0x01);
    text.Assign("abc");
    EXPECT_EQ(text.Spare(), 0U);
    text.Append("def");
    EXPECT_EQ(text.Spare(), 0U);
    EXPECT_STREQ(text.Str(), "abcdef");
}

TEST(KTString, AssignmentFromTheOwnBufferKeepsTheText)
{
    KTWideString text(L"condition");
    const KTWideString& itself = text;
    text = itself;
    EXPECT_STREQ(text.Str(), L"condition");
    text.Assign(text.Str() + 3);
    EXPECT_STREQ(text.Str(), L"dition");
    text.Assign(text.Str() + 1, 3);
    EXPECT_STREQ(text.Str(), L"iti");
}

TEST(KTString, AssignmentAlwaysTakesAFreshBuffer)
{
    KTNarrowString text("abc");
    const char* const before = text.Str();
    text = "abc";
    EXPECT_NE(text.Str(), before);
}

TEST(KTString, AppendsItsOwnText)
{
    for (const int flags : {0, 0x20, 0x21, 0x01})
    {
        KTNarrowString text(flags);
        text.Assign("abc");
        text.Append(text);
        text.Append(text.Str() + 4);
        EXPECT_STREQ(text.Str(), "abcabcbc") << flags;
    }
    const char* const borrowed = "xyz";
    KTNarrowString text(borrowed, false);
    text.Append(text.Str() + 1);
    EXPECT_STREQ(text.Str(), "xyzyz");
    EXPECT_STREQ(borrowed, "xyz");
}

TEST(KTString, BorrowsOrCopiesATextAsAsked)
{
    wchar_t source[] = L"pump";
    const KTWideString copy(source, true);
    const KTWideString view(source, false);
    EXPECT_EQ(view.Str(), source);
    EXPECT_TRUE(view.Borrowed());
    EXPECT_FALSE(copy.Borrowed());
    source[0] = L'j';
    EXPECT_STREQ(copy.Str(), L"pump");
    EXPECT_STREQ(view.Str(), L"jump");
}

TEST(KTString, AttachingForgetsTheGrowthPolicy)
{
    KTNarrowString text(0x21);
    text.Assign("old");
    text.Attach("borrowed");
    EXPECT_TRUE(text.Borrowed());
    EXPECT_EQ(text.Length(), 8);
    EXPECT_EQ(text.Spare(), 0U);
    text.Append("!");
    EXPECT_STREQ(text.Str(), "borrowed!");
    EXPECT_EQ(text.Spare(), 0U);
}

TEST(KTString, AppendingToABorrowedTextLeavesItsOwnerAlone)
{
    char source[] = "abc";
    KTNarrowString text(source, false);
    text.Append("def");
    text.Append('g');
    EXPECT_STREQ(text.Str(), "abcdefg");
    EXPECT_STREQ(source, "abc");
    EXPECT_FALSE(text.Borrowed());
}

TEST(KTString, CopiesAreIndependentAndExact)
{
    KTNarrowString accumulator(0x20);
    accumulator.Append("abc");
    KTNarrowString copy(accumulator);
    EXPECT_EQ(copy.Spare(), 0U);
    accumulator.Append('d');
    EXPECT_STREQ(copy.Str(), "abc");
    char source[] = "xyz";
    const KTNarrowString view(source, false);
    const KTNarrowString owned(view);
    source[0] = 'a';
    EXPECT_STREQ(owned.Str(), "xyz");
}

TEST(KTString, MovingIntoAnAccumulatorKeepsItsPolicy)
{
    KTNarrowString accumulator(0x20);
    accumulator = KTNarrowString("made elsewhere");
    EXPECT_STREQ(accumulator.Str(), "made elsewhere");
    accumulator.Append('!');
    EXPECT_EQ(accumulator.Spare(), 0xFFU);
}

TEST(KTString, MovingFromABorrowedTextCopiesIt)
{
    char source[] = "abc";
    KTNarrowString text;
    text = KTNarrowString(source, false);
    source[0] = 'x';
    EXPECT_STREQ(text.Str(), "abc");
    EXPECT_FALSE(text.Borrowed());
}

TEST(KTString, AMovedFromTextCanBeUsedAgain)
{
    KTWideString from(L"first");
    const KTWideString to(std::move(from));
    EXPECT_STREQ(to.Str(), L"first");
    from = L"second";  // NOLINT: that it can
    EXPECT_STREQ(from.Str(), L"second");
    KTWideString& self = from;
    from = std::move(self);
    EXPECT_STREQ(from.Str(), L"second");
}

TEST(KTString, TakesSubstringsWithinTheSource)
{
    const struct
    {
        const char* source;
        int start;
        int count;
        const char* expected;
    } rows[] = {
        {"temperature", 0, 4, "temp"},
        {"temperature", 7, 100, "ture"},
        {"temperature", 11, 1, ""},
        {"temperature", 12, 1, ""},
        {"temperature", -1, 3, ""},
        {"temperature", 3, 0, ""},
        {"temperature", 3, -5, ""},
        {"", 0, 1, ""},
        {"a", 0, std::numeric_limits<int>::max(), "a"},
    };
    for (const auto& r : rows)
    {
        const KTNarrowString source(r.source);
        KTNarrowString out("old");
        KTNarrowString::SubString(out, source, r.start, r.count);
        EXPECT_STREQ(out.Str(), r.expected) << r.source << ' ' << r.start << ' ' << r.count;
    }
    KTNarrowString both("0123456789");
    KTNarrowString::SubString(both, both, 2, 3);
    EXPECT_STREQ(both.Str(), "234");
}

TEST(KTString, FindsTheLastOfACharacter)
{
    const KTWideString text(L"PLANT.HALL.P");
    EXPECT_EQ(text.ReverseFind(L'.'), 10);
    EXPECT_EQ(text.ReverseFind(L'P'), 11);
    EXPECT_EQ(text.ReverseFind(L'Q'), -1);
    EXPECT_EQ(KTWideString().ReverseFind(L'.'), -1);
}

TEST(KTString, ComparesByCharacterAndCase)
{
    const KTWideString text(L"Pump");
    EXPECT_TRUE(text == L"Pump");
    EXPECT_TRUE(text != L"pump");
    EXPECT_TRUE(text == KTWideString(L"Pump", false));
    EXPECT_TRUE(KTWideString() == L"");
    EXPECT_EQ(KTWideChar::Compare(L"a", L"a"), 0);
    EXPECT_LT(KTWideChar::Compare(L"a", L"b"), 0);
    EXPECT_GT(KTWideChar::Compare(L"ab", L"a"), 0);
    EXPECT_LT(KTWideChar::Compare(L"a", L"\u00E9"), 0);
    EXPECT_LT(KTChar::Compare("a", "\xC3"), 0) << "bytes have no sign";
}

TEST(KTString, ASizeBeyond32BitsFailsAndLeavesTheText)
{
    KTWideString text(L"safe");
    // Nothing is read of the source: the request fails before. Volatile, since the compiler would see the overrun.
    volatile int tooMany = std::numeric_limits<int>::max();
    volatile int tooManyBytes = 0x40000000;  // of 4 each
    EXPECT_THROW(text.Assign(L"", tooMany), std::bad_alloc);
    EXPECT_THROW(text.Append(L"", tooMany), std::bad_alloc);
    EXPECT_THROW(text.Assign(L"", tooManyBytes), std::bad_alloc);
    EXPECT_STREQ(text.Str(), L"safe");
}

// Against std::string: any sequence of operations on any policy gives the same text, terminated, with a spare that is
// never larger than the policy's.
RC_GTEST_PROP(KTString, BehavesAsAPlainTextUnderAnyOperations, ())
{
    const int flags = *rc::gen::element(0x00, 0x01, 0x20, 0x21);
    KTNarrowString text(flags);
    std::string model;
    const auto steps = *rc::gen::container<std::vector<std::pair<int, std::string>>>(
        rc::gen::pair(rc::gen::inRange(0, 6), rc::gen::string<std::string>()));
    for (const auto& [what, raw] : steps)
    {
        const std::string piece = raw.c_str();
        switch (what)
        {
            case 0:
                text.Assign(piece.c_str());
                model = piece;
                break;
            case 1:
                text.Append(piece.c_str());
                model += piece;
                break;
            case 2:
                text.Append('x');
                model += 'x';
                break;
            case 3:
                text.Append(text);
                model += std::string(model);
                break;
            case 4:
                KTNarrowString::SubString(text, text, static_cast<int>(piece.size() % 5), 7);
                model = piece.size() % 5 < model.size() ? model.substr(piece.size() % 5, 7) : std::string();
                break;
            default:
                text = KTNarrowString(piece.c_str());
                model = piece;
                break;
        }
        RC_ASSERT(std::string(text.Str()) == model);
        RC_ASSERT(text.Length() == static_cast<int>(model.size()));
        RC_ASSERT(text.Spare() <= (flags == 0x21 ? 0xFFFFU : (flags == 0x20 ? 0xFFU : 0U)));
    }
}
}  // namespace
