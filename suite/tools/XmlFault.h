// Why a file isn't a document, for a person to read.
#pragma once

#include <string>

namespace kt
{
/// Reads the file once more and says what is wrong with it: "line 4: mismatched tag", "Permission denied". Empty when
/// nothing is. `path` is UTF-8.
std::string XmlFaultOf(const std::string& path);
}  // namespace kt
