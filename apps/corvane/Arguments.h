// What the command line's parser can't tell by itself.
#pragma once

#include <string>
#include <vector>

namespace corvane
{
/// The arguments of the program, without its own name, with an expression of `eval` that begins with a sign moved behind
/// `--`: the parser would take "-[M1.P]" for an option. `--` with a letter behind it stays what it looks like, a mistaken
/// option.
std::vector<std::string> WithExpressionLast(std::vector<std::string> words);
}  // namespace corvane
