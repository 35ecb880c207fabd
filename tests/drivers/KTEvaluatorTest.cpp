#include "host/KTEvaluator.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <thread>

#include "suite/support/KTLanguage.h"
#include "tests/drivers/EvaluatorPlant.h"

namespace
{
using KTEvaluatorTest = EvaluatorPlant;
}  // namespace

TEST_F(KTEvaluatorTest, ComputesWhatTheTextSays)
{
    const struct
    {
        const wchar_t* text;
        double value;
    } rows[] = {
        // numbers
        {L"12.5", 12.5},
        {L".5", 0.5},
        {L"5.", 5.0},
        {L"1e5", 1e5},
        {L"1E+5", 1e5},
        {L"5.e3", 5000.0},
        {L".5e-1", 0.05},
        {L"0.1", 0.1},
        {L"1.7976931348623157e308", std::numeric_limits<double>::max()},
        {L"4.9e-324", std::numeric_limits<double>::denorm_min()},
        {L"1e-400", 0.0},
        {L"0e999999999999999999999", 0.0},
        {L"9007199254740993", 9007199254740992.0},  // a tie, to even
        {L"0.1000000000000000055511151231257827021181583404541015626", 0.1},
        // words
        {L"TRUE", 1.0},
        {L"false", 0.0},
        {L"tRuE", 1.0},
        // variables
        {L"[A.x]", 7.0},
        {L" \t\r\n[A.x]\n", 7.0},
        {L"[A.x]+[B.y]", 10.0},
        // precedence and order
        {L"2+3*4", 14.0},
        {L"(2+3)*4", 20.0},
        {L"10-3-2", 5.0},
        {L"100/10/5", 2.0},
        {L"100/10*5", 50.0},
        {L"7%4*2", 6.0},
        {L"-2^2", -4.0},
        {L"(-2)^2", 4.0},
        {L"2^-1", 0.5},
        {L"2^3^2", 512.0},
        {L"2^-2^2", 0.0625},
        {L"-2^-2", -0.25},
        {L"2*-3", -6.0},
        {L"2--3", 5.0},
        {L"2-+-3", 5.0},
        {L"--[A.x]", 7.0},
        {L"---[A.x]", -7.0},
        {L"-[A.x]^2", -49.0},
        {L"[A.x]^2^-1", std::pow(7.0, 0.5)},
        {L"1+2 < 2*2", 1.0},
        {L"(1 < 2) = TRUE || FALSE", 1.0},
        // comparisons
        {L"[A.x] = 7", 1.0},
        {L"[A.x] == 7", 1.0},
        {L"[A.x] <> 7", 0.0},
        {L"[A.x] != 7", 0.0},
        {L"[A.x] < 7", 0.0},
        {L"[A.x] <= 7", 1.0},
        {L"[A.x] > 7", 0.0},
        {L"[A.x] >= 7", 1.0},
        {L"7 < [A.x]", 0.0},
        {L"6 < [A.x]", 1.0},
        {L"8 >= [A.x]", 1.0},
        {L"0.1+0.2 = 0.3", 0.0},  // exactly
        {L"-0 = 0", 1.0},
        {L"[A.big] > -[A.big]", 1.0},  // also where the difference overflows
        {L"[A.big] + 0 > -[A.big]", 1.0},
        // logic
        {L"!0", 1.0},
        {L"! [A.x] = 7", 0.0},  // NOT of the comparison
        {L"NOT [A.x] = 8 AND TRUE", 1.0},
        {L"not not [A.x]", 1.0},
        {L"!!![A.x]", 0.0},
        {L"2 AND 3", 1.0},
        {L"0 OR -0.5", 1.0},
        {L"0 || 0", 0.0},
        {L"1 && 0 || 1", 1.0},
        {L"1 OR 1 AND 0", 1.0},
        {L"(1 OR 1) AND 0", 0.0},
        {L"1AND 1", 1.0},
        {L"[A.x]>5AND[B.y]<5", 1.0},
        {L"NOT(0)AND NOT[A.z]", 1.0},
        {L"TRUE + TRUE", 2.0},
        {L"([A.x] > 5) * 10 + ([A.x] > 9)", 10.0},
        {L"+TRUE", 1.0},
        {L"-([A.x] > 5)", -1.0},
        {L"(1 AND 2) + 1", 2.0},
        // functions
        {L"ABS([A.y])", 2.5},
        {L"abs ( -3 )", 3.0},
        {L"SQRT(9)", 3.0},
        {L"EXP(0)", 1.0},
        {L"LN(1)", 0.0},
        {L"LOG10(1000)", 3.0},
        {L"log10(0.001)", -3.0},
        {L"SIN(0)", 0.0},
        {L"COS(0)", 1.0},
        {L"TAN(0)", 0.0},
        {L"FLOOR(-2.5)", -3.0},
        {L"CEIL(-2.5)", -2.0},
        {L"TRUNC(-2.9)", -2.0},
        {L"TRUNC(2.9)", 2.0},
        {L"ROUND(2.5)", 3.0},
        {L"ROUND(-2.5)", -3.0},
        {L"ROUND(0.5)", 1.0},
        {L"ROUND(0.49999999999999994)", 0.0},
        {L"SIGN(-3)", -1.0},
        {L"SIGN(0)", 0.0},
        {L"SIGN([A.x])", 1.0},
        {L"MOD(7, -4)", 3.0},
        {L"MOD(-7, 4)", -3.0},
        {L"-7 % 4", -3.0},
        {L"7 % -4", 3.0},
        {L"5.5 % 2", 1.5},
        {L"POW(2, 10)", 1024.0},
        {L"0^0", 1.0},
        {L"(-8)^3", -512.0},
        {L"MIN(3)", 3.0},
        {L"MIN(3, [A.y], 4)", -2.5},
        {L"MAX([A.x], 3, [B.y], 6)", 7.0},
        {L"IF([A.x] > 5, 10, 20)", 10.0},
        {L"IF([A.x] < 5, 10, 20)", 20.0},
        {L"IF(-0.1, [B.y], 20)", 3.0},
        {L"IF(0, 1, IF(1, 2, 3))", 2.0},
        // bits
        {L"BIT(5, 0)", 1.0},
        {L"BIT(5, 1)", 0.0},
        {L"BIT(5.99, 2)", 1.0},
        {L"BIT(-1, 63)", 1.0},
        {L"BIT(-1.9, 0)", 1.0},
        {L"BIT(-2, 0)", 0.0},
        {L"BIT([A.x], [B.y] - 1)", 1.0},
        {L"BIT(6, [B.y] - 1)", 1.0},
        {L"BIT([A.x] + 1, [B.y])", 1.0},
        {L"BIT(-9223372036854775808, 63)", 1.0},
        {L"BIT(-9223372036854775808, 62)", 0.0},
    };
    for (const auto& row : rows) EXPECT_EQ(ValueOf(row.text), row.value) << Narrow(row.text);
}

