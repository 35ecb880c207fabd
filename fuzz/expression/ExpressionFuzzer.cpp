// Any bytes as the text of an expression: compiled and evaluated, over a device with cells and over one that is asked.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>

#include "host/KTEvaluator.h"
#include "host/KTText.h"
#include "tests/support/TestDriver.h"

namespace
{
struct Outcome
{
    int code = -1;
    double value = 0.0;
    int kind = -1;
};

void Expect(bool condition)
{
    if (!condition) std::abort();
}

bool IsKnown(int code)
{
    for (const int known :
         {KTPolaca::success, KTPolaca::unknownDevice, KTPolaca::unknownVariable, KTPolaca::filteredName,
          KTPolaca::divisionByZero, KTPolaca::outsideDomain, KTPolaca::noValue})
        if (code == known) return true;
    return false;
}

Outcome Evaluated(KTPolaca& polaca, int kind)
{
    Outcome outcome;
    outcome.code = polaca.Evaluate(outcome.value, outcome.kind);
    Expect(outcome.kind == kind);
    Expect(IsKnown(outcome.code));
    Expect(outcome.code == 0 ? std::isfinite(outcome.value) : std::isnan(outcome.value));
    if (outcome.code == 0 && kind == 1) Expect(outcome.value == 0.0 || outcome.value == 1.0);
    return outcome;
}

bool Same(const Outcome& a, const Outcome& b) { return a.code == b.code && (a.code != 0 || a.value == b.value); }

class Plant
{
public:
    Plant()
    {
        device.Set(L"a", 7.0);
        device.Set(L"b", -2.5);
        device.Set(L"c", 0.0);
        device.Set(L"e", 1e308);
        device.Set(L"f", std::numeric_limits<double>::infinity());
    }

    void Show(bool cells)
    {
        device.Unregister();
        device.hasCells = cells;
        device.Register();
    }

private:
    TestDriver device{L"D", {L"a", L"b", L"c", L"none", L"e", L"f"}};
};

KTWideString TextOf(const std::uint8_t* data, std::size_t size)
{
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    KTWideString text;
    Utf8ToUtf16(text, KTNarrowString(bytes.c_str()));
    return text;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static Plant plant;
    const KTWideString text = TextOf(data, size);
    KTEvaluator evaluator(text.Str());
    const int kind = evaluator.AnalizeExpression();
    if (kind < 0)
    {
        double value = 0.0;
        int type = -1;
        Expect(evaluator.polaca.Evaluate(value, type) == KTPolaca::nothingCompiled);
        return 0;
    }
    plant.Show(true);
    const Outcome quick = Evaluated(evaluator.polaca, kind);
    Expect(Same(quick, Evaluated(evaluator.polaca, kind)));
    KTPolaca copy(evaluator.polaca);
    Expect(Same(quick, Evaluated(copy, kind)));
    plant.Show(false);
    Expect(Same(quick, Evaluated(evaluator.polaca, kind)));
    Expect(evaluator.AnalizeExpression() == kind);
    Expect(Same(quick, Evaluated(evaluator.polaca, kind)));
    return 0;
}
