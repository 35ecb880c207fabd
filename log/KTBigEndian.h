// Numbers as they lie in the files of the log: the most significant byte first, whatever the processor does.
#pragma once

#include <cstdint>
#include <cstring>

#include "host/KTGuid.h"

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

// Three numbers, and eight bytes in their order.
inline GUID GetGuid(const std::uint8_t* in)
{
    GUID guid;
    guid.Data1 = Get32(in);
    guid.Data2 = Get16(in + 4);
    guid.Data3 = Get16(in + 6);
    std::memcpy(guid.Data4, in + 8, sizeof guid.Data4);
    return guid;
}

inline void PutGuid(std::uint8_t* out, const GUID& guid)
{
    Put32(out, guid.Data1);
    Put16(out + 4, guid.Data2);
    Put16(out + 6, guid.Data3);
    std::memcpy(out + 8, guid.Data4, sizeof guid.Data4);
}
}  // namespace kt
