// Makes the careful code of an expression.
#pragma once

#include <vector>

#include "suite/drivers/KTExpression.h"
#include "suite/drivers/KTExpressionProgram.h"

/// Reverse Polish, item by item as the text says it.
///
/// Memory:  looks at the expression, which must outlive it.
class KTExpressionCarefulCompiler
{
public:
    explicit KTExpressionCarefulCompiler(const KTExpression& tree);

    std::vector<KTExpressionItem> code;
    std::vector<double> numbers;
    int scratch = 0;  // numbers on the stack at most

private:
    using Node = KTExpression::Node;
    using Op = KTExpressionOp;
    using ItemOp = KTExpressionItemOp;

    void Value(const Node& node);
    void Truth(const Node& node);  // as 1 or 0
    void Function(const Node& node);
    void Shortcut(const Node& node, ItemOp leave);
    void Choice(const Node& node);

    [[nodiscard]] const Node& Operand(const Node& node) const { return expression.At(node.first); }
    [[nodiscard]] const Node& Following(const Node& node) const { return expression.At(node.next); }

    std::size_t Emit(ItemOp op, Op function, std::size_t operand, int growth);
    void SkipToHere(std::size_t from);

    const KTExpression& expression;
    int height = 0;
};
