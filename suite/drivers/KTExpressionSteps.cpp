#include "suite/drivers/KTExpressionSteps.h"

#include "suite/drivers/KTExpressionMath.h"

namespace
{
using namespace kt::expression;
using Source = KTExpressionSource;
using Exit = KTExpressionExit;
using Step = KTExpressionStep;
using Word = KTExpressionWord;
using Program = KTExpressionProgram;

// The operands: how many words they take behind the step, and how they are read.
struct Cell
{
    static constexpr int words = 1;
    static double Take(const Word* word, double, double*&) { return word->cell->load(std::memory_order_relaxed); }
};
struct Number
{
    static constexpr int words = 1;
    static double Take(const Word* word, double, double*&) { return word->number; }
};
struct Accumulator
{
    static constexpr int words = 0;
    static double Take(const Word*, double accumulator, double*&) { return accumulator; }
};
struct Scratch
{
    static constexpr int words = 0;
    static double Take(const Word*, double, double*& top) { return *--top; }
};

int Next(const Word* at, double accumulator, double* top, Program& program, double& value)
{
    return at->step(at, accumulator, top, program, value);
}

template <class Function, class Left, class Right>
int BinaryStep(const Word* at, double accumulator, double* top, Program& program, double& value)
{
    const double left = Left::Take(at + 1, accumulator, top);
    const double right = Right::Take(at + 1 + Left::words, accumulator, top);
    if (!Function::Carries(left, right)) [[unlikely]]
        return program.EvaluateCarefully(value);
    return Next(at + 1 + Left::words + Right::words, Function::Result(left, right), top, program, value);
}

template <class Function, class Operand>
int UnaryStep(const Word* at, double accumulator, double* top, Program& program, double& value)
{
    const double operand = Operand::Take(at + 1, accumulator, top);
    if (!Function::Carries(operand)) [[unlikely]]
        return program.EvaluateCarefully(value);
    return Next(at + 1 + Operand::words, Function::Result(operand), top, program, value);
}

// The tests: whether the operands can be judged, and the outcome.
template <class Comparison>
struct Comparing
{
    // One look for two operands: the difference is finite only when both are. Where it overflows the careful code
    // compares them as well.
    static bool Judges(double left, double right) { return Finite(left - right); }
    static bool Holds(double left, double right) { return Comparison::Holds(left, right); }
};
template <bool wanted>
struct TestingBit
{
    static bool Judges(double left, double right) { return HasBit(left, right); }
    static bool Holds(double left, double right) { return Bit(left, right) == wanted; }
};

int FinishWith(bool outcome, double& value)
{
    value = outcome ? 1.0 : 0.0;
    return 0;
}

// The exits: what is done with the outcome of a test whose operands end before `at`.
struct ToValue
{
    static int Go(bool outcome, const Word* at, double* top, Program& program, double& value)
    {
        return Next(at, outcome ? 1.0 : 0.0, top, program, value);
    }
};
struct ToFinish
{
    static int Go(bool outcome, const Word*, double*, Program&, double& value) { return FinishWith(outcome, value); }
};
template <bool finishing>
struct ToFinishIf
{
    static int Go(bool outcome, const Word* at, double* top, Program& program, double& value)
    {
        if (outcome == finishing) return FinishWith(outcome, value);
        return Next(at, 0.0, top, program, value);
    }
};
template <bool skipping>
struct ToSkipIf
{
    static int Go(bool outcome, const Word* at, double* top, Program& program, double& value)
    {
        return Next(outcome == skipping ? at + at->skip : at + 1, 0.0, top, program, value);
    }
};

template <class Test, class Left, class Right, class To>
int TestStep(const Word* at, double accumulator, double* top, Program& program, double& value)
{
    const double left = Left::Take(at + 1, accumulator, top);
    const double right = Right::Take(at + 1 + Left::words, accumulator, top);
    if (!Test::Judges(left, right)) [[unlikely]]
        return program.EvaluateCarefully(value);
    return To::Go(Test::Holds(left, right), at + 1 + Left::words + Right::words, top, program, value);
}

template <class Operand>
int LoadStep(const Word* at, double accumulator, double* top, Program& program, double& value)
{
    return Next(at + 1 + Operand::words, Operand::Take(at + 1, accumulator, top), top, program, value);
}

template <class Operand>
int FinishStep(const Word* at, double accumulator, double* top, Program& program, double& value)
{
    const double result = Operand::Take(at + 1, accumulator, top);
    if (!Finite(result)) [[unlikely]]
        return program.EvaluateCarefully(value);
    value = result;
    return 0;
}

int PutAsideStep(const Word* at, double accumulator, double* top, Program& program, double& value)
{
    *top = accumulator;
    return Next(at + 1, accumulator, top + 1, program, value);
}

int SkipStep(const Word* at, double accumulator, double* top, Program& program, double& value)
{
    return Next(at + 1 + at[1].skip, accumulator, top, program, value);
}

int LeaveToCarefulStep(const Word*, double, double*, Program& program, double& value)
{
    return program.EvaluateCarefully(value);
}

struct ByOperands
{
    Source left;
    Source right;
    Step step;
};

template <std::size_t count>
Step Find(const ByOperands (&steps)[count], Source left, Source right)
{
    for (const ByOperands& row : steps)
        if (row.left == left && row.right == right) return row.step;
    return nullptr;
}

template <class Function>
Step PickBinary(Source left, Source right)
{
    static constexpr ByOperands steps[] = {
        {Source::cell, Source::cell, &BinaryStep<Function, Cell, Cell>},
        {Source::cell, Source::number, &BinaryStep<Function, Cell, Number>},
        {Source::number, Source::cell, &BinaryStep<Function, Number, Cell>},
        {Source::accumulator, Source::cell, &BinaryStep<Function, Accumulator, Cell>},
        {Source::accumulator, Source::number, &BinaryStep<Function, Accumulator, Number>},
        {Source::cell, Source::accumulator, &BinaryStep<Function, Cell, Accumulator>},
        {Source::number, Source::accumulator, &BinaryStep<Function, Number, Accumulator>},
        {Source::scratch, Source::accumulator, &BinaryStep<Function, Scratch, Accumulator>},
    };
    return Find(steps, left, right);
}

template <class Test, class To>
Step PickTest(Source left, Source right)
{
    static constexpr ByOperands steps[] = {
        {Source::cell, Source::cell, &TestStep<Test, Cell, Cell, To>},
        {Source::cell, Source::number, &TestStep<Test, Cell, Number, To>},
        {Source::accumulator, Source::cell, &TestStep<Test, Accumulator, Cell, To>},
        {Source::accumulator, Source::number, &TestStep<Test, Accumulator, Number, To>},
        {Source::scratch, Source::accumulator, &TestStep<Test, Scratch, Accumulator, To>},
    };
    return Find(steps, left, right);
}

template <class Test>
Step PickTest(Source left, Source right, Exit exit)
{
    switch (exit)
    {
        case Exit::value:
            return PickTest<Test, ToValue>(left, right);
        case Exit::finish:
            return PickTest<Test, ToFinish>(left, right);
        case Exit::finishIfTrue:
            return PickTest<Test, ToFinishIf<true>>(left, right);
        case Exit::finishIfFalse:
            return PickTest<Test, ToFinishIf<false>>(left, right);
        case Exit::skipIfTrue:
            return PickTest<Test, ToSkipIf<true>>(left, right);
        case Exit::skipIfFalse:
            return PickTest<Test, ToSkipIf<false>>(left, right);
    }
    return nullptr;
}

// Finite operands always compare one way or the other, so each comparison has an opposite.
Op Opposite(Op comparison)
{
    switch (comparison)
    {
        case Op::less:
            return Op::greaterEqual;
        case Op::lessEqual:
            return Op::greater;
        case Op::greater:
            return Op::lessEqual;
        case Op::greaterEqual:
            return Op::less;
        case Op::equal:
            return Op::notEqual;
        default:
            return Op::equal;
    }
}
}  // namespace

