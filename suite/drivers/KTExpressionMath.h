// What the operators and functions of expressions compute.
#pragma once

#include <cfloat>
#include <cmath>
#include <cstdint>

#include "suite/drivers/KTExpression.h"

/// Each function has a type with `op`, Result, and Carries: whether arguments that aren't finite give a result that
/// isn't finite either. Where they do, the check may wait until somebody looks at the result.
///
/// Errors:  arguments outside the domain give a result that isn't finite.
/// Threads: stateless.
namespace kt::expression
{
using Op = KTExpressionOp;

inline bool Finite(double x) { return std::fabs(x) <= DBL_MAX; }

/// The 64 bits of a number's whole part. False when they don't hold it, or there is no such bit.
inline bool HasBit(double x, double n)
{
    return x >= -0x1p63 && x < 0x1p63 && n >= 0.0 && n <= 63.0 && n == static_cast<double>(static_cast<int>(n));
}
inline bool Bit(double x, double n)
{
    // Right shifts of negative numbers keep the sign: two's complement.
    return ((static_cast<std::int64_t>(x) >> static_cast<int>(n)) & 1) != 0;
}

struct Add
{
    static constexpr Op op = Op::add;
    static bool Carries(double, double) { return true; }
    static double Result(double x, double y) { return x + y; }
};
struct Subtract
{
    static constexpr Op op = Op::subtract;
    static bool Carries(double, double) { return true; }
    static double Result(double x, double y) { return x - y; }
};
struct Multiply
{
    static constexpr Op op = Op::multiply;
    static bool Carries(double, double) { return true; }
    static double Result(double x, double y) { return x * y; }
};
struct Divide
{
    static constexpr Op op = Op::divide;
    static bool Carries(double, double y) { return Finite(y); }  // 1 / inf is 0
    static double Result(double x, double y) { return x / y; }
};
struct Modulo
{
    static constexpr Op op = Op::modulo;
    static bool Carries(double, double y) { return Finite(y); }
    static double Result(double x, double y) { return std::fmod(x, y); }
};
struct Power
{
    static constexpr Op op = Op::power;
    static bool Carries(double x, double y) { return Finite(x) && Finite(y); }  // NaN ^ 0 is 1
    // Squares are what expressions raise to most, and one multiplication is as exact.
    static double Result(double x, double y) { return y == 2.0 ? x * x : std::pow(x, y); }
};
struct Minimum
{
    static constexpr Op op = Op::minimum;
    static bool Carries(double x, double y) { return Finite(x) && Finite(y); }
    static double Result(double x, double y) { return y < x ? y : x; }
};
struct Maximum
{
    static constexpr Op op = Op::maximum;
    static bool Carries(double x, double y) { return Finite(x) && Finite(y); }
    static double Result(double x, double y) { return y > x ? y : x; }
};

struct Negate
{
    static constexpr Op op = Op::negate;
    static bool Carries(double) { return true; }
    static double Result(double x) { return -x; }
};
struct Absolute
{
    static constexpr Op op = Op::absolute;
    static bool Carries(double) { return true; }
    static double Result(double x) { return std::fabs(x); }
};
struct SquareRoot
{
    static constexpr Op op = Op::squareRoot;
    static bool Carries(double) { return true; }
    static double Result(double x) { return std::sqrt(x); }
};
struct Exponential
{
    static constexpr Op op = Op::exponential;
    static bool Carries(double x) { return Finite(x); }  // exp(-inf) is 0
    static double Result(double x) { return std::exp(x); }
};
struct NaturalLogarithm
{
    static constexpr Op op = Op::naturalLogarithm;
    static bool Carries(double) { return true; }
    static double Result(double x) { return std::log(x); }
};
struct DecimalLogarithm
{
    static constexpr Op op = Op::decimalLogarithm;
    static bool Carries(double) { return true; }
    static double Result(double x) { return std::log10(x); }
};
struct Sine
{
    static constexpr Op op = Op::sine;
    static bool Carries(double) { return true; }
    static double Result(double x) { return std::sin(x); }
};
struct Cosine
{
    static constexpr Op op = Op::cosine;
    static bool Carries(double) { return true; }
    static double Result(double x) { return std::cos(x); }
};
struct Tangent
{
    static constexpr Op op = Op::tangent;
    static bool Carries(double) { return true; }
    static double Result(double x) { return std::tan(x); }
};
struct Floor
{
    static constexpr Op op = Op::floor;
    static bool Carries(double) { return true; }
    static double Result(double x) { return std::floor(x); }
};
struct Ceiling
{
    static constexpr Op op = Op::ceiling;
    static bool Carries(double) { return true; }
    static double Result(double x) { return std::ceil(x); }
};
struct Round
{
    static constexpr Op op = Op::round;
    static bool Carries(double) { return true; }
    static double Result(double x) { return std::round(x); }  // halves away from zero
};
struct Truncate
{
    static constexpr Op op = Op::truncate;
    static bool Carries(double) { return true; }
    static double Result(double x) { return std::trunc(x); }
};
struct Sign
{
    static constexpr Op op = Op::sign;
    static bool Carries(double x) { return Finite(x); }
    static double Result(double x) { return static_cast<double>((x > 0.0) - (x < 0.0)); }
};

struct Less
{
    static constexpr Op op = Op::less;
    static bool Holds(double x, double y) { return x < y; }
};
struct LessEqual
{
    static constexpr Op op = Op::lessEqual;
    static bool Holds(double x, double y) { return x <= y; }
};
struct Greater
{
    static constexpr Op op = Op::greater;
    static bool Holds(double x, double y) { return x > y; }
};
struct GreaterEqual
{
    static constexpr Op op = Op::greaterEqual;
    static bool Holds(double x, double y) { return x >= y; }
};
struct Equal
{
    static constexpr Op op = Op::equal;
    static bool Holds(double x, double y) { return x == y; }
};
struct NotEqual
{
    static constexpr Op op = Op::notEqual;
    static bool Holds(double x, double y) { return x != y; }
};

/// Calls `found` with the type of `op`, and gives what it gives; otherwise `otherwise`.
template <class... Types>
struct TypeList
{
    template <class Result, class Found>
    static Result Find(Op op, Result otherwise, Found found)
    {
        Result result = otherwise;
        (void)((Types::op == op && (result = found(Types{}), true)) || ...);
        return result;
    }
};

using BinaryFunctions = TypeList<Add, Subtract, Multiply, Divide, Modulo, Power, Minimum, Maximum>;
using UnaryFunctions = TypeList<Negate, Absolute, SquareRoot, Exponential, NaturalLogarithm, DecimalLogarithm, Sine,
                                Cosine, Tangent, Floor, Ceiling, Round, Truncate, Sign>;
using Comparisons = TypeList<Less, LessEqual, Greater, GreaterEqual, Equal, NotEqual>;
}  // namespace kt::expression
