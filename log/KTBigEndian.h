// Numbers as they lie in the files of the log: the most significant byte first, whatever the processor does.
#pragma once

#include <cstdint>

namespace kt
{
inline std::uint16_t Get16(const std::uint8_t* in) { return static_cast<std::uint16_t>((in[0] << 8) | in[1]); }

inline std::uint32_t Get32(const std::uint8_t* in)
{
    return (std::uint32_t{in[0]} << 24) | (std::uint32_t{in[1]} << 16) | (std::uint32_t{in[2]} << 8) | in[3];
}

inline void Put16(std::uint8_t* out, std::uint32_t value)
{
    out[0] = static_cast<std::uint8_t>(value >> 8);
    out[1] = static_cast<std::uint8_t>(value);
}

inline void Put32(std::uint8_t* out, std::uint32_t value)
{
    Put16(out, value >> 16);
    Put16(out + 2, value);
}
}  // namespace kt
