#include "suite/drivers/KTExpressionCompiler.h"

#include <algorithm>

#include "host/KTDriver.h"
#include "host/KTEvaluator.h"

namespace
{
constexpr std::size_t unit = 8;  // bytes; all parts begin at a multiple of it

template <class T>
void CopyTo(T* place, const std::vector<T>& part)
{
    std::copy(part.begin(), part.end(), place);
}
}  // namespace

KTExpressionCompiler::KTExpressionCompiler(const KTExpression& tree) : expression(tree), quick(tree), careful(tree)
{
    for (const std::wstring& name : expression.names) AddVariable(name);
    LayOut();
}

void KTExpressionCompiler::AddVariable(const std::wstring& name)
{
    KTWideString file;
    KTWideString hour;
    KTWideString device;
    KTWideString variable;
    SplitFilterDriverVariable(name.c_str(), file, hour, device, variable);
    KTExpressionVariable entry{};
    entry.missing = file.Empty() && hour.Empty() ? KTPolaca::unknownDevice : KTPolaca::filteredName;
    entry.deviceName = AddName(device.Str(), device.Length());
    entry.variableName = AddName(variable.Str(), variable.Length());
    variables.push_back(entry);
}

std::uint32_t KTExpressionCompiler::AddName(const wchar_t* text, int length)
{
    const std::size_t begin = names.size();
    names.insert(names.end(), text, text + length + 1);  // with the terminator
    return static_cast<std::uint32_t>(begin);
}

void KTExpressionCompiler::LayOut()
{
    const auto place = [](std::uint32_t& bytes, std::size_t count, std::size_t size)
    {
        const std::size_t begin = (bytes + unit - 1) / unit;
        bytes = static_cast<std::uint32_t>(begin * unit + count * size);
        return static_cast<std::uint16_t>(begin);
    };
    details.programBytes = sizeof(KTExpressionProgram);
    place(details.programBytes, quick.code.size(), sizeof(KTExpressionWord));
    const int scratch = std::max(quick.scratch, careful.scratch);
    head.scratch = place(details.programBytes, static_cast<std::size_t>(scratch), sizeof(double));
    head.registry = &KTDriver::Generation();
    head.kind = expression.Root().logical ? 1 : 0;
    head.onlyName = expression.onlyName ? 1 : 0;

    details.bytes = sizeof(KTExpressionDetails);
    place(details.bytes, variables.size(), sizeof(KTExpressionVariable));
    details.numbers = place(details.bytes, careful.numbers.size(), sizeof(double));
    details.items = place(details.bytes, careful.code.size(), sizeof(KTExpressionItem));
    details.places = place(details.bytes, quick.places.size(), sizeof(KTExpressionPlace));
    details.names = place(details.bytes, names.size(), sizeof(wchar_t));
    details.variableCount = static_cast<std::uint16_t>(variables.size());
    details.placeCount = static_cast<std::uint16_t>(quick.places.size());
}

void KTExpressionCompiler::WriteTo(KTExpressionProgram& program, KTExpressionDetails& rest) const
{
    program = head;
    program.details = &rest;
    CopyTo(program.Code(), quick.code);
    rest = details;
    CopyTo(rest.Variables(), variables);
    CopyTo(rest.Numbers(), careful.numbers);
    CopyTo(rest.Items(), careful.code);
    CopyTo(rest.Places(), quick.places);
    CopyTo(rest.Names(), names);
}
