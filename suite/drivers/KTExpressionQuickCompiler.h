// Makes the quick code of an expression.
#pragma once

#include <vector>

#include "suite/drivers/KTExpression.h"
#include "suite/drivers/KTExpressionProgram.h"
#include "suite/drivers/KTExpressionSteps.h"

/// Fuses each operator with the operands that lie in memory, and turns AND, OR, NOT and IF into skips from test to test,
/// so that a typical condition takes one step for each comparison.
///
/// Memory:  looks at the expression, which must outlive it.
class KTExpressionQuickCompiler
{
public:
    explicit KTExpressionQuickCompiler(const KTExpression& tree);

    std::vector<KTExpressionWord> code;
    std::vector<KTExpressionPlace> places;  // where cells have to be written
    int scratch = 0;                        // numbers that the code puts aside at most

private:
    using Node = KTExpression::Node;
    using Op = KTExpressionOp;
    using Source = KTExpressionSource;
    using Exit = KTExpressionExit;

    // Where a condition goes: on to the next step, to a label, or to the end with the expression's value.
    using Goal = int;
    static constexpr Goal next = -1;
    static constexpr Goal finishTrue = -2;
    static constexpr Goal finishFalse = -3;  // labels from 0 on

    struct Skip
    {
        std::size_t word;
        Goal label;
    };

    void FoldNumbers();
    void FoldNumber(std::size_t index);

    void Value(const Node& node);  // leaves the value in the accumulator
    void Chain(const Node& first, Op op);
    void Binary(Op op, bool leftInAccumulator, const Node& left, const Node& right);
    void Unary(Op op, const Node& operand);
    void ChoiceOfValues(const Node& node);
    void ValueOfCondition(const Node& node);

    void Condition(const Node& node, Goal onTrue, Goal onFalse);
    void Conjunction(const Node& node, Goal onTrue, Goal onFalse);
    void Disjunction(const Node& node, Goal onTrue, Goal onFalse);
    void ChoiceOfConditions(const Node& node, Goal onTrue, Goal onFalse);
    void Test(const Node& node, Goal onTrue, Goal onFalse);
    void Test(const Node& node, bool negated, Exit exit);
    void TestNotZero(const Node& node, bool negated, Exit exit);
    void TestOperands(Op op, bool negated, const Node& left, const Node& right, Exit exit);
    void GoTo(Goal goal);

    [[nodiscard]] const Node& Operand(const Node& node) const { return expression.At(node.first); }
    [[nodiscard]] const Node& Following(const Node& node) const { return expression.At(node.next); }
    [[nodiscard]] bool IsNumber(const Node& node) const;
    [[nodiscard]] double NumberOf(const Node& node) const;
    [[nodiscard]] Source SourceOf(const Node& node) const;

    void Emit(KTExpressionStep step);
    void EmitOperand(const Node& node);
    void EmitNumber(double number);
    void LoadNumber(double number);
    void EmitSkip(Goal label);
    void PutAside();
    Goal NewLabel();
    void Place(Goal label);
    void ResolveSkips();

    const KTExpression& expression;
    std::vector<double> folded;       // of each node: its value when it has no variable and is finite, else NaN
    std::vector<std::size_t> labels;  // the word of each
    std::vector<Skip> skips;
    int putAside = 0;  // numbers on the scratch at this point
};
