// What the tests of expressions share: a small plant, and short words for compiling and evaluating.
#pragma once

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "host/KTEvaluator.h"
#include "tests/support/TestDriver.h"

constexpr int syntaxError = -1;
constexpr int numeric = 0;
constexpr int logical = 1;
constexpr double infinity = std::numeric_limits<double>::infinity();

inline std::string Narrow(const std::wstring& text)
{
    std::string narrow;
    for (const wchar_t c : text) narrow += c < 128 ? static_cast<char>(c) : '?';
    return narrow;
}

inline int KindOf(const std::wstring& text)
{
    KTEvaluator evaluator(text.c_str());
    return evaluator.AnalizeExpression();
}

struct Outcome
{
    int code;
    double value;
    int kind;
};

inline Outcome Evaluated(KTPolaca& polaca)
{
    Outcome outcome{-1, -1.0, -1};
    outcome.code = polaca.Evaluate(outcome.value, outcome.kind);
    return outcome;
}

inline Outcome Evaluated(const std::wstring& text)
{
    KTEvaluator evaluator(text.c_str());
    EXPECT_GE(evaluator.AnalizeExpression(), 0) << Narrow(text);
    return Evaluated(evaluator.polaca);
}

inline double ValueOf(const std::wstring& text)
{
    const Outcome outcome = Evaluated(text);
    EXPECT_EQ(outcome.code, KTPolaca::success) << Narrow(text);
    return outcome.value;
}

inline std::wstring Repeated(int times, const std::wstring& text)
{
    std::wstring all;
    for (int i = 0; i < times; ++i) all += text;
    return all;
}

// A plant of two devices: A with x = 7, y = -2.5, z = 0, big = 1e308 and `none` without value, B with y = 3.
class EvaluatorPlant : public testing::Test
{
protected:
    void SetUp() override
    {
        a.Set(L"x", 7.0);
        a.Set(L"y", -2.5);
        a.Set(L"z", 0.0);
        a.Set(L"big", 1e308);
        b.Set(L"y", 3.0);
        ASSERT_TRUE(a.Register());
        ASSERT_TRUE(b.Register());
    }

    // As a device that has to be asked for each value.
    void WithoutCells()
    {
        a.Unregister();
        a.hasCells = false;
        ASSERT_TRUE(a.Register());
    }

    TestDriver a{L"A", {L"x", L"y", L"z", L"big", L"none"}};
    TestDriver b{L"B", {L"y"}};
};
