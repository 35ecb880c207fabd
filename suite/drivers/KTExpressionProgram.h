// A compiled expression as it lies in memory.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "host/KTDriver.h"

struct KTExpressionProgram;
union KTExpressionWord;

/// One instruction of the quick code. It takes its operands from the words behind `at`, and ends by calling the next one.
///
/// `accumulator` is the value at hand, `top` the first free place of the scratch numbers. The result is that of
/// KTPolaca::Evaluate.
using KTExpressionStep = int (*)(const KTExpressionWord* at, double accumulator, double* top,
                                 KTExpressionProgram& program, double& value);

/// One element of the quick code.
union KTExpressionWord
{
    KTExpressionStep step;
    const std::atomic<double>* cell;  // where a variable's value lies
    double number;
    std::ptrdiff_t skip;  // words from this one to the next step
};

/// What an item of the careful code does.
enum class KTExpressionItemOp : std::uint8_t
{
    number,       // pushes number `operand`
    variable,     // pushes the value of variable `operand`
    apply,        // replaces one or two numbers by what `function` makes of them
    truth,        // replaces a number by 1 or 0
    invert,       // replaces a number by 0 or 1
    keepIfFalse,  // goes on `operand` items further with the 0 that lies on top; takes it away otherwise
    keepIfTrue,
    takeIfFalse,  // takes a number away, and goes on `operand` items further when it was 0
    skip,         // goes on `operand` items further
    end
};

struct KTExpressionItem
{
    KTExpressionItemOp op;
    std::uint8_t function;  // KTExpressionOp
    std::uint16_t operand;
};

/// A variable that an expression names.
struct KTExpressionVariable
{
    const std::atomic<double>* cell;  // the driver's; one without value where the careful code has to look
    KTDriver* driver;                 // registered; null while the variable isn't found
    std::int32_t id;
    std::int32_t missing;      // why it isn't found: a result code of KTPolaca
    std::uint32_t deviceName;  // both in characters from Names()
    std::uint32_t variableName;
};

/// Where a variable's cell stands in the quick code.
struct KTExpressionPlace
{
    std::uint32_t word;
    std::uint32_t variable;
};

/// What an evaluation rarely needs: the head of a block that goes on with
///
///     variables | numbers | careful code | places | names
struct alignas(8) KTExpressionDetails
{
    std::uint32_t bytes;         // of this block
    std::uint32_t programBytes;  // of the block of the program
    std::uint16_t variableCount;
    std::uint16_t placeCount;
    std::uint16_t numbers;  // where the parts behind the variables begin, from the head, in units of 8 bytes
    std::uint16_t items;
    std::uint16_t places;
    std::uint16_t names;

    KTExpressionVariable* Variables() { return reinterpret_cast<KTExpressionVariable*>(this + 1); }
    double* Numbers() { return Part<double>(numbers); }
    KTExpressionItem* Items() { return Part<KTExpressionItem>(items); }
    KTExpressionPlace* Places() { return Part<KTExpressionPlace>(places); }
    wchar_t* Names() { return Part<wchar_t>(names); }

private:
    template <class T>
    T* Part(std::size_t units)
    {
        return reinterpret_cast<T*>(reinterpret_cast<std::uint64_t*>(this) + units);
    }
};

static_assert(std::is_trivially_copyable_v<KTExpressionDetails>);

/// The head of the block that holds what every evaluation needs, in the order in which it is needed:
///
///     head | quick code | scratch numbers
///
/// There are two codes for one expression. The careful code goes from left to right, reads each variable when its turn
/// comes and stops at the first failure: it says what an expression means. The quick code assumes that all goes well. It
/// reads the cells of the drivers, lets infinities and NaN pass where they stick to the result anyway, and leaves the
/// whole expression to the careful code as soon as it meets one where they wouldn't. So each failure, and each variable
/// without a cell, is told in one place, and the usual evaluation doesn't pay for it.
///
/// Errors:  the results of Evaluate are those of KTPolaca::Evaluate.
/// Threads: one at a time; the registry and the values may change meanwhile.
/// Memory:  plain bytes throughout, so a copy of both blocks is a copy of the program, and bound as it was.
struct KTExpressionProgram
{
    const std::atomic<std::uint32_t>* registry;  // KTDriver::Generation()
    std::uint32_t generation;                    // of the registry when the variables were looked up; 0 means never
    std::uint8_t kind;                           // 1 logical, 0 numeric
    std::uint8_t onlyName;                       // 1: one name in brackets and nothing else
    std::uint16_t scratch;                       // where the scratch numbers begin, from the head, in units of 8 bytes
    KTExpressionDetails* details;                // not owned

    int Evaluate(double& value)
    {
        if (registry->load(std::memory_order_acquire) != generation) [[unlikely]]
            return EvaluateBinding(value);
        return Run(value);
    }

    /// Forgets nothing and assumes nothing; for the quick code when it can't go on.
    int EvaluateCarefully(double& value);

    KTExpressionWord* Code() { return reinterpret_cast<KTExpressionWord*>(this + 1); }
    double* Scratch() { return reinterpret_cast<double*>(reinterpret_cast<std::uint64_t*>(this) + scratch); }

private:
    int Run(double& value)
    {
        const KTExpressionWord* const code = Code();
        return code->step(code, 0.0, Scratch(), *this, value);
    }

    int EvaluateBinding(double& value);
    void LookUp(KTExpressionVariable& variable);
    void FillPlaces();
    int Compute(double& value);
    int Read(KTExpressionVariable& variable, double& value);
};

static_assert(std::is_trivially_copyable_v<KTExpressionProgram> && sizeof(KTExpressionProgram) == 24);
