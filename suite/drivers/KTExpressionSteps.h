// The instructions of the quick code.
#pragma once

#include "suite/drivers/KTExpression.h"
#include "suite/drivers/KTExpressionProgram.h"

/// Where a step takes an operand from. A cell and a number stand in a word behind the step, the first operand first.
enum class KTExpressionSource : std::uint8_t
{
    cell,
    number,
    accumulator,
    scratch  // the number that was put aside last
};

/// What a test does with its outcome. The skip stands in the last word of the step.
enum class KTExpressionExit : std::uint8_t
{
    value,          // accumulator 1 or 0
    finish,         // the expression's value is 1 or 0
    finishIfTrue,   // the expression's value is 1; goes on otherwise
    finishIfFalse,  // the expression's value is 0; goes on otherwise
    skipIfTrue,
    skipIfFalse
};

/// Each step is a function that ends by calling the next: no loop and no dispatcher stands between them, the values at
/// hand stay in registers, and the processor learns each jump by itself. Steps only go forward, so even where the
/// compiler makes real calls of them the stack is bounded by the length of the text.
///
/// Errors:  null where there is no such step; the operands then have to be brought elsewhere first.
/// Threads: stateless.
class KTExpressionSteps
{
public:
    using Op = KTExpressionOp;
    using Source = KTExpressionSource;
    using Exit = KTExpressionExit;

    /// An operation on two numbers; the result goes to the accumulator.
    static KTExpressionStep Binary(Op op, Source left, Source right);
    static KTExpressionStep Unary(Op op, Source operand);

    /// A comparison or BIT; `negated` turns the outcome round.
    static KTExpressionStep Test(Op op, bool negated, Source left, Source right, Exit exit);

    static KTExpressionStep Load(Source operand);    // into the accumulator
    static KTExpressionStep Finish(Source operand);  // the expression's value
    static KTExpressionStep PutAside();              // the accumulator onto the scratch numbers
    static KTExpressionStep Skip();                  // the skip stands behind it
    static KTExpressionStep LeaveToCareful();
};
