#include "suite/http/KTMetricsText.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace
{
std::string Number(double value)
{
    if (std::isnan(value)) return "NaN";
    if (std::isinf(value)) return value > 0 ? "+Inf" : "-Inf";
    char digits[32];
    return {digits, std::to_chars(digits, digits + sizeof digits, value).ptr};  // the shortest that reads back the same
}

void AppendEscaped(std::string& out, std::string_view value)
{
    for (const char c : value)
    {
        if (c == '\n')
        {
            out += "\\n";
            continue;
        }
        if (c == '\\' || c == '"') out += '\\';
        out += c;
    }
}
}  // namespace

void KTMetricsHistogram::Observe(double seconds)
{
    const auto* const step = std::lower_bound(bounds.begin(), bounds.end(), seconds);
    ++counts[static_cast<std::size_t>(step - bounds.begin())];
    sum += seconds;
}

std::array<std::uint64_t, KTMetricsHistogram::bounds.size() + 1> KTMetricsHistogram::Counts() const
{
    std::array<std::uint64_t, bounds.size() + 1> upTo{};
    std::uint64_t total = 0;
    std::transform(counts.begin(), counts.end(), upTo.begin(), [&](const auto& step) { return total += step; });
    return upTo;
}

void KTMetricsText::Histogram(std::string_view name, std::string_view help, const KTMetricsHistogram& histogram)
{
    Family(name, "histogram", help);
    const auto counts = histogram.Counts();
    for (std::size_t i = 0; i < KTMetricsHistogram::bounds.size(); ++i)
        Line("_bucket", static_cast<double>(counts[i]), {{"le", Number(KTMetricsHistogram::bounds[i])}});
    const auto all = static_cast<double>(counts.back());
    Line("_bucket", all, {{"le", "+Inf"}});
    Line("_sum", histogram.Sum(), {});
    Line("_count", all, {});
}

void KTMetricsText::Family(std::string_view name, const char* type, std::string_view help)
{
    family = name;
    text += "# HELP " + family + ' ';
    text += help;
    text += "\n# TYPE " + family + ' ' + type + '\n';
}

void KTMetricsText::Line(const char* suffix, double value, Labels labels)
{
    text += family + suffix;
    char separator = '{';
    for (const auto& [label, content] : labels)
    {
        text += separator;
        separator = ',';
        text += label;
        text += "=\"";
        AppendEscaped(text, content);
        text += '"';
    }
    if (labels.size() > 0) text += '}';
    text += ' ' + Number(value) + '\n';
}
