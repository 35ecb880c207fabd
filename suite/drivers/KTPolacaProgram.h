// The block of memory of a compiled expression.
#pragma once

#include <cstring>
#include <memory>
#include <new>

#include "host/KTEvaluator.h"
#include "suite/drivers/KTExpressionCompiler.h"
#include "suite/drivers/KTExpressionProgram.h"

/// The head of the block; what follows it is told at KTExpressionProgram.
///
/// Memory: allocated with the bytes behind it, on a cache line of its own, so that the usual condition with its code is
///         one line to fetch.
struct KTPolaca::Program final : KTExpressionProgram
{
    static std::unique_ptr<Program> Make(const KTExpressionCompiler& compiler)
    {
        auto made = Allocate(compiler.Bytes());
        compiler.WriteTo(*made);
        return made;
    }

    [[nodiscard]] std::unique_ptr<Program> Clone() const
    {
        auto made = Allocate(bytes);
        std::memcpy(static_cast<void*>(made.get()), this, bytes);
        return made;
    }

    static void operator delete(void* block) noexcept { ::operator delete(block, line); }

private:
    static constexpr std::align_val_t line{64};

    static std::unique_ptr<Program> Allocate(std::size_t size)
    {
        return std::unique_ptr<Program>(::new (::operator new(size, line)) Program);
    }
};
