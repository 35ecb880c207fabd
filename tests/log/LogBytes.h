// The bytes of the log's files, made from the tables of the format and nothing else.
#pragma once

#include <cstdint>
#include <string>

#include "host/KTGuid.h"

inline char Byte(std::uint32_t value) { return static_cast<char>(value & 0xFF); }

inline std::string BigEndian(std::uint32_t value, int bytes)
{
    std::string text;
    for (int i = bytes - 1; i >= 0; --i) text += Byte(value >> (8 * i));
    return text;
}

/// The block and its checksum: the complement of the sum of its bytes.
inline std::string Sealed(const std::string& block)
{
    std::uint32_t sum = 0;
    for (const char c : block) sum += static_cast<unsigned char>(c);
    return block + Byte(~sum);
}

inline bool IsSealed(const std::string& block)
{
    return !block.empty() && Sealed(block.substr(0, block.size() - 1)) == block;
}

inline std::string HeaderBytes(std::uint32_t baseYear = 2000, std::string format = "EVENTv2.70")
{
    format.resize(10, '\0');
    return Sealed(format + BigEndian(baseYear, 2) + '\0');
}

inline std::uint32_t PackedDate(std::uint32_t year, std::uint32_t month, std::uint32_t day, std::uint32_t hour = 0,
                                std::uint32_t minute = 0, std::uint32_t second = 0)
{
    return (year << 26) | (month << 22) | (day << 17) | (hour << 12) | (minute << 6) | second;
}

inline std::string RecordBytes(std::uint32_t packedDate, const GUID& id, std::uint32_t value,
                               std::uint32_t annotation = 0)
{
    std::string bytes =
        BigEndian(packedDate, 4) + BigEndian(id.Data1, 4) + BigEndian(id.Data2, 2) + BigEndian(id.Data3, 2);
    for (const std::uint8_t byte : id.Data4) bytes += Byte(byte);
    return Sealed(bytes + Byte(value) + BigEndian(annotation, 4));
}

inline const std::string annotationHeader("ANNOTATIONv2.70\0", 16);

inline std::string EntryBytes(const std::string& text)
{
    return BigEndian(static_cast<std::uint32_t>(text.size() + 1), 2) + text + '\0';
}

/// The same with one bit of one byte changed: no checksum holds.
inline std::string Damaged(std::string block, std::size_t at = 8)
{
    block[at] = static_cast<char>(block[at] ^ 0x10);
    return block;
}
