#include "suite/tools/KTUnicode.h"

#include <algorithm>
#include <iterator>

#include "suite/tools/unicode/KTUnicodeTables.h"

namespace
{
using kt::unicode::Mapping;
using kt::unicode::Range;

// The row that may hold c: the first one that doesn't end before it.
template <class Row, std::size_t size>
const Row* Find(const Row (&rows)[size], char32_t c)
{
    const Row* const found = std::lower_bound(std::begin(rows), std::end(rows), c,
                                              [](const Row& row, char32_t value) { return row.last < value; });
    return found != std::end(rows) && found->first <= c ? found : nullptr;
}

template <std::size_t size>
char32_t Map(const Mapping (&rows)[size], char32_t c)
{
    const Mapping* const row = Find(rows, c);
    if (row == nullptr || (c - row->first) % static_cast<char32_t>(row->step) != 0) return c;
    return static_cast<char32_t>(static_cast<std::int32_t>(c) + row->delta);
}
}  // namespace

char32_t kt::ToLower(char32_t c)
{
    if (c < 0x80) return c >= U'A' && c <= U'Z' ? c + 32 : c;
    return Map(unicode::lower, c);
}

char32_t kt::ToUpper(char32_t c)
{
    if (c < 0x80) return c >= U'a' && c <= U'z' ? c - 32 : c;
    return Map(unicode::upper, c);
}

bool kt::IsLetter(char32_t c) { return Find(unicode::letters, c) != nullptr; }
bool kt::IsMark(char32_t c) { return Find(unicode::marks, c) != nullptr; }
bool kt::IsDigit(char32_t c) { return Find(unicode::digits, c) != nullptr; }

char32_t kt::NextUtf8Slow(const char*& at, const char* end)
{
    const auto first = static_cast<unsigned char>(*at++);
    if (first < 0x80) return first;

    // How many bytes follow, and which values the first of them may have: the narrower ranges shut out overlong forms,
    // surrogates and what lies above 0x10FFFF.
    int rest = 0;
    unsigned low = 0x80;
    unsigned high = 0xBF;
    char32_t c = 0;
    if (first >= 0xC2 && first <= 0xDF)
    {
        rest = 1;
        c = first & 0x1FU;
    }
    else if (first >= 0xE0 && first <= 0xEF)
    {
        rest = 2;
        c = first & 0x0FU;
        if (first == 0xE0) low = 0xA0;
        if (first == 0xED) high = 0x9F;
    }
    else if (first >= 0xF0 && first <= 0xF4)
    {
        rest = 3;
        c = first & 0x07U;
        if (first == 0xF0) low = 0x90;
        if (first == 0xF4) high = 0x8F;
    }
    else
        return replacement;

    for (; rest > 0; --rest)
    {
        if (at == end) return replacement;
        const auto next = static_cast<unsigned char>(*at);
        if (next < low || next > high) return replacement;
        c = c << 6 | (next & 0x3FU);
        low = 0x80;
        high = 0xBF;
        ++at;
    }
    return c;
}
