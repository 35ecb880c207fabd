// Reads the text of an expression into a tree. The language is told in docs/expressions.md.
#pragma once

#include <vector>

#include "suite/drivers/KTExpression.h"
#include "suite/drivers/KTExpressionLexer.h"

/// A parser by recursive descent, one operation for each line of the grammar:
///
///     or         := and { ("||" | OR) and }
///     and        := not { ("&&" | AND) not }
///     not        := ("!" | NOT) not | comparison
///     comparison := sum [ ("=" | "==" | "<>" | "!=" | "<" | "<=" | ">" | ">=") sum ]
///     sum        := product { ("+" | "-") product }
///     product    := unary { ("*" | "/" | "%") unary }
///     unary      := ("-" | "+") unary | power
///     power      := primary [ "^" unary ]
///     primary    := number | TRUE | FALSE | "[" name "]" | function "(" [ or { "," or } ] ")" | "(" or ")"
///
/// Parentheses and calls nest at most maximumNesting deep, and as many is what may follow each other of NOT, of signs
/// and of powers, so that no text can exhaust the stack: only parentheses and calls recurse.
///
/// Memory: looks at the caller's text while Parse runs.
class KTExpressionParser
{
public:
    static constexpr int maximumLength = 4096;  // characters
    static constexpr int maximumNesting = 200;

    /// False on a syntax error; `expression` is then unusable.
    [[nodiscard]] static bool Parse(const wchar_t* text, int length, KTExpression& expression);

private:
    using Token = KTExpressionToken;
    using Op = KTExpressionOp;

    struct Function;

    // What stands between two `^`: signs and a primary.
    struct Factor
    {
        Op sign;  // negate, plus, or number when there is none
        int primary;
    };

    KTExpressionParser(const wchar_t* text, int length, KTExpression& out) : lexer(text, length), expression(out) {}

    // Each gives the index of its node, or -1 on a syntax error.
    int ParseOr();
    int ParseAnd();
    int ParseNot();
    int ParseComparison();
    int ParseSum();
    int ParseProduct();
    int ParseUnary();
    int ParsePrimary();
    int ParseWord();
    int ParseCall(const Function& function);
    int ParseParentheses();
    int ParseArguments(int& count);

    [[nodiscard]] bool TakeFactor(std::vector<Factor>& factors);
    [[nodiscard]] bool IsWord(const char* upperCase) const;
    [[nodiscard]] bool Is(Token token, const char* orWord) const;

    int Add(Op op, bool logical, int first);
    int AddSigned(Op sign, int operand);
    int AddNumber(double number, bool logical);
    int AddName();
    void Link(int operand, int next) { expression.nodes[static_cast<std::size_t>(operand)].next = next; }

    KTExpressionLexer lexer;
    KTExpression& expression;
    int nesting = 0;
};
