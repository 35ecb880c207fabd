#include "suite/drivers/KTExpressionParser.h"

#include <algorithm>

namespace
{
using Op = KTExpressionOp;
using Token = KTExpressionToken;

Op ComparisonOf(Token token)
{
    switch (token)
    {
        case Token::equal:
            return Op::equal;
        case Token::notEqual:
            return Op::notEqual;
        case Token::less:
            return Op::less;
        case Token::lessEqual:
            return Op::lessEqual;
        case Token::greater:
            return Op::greater;
        case Token::greaterEqual:
            return Op::greaterEqual;
        default:
            return Op::number;
    }
}

Op SumOf(Token token)
{
    if (token == Token::plus) return Op::add;
    return token == Token::minus ? Op::subtract : Op::number;
}

Op ProductOf(Token token)
{
    if (token == Token::times) return Op::multiply;
    if (token == Token::divide) return Op::divide;
    return token == Token::modulo ? Op::modulo : Op::number;
}
}  // namespace

struct KTExpressionParser::Function
{
    const char* name;  // upper case
    Op op;
    int minimumArguments;
    int maximumArguments;
};

bool KTExpressionParser::Parse(const wchar_t* text, int length, KTExpression& expression)
{
    if (length > maximumLength) return false;
    KTExpressionParser parser(text, length, expression);
    parser.lexer.Advance();
    const bool startsWithName = parser.lexer.Token() == Token::name;
    if (parser.ParseOr() < 0 || parser.lexer.Token() != Token::end) return false;
    expression.onlyName = startsWithName && expression.nodes.size() == 1;
    return true;
}

int KTExpressionParser::ParseOr()
{
    const int first = ParseAnd();
    if (first < 0 || !Is(Token::orSign, "OR")) return first;
    for (int last = first; Is(Token::orSign, "OR");)
    {
        lexer.Advance();
        const int operand = ParseAnd();
        if (operand < 0) return -1;
        Link(last, operand);
        last = operand;
    }
    return Add(Op::disjunction, true, first);
}

int KTExpressionParser::ParseAnd()
{
    const int first = ParseNot();
    if (first < 0 || !Is(Token::andSign, "AND")) return first;
    for (int last = first; Is(Token::andSign, "AND");)
    {
        lexer.Advance();
        const int operand = ParseNot();
        if (operand < 0) return -1;
        Link(last, operand);
        last = operand;
    }
    return Add(Op::conjunction, true, first);
}

int KTExpressionParser::ParseNot()
{
    int count = 0;
    for (; Is(Token::notSign, "NOT"); ++count)
    {
        if (count == maximumNesting) return -1;
        lexer.Advance();
    }
    int node = ParseComparison();
    if (node < 0 || count == 0) return node;
    // Two NOTs in a row only say whether the operand is 0, so an even number of them is two.
    node = Add(Op::negation, true, node);
    return count % 2 == 0 ? Add(Op::negation, true, node) : node;
}

int KTExpressionParser::ParseComparison()
{
    const int left = ParseSum();
    const Op op = ComparisonOf(lexer.Token());
    if (left < 0 || op == Op::number) return left;
    lexer.Advance();
    const int right = ParseSum();
    if (right < 0) return -1;
    Link(left, right);
    return Add(op, true, left);
}

int KTExpressionParser::ParseSum()
{
    const int first = ParseProduct();
    Op joint = SumOf(lexer.Token());
    if (first < 0 || joint == Op::number) return first;
    for (int last = first; joint != Op::number; joint = SumOf(lexer.Token()))
    {
        lexer.Advance();
        const int operand = ParseProduct();
        if (operand < 0) return -1;
        expression.nodes[static_cast<std::size_t>(operand)].joint = joint;
        Link(last, operand);
        last = operand;
    }
    return Add(Op::chain, false, first);
}

int KTExpressionParser::ParseProduct()
{
    const int first = ParseUnary();
    Op joint = ProductOf(lexer.Token());
    if (first < 0 || joint == Op::number) return first;
    for (int last = first; joint != Op::number; joint = ProductOf(lexer.Token()))
    {
        lexer.Advance();
        const int operand = ParseUnary();
        if (operand < 0) return -1;
        expression.nodes[static_cast<std::size_t>(operand)].joint = joint;
        Link(last, operand);
        last = operand;
    }
    return Add(Op::chain, false, first);
}

// Signs and powers take turns to the right, -a ^ -b ^ c being -(a ^ (-(b ^ c))): read from the left, tied from the right.
int KTExpressionParser::ParseUnary()
{
    std::vector<Factor> factors;
    if (!TakeFactor(factors)) return -1;
    while (lexer.Token() == Token::power)
    {
        if (factors.size() > static_cast<std::size_t>(maximumNesting)) return -1;
        lexer.Advance();
        if (!TakeFactor(factors)) return -1;
    }
    int node = AddSigned(factors.back().sign, factors.back().primary);
    factors.pop_back();
    for (; !factors.empty(); factors.pop_back())
    {
        Link(factors.back().primary, node);
        node = AddSigned(factors.back().sign, Add(Op::power, false, factors.back().primary));
    }
    return node;
}

