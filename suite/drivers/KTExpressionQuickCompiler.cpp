#include "suite/drivers/KTExpressionQuickCompiler.h"

#include <algorithm>
#include <limits>

#include "suite/drivers/KTExpressionMath.h"

namespace
{
using namespace kt::expression;

bool IsComparison(Op op) { return op >= Op::less && op <= Op::notEqual; }

// The comparison that says the same of exchanged operands.
Op Mirrored(Op comparison)
{
    switch (comparison)
    {
        case Op::less:
            return Op::greater;
        case Op::lessEqual:
            return Op::greaterEqual;
        case Op::greater:
            return Op::less;
        case Op::greaterEqual:
            return Op::lessEqual;
        default:
            return comparison;
    }
}

double Apply(Op op, double x, double y)
{
    return BinaryFunctions::Find<double>(op, 0.0, [&](auto function) { return function.Result(x, y); });
}
}  // namespace

KTExpressionQuickCompiler::KTExpressionQuickCompiler(const KTExpression& tree) : expression(tree)
{
    FoldNumbers();
    const Node& root = expression.Root();
    if (root.logical)
    {
        Condition(root, finishTrue, finishFalse);
    }
    else if (SourceOf(root) != Source::accumulator)
    {
        Emit(KTExpressionSteps::Finish(SourceOf(root)));
        EmitOperand(root);
    }
    else
    {
        Value(root);
        Emit(KTExpressionSteps::Finish(Source::accumulator));
    }
    ResolveSkips();
}

// Operands stand before their nodes, so one pass is enough. A result that isn't finite stays what the text says: it's the
// evaluation that has to tell it.
void KTExpressionQuickCompiler::FoldNumbers()
{
    folded.assign(expression.nodes.size(), std::numeric_limits<double>::quiet_NaN());
    for (std::size_t i = 0; i < folded.size(); ++i) FoldNumber(i);
}

void KTExpressionQuickCompiler::FoldNumber(std::size_t index)
{
    const Node& node = expression.nodes[index];
    double result = std::numeric_limits<double>::quiet_NaN();
    if (node.op == Op::number) result = node.number;
    if (node.op == Op::plus) result = NumberOf(Operand(node));
    if (node.op == Op::negate) result = -NumberOf(Operand(node));
    if (node.op == Op::chain)
    {
        const Node* operand = &Operand(node);
        for (result = NumberOf(*operand); operand->next != KTExpression::none;)
        {
            operand = &Following(*operand);
            result = Apply(operand->joint, result, NumberOf(*operand));
            if (!Finite(result)) break;
        }
    }
    if (Finite(result)) folded[index] = result;
}

double KTExpressionQuickCompiler::NumberOf(const Node& node) const
{
    return folded[static_cast<std::size_t>(&node - expression.nodes.data())];
}

bool KTExpressionQuickCompiler::IsNumber(const Node& node) const { return Finite(NumberOf(node)); }

KTExpressionSource KTExpressionQuickCompiler::SourceOf(const Node& node) const
{
    if (IsNumber(node)) return Source::number;
    return node.op == Op::name ? Source::cell : Source::accumulator;
}

void KTExpressionQuickCompiler::Value(const Node& node)
{
    if (SourceOf(node) != Source::accumulator)
    {
        Emit(KTExpressionSteps::Load(SourceOf(node)));
        return EmitOperand(node);
    }
    switch (node.op)
    {
        case Op::number:  // more than a double holds
            return Emit(KTExpressionSteps::LeaveToCareful());
        case Op::plus:
            return Value(Operand(node));
        case Op::chain:
        case Op::modulo:
        case Op::power:
        case Op::minimum:
        case Op::maximum:
            return Chain(Operand(node), node.op);
        case Op::choice:
            return node.logical ? ValueOfCondition(node) : ChoiceOfValues(node);
        default:
            return node.logical ? ValueOfCondition(node) : Unary(node.op, Operand(node));
    }
}

void KTExpressionQuickCompiler::Chain(const Node& first, Op op)
{
    if (first.next == KTExpression::none) return Value(first);  // MIN or MAX of one
    bool leftInAccumulator = false;
    for (const Node* left = &first; left->next != KTExpression::none; left = &Following(*left))
    {
        const Node& right = Following(*left);
        Binary(op == Op::chain ? right.joint : op, leftInAccumulator, *left, right);
        leftInAccumulator = true;
    }
}

