#include "tests/drivers/NaiveExpression.h"

#include <cmath>
#include <cstdint>
#include <cstdio>

namespace
{
constexpr int divisionByZero = 50;
constexpr int outsideDomain = 51;

NaiveOutcome Checked(double value)
{
    return std::isfinite(value) ? NaiveOutcome{0, value} : NaiveOutcome{outsideDomain, 0.0};
}

NaiveOutcome Logic(bool value) { return {0, value ? 1.0 : 0.0}; }

NaiveOutcome BitOf(double value, double n)
{
    const double whole = std::trunc(value);
    if (whole < -std::ldexp(1.0, 63) || whole >= std::ldexp(1.0, 63)) return {outsideDomain, 0.0};
    if (n != std::trunc(n) || n < 0 || n > 63) return {outsideDomain, 0.0};
    // The bits of a negative number are those of the number before it in size, each the other way round.
    const bool negative = whole < 0;
    std::uint64_t rest = negative ? static_cast<std::uint64_t>(-whole) - 1 : static_cast<std::uint64_t>(whole);
    for (int i = 0; i < static_cast<int>(n); ++i) rest /= 2;
    return Logic((rest % 2 == 1) != negative);
}

NaiveOutcome Apply(const std::string& op, double x)
{
    if (op == "+") return {0, x};
    if (op == "-") return {0, -x};
    if (op == "NOT") return Logic(x == 0);
    if (op == "ABS") return {0, x < 0 ? -x : x};
    if (op == "SQRT") return Checked(std::sqrt(x));
    if (op == "EXP") return Checked(std::exp(x));
    if (op == "LN") return Checked(std::log(x));
    if (op == "LOG10") return Checked(std::log10(x));
    if (op == "SIN") return Checked(std::sin(x));
    if (op == "COS") return Checked(std::cos(x));
    if (op == "TAN") return Checked(std::tan(x));
    if (op == "FLOOR") return {0, std::floor(x)};
    if (op == "CEIL") return {0, std::ceil(x)};
    if (op == "ROUND") return {0, std::round(x)};
    if (op == "TRUNC") return {0, std::trunc(x)};
    return {0, x > 0 ? 1.0 : (x < 0 ? -1.0 : 0.0)};  // SIGN
}

NaiveOutcome Apply(const std::string& op, double x, double y)
{
    if (op == "=") return Logic(x == y);
    if (op == "<>") return Logic(x != y);
    if (op == "<") return Logic(x < y);
    if (op == "<=") return Logic(x <= y);
    if (op == ">") return Logic(x > y);
    if (op == ">=") return Logic(x >= y);
    if (op == "+") return Checked(x + y);
    if (op == "-") return Checked(x - y);
    if (op == "*") return Checked(x * y);
    if ((op == "/" || op == "%" || op == "MOD") && y == 0) return {divisionByZero, 0.0};
    if (op == "/") return Checked(x / y);
    if (op == "%" || op == "MOD") return Checked(std::fmod(x, y));
    if (op == "^" || op == "POW") return Checked(y == 2 ? x * x : std::pow(x, y));
    if (op == "MIN") return {0, x < y ? x : y};
    if (op == "MAX") return {0, x > y ? x : y};
    return BitOf(x, y);
}
}  // namespace

bool NaiveExpression::Logical() const
{
    for (const char* logical : {"=", "<>", "<", "<=", ">", ">=", "NOT", "AND", "OR", "TRUE", "FALSE", "BIT"})
        if (op == logical) return true;
    return op == "IF" && operands[1].Logical() && operands[2].Logical();
}

NaiveOutcome NaiveExpression::Evaluate(const std::vector<Variable>& variables) const
{
    if (op == "#") return Checked(number);
    if (op == "TRUE" || op == "FALSE") return Logic(op == "TRUE");
    if (op == "[") return variables[static_cast<std::size_t>(variable)].outcome;
    const NaiveOutcome first = operands[0].Evaluate(variables);
    if (first.code != 0) return first;
    if (op == "IF") return operands[first.value != 0 ? 1 : 2].Evaluate(variables);
    if (op == "AND" || op == "OR")
    {
        if ((first.value != 0) == (op == "OR")) return Logic(op == "OR");
        const NaiveOutcome second = operands[1].Evaluate(variables);
        return second.code != 0 ? second : Logic(second.value != 0);
    }
    if (operands.size() == 1) return op == "MIN" || op == "MAX" ? first : Apply(op, first.value);
    NaiveOutcome result = first;
    for (std::size_t i = 1; i < operands.size(); ++i)
    {
        const NaiveOutcome next = operands[i].Evaluate(variables);
        if (next.code != 0) return next;
        result = Apply(op, result.value, next.value);
        if (result.code != 0) return result;
    }
    return result;
}

int NaiveExpression::Binding() const
{
    if (op == "OR") return 0;
    if (op == "AND") return 1;
    if (op == "NOT") return 2;
    if (op == "=" || op == "<>" || op == "<" || op == "<=" || op == ">" || op == ">=") return 3;
    if (op == "+" || op == "-") return operands.size() == 1 ? 6 : 4;
    if (op == "*" || op == "/" || op == "%") return 5;
    return op == "^" ? 7 : 8;
}

std::wstring naive::Digits(double number)
{
    char digits[40];
    std::snprintf(digits, sizeof digits, "%.17g", number);
    const std::string text = digits;
    return std::isfinite(number) ? std::wstring(text.begin(), text.end()) : L"1e999";
}