Step KTExpressionSteps::Binary(Op op, Source left, Source right)
{
    return BinaryFunctions::Find<Step>(op, nullptr,
                                       [&](auto function) { return PickBinary<decltype(function)>(left, right); });
}

Step KTExpressionSteps::Unary(Op op, Source operand)
{
    return UnaryFunctions::Find<Step>(op, nullptr,
                                      [&](auto function) -> Step
                                      {
                                          using Function = decltype(function);
                                          if (operand == Source::cell) return &UnaryStep<Function, Cell>;
                                          return &UnaryStep<Function, Accumulator>;
                                      });
}

Step KTExpressionSteps::Test(Op op, bool negated, Source left, Source right, Exit exit)
{
    if (op == Op::bit)
        return negated ? PickTest<TestingBit<false>>(left, right, exit) : PickTest<TestingBit<true>>(left, right, exit);
    return Comparisons::Find<Step>(negated ? Opposite(op) : op, nullptr,
                                   [&](auto comparison)
                                   { return PickTest<Comparing<decltype(comparison)>>(left, right, exit); });
}

Step KTExpressionSteps::Load(Source operand) { return operand == Source::cell ? &LoadStep<Cell> : &LoadStep<Number>; }

Step KTExpressionSteps::Finish(Source operand)
{
    if (operand == Source::cell) return &FinishStep<Cell>;
    return operand == Source::number ? &FinishStep<Number> : &FinishStep<Accumulator>;
}

Step KTExpressionSteps::PutAside() { return &PutAsideStep; }
Step KTExpressionSteps::Skip() { return &SkipStep; }
Step KTExpressionSteps::LeaveToCareful() { return &LeaveToCarefulStep; }