void KTExpressionQuickCompiler::Binary(Op op, bool leftInAccumulator, const Node& left, const Node& right)
{
    Source leftSource = leftInAccumulator ? Source::accumulator : SourceOf(left);
    Source rightSource = SourceOf(right);
    if (leftSource == Source::accumulator && !leftInAccumulator) Value(left);
    if (leftSource == Source::number && rightSource == Source::number)
    {
        Value(left);
        leftSource = Source::accumulator;
    }
    if (rightSource == Source::accumulator)
    {
        const bool aside = leftSource == Source::accumulator;
        if (aside) PutAside();
        Value(right);
        if (aside) --putAside;
        if (aside) leftSource = Source::scratch;
    }
    Emit(KTExpressionSteps::Binary(op, leftSource, rightSource));
    if (leftSource == Source::cell || leftSource == Source::number) EmitOperand(left);
    if (rightSource != Source::accumulator) EmitOperand(right);
}

void KTExpressionQuickCompiler::Unary(Op op, const Node& operand)
{
    const Source source = SourceOf(operand) == Source::cell ? Source::cell : Source::accumulator;
    if (source == Source::accumulator) Value(operand);
    Emit(KTExpressionSteps::Unary(op, source));
    if (source == Source::cell) EmitOperand(operand);
}

void KTExpressionQuickCompiler::ChoiceOfValues(const Node& node)
{
    const Node& condition = Operand(node);
    const Node& whenTrue = Following(condition);
    const Goal otherwise = NewLabel();
    const Goal end = NewLabel();
    Condition(condition, next, otherwise);
    Value(whenTrue);
    GoTo(end);
    Place(otherwise);
    Value(Following(whenTrue));
    Place(end);
}

void KTExpressionQuickCompiler::ValueOfCondition(const Node& node)
{
    if (IsComparison(node.op) || node.op == Op::bit) return Test(node, false, Exit::value);
    const Goal otherwise = NewLabel();
    const Goal end = NewLabel();
    Condition(node, next, otherwise);
    LoadNumber(1.0);
    GoTo(end);
    Place(otherwise);
    LoadNumber(0.0);
    Place(end);
}

void KTExpressionQuickCompiler::Condition(const Node& node, Goal onTrue, Goal onFalse)
{
    if (IsNumber(node)) return GoTo(NumberOf(node) != 0.0 ? onTrue : onFalse);
    if (node.op == Op::negation) return Condition(Operand(node), onFalse, onTrue);
    if (node.op == Op::conjunction) return Conjunction(node, onTrue, onFalse);
    if (node.op == Op::disjunction) return Disjunction(node, onTrue, onFalse);
    if (node.op == Op::choice) return ChoiceOfConditions(node, onTrue, onFalse);
    Test(node, onTrue, onFalse);
}

void KTExpressionQuickCompiler::Conjunction(const Node& node, Goal onTrue, Goal onFalse)
{
    const Goal end = NewLabel();
    const Node* operand = &Operand(node);
    for (; operand->next != KTExpression::none; operand = &Following(*operand))
        Condition(*operand, next, onFalse == next ? end : onFalse);
    Condition(*operand, onTrue, onFalse);
    Place(end);
}

void KTExpressionQuickCompiler::Disjunction(const Node& node, Goal onTrue, Goal onFalse)
{
    const Goal end = NewLabel();
    const Node* operand = &Operand(node);
    for (; operand->next != KTExpression::none; operand = &Following(*operand))
        Condition(*operand, onTrue == next ? end : onTrue, next);
    Condition(*operand, onTrue, onFalse);
    Place(end);
}

void KTExpressionQuickCompiler::ChoiceOfConditions(const Node& node, Goal onTrue, Goal onFalse)
{
    const Node& condition = Operand(node);
    const Node& whenTrue = Following(condition);
    const Goal otherwise = NewLabel();
    const Goal end = NewLabel();
    Condition(condition, next, otherwise);
    Condition(whenTrue, onTrue == next ? end : onTrue, onFalse == next ? end : onFalse);
    Place(otherwise);
    Condition(Following(whenTrue), onTrue, onFalse);
    Place(end);
}

