// Expressions as trees that are written and evaluated in the most obvious way, to compare the evaluator with.
#pragma once

#include <limits>
#include <string>
#include <vector>

/// What an evaluation gives.
struct NaiveOutcome
{
    int code = 0;
    double value = 0.0;
};

/// A node: the operator, function or word in upper case with its operands; "#" a number; "[" a variable.
struct NaiveExpression
{
    std::string op;
    std::vector<NaiveExpression> operands;
    double number = 0.0;
    int variable = 0;

    /// The names of the variables, as they stand in brackets; what each holds when it is read, by the code and the value.
    struct Variable
    {
        std::wstring name;
        NaiveOutcome outcome;
    };

    [[nodiscard]] bool Logical() const;
    [[nodiscard]] NaiveOutcome Evaluate(const std::vector<Variable>& variables) const;

    /// The text with no more parentheses than it needs. `choose(n)` gives a number below n: how to spell and to space.
    template <class Choose>
    [[nodiscard]] std::wstring Text(const std::vector<Variable>& variables, Choose& choose) const;

    /// How tightly the operator binds: 0 OR to 7 power, 8 what needs no parentheses anywhere.
    [[nodiscard]] int Binding() const;
};

namespace naive
{
template <class Choose>
std::wstring AnyCase(const std::string& word, Choose& choose)
{
    std::wstring text;
    for (const char c : word) text += static_cast<wchar_t>(c >= 'A' && c <= 'Z' && choose(2) == 1 ? c - 'A' + 'a' : c);
    return text;
}

template <class Choose>
std::wstring Blank(Choose& choose)
{
    static const wchar_t* const blanks[] = {L" ", L"  ", L"\t", L"\r\n"};
    return blanks[choose(8) % 4 == 0 ? choose(4) : 0];
}

/// One of the spellings of an operator, with blanks around it.
template <class Choose>
std::wstring Operator(const std::string& op, Choose& choose)
{
    std::wstring text;
    if (op == "OR" || op == "AND")
        text = choose(2) == 1 ? AnyCase(op, choose) : (op == "OR" ? L"||" : L"&&");
    else if (op == "NOT")
        text = choose(2) == 1 ? AnyCase(op, choose) + L" " : L"!";
    else if (op == "=")
        text = choose(2) == 1 ? L"=" : L"==";
    else if (op == "<>")
        text = choose(2) == 1 ? L"<>" : L"!=";
    else
        text.assign(op.begin(), op.end());
    return Blank(choose) + text + Blank(choose);
}

/// Digits that mean exactly this number.
std::wstring Digits(double number);
}  // namespace naive

template <class Choose>
std::wstring NaiveExpression::Text(const std::vector<Variable>& variables, Choose& choose) const
{
    const auto part = [&](const NaiveExpression& operand, int needed)
    {
        const std::wstring text = operand.Text(variables, choose);
        return operand.Binding() < needed || choose(10) == 0 ? L"(" + text + L")" : text;
    };
    if (op == "#") return naive::Digits(number);
    if (op == "[") return L"[" + variables[static_cast<std::size_t>(variable)].name + L"]";
    if (op == "TRUE" || op == "FALSE") return naive::AnyCase(op, choose);
    const int binding = Binding();
    if (binding == 8)
    {
        std::wstring text = naive::AnyCase(op, choose) + L"(";
        for (std::size_t i = 0; i < operands.size(); ++i)
            text += (i > 0 ? L"," : L"") + naive::Blank(choose) + part(operands[i], 0);
        return text + L")";
    }
    if (binding == 7) return part(operands[0], 8) + naive::Operator("^", choose) + part(operands[1], 6);
    if (operands.size() == 1) return naive::Operator(op, choose) + part(operands[0], binding);
    const int left = binding == 3 ? 4 : binding;  // comparisons don't follow each other, the rest ties from the left
    return part(operands[0], left) + naive::Operator(op, choose) + part(operands[1], binding + 1);
}