TEST_F(KTEvaluatorTest, TellsEachFailureByItsCode)
{
    a.Set(L"big", infinity);
    const struct
    {
        const wchar_t* text;
        int code;
    } rows[] = {
        {L"[C.x]", KTPolaca::unknownDevice},
        {L"[C.nothing]", KTPolaca::unknownDevice},
        {L"[a.x]", KTPolaca::unknownDevice},  // names keep their case
        {L"[ A.x]", KTPolaca::unknownDevice},
        {L"[x]", KTPolaca::unknownDevice},
        {L"[.x]", KTPolaca::unknownDevice},
        {L"[ ]", KTPolaca::unknownDevice},
        {L"[A.X]", KTPolaca::unknownVariable},
        {L"[A.]", KTPolaca::unknownVariable},
        {L"[A.x.y]", KTPolaca::unknownDevice},
        {L"[F@H:A.x]", KTPolaca::filteredName},
        {L"[@H:A.x]", KTPolaca::filteredName},
        {L"[F@:A.x]", KTPolaca::filteredName},
        {L"[F@H:C.x]", KTPolaca::filteredName},
        {L"[A.none]", KTPolaca::noValue},
        {L"[A.none] > 5", KTPolaca::noValue},
        {L"[A.none] = [A.none]", KTPolaca::noValue},
        {L"NOT [A.none]", KTPolaca::noValue},
        {L"MIN(1, [A.none])", KTPolaca::noValue},
        {L"MAX([A.none], 1)", KTPolaca::noValue},
        {L"[A.none] ^ 0", KTPolaca::noValue},
        {L"1 ^ [A.none]", KTPolaca::noValue},
        {L"SIGN([A.none])", KTPolaca::noValue},
        {L"BIT([A.none], 0)", KTPolaca::noValue},
        {L"1 / 0", KTPolaca::divisionByZero},
        {L"0 / 0", KTPolaca::divisionByZero},
        {L"1 / [A.z]", KTPolaca::divisionByZero},
        {L"1 % 0", KTPolaca::divisionByZero},
        {L"MOD([A.x], [A.z])", KTPolaca::divisionByZero},
        {L"1 / -0 > 5", KTPolaca::divisionByZero},
        {L"SQRT(-1)", KTPolaca::outsideDomain},
        {L"SQRT([A.y])", KTPolaca::outsideDomain},
        {L"LN(0)", KTPolaca::outsideDomain},
        {L"LN(-1)", KTPolaca::outsideDomain},
        {L"LOG10(0)", KTPolaca::outsideDomain},
        {L"EXP(1000)", KTPolaca::outsideDomain},
        {L"1 / EXP(1000)", KTPolaca::outsideDomain},
        {L"EXP(-(1e308 * 10))", KTPolaca::outsideDomain},
        {L"(-8) ^ (1 / 3)", KTPolaca::outsideDomain},
        {L"0 ^ -1", KTPolaca::outsideDomain},
        {L"POW(0, -1)", KTPolaca::outsideDomain},
        {L"10 ^ 400", KTPolaca::outsideDomain},
        {L"1e308 * 10", KTPolaca::outsideDomain},
        {L"1e308 * 10 > 5", KTPolaca::outsideDomain},
        {L"MIN(1e308 * 10, 5)", KTPolaca::outsideDomain},
        {L"SIGN(1e308 * 10)", KTPolaca::outsideDomain},
        {L"5 % (1e308 * 10)", KTPolaca::outsideDomain},
        {L"(1e308 * 10) ^ 0", KTPolaca::outsideDomain},
        {L"IF(1e308 * 10, 1, 2)", KTPolaca::outsideDomain},
        {L"1e999", KTPolaca::outsideDomain},  // more than a double holds
        {L"-1e999 < 5", KTPolaca::outsideDomain},
        {L"1 / 1e999", KTPolaca::outsideDomain},
        {L"[A.big]", KTPolaca::outsideDomain},  // a device that gives an infinity
        {L"[A.big] > 5", KTPolaca::outsideDomain},
        {L"-5 > -[A.big]", KTPolaca::outsideDomain},
        {L"5 / [A.big]", KTPolaca::outsideDomain},
        {L"BIT(5, 64)", KTPolaca::outsideDomain},
        {L"BIT(5, -1)", KTPolaca::outsideDomain},
        {L"BIT(5, 0.5)", KTPolaca::outsideDomain},
        {L"BIT(9223372036854775808, 0)", KTPolaca::outsideDomain},
        {L"BIT(-9223372036854777856, 0)", KTPolaca::outsideDomain},
        // the first in the order of evaluation
        {L"[A.none] / 0", KTPolaca::noValue},
        {L"1 / 0 + [C.x]", KTPolaca::divisionByZero},
        {L"[C.x] + 1 / 0", KTPolaca::unknownDevice},
        {L"[A.X] + [C.x]", KTPolaca::unknownVariable},
        {L"[A.none] > [F@H:A.x]", KTPolaca::noValue},
        {L"SQRT(-1) > [A.none]", KTPolaca::outsideDomain},
        {L"5 < [A.none] AND [C.x]", KTPolaca::noValue},
        {L"2 ^ [A.none] ^ [C.x]", KTPolaca::noValue},
        {L"BIT([A.none], 99)", KTPolaca::noValue},
    };
    for (const bool cells : {true, false})
    {
        if (!cells) WithoutCells();
        for (const auto& row : rows)
        {
            const Outcome outcome = Evaluated(row.text);
            EXPECT_EQ(outcome.code, row.code) << Narrow(row.text);
            EXPECT_TRUE(std::isnan(outcome.value)) << Narrow(row.text);
        }
    }
}

