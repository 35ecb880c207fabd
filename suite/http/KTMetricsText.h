// Figures as the text that Prometheus and its kin read: exposition format 0.0.4.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

/// How often something took how long.
///
/// Units:   seconds.
/// Threads: any; an observation is a few atomic additions. A reader may see one observation in a part of the figures only.
class KTMetricsHistogram
{
public:
    static constexpr std::array<double, 11> bounds = {0.001, 0.0025, 0.005, 0.01, 0.025, 0.1, 0.25, 1, 2.5, 10, 30};

    void Observe(double seconds);

    /// Observations of at most bounds[i]; those above the last bound stand in the last of the counts.
    [[nodiscard]] std::array<std::uint64_t, bounds.size() + 1> Counts() const;
    [[nodiscard]] double Sum() const { return sum; }

private:
    std::array<std::atomic<std::uint64_t>, bounds.size() + 1> counts{};  // each of its own step alone
    std::atomic<double> sum{0};
};

/// Builds one page of families, each with its HELP and TYPE.
///
/// Names and help are plain ASCII of this program; values of labels may be any UTF-8.
///
/// Threads: one at a time.
class KTMetricsText
{
public:
    using Labels = std::initializer_list<std::pair<std::string_view, std::string_view>>;

    static constexpr const char* contentType = "text/plain; version=0.0.4; charset=utf-8";

    /// Begins a family; its samples follow. The name of a counter ends in `_total`.
    void Counter(std::string_view name, std::string_view help) { Family(name, "counter", help); }
    void Gauge(std::string_view name, std::string_view help) { Family(name, "gauge", help); }

    /// One sample of the family that was begun last.
    void Sample(double value, Labels labels = {}) { Line("", value, labels); }

    /// A whole family.
    void Histogram(std::string_view name, std::string_view help, const KTMetricsHistogram& histogram);

    [[nodiscard]] std::string Take() { return std::move(text); }

private:
    void Family(std::string_view name, const char* type, std::string_view help);
    void Line(const char* suffix, double value, Labels labels);

    std::string family;
    std::string text;
};
