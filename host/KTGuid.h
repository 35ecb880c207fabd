// Identifiers of events, groups, time tables, actions and occurrences.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

/// 16 bytes (RFC 4122 field names aside).
struct _GUID
{
    std::uint32_t Data1 = 0;
    std::uint16_t Data2 = 0;
    std::uint16_t Data3 = 0;
    std::uint8_t Data4[8] = {};

    bool operator==(const _GUID&) const = default;
};
using GUID = _GUID;

/// For tables keyed by identifier. They need not be random: the words are mixed.
struct KTGuidHash
{
    std::size_t operator()(const GUID& guid) const
    {
        std::uint64_t words[2];
        static_assert(sizeof words == sizeof guid);
        std::memcpy(words, &guid, sizeof guid);
        const std::uint64_t mixed = (words[0] ^ (words[1] * 0x9E3779B97F4A7C15U)) * 0xBF58476D1CE4E5B9U;
        return static_cast<std::size_t>(mixed ^ (mixed >> 32));
    }
};

inline constexpr GUID nullGuid{};
inline constexpr int guidTextSize = 39;  // characters of the text form, terminator included

/// Where NewGUID takes its numbers from.
///
/// Threads: Next may be called from any thread.
/// Memory:  an installed source stays the caller's.
class KTGuidSource
{
public:
    KTGuidSource() = default;
    KTGuidSource(const KTGuidSource&) = delete;
    KTGuidSource& operator=(const KTGuidSource&) = delete;
    virtual ~KTGuidSource() = default;

    /// False when no identifier can be had; `guid` is then unchanged.
    virtual bool Next(GUID& guid) = 0;

    static KTGuidSource& Get();

    /// Null installs the system's random source. Returns the source that was installed before, null for the system's.
    static KTGuidSource* Install(KTGuidSource* source);
};

/// A fresh identifier (RFC 4122 version 4 from the system's source).
bool NewGUID(GUID& guid);

/// "{6F9619FF-8B86-D011-B42D-00CF4FC964FF}", upper case, into a buffer of at least guidTextSize characters, which is
/// returned.
wchar_t* guidtow(const GUID& guid, wchar_t* buffer);
char* guidtoc(const GUID& guid, char* buffer);

/// Also takes lower case and text without braces; anything else, blanks around it included, is the null identifier.
GUID wtoguid(const wchar_t* text);
