// The language: what is an expression, of which kind, and how large it may be.
#include "suite/drivers/KTExpressionParser.h"

#include <gtest/gtest.h>

#include <cwchar>
#include <string>

#include "tests/drivers/EvaluatorPlant.h"

namespace
{
using KTExpressionParserTest = EvaluatorPlant;
}  // namespace

TEST_F(KTExpressionParserTest, RefusesWhatTheGrammarDoesNotKnow)
{
    const wchar_t* const rows[] = {
        L"",
        L"   ",
        L"1 2",
        L"1 +",
        L"* 2",
        L"(1",
        L"1)",
        L"()",
        L"(1, 2)",
        L"1 < 2 < 3",
        L"1 = 2 = 3",
        L"1 < = 2",
        L"1 => 2",
        L"1 & 2",
        L"1 | 2",
        L"1 AND",
        L"AND 1",
        L"1 AND OR 1",
        L"1 ANDX 2",
        L"1 AND2",
        L"1 XAND 2",
        L"NOTX 1",
        L"TRUEX",
        L"TRUE1",
        L"TRUE()",
        L"1 = NOT 2",
        L"1 + !2",
        L"-!2",
        L"2 ^ !1",
        L"[]",
        L"[A.x",
        L"A.x]",
        L"A.x",
        L"[A.[x]]",
        L".",
        L".e5",
        L"1..5",
        L"1.5.5",
        L"1e",
        L"1e+",
        L"1 e5",
        L"0x10",
        L"1,5",
        L"1_000",
        L"inf",
        L"nan",
        L"NAN",
        L"$",
        L"1 \v+ 1",
        L"1\u00a0+ 1",
        L"\u0663",       // a digit of another script
        L"S\u0130N(0)",  // lower-cases to "sin"
        L"ABS",
        L"ABS 1",
        L"ABS()",
        L"ABS(1, 2)",
        L"ABS(1,)",
        L"ABS(,1)",
        L"ABS(1",
        L"ABSX(1)",
        L"SQRT()",
        L"MOD(1)",
        L"MOD(1, 2, 3)",
        L"POW(1)",
        L"BIT(1)",
        L"BIT(1, 2, 3)",
        L"IF(1, 2)",
        L"IF(1, 2, 3, 4)",
        L"MIN()",
        L"MAX()",
        L"LOG(1)",
        L"AND(1, 2)",
        L"'x'",
        L"[A.x] [B.y]",
    };
    for (const auto* row : rows) EXPECT_EQ(KindOf(row), syntaxError) << Narrow(row);
}

TEST_F(KTExpressionParserTest, TellsTheKindFromTheText)
{
    const struct
    {
        const wchar_t* text;
        int kind;
    } rows[] = {
        {L"1", numeric},
        {L"[A.x]", numeric},
        {L"TRUE", logical},
        {L"(FALSE)", logical},
        {L"[A.x] > 5", logical},
        {L"NOT 5", logical},
        {L"1 AND 2", logical},
        {L"1 OR 2", logical},
        {L"BIT(5, 0)", logical},
        {L"+TRUE", numeric},
        {L"-TRUE", numeric},
        {L"--TRUE", numeric},
        {L"TRUE + 0", numeric},
        {L"TRUE * FALSE", numeric},
        {L"TRUE ^ 1", numeric},
        {L"MIN(TRUE)", numeric},
        {L"MAX(TRUE, FALSE)", numeric},
        {L"ABS(TRUE)", numeric},
        {L"IF(1, 2, 3)", numeric},
        {L"IF(1, TRUE, 3)", numeric},
        {L"IF(1, 2, FALSE)", numeric},
        {L"IF(1, TRUE, FALSE)", logical},
        {L"IF(1, [A.x] > 5, IF(0, FALSE, BIT(1, 1)))", logical},
        {L"IF(1, [A.x] > 5, IF(0, FALSE, 0))", numeric},
        {L"[No.such] = 1", logical},
        {L"[No.such] + 1", numeric},
        {L"1 / 0 > 1", logical},
    };
    for (const auto& row : rows)
    {
        EXPECT_EQ(KindOf(row.text), row.kind) << Narrow(row.text);
        EXPECT_EQ(Evaluated(row.text).kind, row.kind) << Narrow(row.text);
    }
}

TEST_F(KTExpressionParserTest, KnowsASingleVariable)
{
    const struct
    {
        const wchar_t* text;
        bool single;
    } rows[] = {
        {L"[A.x]", true},       {L" \t[A.x]\r\n", true}, {L"[No.such]", true},      {L"[F@H:A.x]", true},
        {L"([A.x])", false},    {L"+[A.x]", false},      {L"-[A.x]", false},        {L"[A.x] + 0", false},
        {L"MIN([A.x])", false}, {L"5", false},           {L"[A.x] = [A.x]", false},
    };
    for (const auto& row : rows)
    {
        KTEvaluator evaluator(row.text);
        EXPECT_FALSE(evaluator.polaca.IsOnlyOneDeviceVariable()) << Narrow(row.text);
        ASSERT_NE(evaluator.AnalizeExpression(), syntaxError) << Narrow(row.text);
        EXPECT_EQ(evaluator.polaca.IsOnlyOneDeviceVariable(), row.single) << Narrow(row.text);
    }
    KTEvaluator broken(L"[A.x");
    broken.AnalizeExpression();
    EXPECT_FALSE(broken.polaca.IsOnlyOneDeviceVariable());
}

