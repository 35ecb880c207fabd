// Splits the text of an expression into its smallest parts.
#pragma once

#include <cstdint>

enum class KTExpressionToken : std::uint8_t
{
    end,
    error,
    number,
    name,
    word,
    open,
    close,
    comma,
    orSign,
    andSign,
    notSign,
    equal,
    notEqual,
    less,
    lessEqual,
    greater,
    greaterEqual,
    plus,
    minus,
    times,
    divide,
    modulo,
    power
};

/// Reads one token after the other, each as long as it can be.
///
/// Errors:  a character that begins no token gives `error`, and so does a name without its closing bracket or without
///          text.
/// Memory:  looks at the caller's text, which must outlive it.
class KTExpressionLexer
{
public:
    KTExpressionLexer(const wchar_t* text, int characters) : at(text), end(text + characters) {}

    void Advance();

    [[nodiscard]] KTExpressionToken Token() const { return token; }
    [[nodiscard]] double Number() const { return number; }

    /// Of a name: what stands between the brackets. Of a word: its letters and digits as they were written.
    [[nodiscard]] const wchar_t* Begin() const { return begin; }
    [[nodiscard]] int Length() const { return length; }

private:
    [[nodiscard]] wchar_t Peek(int offset) const { return end - at > offset ? at[offset] : L'\0'; }
    void Take(KTExpressionToken found, int characters);
    void TakeName();
    void TakeWord();
    void TakeNumber();
    void TakeSign();

    const wchar_t* at;
    const wchar_t* end;
    KTExpressionToken token = KTExpressionToken::error;
    const wchar_t* begin = nullptr;
    int length = 0;
    double number = 0.0;
};
