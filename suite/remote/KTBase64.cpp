#include <cctype>
#include <cstdint>
#include <string_view>

#include "host/KTDigest.h"

namespace
{
constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char padding = '=';

bool IsWhite(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// From `at` on only padding and white space, as much of it as there may be.
bool IsEnd(std::string_view rest, int missing)
{
    int found = 0;
    for (const char c : rest)
    {
        if (IsWhite(c)) continue;
        if (c != padding) return false;
        ++found;
    }
    return found <= missing;
}
}  // namespace

void EncodeBase64(KTNarrowString& out, const void* data, int size)
{
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    KTNarrowString text(KTNarrowString::growLarge);
    for (int i = 0; i < size; i += 3)
    {
        const int here = size - i < 3 ? size - i : 3;
        std::uint32_t group = 0;
        for (int k = 0; k < 3; ++k) group = group << 8 | (k < here ? bytes[i + k] : 0U);
        char four[4];
        for (unsigned k = 0; k < 4; ++k)
            four[k] = k <= static_cast<unsigned>(here) ? alphabet[group >> (18 - 6 * k) & 63U] : padding;
        text.Append(four, 4);
    }
    out = text;
}

bool DecodeBase64String(char* out, const char* text, int size)
{
    const std::string_view all(text, size > 0 ? static_cast<std::size_t>(size) : 0);
    std::uint32_t bits = 0;
    int characters = 0;
    std::size_t at = 0;
    for (; at < all.size(); ++at)
    {
        if (IsWhite(all[at])) continue;
        const std::size_t value = all[at] == '\0' ? alphabet.npos : alphabet.find(all[at]);
        if (value == alphabet.npos) break;
        bits = (bits << 6 | static_cast<std::uint32_t>(value)) & 0xFFFFFFU;
        ++characters;
        // Each character but the first of four completes a byte.
        if (const int place = characters % 4; place != 1)
            *out++ = static_cast<char>(bits >> (place == 0 ? 0 : 8 - 2 * place));
    }
    *out = '\0';
    const int place = characters % 4;
    return place != 1 && IsEnd(all.substr(at), place == 0 ? 0 : 4 - place);
}