TEST_F(KTExpressionParserTest, NestsTwoHundredDeepAndNoDeeper)
{
    const auto nested = [](int levels, const wchar_t* open, const wchar_t* inner, const wchar_t* close)
    { return Repeated(levels, open) + inner + Repeated(levels, close); };
    EXPECT_EQ(ValueOf(nested(200, L"(", L"-1", L")")), -1.0);
    EXPECT_EQ(KindOf(nested(201, L"(", L"-1", L")")), syntaxError);
    EXPECT_EQ(ValueOf(nested(200, L"ABS(", L"-1", L")")), 1.0);
    EXPECT_EQ(KindOf(nested(201, L"ABS(", L"-1", L")")), syntaxError);
    EXPECT_EQ(ValueOf(nested(200, L"NOT(", L"1", L")")), 1.0);
    EXPECT_EQ(ValueOf(nested(200, L"-(", L"1", L")")), 1.0);
    EXPECT_EQ(ValueOf(nested(100, L"(MIN(", L"7", L"))")), 7.0);
    EXPECT_EQ(KindOf(nested(100, L"(MIN(", L"(7)", L"))")), syntaxError);
    EXPECT_EQ(ValueOf(nested(200, L"MAX(1,", L"[A.x]", L")")), 7.0);
    EXPECT_EQ(ValueOf(nested(200, L"IF(1,", L"[A.x]", L",2)")), 7.0);
    EXPECT_EQ(ValueOf(nested(200, L"1+(", L"[A.x]", L")")), 207.0);
    EXPECT_EQ(ValueOf(nested(200, L"(2*[A.z]-[B.y]*", L"0", L")")), 0.0);
    // side by side isn't nesting
    EXPECT_EQ(ValueOf(L"0" + Repeated(1000, L"+(1)")), 1000.0);

    EXPECT_EQ(ValueOf(nested(200, L"!", L"1", L"")), 1.0);
    EXPECT_EQ(KindOf(nested(201, L"!", L"1", L"")), syntaxError);
    EXPECT_EQ(ValueOf(nested(200, L"-", L"1", L"")), 1.0);
    EXPECT_EQ(KindOf(nested(201, L"-", L"1", L"")), syntaxError);
    EXPECT_EQ(ValueOf(nested(200, L"1^", L"2", L"")), 1.0);
    EXPECT_EQ(KindOf(nested(201, L"1^", L"2", L"")), syntaxError);
}

TEST_F(KTExpressionParserTest, TakesTextsOf4096CharactersAndNoLongerOnes)
{
    const auto padded = [](const std::wstring& text, int length)
    { return text + std::wstring(static_cast<std::size_t>(length) - text.size(), L' '); };
    EXPECT_EQ(KindOf(padded(L"TRUE", 4096)), logical);
    EXPECT_EQ(KindOf(padded(L"TRUE", 4097)), syntaxError);
    EXPECT_EQ(KindOf(padded(L"TRUE", 100000)), syntaxError);
}

TEST_F(KTExpressionParserTest, TakesTheLargestTextsOfEachShape)
{
    const std::wstring pieces[] = {L"+1",  L"-[A.x]", L"*[A.z]",    L"%[B.y]",      L" OR 0",
                                   L"&&1", L"||!1",   L"||[A.x]>1", L"AND 1=[A.x]", L"AND([A.x]>[B.y])"};
    for (const auto& piece : pieces)
    {
        const int times = (4096 - 1) / static_cast<int>(piece.size());
        EXPECT_EQ(Evaluated(L"1" + Repeated(times, piece)).code, KTPolaca::success) << Narrow(piece);
    }
    EXPECT_EQ(ValueOf(L"MAX(1" + Repeated(2000, L",2") + L")"), 2.0);
    EXPECT_EQ(ValueOf(L"1" + Repeated(2047, L"+1")), 2048.0);
    // all that nests, as deep as it may, around as much as fits
    EXPECT_EQ(ValueOf(Repeated(200, L"1||!1=1+1*-1^(") + L"1" + Repeated(200, L")")), 1.0);
    EXPECT_EQ(ValueOf(Repeated(200, L"0||!1=0+[A.x]^-(") + L"0" + Repeated(200, L")")), 0.0);
    for (const wchar_t* text : {L"(", L"[", L"-", L"!", L"NOT ", L"ABS(", L"1^", L"1+", L"IF(", L"1e", L".", L"[A.x]"})
        EXPECT_EQ(KindOf(Repeated(4096 / static_cast<int>(std::wcslen(text)), text)), syntaxError) << Narrow(text);
    EXPECT_EQ(ValueOf(L"0." + std::wstring(4000, L'0') + L"1e4001"), 1.0);
    EXPECT_EQ(ValueOf(L"1" + std::wstring(4000, L'0') + L"e-4000"), 1.0);
    EXPECT_EQ(Evaluated(L"1" + std::wstring(4000, L'0')).code, KTPolaca::outsideDomain);
}
