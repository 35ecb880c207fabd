// The blocks of memory of a compiled expression.
#pragma once

#include <cstring>
#include <memory>
#include <new>

#include "host/KTEvaluator.h"
#include "suite/drivers/KTExpressionCompiler.h"
#include "suite/drivers/KTExpressionProgram.h"
#include "suite/tools/KTSlabs.h"

/// The head of the block that every evaluation reads; what follows it is told at KTExpressionProgram.
///
/// Memory: allocated with the bytes behind it, next to the expression that was compiled before, since a scan evaluates
///         them in that order. Owns the details, which lie apart so that no scan has to step over them.
struct KTPolaca::Program final : KTExpressionProgram
{
    static std::unique_ptr<Program> Make(const KTExpressionCompiler& compiler)
    {
        auto made = Allocate(compiler.ProgramBytes(), compiler.DetailsBytes());
        compiler.WriteTo(*made, *made->details);
        return made;
    }

    [[nodiscard]] std::unique_ptr<Program> Clone()
    {
        auto made = Allocate(details->programBytes, details->bytes);
        KTExpressionDetails* const own = made->details;
        static_cast<KTExpressionProgram&>(*made) = *this;
        made->details = own;
        std::memcpy(made->Code(), Code(), details->programBytes - sizeof(KTExpressionProgram));
        std::memcpy(static_cast<void*>(own), details, details->bytes);
        return made;
    }

    ~Program() { ::operator delete(details); }
    static void operator delete(void* block) noexcept { KTSlabs::Free(block); }

private:
    Program() { details = nullptr; }

    static std::unique_ptr<Program> Allocate(std::size_t programBytes, std::size_t detailsBytes)
    {
        std::unique_ptr<Program> made(::new (KTSlabs::Allocate(programBytes)) Program);
        made->details = ::new (::operator new(detailsBytes)) KTExpressionDetails;
        return made;
    }
};
