// Texts between the module and a terminal: UTF-8, safe to show, as wide as they look.
#pragma once

#include <string>
#include <string_view>

#include "host/KTString.h"

namespace corvane
{
std::string Utf8(const KTWideString& text);
KTWideString Wide(const std::string& utf8);

/// What was read from a file, made well-formed: bytes that are no UTF-8 become U+FFFD.
std::string WellFormed(const KTNarrowString& text);

/// On one line and without what a terminal would obey: control characters become blanks. `utf8` is well-formed.
std::string OneLine(std::string_view utf8);

/// Columns of a terminal that well-formed text without control characters takes: letters of East Asia take two, accents
/// that combine none.
int DisplayWidth(std::string_view utf8);
}  // namespace corvane
