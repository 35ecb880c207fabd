#!/usr/bin/python3
"""Writes KTUnicodeTables.h from the character database that Python carries.

Run it by hand when a newer database is wanted, and commit the result:
    suite/tools/unicode/generate.py > suite/tools/unicode/KTUnicodeTables.h
"""

import sys
import unicodedata

CODE_POINTS = [c for c in range(sys.maxunicode + 1) if not 0xD800 <= c <= 0xDFFF]


def simple_lower(c):
    lower = chr(c).lower()
    # The one character whose full lower-case form is longer than one: capital I with a dot above.
    return ord(lower) if len(lower) == 1 else 0x69


def simple_upper(c):
    for form in (chr(c).upper(), chr(c).title()):
        if len(form) == 1:
            return ord(form)
    return c


def ranges_of(categories):
    """[first, last] of the code points in the categories."""
    result = []
    for c in CODE_POINTS:
        if unicodedata.category(chr(c)) in categories:
            if result and result[-1][1] == c - 1:
                result[-1][1] = c
            else:
                result.append([c, c])
    return result


def mappings_of(mapping):
    """[first, last, step, delta]: every step-th code point from first to last maps to itself plus delta."""
    result = []
    for c in CODE_POINTS:
        delta = mapping(c) - c
        if delta == 0:
            continue
        if result:
            first, last, step, previous = result[-1]
            gap = c - last
            if previous == delta and (gap == step or (first == last and gap <= 2)):
                result[-1] = [first, c, gap, delta]
                continue
        result.append([c, c, 1, delta])
    return result


def table(comment, kind, name, rows):
    print(f"\n// {comment}")
    print(f"inline constexpr {kind} {name}[] = {{")
    line = "   "
    for row in rows:
        cells = [f"0x{value:X}" if i < 2 else str(value) for i, value in enumerate(row)]
        item = " {" + ", ".join(cells) + "},"
        if len(line) + len(item) > 118:
            print(line)
            line = "   "
        line += item
    print(line)
    print("};")


def main():
    print(f"""// Written by generate.py from the Unicode character database {unicodedata.unidata_version}; don't edit.
#pragma once

#include <cstdint>

// clang-format off
namespace kt::unicode
{{
struct Range
{{
    std::uint32_t first;
    std::uint32_t last;
}};

struct Mapping
{{
    std::uint32_t first;
    std::uint32_t last;
    std::int32_t step;   // every step-th code point from first to last ...
    std::int32_t delta;  // ... maps to itself plus delta
}};""")
    table("Letters, and the numbers that are written as letters (L, Nl).", "Range", "letters",
          ranges_of({"Lu", "Ll", "Lt", "Lm", "Lo", "Nl"}))
    table("Combining marks, which make one letter with the character before (Mn, Mc).", "Range", "marks",
          ranges_of({"Mn", "Mc"}))
    table("Decimal digits (Nd).", "Range", "digits", ranges_of({"Nd"}))
    table("Simple lower-case mapping.", "Mapping", "lower", mappings_of(simple_lower))
    table("Simple upper-case mapping.", "Mapping", "upper", mappings_of(simple_upper))
    print("}  // namespace kt::unicode")


if __name__ == "__main__":
    main()
