#include "suite/drivers/KTModbusFormat.h"

#include <bit>
#include <cmath>
#include <limits>

namespace
{
struct KindName
{
    std::string_view name;
    KTModbusFormat::Kind kind;
};
constexpr KindName kindNames[] = {
    {"bool", KTModbusFormat::Kind::boolean},    {"int16", KTModbusFormat::Kind::int16},
    {"uint16", KTModbusFormat::Kind::uint16},   {"int32", KTModbusFormat::Kind::int32},
    {"uint32", KTModbusFormat::Kind::uint32},   {"float32", KTModbusFormat::Kind::float32},
    {"float64", KTModbusFormat::Kind::float64},
};

struct OrderName
{
    std::string_view name;
    KTModbusFormat::Order order;
};
constexpr OrderName orderNames[] = {
    {"abcd", KTModbusFormat::Order::abcd},
    {"cdab", KTModbusFormat::Order::cdab},
    {"badc", KTModbusFormat::Order::badc},
    {"dcba", KTModbusFormat::Order::dcba},
};

bool SwapsBytes(KTModbusFormat::Order order)
{
    return order == KTModbusFormat::Order::badc || order == KTModbusFormat::Order::dcba;
}

bool SwapsWords(KTModbusFormat::Order order)
{
    return order == KTModbusFormat::Order::cdab || order == KTModbusFormat::Order::dcba;
}

std::uint16_t Ordered(std::uint16_t word, KTModbusFormat::Order order)
{
    return SwapsBytes(order) ? static_cast<std::uint16_t>((word << 8) | (word >> 8)) : word;
}

/// The most significant word comes first unless the order swaps words.
std::uint64_t Join(std::span<const std::uint16_t> registers, KTModbusFormat::Order order)
{
    std::uint64_t bits = 0;
    for (std::size_t i = 0; i < registers.size(); ++i)
    {
        const std::size_t place = SwapsWords(order) ? registers.size() - 1 - i : i;
        bits = (bits << 16) | Ordered(registers[place], order);
    }
    return bits;
}

void Split(std::uint64_t bits, int count, KTModbusFormat::Order order, KTModbusFormat::Registers& out)
{
    for (int i = 0; i < count; ++i)
    {
        const int place = SwapsWords(order) ? i : count - 1 - i;
        out[static_cast<std::size_t>(place)] = Ordered(static_cast<std::uint16_t>(bits >> (16 * i)), order);
    }
}

template <class Integer>
bool Fits(double raw)
{
    return raw >= static_cast<double>(std::numeric_limits<Integer>::min()) &&
           raw <= static_cast<double>(std::numeric_limits<Integer>::max());
}

template <class Integer>
bool IntegerBits(double raw, std::uint64_t& bits)
{
    if (!Fits<Integer>(raw)) return false;
    bits = static_cast<std::uint64_t>(static_cast<std::int64_t>(raw));
    return true;
}

bool BooleanBits(double raw, std::uint64_t& bits)
{
    if (raw != 0.0 && raw != 1.0) return false;
    bits = raw != 0.0 ? 1 : 0;
    return true;
}

bool FloatBits(double raw, std::uint64_t& bits)
{
    if (std::fabs(raw) > std::numeric_limits<float>::max()) return false;
    bits = std::bit_cast<std::uint32_t>(static_cast<float>(raw));
    return true;
}

/// n when `scale` is written as 1/n with a whole n, such as 0.1; else 0.
double WholeReciprocal(double scale)
{
    const double n = std::round(1.0 / scale);
    return n != 0.0 && 1.0 / n == scale ? n : 0.0;
}
}  // namespace

bool KTModbusFormat::FindKind(std::string_view name, Kind& out)
{
    for (const KindName& row : kindNames)
    {
        if (row.name != name) continue;
        out = row.kind;
        return true;
    }
    return false;
}

bool KTModbusFormat::FindOrder(std::string_view name, Order& out)
{
    for (const OrderName& row : orderNames)
    {
        if (row.name != name) continue;
        out = row.order;
        return true;
    }
    return false;
}

int KTModbusFormat::Count() const
{
    switch (kind)
    {
        case Kind::int32:
        case Kind::uint32:
        case Kind::float32:
            return 2;
        case Kind::float64:
            return 4;
        default:
            return 1;
    }
}

double KTModbusFormat::Decode(std::span<const std::uint16_t> registers) const
{
    const std::uint64_t bits = Join(registers, order);
    switch (kind)
    {
        case Kind::boolean:
            return Scaled(bits != 0 ? 1.0 : 0.0);
        case Kind::int16:
            return Scaled(static_cast<std::int16_t>(bits));
        case Kind::uint16:
            return Scaled(static_cast<std::uint16_t>(bits));
        case Kind::int32:
            return Scaled(static_cast<std::int32_t>(bits));
        case Kind::uint32:
            return Scaled(static_cast<std::uint32_t>(bits));
        case Kind::float32:
            return Scaled(static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(bits))));
        case Kind::float64:
            return Scaled(std::bit_cast<double>(bits));
    }
    return std::numeric_limits<double>::quiet_NaN();
}

bool KTModbusFormat::Encode(double value, Registers& out) const
{
    const double raw = Unscaled(value);
    if (!std::isfinite(raw)) return false;
    const double whole = std::round(raw);
    std::uint64_t bits = 0;
    bool fits = false;
    switch (kind)
    {
        case Kind::boolean:
            fits = BooleanBits(whole, bits);
            break;
        case Kind::int16:
            fits = IntegerBits<std::int16_t>(whole, bits);
            break;
        case Kind::uint16:
            fits = IntegerBits<std::uint16_t>(whole, bits);
            break;
        case Kind::int32:
            fits = IntegerBits<std::int32_t>(whole, bits);
            break;
        case Kind::uint32:
            fits = IntegerBits<std::uint32_t>(whole, bits);
            break;
        case Kind::float32:
            fits = FloatBits(raw, bits);
            break;
        case Kind::float64:
            bits = std::bit_cast<std::uint64_t>(raw);
            fits = true;
            break;
    }
    if (fits) Split(bits, Count(), order, out);
    return fits;
}

double KTModbusFormat::Scaled(double raw) const
{
    // 3 * 0.1 isn't the number that people write as 0.3, but 3 / 10 is; conditions compare with what people write.
    const double n = WholeReciprocal(scale);
    return n != 0.0 ? raw / n : raw * scale;
}

double KTModbusFormat::Unscaled(double value) const
{
    const double n = WholeReciprocal(scale);
    return n != 0.0 ? value * n : value / scale;
}
