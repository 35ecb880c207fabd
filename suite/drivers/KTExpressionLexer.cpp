#include "suite/drivers/KTExpressionLexer.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <limits>
#include <string>
#include <system_error>

namespace
{
bool IsBlank(wchar_t c) { return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n'; }
bool IsDigit(wchar_t c) { return c >= L'0' && c <= L'9'; }
bool IsLetter(wchar_t c) { return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z') || c == L'_'; }

// Whether a decimal text that a double can't hold is too large rather than too small: by the power of ten of its first
// digit that isn't 0.
bool IsTooLarge(const std::string& digits)
{
    const std::size_t mark = digits.find_first_of("eE");
    const std::string mantissa = digits.substr(0, mark);
    const std::size_t first = mantissa.find_first_not_of("0.");
    if (first == std::string::npos) return false;
    const std::size_t point = std::min(mantissa.find('.'), mantissa.size());
    const long long place = static_cast<long long>(point) - static_cast<long long>(first);
    // strtoll stops at its limits, which the text's length can't make up for.
    const long long exponent = mark == std::string::npos ? 0 : std::strtoll(digits.c_str() + mark + 1, nullptr, 10);
    return exponent > -place;
}

double ToNumber(const std::string& digits)
{
    double number = 0.0;
    // Not strtod: its decimal point follows the locale of the process.
    const std::from_chars_result result = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (result.ec == std::errc()) return number;
    return IsTooLarge(digits) ? std::numeric_limits<double>::infinity() : 0.0;
}
}  // namespace

void KTExpressionLexer::Advance()
{
    while (at != end && IsBlank(*at)) ++at;
    if (at == end)
        token = KTExpressionToken::end;
    else if (*at == L'[')
        TakeName();
    else if (IsLetter(*at))
        TakeWord();
    else if (IsDigit(*at) || (*at == L'.' && IsDigit(Peek(1))))
        TakeNumber();
    else
        TakeSign();
}

void KTExpressionLexer::Take(KTExpressionToken found, int characters)
{
    token = found;
    at += characters;
}

void KTExpressionLexer::TakeName()
{
    begin = at + 1;
    length = 0;
    while (Peek(length + 1) != L']' && Peek(length + 1) != L'[' && Peek(length + 1) != L'\0') ++length;
    if (length > 0 && Peek(length + 1) == L']')
        Take(KTExpressionToken::name, length + 2);
    else
        token = KTExpressionToken::error;
}

void KTExpressionLexer::TakeWord()
{
    begin = at;
    length = 1;
    while (IsLetter(Peek(length)) || IsDigit(Peek(length))) ++length;
    Take(KTExpressionToken::word, length);
}

void KTExpressionLexer::TakeNumber()
{
    int count = 0;
    while (IsDigit(Peek(count))) ++count;
    if (Peek(count) == L'.') ++count;
    while (IsDigit(Peek(count))) ++count;
    if (Peek(count) == L'e' || Peek(count) == L'E')
    {
        const int sign = Peek(count + 1) == L'+' || Peek(count + 1) == L'-' ? 1 : 0;
        int digits = 0;
        while (IsDigit(Peek(count + 1 + sign + digits))) ++digits;
        if (digits > 0) count += 1 + sign + digits;
    }
    std::string text;
    for (int i = 0; i < count; ++i) text += static_cast<char>(at[i]);
    number = ToNumber(text);
    Take(KTExpressionToken::number, count);
}

void KTExpressionLexer::TakeSign()
{
    static constexpr struct
    {
        wchar_t first;
        wchar_t second;  // NUL: a sign of one character
        KTExpressionToken token;
    } signs[] = {
        {L'|', L'|', KTExpressionToken::orSign},       {L'&', L'&', KTExpressionToken::andSign},
        {L'=', L'=', KTExpressionToken::equal},        {L'<', L'>', KTExpressionToken::notEqual},
        {L'!', L'=', KTExpressionToken::notEqual},     {L'<', L'=', KTExpressionToken::lessEqual},
        {L'>', L'=', KTExpressionToken::greaterEqual}, {L'!', L'\0', KTExpressionToken::notSign},
        {L'=', L'\0', KTExpressionToken::equal},       {L'<', L'\0', KTExpressionToken::less},
        {L'>', L'\0', KTExpressionToken::greater},     {L'+', L'\0', KTExpressionToken::plus},
        {L'-', L'\0', KTExpressionToken::minus},       {L'*', L'\0', KTExpressionToken::times},
        {L'/', L'\0', KTExpressionToken::divide},      {L'%', L'\0', KTExpressionToken::modulo},
        {L'^', L'\0', KTExpressionToken::power},       {L'(', L'\0', KTExpressionToken::open},
        {L')', L'\0', KTExpressionToken::close},       {L',', L'\0', KTExpressionToken::comma},
    };
    for (const auto& sign : signs)
    {
        if (*at != sign.first || (sign.second != L'\0' && Peek(1) != sign.second)) continue;
        return Take(sign.token, sign.second != L'\0' ? 2 : 1);
    }
    token = KTExpressionToken::error;
}
