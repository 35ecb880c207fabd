// Expressions over device variables.
#pragma once

#include <cstddef>
#include <memory>

#include "host/KTString.h"

/// The compiled form of an expression.
///
/// Errors:  the result codes of Evaluate are the constants below.
/// Threads: one thread at a time; the variables it reads may change meanwhile.
/// Memory:  owns its code; binds to the places where registered drivers keep their values and binds again when the
///          registry of drivers has changed.
class KTPolaca
{
public:
    static constexpr int success = 0;
    static constexpr int nothingCompiled = 40;
    static constexpr int unknownDevice = 41;
    static constexpr int unknownVariable = 42;
    static constexpr int filteredName = 43;
    static constexpr int divisionByZero = 50;
    static constexpr int outsideDomain = 51;  // or a result that isn't finite
    static constexpr int noValue = 62;

    KTPolaca();
    KTPolaca(const KTPolaca& other);
    KTPolaca& operator=(const KTPolaca& other);
    ~KTPolaca();

    /// `kind` is 1 for a logical expression and 0 for a numeric one, with every result code; a logical result is exactly
    /// 1.0 or 0.0. With any other code than success `value` is NaN.
    int Evaluate(double& value, int& kind);

    /// Exactly one name in brackets, blanks around it aside.
    [[nodiscard]] bool IsOnlyOneDeviceVariable() const;

    /// Ask the processor for the compiled form ahead of its use: first its head, and once that has arrived its code.
    void PrefetchHead() const;
    void PrefetchCode() const;

    int mode = 0;  // public words that callers set before compiling; they have no effect here
    int forcing = 0;

private:
    friend class KTEvaluator;
    struct Program;
    std::unique_ptr<Program> program;  // null while nothing is compiled
};

/// An expression's text with its compiled form.
///
/// Memory: those made one after the other lie side by side with their compiled forms, for a scan that evaluates them in
///         that order.
class KTEvaluator
{
public:
    KTEvaluator() = default;
    explicit KTEvaluator(const wchar_t* expression) { Set(expression); }
    KTEvaluator(const KTEvaluator&) = default;
    KTEvaluator& operator=(const KTEvaluator&) = default;

    static void* operator new(std::size_t bytes);
    static void operator delete(void* block) noexcept;

    /// Stores the text; the compiled form is gone until AnalizeExpression.
    void Set(const wchar_t* expression);
    void Clear();

    /// Compiles: -1 on a syntax error, 0 for a numeric expression, 1 for a logical one. A matter of syntax alone: names
    /// are looked up when the expression is evaluated.
    int AnalizeExpression();

    [[nodiscard]] const KTWideString& Text() const { return text; }

    /// The meaning of a result code in the current language; false, with an empty text, for an unknown code.
    static bool ErrorMsg(int code, KTWideString& out);

    int mode = 0;  // as those of KTPolaca
    int forcing = 0;
    KTPolaca polaca;

private:
    KTWideString text;
};