// A test goes on to the next step on one side at most; the exit follows from the other side.
void KTExpressionQuickCompiler::Test(const Node& node, Goal onTrue, Goal onFalse)
{
    if (onTrue == next)
    {
        if (onFalse == finishFalse) return Test(node, false, Exit::finishIfFalse);
        if (onFalse == finishTrue) return Test(node, true, Exit::finishIfTrue);
        Test(node, false, Exit::skipIfFalse);
        return EmitSkip(onFalse);
    }
    if (onFalse == next)
    {
        if (onTrue == finishTrue) return Test(node, false, Exit::finishIfTrue);
        if (onTrue == finishFalse) return Test(node, true, Exit::finishIfFalse);
        Test(node, false, Exit::skipIfTrue);
        return EmitSkip(onTrue);
    }
    if (onTrue == finishTrue && onFalse == finishFalse) return Test(node, false, Exit::finish);
    if (onTrue == finishFalse && onFalse == finishTrue) return Test(node, true, Exit::finish);
    Test(node, onTrue, next);
    GoTo(onFalse);
}

void KTExpressionQuickCompiler::Test(const Node& node, bool negated, Exit exit)
{
    if (!IsComparison(node.op) && node.op != Op::bit) return TestNotZero(node, negated, exit);
    const Node& left = Operand(node);
    const Node& right = Following(left);
    // A comparison has steps only with the more laborious operand on the left.
    const bool exchange = IsComparison(node.op) && SourceOf(right) != Source::number &&
                          (SourceOf(left) == Source::number ||
                           (SourceOf(left) == Source::cell && SourceOf(right) == Source::accumulator));
    if (exchange) return TestOperands(Mirrored(node.op), negated, right, left, exit);
    TestOperands(node.op, negated, left, right, exit);
}

void KTExpressionQuickCompiler::TestNotZero(const Node& node, bool negated, Exit exit)
{
    const Source source = SourceOf(node);
    if (source == Source::accumulator) Value(node);
    Emit(KTExpressionSteps::Test(Op::notEqual, negated, source, Source::number, exit));
    if (source == Source::cell) EmitOperand(node);
    EmitNumber(0.0);
}

void KTExpressionQuickCompiler::TestOperands(Op op, bool negated, const Node& left, const Node& right, Exit exit)
{
    Source leftSource = SourceOf(left);
    const Source rightSource = SourceOf(right);
    if (leftSource != Source::cell || rightSource == Source::accumulator)
    {
        Value(left);
        leftSource = Source::accumulator;
    }
    if (rightSource == Source::accumulator)
    {
        PutAside();
        Value(right);
        --putAside;
        leftSource = Source::scratch;
    }
    Emit(KTExpressionSteps::Test(op, negated, leftSource, rightSource, exit));
    if (leftSource == Source::cell) EmitOperand(left);
    if (rightSource != Source::accumulator) EmitOperand(right);
}

void KTExpressionQuickCompiler::GoTo(Goal goal)
{
    if (goal == next) return;
    if (goal < 0)
    {
        Emit(KTExpressionSteps::Finish(Source::number));
        return EmitNumber(goal == finishTrue ? 1.0 : 0.0);
    }
    Emit(KTExpressionSteps::Skip());
    EmitSkip(goal);
}

void KTExpressionQuickCompiler::Emit(KTExpressionStep step) { code.push_back({.step = step}); }

void KTExpressionQuickCompiler::EmitOperand(const Node& node)
{
    if (IsNumber(node)) return EmitNumber(NumberOf(node));
    places.push_back({static_cast<std::uint32_t>(code.size()), static_cast<std::uint32_t>(node.name)});
    code.push_back({.cell = nullptr});
}

void KTExpressionQuickCompiler::EmitNumber(double number) { code.push_back({.number = number}); }

void KTExpressionQuickCompiler::LoadNumber(double number)
{
    Emit(KTExpressionSteps::Load(Source::number));
    EmitNumber(number);
}

void KTExpressionQuickCompiler::EmitSkip(Goal label)
{
    skips.push_back({code.size(), label});
    code.push_back({.skip = 0});
}

void KTExpressionQuickCompiler::PutAside()
{
    Emit(KTExpressionSteps::PutAside());
    scratch = std::max(scratch, ++putAside);
}

KTExpressionQuickCompiler::Goal KTExpressionQuickCompiler::NewLabel()
{
    labels.push_back(0);
    return static_cast<Goal>(labels.size()) - 1;
}

void KTExpressionQuickCompiler::Place(Goal label) { labels[static_cast<std::size_t>(label)] = code.size(); }

void KTExpressionQuickCompiler::ResolveSkips()
{
    for (const Skip& skip : skips)
        code[skip.word].skip = static_cast<std::ptrdiff_t>(labels[static_cast<std::size_t>(skip.label)] - skip.word);
}
