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
