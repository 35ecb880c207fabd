// Packs the two codes of an expression and all they need into two blocks.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "suite/drivers/KTExpression.h"
#include "suite/drivers/KTExpressionCarefulCompiler.h"
#include "suite/drivers/KTExpressionProgram.h"
#include "suite/drivers/KTExpressionQuickCompiler.h"

/// Compiles at construction.
///
/// Memory: looks at the expression, which must outlive it.
class KTExpressionCompiler
{
public:
    explicit KTExpressionCompiler(const KTExpression& tree);

    /// Bytes of the blocks, each aligned to 8.
    [[nodiscard]] std::size_t ProgramBytes() const { return details.programBytes; }
    [[nodiscard]] std::size_t DetailsBytes() const { return details.bytes; }

    /// The arguments stand at the beginning of their blocks. Nothing is looked up yet.
    void WriteTo(KTExpressionProgram& program, KTExpressionDetails& rest) const;

private:
    void AddVariable(const std::wstring& name);
    std::uint32_t AddName(const wchar_t* text, int length);
    void LayOut();

    const KTExpression& expression;
    const KTExpressionQuickCompiler quick;
    const KTExpressionCarefulCompiler careful;
    std::vector<KTExpressionVariable> variables;
    std::vector<wchar_t> names;
    KTExpressionProgram head{};
    KTExpressionDetails details{};
};