bool KTExpressionParser::TakeFactor(std::vector<Factor>& factors)
{
    Op sign = Op::number;
    for (int count = 0; lexer.Token() == Token::minus || lexer.Token() == Token::plus; ++count)
    {
        if (count == maximumNesting) return false;
        const bool negative = (sign == Op::negate) != (lexer.Token() == Token::minus);
        sign = negative ? Op::negate : Op::plus;
        lexer.Advance();
    }
    const int primary = ParsePrimary();
    if (primary < 0) return false;
    factors.push_back({sign, primary});
    return true;
}

int KTExpressionParser::ParsePrimary()
{
    switch (lexer.Token())
    {
        case Token::number:
            return AddNumber(lexer.Number(), false);
        case Token::name:
            return AddName();
        case Token::word:
            return ParseWord();
        case Token::open:
            return ParseParentheses();
        default:
            return -1;
    }
}

int KTExpressionParser::ParseWord()
{
    static constexpr int any = maximumLength;
    static constexpr Function functions[] = {
        {"ABS", Op::absolute, 1, 1},
        {"SQRT", Op::squareRoot, 1, 1},
        {"EXP", Op::exponential, 1, 1},
        {"LN", Op::naturalLogarithm, 1, 1},
        {"LOG10", Op::decimalLogarithm, 1, 1},
        {"SIN", Op::sine, 1, 1},
        {"COS", Op::cosine, 1, 1},
        {"TAN", Op::tangent, 1, 1},
        {"FLOOR", Op::floor, 1, 1},
        {"CEIL", Op::ceiling, 1, 1},
        {"ROUND", Op::round, 1, 1},
        {"TRUNC", Op::truncate, 1, 1},
        {"SIGN", Op::sign, 1, 1},
        {"MOD", Op::modulo, 2, 2},
        {"POW", Op::power, 2, 2},
        {"BIT", Op::bit, 2, 2},
        {"IF", Op::choice, 3, 3},
        {"MIN", Op::minimum, 1, any},
        {"MAX", Op::maximum, 1, any},
    };
    if (IsWord("TRUE")) return AddNumber(1.0, true);
    if (IsWord("FALSE")) return AddNumber(0.0, true);
    const auto* const function =
        std::find_if(std::begin(functions), std::end(functions), [&](const Function& f) { return IsWord(f.name); });
    return function == std::end(functions) ? -1 : ParseCall(*function);
}

int KTExpressionParser::ParseCall(const Function& function)
{
    lexer.Advance();
    if (lexer.Token() != Token::open) return -1;
    int count = 0;
    const int first = ParseArguments(count);
    if (first < 0 || count < function.minimumArguments || count > function.maximumArguments) return -1;
    if (function.op != Op::choice) return Add(function.op, function.op == Op::bit, first);
    const KTExpression::Node& whenTrue = expression.At(expression.At(first).next);
    return Add(Op::choice, whenTrue.logical && expression.At(whenTrue.next).logical, first);
}

// From "(" to behind ")"; the first of the linked arguments.
int KTExpressionParser::ParseArguments(int& count)
{
    if (nesting == maximumNesting) return -1;
    ++nesting;
    int first = -1;
    int last = -1;
    do
    {
        lexer.Advance();
        const int argument = ParseOr();
        if (argument < 0) return -1;
        if (first < 0)
            first = argument;
        else
            Link(last, argument);
        last = argument;
        ++count;
    } while (lexer.Token() == Token::comma);
    if (lexer.Token() != Token::close) return -1;
    lexer.Advance();
    --nesting;
    return first;
}

int KTExpressionParser::ParseParentheses()
{
    int count = 0;
    const int inner = ParseArguments(count);
    return count == 1 ? inner : -1;
}

bool KTExpressionParser::IsWord(const char* upperCase) const
{
    if (lexer.Token() != Token::word) return false;
    for (int i = 0; i < lexer.Length(); ++i)
    {
        const wchar_t c = lexer.Begin()[i];
        const wchar_t upper = c >= L'a' && c <= L'z' ? c - L'a' + L'A' : c;
        if (upper != static_cast<wchar_t>(upperCase[i])) return false;  // also at the end of `upperCase`
    }
    return upperCase[lexer.Length()] == '\0';
}

bool KTExpressionParser::Is(Token token, const char* orWord) const { return lexer.Token() == token || IsWord(orWord); }

int KTExpressionParser::Add(Op op, bool logical, int first)
{
    KTExpression::Node node;
    node.op = op;
    node.logical = logical;
    node.first = first;
    expression.nodes.push_back(node);
    return static_cast<int>(expression.nodes.size()) - 1;
}

int KTExpressionParser::AddSigned(Op sign, int operand)
{
    if (sign == Op::number || (sign == Op::plus && !expression.At(operand).logical)) return operand;
    return Add(sign, false, operand);
}

int KTExpressionParser::AddNumber(double number, bool logical)
{
    lexer.Advance();
    const int node = Add(Op::number, logical, KTExpression::none);
    expression.nodes.back().number = number;
    return node;
}

int KTExpressionParser::AddName()
{
    const std::wstring name(lexer.Begin(), static_cast<std::size_t>(lexer.Length()));
    lexer.Advance();
    auto& names = expression.names;
    const auto found = std::find(names.begin(), names.end(), name);
    const auto index = static_cast<int>(found - names.begin());
    if (found == names.end()) names.push_back(name);
    const int node = Add(Op::name, false, KTExpression::none);
    expression.nodes.back().name = index;
    return node;
}
