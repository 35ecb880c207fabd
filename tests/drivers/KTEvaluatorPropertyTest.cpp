// Random expressions over random values, compared with an evaluation that nobody could get wrong.

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "host/KTEvaluator.h"
#include "tests/drivers/NaiveExpression.h"
#include "tests/support/TestDriver.h"

namespace
{
constexpr double infinity = std::numeric_limits<double>::infinity();
const wchar_t* const values[] = {L"a", L"b", L"c", L"d"};

int Below(int limit) { return *rc::gen::inRange(0, limit); }

double AnyValue()
{
    static constexpr double special[] = {
        TestDriver::none, 0.0,    -0.0,   1.0,      -1.0, 2.0,  0.5,  -2.5,    3.0, 7.0, 1e308,
        -1e308,           1e-308, 5e-324, infinity, 64.0, 63.0, 1e19, -9.3e18, 1e15};
    const int choice = Below(30);
    return choice < 20 ? special[choice] : *rc::gen::inRange(-1000, 1000) / 8.0;
}

std::string AnyOf(const std::vector<std::string>& ops)
{
    return ops[static_cast<std::size_t>(Below(static_cast<int>(ops.size())))];
}

NaiveExpression AnyLeaf()
{
    NaiveExpression leaf;
    const int choice = Below(10);
    leaf.op = choice < 6 ? "[" : (choice < 9 ? "#" : AnyOf({"TRUE", "FALSE"}));
    leaf.variable = Below(20) == 0 ? 4 + Below(3) : Below(4);
    static constexpr double numbers[] = {0.0, 1.0, 2.0, 3.0, 5.0, 0.5, 100.0, 0.1, 1e308, 63.0};
    leaf.number = Below(30) == 0 ? infinity : numbers[Below(10)];
    return leaf;
}

NaiveExpression AnyExpression(int depth)
{
    if (depth == 0 || Below(6) == 0) return AnyLeaf();
    NaiveExpression node;
    int count = 2;
    const int choice = Below(20);
    if (choice < 5)
        node.op = AnyOf({"+", "-", "*", "/", "%", "^"});
    else if (choice < 10)
        node.op = AnyOf({"=", "<>", "<", "<=", ">", ">="});
    else if (choice < 14)
        node.op = AnyOf({"AND", "OR"});
    else if (choice < 15)
        node.op = AnyOf({"MOD", "POW", "BIT"});
    else if (choice < 16)
        node.op = "IF";
    else if (choice < 17)
        node.op = AnyOf({"MIN", "MAX"});
    else if (choice < 19)
        node.op = AnyOf({"+", "-", "NOT", "NOT"});
    else
        node.op = AnyOf(
            {"ABS", "SQRT", "EXP", "LN", "LOG10", "SIN", "COS", "TAN", "FLOOR", "CEIL", "ROUND", "TRUNC", "SIGN"});
    if (choice >= 17) count = 1;
    if (node.op == "IF") count = 3;
    if (node.op == "MIN" || node.op == "MAX") count = 1 + Below(3);
    for (int i = 0; i < count; ++i) node.operands.push_back(AnyExpression(depth - 1));
    return node;
}

struct Plant
{
    explicit Plant(bool cells)
    {
        device.hasCells = cells;
        device.Register();
    }

    // New values for all; what reading each one gives.
    std::vector<NaiveExpression::Variable> Change()
    {
        std::vector<NaiveExpression::Variable> variables;
        for (const wchar_t* name : values)
        {
            const double value = AnyValue();
            device.Set(name, value);
            const int code = std::isnan(value) ? KTPolaca::noValue : (std::isinf(value) ? KTPolaca::outsideDomain : 0);
            variables.push_back({std::wstring(L"D.") + name, {code, value}});
        }
        variables.push_back({L"E.a", {KTPolaca::unknownDevice, 0.0}});
        variables.push_back({L"D.e", {KTPolaca::unknownVariable, 0.0}});
        variables.push_back({L"F@H:D.a", {KTPolaca::filteredName, 0.0}});
        return variables;
    }

    TestDriver device{L"D", {L"a", L"b", L"c", L"d"}};
};

std::string Shown(const std::wstring& text) { return {text.begin(), text.end()}; }

void Compare(KTPolaca& polaca, const NaiveExpression& expression,
             const std::vector<NaiveExpression::Variable>& variables)
{
    const NaiveOutcome expected = expression.Evaluate(variables);
    double value = -1.0;
    int kind = -1;
    RC_ASSERT(polaca.Evaluate(value, kind) == expected.code);
    RC_ASSERT(kind == (expression.Logical() ? 1 : 0));
    if (expected.code == 0)
        RC_ASSERT(value == expected.value);
    else
        RC_ASSERT(std::isnan(value));
}

void CompareOver(bool cells)
{
    Plant plant(cells);
    for (int i = 0; i < 10; ++i)
    {
        const NaiveExpression expression = AnyExpression(1 + Below(5));
        const std::wstring text = expression.Text(plant.Change(), Below);
        if (text.size() > 4096) continue;
        RC_LOG() << Shown(text) << '\n';
        KTEvaluator evaluator(text.c_str());
        RC_ASSERT(evaluator.AnalizeExpression() == (expression.Logical() ? 1 : 0));
        for (int round = 0; round < 10; ++round) Compare(evaluator.polaca, expression, plant.Change());
        KTEvaluator copy(evaluator);
        Compare(copy.polaca, expression, plant.Change());
    }
}
}  // namespace

RC_GTEST_PROP(KTEvaluatorProperty, MeansWhatTheTreeMeansOverCells, ()) { CompareOver(true); }

RC_GTEST_PROP(KTEvaluatorProperty, MeansWhatTheTreeMeansWhenEachValueIsAskedFor, ()) { CompareOver(false); }
