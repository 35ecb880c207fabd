#include "suite/drivers/KTExpressionProgram.h"

#include <limits>

#include "host/KTEvaluator.h"
#include "suite/drivers/KTExpressionMath.h"

namespace
{
using namespace kt::expression;

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

// Stands where a variable has no cell of its own, so that the quick code gives up there.
constinit const std::atomic<double> cellWithoutValue{notANumber};

int Checked(double result, double& value)
{
    value = result;
    return Finite(result) ? KTPolaca::success : KTPolaca::outsideDomain;
}

int ApplyUnary(Op op, double& value)
{
    return Checked(UnaryFunctions::Find<double>(op, notANumber, [&](auto function) { return function.Result(value); }),
                   value);
}

int ApplyBinary(Op op, double& left, double right)
{
    if (op == Op::bit)
    {
        if (!HasBit(left, right)) return KTPolaca::outsideDomain;
        left = Bit(left, right) ? 1.0 : 0.0;
        return KTPolaca::success;
    }
    if (op >= Op::less && op <= Op::notEqual)
    {
        left = Comparisons::Find<bool>(op, false, [&](auto comparison) { return comparison.Holds(left, right); });
        return KTPolaca::success;
    }
    if ((op == Op::divide || op == Op::modulo) && right == 0.0) return KTPolaca::divisionByZero;
    return Checked(
        BinaryFunctions::Find<double>(op, notANumber, [&](auto function) { return function.Result(left, right); }),
        left);
}
}  // namespace

int KTExpressionProgram::EvaluateBinding(double& value)
{
    // The number is taken first: a change of the registry while we look things up is noticed at the next evaluation.
    generation = registry->load(std::memory_order_acquire);
    for (int i = 0; i < details->variableCount; ++i) LookUp(details->Variables()[i]);
    FillPlaces();
    return Run(value);
}

void KTExpressionProgram::LookUp(KTExpressionVariable& variable)
{
    variable.cell = &cellWithoutValue;
    if (variable.missing == KTPolaca::filteredName) return;
    const wchar_t* const deviceName = details->Names() + variable.deviceName;
    variable.missing = KTPolaca::unknownDevice;
    variable.driver = *deviceName == L'\0' ? nullptr : KTDriver::LockDriver(deviceName);
    if (variable.driver == nullptr) return;
    KTDriver* const held = variable.driver;
    if (int id = -1; held->VariableId(details->Names() + variable.variableName, id))
    {
        variable.id = id;
        const std::atomic<double>* const cell = held->ValueCell(id);
        if (cell != nullptr) variable.cell = cell;
        held->ReleaseVariable(id);
    }
    else
    {
        variable.driver = nullptr;
        variable.missing = KTPolaca::unknownVariable;
    }
    // The registrant keeps a driver alive while anybody evaluates, so nothing is held between evaluations.
    KTDriver::UnlockDriver(held);
}

void KTExpressionProgram::FillPlaces()
{
    for (int i = 0; i < details->placeCount; ++i)
    {
        const KTExpressionPlace& place = details->Places()[i];
        Code()[place.word].cell = details->Variables()[place.variable].cell;
    }
}

int KTExpressionProgram::EvaluateCarefully(double& value)
{
    const int code = Compute(value);
    if (code != KTPolaca::success) value = notANumber;
    return code;
}

int KTExpressionProgram::Compute(double& value)
{
    double* top = Scratch();  // the first free place
    for (const KTExpressionItem* item = details->Items();;)
    {
        int code = KTPolaca::success;
        int advance = 1;
        switch (item->op)
        {
            case KTExpressionItemOp::number:
                code = Checked(details->Numbers()[item->operand], *top++);
                break;
            case KTExpressionItemOp::variable:
                code = Read(details->Variables()[item->operand], *top++);
                break;
            case KTExpressionItemOp::apply:
                if (item->operand == 2) --top;
                code = item->operand == 2 ? ApplyBinary(static_cast<Op>(item->function), top[-1], top[0])
                                          : ApplyUnary(static_cast<Op>(item->function), top[-1]);
                break;
            case KTExpressionItemOp::truth:
                top[-1] = top[-1] != 0.0 ? 1.0 : 0.0;
                break;
            case KTExpressionItemOp::invert:
                top[-1] = top[-1] != 0.0 ? 0.0 : 1.0;
                break;
            case KTExpressionItemOp::keepIfFalse:
                if (top[-1] == 0.0)
                    advance = item->operand;
                else
                    --top;
                break;
            case KTExpressionItemOp::keepIfTrue:
                if (top[-1] != 0.0)
                    advance = item->operand;
                else
                    --top;
                break;
            case KTExpressionItemOp::takeIfFalse:
                if (*--top == 0.0) advance = item->operand;
                break;
            case KTExpressionItemOp::skip:
                advance = item->operand;
                break;
            case KTExpressionItemOp::end:
                value = top[-1];
                return KTPolaca::success;
        }
        if (code != KTPolaca::success) return code;
        item += advance;
    }
}

int KTExpressionProgram::Read(KTExpressionVariable& variable, double& value)
{
    // A device can't have come without a new number of the registry, but a device may have got a new variable.
    if (variable.missing == KTPolaca::unknownVariable && variable.driver == nullptr)
    {
        LookUp(variable);
        FillPlaces();
    }
    if (variable.driver == nullptr) return variable.missing;
    value = variable.cell->load(std::memory_order_relaxed);
    if (variable.cell == &cellWithoutValue)
    {
        KTValue read;
        if (variable.driver->ReadVariable(variable.id, read)) value = read.number;
    }
    if (std::isnan(value)) return KTPolaca::noValue;
    return Finite(value) ? KTPolaca::success : KTPolaca::outsideDomain;
}