TEST_F(KTEvaluatorTest, EvaluatesOnlyWhatItNeeds)
{
    const struct
    {
        const wchar_t* text;
        double value;
    } rows[] = {
        {L"[A.x] > 5 OR [C.x] > 5", 1.0},
        {L"[A.x] < 5 AND [C.x] > 5", 0.0},
        {L"[A.x] < 5 AND 1 / 0", 0.0},
        {L"0 AND [F@H:A.x] OR 1 OR [A.none]", 1.0},
        {L"NOT (1 OR [A.none])", 0.0},
        {L"IF(1, [A.x], [C.x])", 7.0},
        {L"IF(0, [C.x], [A.x])", 7.0},
        {L"IF([A.x] > 5 OR [C.x], 1, 1 / 0) + 1", 2.0},
        {L"IF(0, 1e999, 5)", 5.0},
        {L"(0 AND [C.x]) + (1 OR [C.x])", 1.0},
        {L"[A.x] <> 0 AND 100 / [A.x] > 14", 1.0},
        {L"[A.z] <> 0 AND 100 / [A.z] > 14", 0.0},
    };
    for (const bool cells : {true, false})
    {
        if (!cells) WithoutCells();
        for (const auto& row : rows) EXPECT_EQ(ValueOf(row.text), row.value) << Narrow(row.text);
    }
    EXPECT_EQ(Evaluated(L"1 AND [C.x]").code, KTPolaca::unknownDevice);
    EXPECT_EQ(Evaluated(L"IF([C.x], 1, 2)").code, KTPolaca::unknownDevice);
}

