#include "apps/corvane/Arguments.h"

#include <algorithm>

namespace
{
bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

bool IsSignedExpression(const std::string& word)
{
    if (!word.starts_with('-') || word == "-h") return false;
    return !word.starts_with("--") || (word.size() > 2 && !IsLetter(word[2]));
}
}  // namespace

std::vector<std::string> corvane::WithExpressionLast(std::vector<std::string> words)
{
    if (words.empty() || words.front() != "eval") return words;
    std::vector<std::string> expressions;
    for (auto word = words.begin() + 1; word != words.end() && *word != "--";)
    {
        if (*word == "--setup")
            word += std::min<std::ptrdiff_t>(2, words.end() - word);  // its value may begin with anything
        else if (IsSignedExpression(*word))
        {
            expressions.push_back(std::move(*word));
            word = words.erase(word);
        }
        else
            ++word;
    }
    if (expressions.empty()) return words;
    if (std::find(words.begin(), words.end(), "--") == words.end()) words.emplace_back("--");
    words.insert(words.end(), expressions.begin(), expressions.end());
    return words;
}
