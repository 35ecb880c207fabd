#include "bench/evaluator/Conditions.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>

namespace
{
constexpr int noValue = 62;
constexpr int divisionByZero = 50;
constexpr int outsideDomain = 51;

bool Finite(double x) { return std::fabs(x) <= DBL_MAX; }

double Load(const CellList& cells, std::size_t index) { return cells[index]->load(std::memory_order_relaxed); }

// False for a value that can't be used, which `x` then holds.
bool Take(const CellList& cells, std::size_t index, double& x)
{
    x = Load(cells, index);
    return Finite(x);
}

int Failure(double value) { return std::isnan(value) ? noValue : outsideDomain; }

int Done(bool outcome, double& value)
{
    value = outcome ? 1.0 : 0.0;
    return 0;
}

int Threshold(const CellList& cells, double& value, int& kind)
{
    kind = 1;
    double x;
    if (!Take(cells, 0, x)) return Failure(x);
    return Done(x > 5, value);
}

int Pair(const CellList& cells, double& value, int& kind)
{
    kind = 1;
    double x;
    if (!Take(cells, 0, x)) return Failure(x);
    if (!(x > 5)) return Done(false, value);
    if (!Take(cells, 1, x)) return Failure(x);
    return Done(x < 3, value);
}

int Product(const CellList& cells, double& value, int& kind)
{
    kind = 1;
    double x;
    double y;
    if (!Take(cells, 0, x)) return Failure(x);
    if (!Take(cells, 1, y)) return Failure(y);
    const double product = x * y;
    if (!Finite(product)) return outsideDomain;
    return Done(product > 100, value);
}

int Band(const CellList& cells, double& value, int& kind)
{
    kind = 1;
    double x;
    if (!Take(cells, 0, x)) return Failure(x);
    if (x < 218.5) return Done(true, value);
    if (!Take(cells, 0, x)) return Failure(x);
    return Done(x > 241.5, value);
}

int Hysteresis(const CellList& cells, double& value, int& kind)
{
    kind = 1;
    double x;
    if (!Take(cells, 0, x)) return Failure(x);
    if (!(x > 80))
    {
        if (!Take(cells, 1, x)) return Failure(x);
        if (x != 1) return Done(false, value);
        if (!Take(cells, 0, x)) return Failure(x);
        if (!(x > 70)) return Done(false, value);
    }
    if (!Take(cells, 2, x)) return Failure(x);
    return Done(x == 0, value);
}

int Choice(const CellList& cells, double& value, int& kind)
{
    kind = 1;
    double mode;
    double x;
    if (!Take(cells, 0, mode)) return Failure(mode);
    if (!Take(cells, 1, x)) return Failure(x);
    return Done(mode == 1 ? x > 280 : x > 250, value);
}

int StatusBit(const CellList& cells, double& value, int& kind)
{
    kind = 1;
    const double status = Load(cells, 0);
    if (!(status >= -0x1p63 && status < 0x1p63)) return Failure(status);
    return Done(((static_cast<std::int64_t>(status) >> 3) & 1) != 0, value);
}

int Spread(const CellList& cells, double& value, int& kind)
{
    kind = 1;
    double x;
    double y;
    double z;
    if (!Take(cells, 0, x)) return Failure(x);
    if (!Take(cells, 1, y)) return Failure(y);
    if (!Take(cells, 2, z)) return Failure(z);
    const double spread = std::max(std::max(x, y), z) - std::min(std::min(x, y), z);
    if (!Finite(spread)) return outsideDomain;
    return Done(spread > 10, value);
}

int Deviation(const CellList& cells, double& value, int& kind)
{
    kind = 1;
    double x;
    double y;
    if (!Take(cells, 0, x)) return Failure(x);
    if (!Take(cells, 1, y)) return Failure(y);
    const double difference = x - y;
    if (!Finite(difference)) return outsideDomain;
    return Done(std::fabs(difference) > 0.04, value);
}

int States(const CellList& cells, double& value, int& kind)
{
    kind = 1;
    double x;
    const auto differs = [&](double state) { return Take(cells, 0, x) && x != state; };
    const bool none = differs(1) && differs(3) && differs(5) && differs(7);
    return Finite(x) ? Done(!none, value) : Failure(x);
}

int SixVariables(const CellList& cells, double& value, int& kind)
{
    kind = 1;
    double a;
    double b;
    double c;
    double d;
    double e;
    double f;
    if (!Take(cells, 0, a)) return Failure(a);
    if (!Take(cells, 1, b)) return Failure(b);
    if (!Take(cells, 2, c)) return Failure(c);
    const double sum = a + b + c;
    if (!Finite(sum)) return outsideDomain;
    if (!Take(cells, 3, d)) return Failure(d);
    const double product = sum * d;
    if (!Finite(product)) return outsideDomain;
    if (!Take(cells, 4, e)) return Failure(e);
    const double divisor = e + 1;
    if (divisor == 0) return divisionByZero;
    if (!Take(cells, 5, f)) return Failure(f);
    const double result = product / divisor - f;
    if (!Finite(result)) return outsideDomain;
    return Done(result > 100, value);
}

int EightVariables(const CellList& cells, double& value, int& kind)
{
    kind = 1;
    double x;
    const auto above = [&](std::size_t index, double limit) { return Take(cells, index, x) && x > limit; };
    const bool all = above(0, 1) && above(1, 2) && above(2, 3) && above(3, 4) && above(4, 5) && above(5, 6) &&
                     above(6, 7) && above(7, 8);
    return Finite(x) ? Done(all, value) : Failure(x);
}

constexpr Condition conditions[] = {
    {"threshold", L"[B.V0] > 5", "V0 > 5", "return V0[0] > 5", &Threshold, {7}},
    {"two_devices", L"[B.V0] > 5 AND [B.V1] < 3", "V0 > 5 && V1 < 3", "return V0[0] > 5 and V1[0] < 3", &Pair, {7, 2}},
    {"product", L"[B.V0]*[B.V1] > 100", "V0*V1 > 100", "return V0[0]*V1[0] > 100", &Product, {20, 7}},
    {"band",
     L"[B.V0] < 218.5 OR [B.V0] > 241.5",
     "V0 < 218.5 || V0 > 241.5",
     "return V0[0] < 218.5 or V0[0] > 241.5",
     &Band,
     {230}},
    {"hysteresis",
     L"([B.V0] > 80 OR [B.V1] = 1 AND [B.V0] > 70) AND NOT [B.V2]",
     "(V0 > 80 || V1 == 1 && V0 > 70) && V2 == 0",
     "return (V0[0] > 80 or V1[0] == 1 and V0[0] > 70) and V2[0] == 0",
     &Hysteresis,
     {75, 1, 0}},
    {"choice",
     L"IF([B.V0] = 1, [B.V1] > 280, [B.V1] > 250)",
     "V0 == 1 ? V1 > 280 : V1 > 250",
     "if V0[0] == 1 then return V1[0] > 280 else return V1[0] > 250 end",
     &Choice,
     {1, 300}},
    {"bit", L"BIT([B.V0], 3)", "bit(V0, 3)", "return bit.band(bit.rshift(V0[0], 3), 1) == 1", &StatusBit, {13}},
    {"spread",
     L"MAX([B.V0], [B.V1], [B.V2]) - MIN([B.V0], [B.V1], [B.V2]) > 10",
     "max(V0, V1, V2) - min(V0, V1, V2) > 10",
     "return math.max(V0[0], V1[0], V2[0]) - math.min(V0[0], V1[0], V2[0]) > 10",
     &Spread,
     {229, 231, 245}},
    {"deviation",
     L"ABS([B.V0] - [B.V1]) > 0.04",
     "abs(V0 - V1) > 0.04",
     "return math.abs(V0[0] - V1[0]) > 0.04",
     &Deviation,
     {49.97, 50}},
    {"states",
     L"[B.V0] = 1 OR [B.V0] = 3 OR [B.V0] = 5 OR [B.V0] = 7",
     "V0 == 1 || V0 == 3 || V0 == 5 || V0 == 7",
     "return V0[0] == 1 or V0[0] == 3 or V0[0] == 5 or V0[0] == 7",
     &States,
     {4}},
    {"six_variables",
     L"([B.V0] + [B.V1] + [B.V2]) * [B.V3] / ([B.V4] + 1) - [B.V5] > 100",
     "(V0 + V1 + V2) * V3 / (V4 + 1) - V5 > 100",
     "return (V0[0] + V1[0] + V2[0]) * V3[0] / (V4[0] + 1) - V5[0] > 100",
     &SixVariables,
     {230, 231, 229, 1.7, 2, 9}},
    {"eight_variables",
     L"[B.V0] > 1 AND [B.V1] > 2 AND [B.V2] > 3 AND [B.V3] > 4 AND [B.V4] > 5 AND [B.V5] > 6 AND [B.V6] > 7 AND "
     L"[B.V7] > 8",
     "V0 > 1 && V1 > 2 && V2 > 3 && V3 > 4 && V4 > 5 && V5 > 6 && V6 > 7 && V7 > 8",
     "return V0[0] > 1 and V1[0] > 2 and V2[0] > 3 and V3[0] > 4 and V4[0] > 5 and V5[0] > 6 and V6[0] > 7 and V7[0] > "
     "8",
     &EightVariables,
     {9, 9, 9, 9, 9, 9, 9, 9}},
};
}  // namespace

std::span<const Condition> Conditions() { return conditions; }
