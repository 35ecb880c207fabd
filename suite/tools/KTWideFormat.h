// The wide printf of KTFormat, for texts of any length.
#pragma once

#include <cstdarg>
#include <cstddef>

namespace kt
{
/// Formats as KTFormat does and writes at most `size` characters, without a terminator. Returns how many the whole text
/// has, which may be more.
std::size_t FormatWide(wchar_t* out, std::size_t size, const wchar_t* format, std::va_list arguments);
}  // namespace kt
