#include <limits>

#include "host/KTEvaluator.h"
#include "suite/drivers/KTPolacaProgram.h"

KTPolaca::KTPolaca() = default;
KTPolaca::~KTPolaca() = default;

KTPolaca::KTPolaca(const KTPolaca& other) : mode(other.mode), forcing(other.forcing)
{
    if (other.program) program = other.program->Clone();
}

KTPolaca& KTPolaca::operator=(const KTPolaca& other)
{
    if (this == &other) return *this;
    program = other.program ? other.program->Clone() : nullptr;
    mode = other.mode;
    forcing = other.forcing;
    return *this;
}

int KTPolaca::Evaluate(double& value, int& kind)
{
    if (!program) [[unlikely]]
    {
        value = std::numeric_limits<double>::quiet_NaN();
        kind = 0;
        return nothingCompiled;
    }
    kind = program->kind;
    return program->Evaluate(value);
}

bool KTPolaca::IsOnlyOneDeviceVariable() const { return program && program->onlyName != 0; }

void KTPolaca::PrefetchHead() const { __builtin_prefetch(program.get()); }

void KTPolaca::PrefetchCode() const
{
    constexpr std::size_t line = 64;
    if (!program) return;
    const char* const block = reinterpret_cast<const char*>(program.get());
    // The scratch numbers begin where the quick code ends.
    const std::size_t end = program->scratch * sizeof(std::uint64_t);
    for (std::size_t at = line; at < end; at += line) __builtin_prefetch(block + at);
}
