#include "suite/drivers/KTExpressionCarefulCompiler.h"

#include <algorithm>

KTExpressionCarefulCompiler::KTExpressionCarefulCompiler(const KTExpression& tree) : expression(tree)
{
    Value(expression.Root());
    Emit(ItemOp::end, Op::number, 0, 0);
}

void KTExpressionCarefulCompiler::Value(const Node& node)
{
    switch (node.op)
    {
        case Op::number:
            Emit(ItemOp::number, node.op, numbers.size(), 1);
            numbers.push_back(node.number);
            break;
        case Op::name:
            Emit(ItemOp::variable, node.op, static_cast<std::size_t>(node.name), 1);
            break;
        case Op::plus:
            Value(Operand(node));
            break;
        case Op::negation:
            Value(Operand(node));
            Emit(ItemOp::invert, node.op, 0, 0);
            break;
        case Op::conjunction:
            Shortcut(node, ItemOp::keepIfFalse);
            break;
        case Op::disjunction:
            Shortcut(node, ItemOp::keepIfTrue);
            break;
        case Op::choice:
            Choice(node);
            break;
        default:
            Function(node);
    }
}

void KTExpressionCarefulCompiler::Truth(const Node& node)
{
    Value(node);
    if (!node.logical) Emit(ItemOp::truth, node.op, 0, 0);
}

void KTExpressionCarefulCompiler::Function(const Node& node)
{
    const Node* operand = &Operand(node);
    Value(*operand);
    const bool unary = node.op == Op::negate || node.op >= Op::absolute;
    if (unary) Emit(ItemOp::apply, node.op, 1, 0);
    while (operand->next != KTExpression::none)
    {
        operand = &Following(*operand);
        Value(*operand);
        Emit(ItemOp::apply, node.op == Op::chain ? operand->joint : node.op, 2, -1);
    }
}

// AND and OR: the first operand that decides stays as the result.
void KTExpressionCarefulCompiler::Shortcut(const Node& node, ItemOp leave)
{
    std::vector<std::size_t> leaving;
    const Node* operand = &Operand(node);
    for (; operand->next != KTExpression::none; operand = &Following(*operand))
    {
        Truth(*operand);
        leaving.push_back(Emit(leave, node.op, 0, -1));
    }
    Truth(*operand);
    for (const std::size_t from : leaving) SkipToHere(from);
}

void KTExpressionCarefulCompiler::Choice(const Node& node)
{
    const Node& condition = Operand(node);
    const Node& whenTrue = Following(condition);
    Value(condition);
    const std::size_t otherwise = Emit(ItemOp::takeIfFalse, node.op, 0, -1);
    Value(whenTrue);
    const std::size_t end = Emit(ItemOp::skip, node.op, 0, -1);
    SkipToHere(otherwise);
    Value(Following(whenTrue));
    SkipToHere(end);
}

std::size_t KTExpressionCarefulCompiler::Emit(ItemOp op, Op function, std::size_t operand, int growth)
{
    code.push_back({op, static_cast<std::uint8_t>(function), static_cast<std::uint16_t>(operand)});
    height += growth;
    scratch = std::max(scratch, height);
    return code.size() - 1;
}

void KTExpressionCarefulCompiler::SkipToHere(std::size_t from)
{
    code[from].operand = static_cast<std::uint16_t>(code.size() - from);
}