TEST_F(KTEvaluatorTest, AsksADeviceForNoMoreThanItNeeds)
{
    WithoutCells();
    a.reads = 0;
    EXPECT_EQ(ValueOf(L"[A.x] > 5 OR [A.y] > 5 OR [A.none]"), 1.0);
    EXPECT_EQ(a.reads, 1);
    EXPECT_EQ(ValueOf(L"IF([A.x] < 5, [A.none], [A.y] * 2)"), -5.0);
    EXPECT_EQ(a.reads, 3);
}

TEST_F(KTEvaluatorTest, SaysThatNothingIsCompiled)
{
    KTEvaluator evaluator;
    Outcome outcome = Evaluated(evaluator.polaca);
    EXPECT_EQ(outcome.code, KTPolaca::nothingCompiled);
    EXPECT_TRUE(std::isnan(outcome.value));
    EXPECT_EQ(outcome.kind, numeric);

    evaluator.Set(L"TRUE");
    EXPECT_EQ(Evaluated(evaluator.polaca).code, KTPolaca::nothingCompiled);
    ASSERT_EQ(evaluator.AnalizeExpression(), logical);
    EXPECT_EQ(Evaluated(evaluator.polaca).code, KTPolaca::success);

    evaluator.Set(L"TRUE (");
    EXPECT_EQ(Evaluated(evaluator.polaca).code, KTPolaca::nothingCompiled);
    EXPECT_EQ(evaluator.AnalizeExpression(), syntaxError);
    EXPECT_EQ(Evaluated(evaluator.polaca).code, KTPolaca::nothingCompiled);

    evaluator.Set(L"1");
    ASSERT_EQ(evaluator.AnalizeExpression(), numeric);
    evaluator.Clear();
    EXPECT_EQ(Evaluated(evaluator.polaca).code, KTPolaca::nothingCompiled);
    EXPECT_TRUE(evaluator.Text().Empty());
    EXPECT_EQ(evaluator.AnalizeExpression(), syntaxError);
}

TEST_F(KTEvaluatorTest, KeepsItsTextAndTakesAnother)
{
    KTEvaluator evaluator(L"[A.x] > 5");
    EXPECT_TRUE(evaluator.Text() == L"[A.x] > 5");
    ASSERT_EQ(evaluator.AnalizeExpression(), logical);
    evaluator.Set(L"[A.x] * 2");
    EXPECT_TRUE(evaluator.Text() == L"[A.x] * 2");
    ASSERT_EQ(evaluator.AnalizeExpression(), numeric);
    EXPECT_EQ(Evaluated(evaluator.polaca).value, 14.0);
    ASSERT_EQ(evaluator.AnalizeExpression(), numeric);  // again
    EXPECT_EQ(Evaluated(evaluator.polaca).value, 14.0);
}

TEST_F(KTEvaluatorTest, IsNotTouchedByTheTwoPublicWords)
{
    for (const int word : {0, 4, 8, 99})
    {
        KTEvaluator evaluator(L"[A.x] + [B.y]");
        evaluator.mode = evaluator.polaca.mode = word;
        evaluator.forcing = evaluator.polaca.forcing = word;
        EXPECT_EQ(evaluator.AnalizeExpression(), numeric);
        EXPECT_EQ(Evaluated(evaluator.polaca).value, 10.0);
        EXPECT_EQ(evaluator.polaca.mode, word);
    }
}

