// How a number lies in the registers of a Modbus device.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

/// The form of one variable: what its registers hold, in which order, and what the raw number is multiplied by.
///
/// Format:  docs/devices.md, "Formats and word orders".
/// Errors:  Encode tells by false that a value doesn't fit, and leaves the registers alone.
/// Threads: a plain value.
class KTModbusFormat
{
public:
    enum class Kind
    {
        boolean,
        int16,
        uint16,
        int32,
        uint32,
        float32,
        float64
    };
    enum class Order  // of the bytes of a 32-bit number, `a` the most significant
    {
        abcd,
        cdab,
        badc,
        dcba
    };

    static constexpr int maxRegisters = 4;
    using Registers = std::array<std::uint16_t, maxRegisters>;  // the first Count() are used

    /// By the names of the settings; false, with `out` unchanged, for an unknown one.
    static bool FindKind(std::string_view name, Kind& out);
    static bool FindOrder(std::string_view name, Order& out);

    /// Registers that a value takes; a coil or a discrete input is one bit and counts as one.
    [[nodiscard]] int Count() const;

    /// `registers` holds Count() of them, or a single 0 or 1 for a coil.
    [[nodiscard]] double Decode(std::span<const std::uint16_t> registers) const;

    /// Integers are rounded, halves away from zero. False for what then lies outside the format's range, for anything but
    /// 0 and 1 in a boolean, and for what isn't finite.
    [[nodiscard]] bool Encode(double value, Registers& out) const;

    Kind kind = Kind::float32;
    Order order = Order::abcd;
    double scale = 1.0;  // value = raw * scale; not 0

private:
    [[nodiscard]] double Unscaled(double value) const;
    [[nodiscard]] double Scaled(double raw) const;
};
