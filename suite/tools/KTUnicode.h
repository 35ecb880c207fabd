// What a character is, in no locale and the same on every machine; and the two encodings, one code point at a time.
#pragma once

#include <cstdint>

namespace kt
{
inline constexpr char32_t replacement = 0xFFFD;  // stands for what can't be decoded

char32_t ToLower(char32_t c);  // simple mapping: one code point for one
char32_t ToUpper(char32_t c);
bool IsLetter(char32_t c);  // letters of any script, and numbers written as letters
bool IsMark(char32_t c);    // makes one letter with the character before it
bool IsDigit(char32_t c);   // decimal digits of any script

constexpr bool IsHighSurrogate(char32_t c) { return c >= 0xD800 && c <= 0xDBFF; }
constexpr bool IsLowSurrogate(char32_t c) { return c >= 0xDC00 && c <= 0xDFFF; }
constexpr bool IsSurrogate(char32_t c) { return c >= 0xD800 && c <= 0xDFFF; }

/// The next code point of wide text, and moves past it: pairs are joined, one element above 0xFFFF is the code point it
/// is, anything ill-formed is U+FFFD, one for each element. `at` must be before `end`.
inline char32_t NextWide(const wchar_t*& at, const wchar_t* end)
{
    const auto c = static_cast<char32_t>(*at++);
    if (c < 0xD800) return c;
    if (IsHighSurrogate(c))
    {
        if (at == end || !IsLowSurrogate(static_cast<char32_t>(*at))) return replacement;
        return 0x10000 + ((c - 0xD800) << 10) + (static_cast<char32_t>(*at++) - 0xDC00);
    }
    return IsLowSurrogate(c) || c > 0x10FFFF ? replacement : c;
}

/// The next code point of UTF-8, and moves past it; an ill-formed sequence is U+FFFD, one for each of its maximal subparts
/// (what could have begun a good sequence goes as one). `at` must be before `end`.
char32_t NextUtf8Slow(const char*& at, const char* end);
inline char32_t NextUtf8(const char*& at, const char* end)
{
    const auto c = static_cast<unsigned char>(*at);
    if (c >= 0x80) return NextUtf8Slow(at, end);
    ++at;
    return c;
}

/// Writes a code point (not a surrogate) and returns the place behind it; at most 4 characters.
inline char* PutUtf8(char* out, char32_t c)
{
    if (c < 0x80)
    {
        *out++ = static_cast<char>(c);
        return out;
    }
    if (c < 0x800)
        *out++ = static_cast<char>(0xC0 | (c >> 6));
    else
    {
        if (c < 0x10000)
            *out++ = static_cast<char>(0xE0 | (c >> 12));
        else
        {
            *out++ = static_cast<char>(0xF0 | (c >> 18));
            *out++ = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        }
        *out++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    }
    *out++ = static_cast<char>(0x80 | (c & 0x3F));
    return out;
}

/// The same in wide text; at most 2 elements.
inline wchar_t* PutWide(wchar_t* out, char32_t c)
{
    if (c >= 0x10000)
    {
        *out++ = static_cast<wchar_t>(0xD800 + ((c - 0x10000) >> 10));
        c = 0xDC00 + ((c - 0x10000) & 0x3FF);
    }
    *out++ = static_cast<wchar_t>(c);
    return out;
}
}  // namespace kt