TEST_F(KTEvaluatorTest, FindsADeviceThatComesLater)
{
    KTEvaluator evaluator(L"[C.v] > 5");
    ASSERT_EQ(evaluator.AnalizeExpression(), logical);
    EXPECT_EQ(Evaluated(evaluator.polaca).code, KTPolaca::unknownDevice);
    {
        TestDriver c(L"C");
        ASSERT_TRUE(c.Register());
        EXPECT_EQ(Evaluated(evaluator.polaca).code, KTPolaca::unknownVariable);
        c.Add(L"v");
        EXPECT_EQ(Evaluated(evaluator.polaca).code, KTPolaca::noValue);
        c.Set(L"v", 6.0);
        EXPECT_EQ(Evaluated(evaluator.polaca).value, 1.0);
        c.Set(L"v", 5.0);
        EXPECT_EQ(Evaluated(evaluator.polaca).value, 0.0);
        c.Clear(L"v");
        EXPECT_EQ(Evaluated(evaluator.polaca).code, KTPolaca::noValue);
    }
    EXPECT_EQ(Evaluated(evaluator.polaca).code, KTPolaca::unknownDevice);
    TestDriver other(L"C", {L"first", L"v"});  // another device of that name, with another place for the variable
    other.Set(L"v", 9.0);
    ASSERT_TRUE(other.Register());
    EXPECT_EQ(Evaluated(evaluator.polaca).value, 1.0);
}

TEST_F(KTEvaluatorTest, FindsAVariableThatComesLaterInABranchThatWasNotNeededBefore)
{
    KTEvaluator evaluator(L"IF([A.x] > 5, 1, [A.late])");
    ASSERT_EQ(evaluator.AnalizeExpression(), numeric);
    EXPECT_EQ(Evaluated(evaluator.polaca).value, 1.0);
    a.Add(L"late");
    a.Set(L"late", 42.0);
    a.Set(L"x", 0.0);
    EXPECT_EQ(Evaluated(evaluator.polaca).value, 42.0);
    a.Set(L"late", 43.0);
    EXPECT_EQ(Evaluated(evaluator.polaca).value, 43.0);
}

TEST_F(KTEvaluatorTest, LooksNamesUpOnceUntilTheRegistryChanges)
{
    KTEvaluator evaluator(L"[A.x] + [A.y] * [A.x]");
    ASSERT_EQ(evaluator.AnalizeExpression(), numeric);
    EXPECT_EQ(a.lookUps, 0);  // compiling is a matter of syntax alone
    for (int i = 0; i < 10; ++i) EXPECT_EQ(Evaluated(evaluator.polaca).value, 7.0 - 17.5);
    EXPECT_EQ(a.lookUps, 2);
    EXPECT_EQ(a.uses, 0);
    EXPECT_EQ(a.reads, 0);  // its cells are enough
    TestDriver c(L"C");
    ASSERT_TRUE(c.Register());
    for (int i = 0; i < 10; ++i) EXPECT_EQ(Evaluated(evaluator.polaca).value, 7.0 - 17.5);
    EXPECT_EQ(a.lookUps, 4);
}

TEST_F(KTEvaluatorTest, AsksADeviceWithoutCellsAtEachEvaluation)
{
    WithoutCells();
    KTEvaluator evaluator(L"[A.x] + [B.y]");
    ASSERT_EQ(evaluator.AnalizeExpression(), numeric);
    EXPECT_EQ(Evaluated(evaluator.polaca).value, 10.0);
    a.Set(L"x", 8.0);
    EXPECT_EQ(Evaluated(evaluator.polaca).value, 11.0);
    a.Clear(L"x");
    EXPECT_EQ(Evaluated(evaluator.polaca).code, KTPolaca::noValue);
    a.Set(L"x", 1.0);
    EXPECT_EQ(Evaluated(evaluator.polaca).value, 4.0);
    EXPECT_EQ(a.reads, 4);
    EXPECT_EQ(a.lookUps, 1);
}

TEST_F(KTEvaluatorTest, CopiesDeeply)
{
    KTEvaluator original(L"[A.x] > 5");
    ASSERT_EQ(original.AnalizeExpression(), logical);
    EXPECT_EQ(Evaluated(original.polaca).value, 1.0);
    original.mode = original.polaca.mode = 4;

    KTEvaluator copy(original);
    KTEvaluator assigned;
    assigned = original;
    KTPolaca polaca = original.polaca;
    original.Set(L"[A.x] < 5");
    ASSERT_EQ(original.AnalizeExpression(), logical);
    a.Set(L"x", 1.0);
    EXPECT_EQ(Evaluated(original.polaca).value, 1.0);
    EXPECT_EQ(Evaluated(copy.polaca).value, 0.0);
    EXPECT_EQ(Evaluated(assigned.polaca).value, 0.0);
    EXPECT_EQ(Evaluated(polaca).value, 0.0);
    EXPECT_EQ(copy.mode, 4);
    EXPECT_EQ(polaca.mode, 4);
    EXPECT_TRUE(copy.Text() == L"[A.x] > 5");
    original.Clear();
    EXPECT_EQ(Evaluated(copy.polaca).value, 0.0);

    const KTEvaluator& itself = copy;
    copy = itself;
    EXPECT_EQ(Evaluated(copy.polaca).value, 0.0);
    copy = KTEvaluator();
    EXPECT_EQ(Evaluated(copy.polaca).code, KTPolaca::nothingCompiled);
    assigned = KTEvaluator(L"7");
    EXPECT_EQ(Evaluated(assigned.polaca).code, KTPolaca::nothingCompiled);
    EXPECT_EQ(assigned.AnalizeExpression(), numeric);
}

TEST_F(KTEvaluatorTest, BindsACopyThatWasMadeBeforeTheFirstEvaluation)
{
    KTEvaluator original(L"[A.x] + [A.y] + MAX([B.y], 0)");
    ASSERT_EQ(original.AnalizeExpression(), numeric);
    KTEvaluator copy(original);
    original.Clear();
    EXPECT_EQ(Evaluated(copy.polaca).value, 7.5);
}

TEST_F(KTEvaluatorTest, SeesValuesThatOtherThreadsWrite)
{
    KTEvaluator evaluator(L"[A.x] > 5 AND [A.x] < 100 OR [A.x] = 1");
    ASSERT_EQ(evaluator.AnalizeExpression(), logical);
    std::thread writer(
        [this]
        {
            for (int i = 0; i < 20000; ++i) a.Set(L"x", i % 3 == 0 ? TestDriver::none : i % 3 == 1 ? 1.0 : 50.0);
        });
    for (int i = 0; i < 20000; ++i)
    {
        const Outcome outcome = Evaluated(evaluator.polaca);
        EXPECT_TRUE(outcome.code == KTPolaca::noValue || outcome.value == 1.0 || outcome.value == 0.0);
    }
    writer.join();
}

TEST_F(KTEvaluatorTest, ExplainsEachCodeInTheLanguageInForce)
{
    std::string error;
    const std::string resources = CORVANE_SOURCE_DIRECTORY "/resources";
    const struct
    {
        int code;
        const wchar_t* english;
        const wchar_t* spanish;
    } rows[] = {
        {KTPolaca::success, L"success", L"correcto"},
        {KTPolaca::nothingCompiled, L"nothing compiled", L"no hay nada compilado"},
        {KTPolaca::unknownDevice, L"the device doesn't exist", L"el dispositivo no existe"},
        {KTPolaca::unknownVariable, L"the variable doesn't exist", L"la variable no existe"},
        {KTPolaca::filteredName, L"a filtered name can't be read here",
         L"aqu\u00ed no se puede leer un nombre con filtro"},
        {KTPolaca::divisionByZero, L"division by zero", L"divisi\u00f3n por cero"},
        {KTPolaca::outsideDomain, L"an argument outside a function's domain, or a result that isn't finite",
         L"un argumento fuera del dominio de una funci\u00f3n, o un resultado que no es finito"},
        {KTPolaca::noValue, L"the variable exists and has no value now", L"la variable existe y ahora no tiene valor"},
    };
    for (const bool english : {false, true})
    {
        ASSERT_TRUE(KTLanguage::Load(resources, english ? "en" : "es", error)) << error;
        for (const auto& row : rows)
        {
            KTWideString text(L"before");
            EXPECT_TRUE(KTEvaluator::ErrorMsg(row.code, text)) << row.code;
            EXPECT_TRUE(text == (english ? row.english : row.spanish)) << row.code;
        }
        for (const int unknown : {-1, 1, 39, 44, 61, 63, 600})
        {
            KTWideString text(L"before");
            EXPECT_FALSE(KTEvaluator::ErrorMsg(unknown, text)) << unknown;
            EXPECT_TRUE(text.Empty()) << unknown;
        }
    }
}
