#include "suite/drivers/KTSimulatorSignal.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numbers>

namespace
{
constexpr std::int64_t microsecondsOfDay = 86400LL * 1000000;

/// Where a time lies: the number of its period and the share of it that has passed, 0 to below 1.
struct Place
{
    std::int64_t period;
    double passed;
};

Place Find(std::int64_t time, std::int64_t length)
{
    const std::int64_t number = time >= 0 ? time / length : -((-time + length - 1) / length);
    return {number, static_cast<double>(time - number * length) / static_cast<double>(length)};
}

/// A number in 0 to below 1 that hangs on all three arguments and looks like chance.
double Chance(std::int64_t seed, int level, std::int64_t index)
{
    auto bits = static_cast<std::uint64_t>(seed) * 0x9E3779B97F4A7C15U;
    for (const std::uint64_t part : {static_cast<std::uint64_t>(level), static_cast<std::uint64_t>(index)})
    {
        bits += part + 0x9E3779B97F4A7C15U;
        bits = (bits ^ (bits >> 30)) * 0xBF58476D1CE4E5B9U;
        bits = (bits ^ (bits >> 27)) * 0x94D049BB133111EBU;
        bits ^= bits >> 31;
    }
    return static_cast<double>(bits >> 11) * 0x1p-53;
}

/// A walk that can be entered anywhere: it passes through a point of chance at each end of its period, and between two
/// points of each level it leaves the straight line by chance, by less at each finer level, as a random walk does.
double Walk(std::int64_t seed, std::int64_t time, std::int64_t length)
{
    constexpr int levels = 7;
    const Place place = Find(time, length);
    double share = std::lerp(Chance(seed, 0, place.period), Chance(seed, 0, place.period + 1), place.passed);
    double sway = 0.5;
    for (int level = 1; level <= levels; ++level)
    {
        const std::int64_t pieces = std::int64_t{1} << (level - 1);
        const double at = place.passed * static_cast<double>(pieces);
        const double piece = std::floor(at);
        const double tent = 1.0 - std::fabs(2.0 * (at - piece) - 1.0);
        const std::int64_t index = place.period * pieces + static_cast<std::int64_t>(piece);
        sway *= std::numbers::sqrt2 / 2;
        share += sway * tent * (2.0 * Chance(seed, level, index) - 1.0);
    }
    // What would leave the range turns back at its border.
    share = std::fabs(share - 2.0 * std::floor(share / 2.0));
    return share > 1.0 ? 2.0 - share : share;
}

/// Lowest at midnight, highest at noon.
double Daily(const KTDateTime& utc)
{
    const std::int64_t local = KTDateTime::LocalFromUtc(utc).CalendarMicroseconds();
    return (1.0 - std::cos(2.0 * std::numbers::pi * Find(local, microsecondsOfDay).passed)) / 2.0;
}
}  // namespace

bool KTSimulatorSignal::FindKind(std::string_view name, Kind& out)
{
    constexpr std::string_view names[] = {"constant", "sine", "square",
                                          "ramp",     "walk", "daily"};  // in the order of Kind
    const auto* found = std::find(std::begin(names), std::end(names), name);
    if (found == std::end(names)) return false;
    out = static_cast<Kind>(found - std::begin(names));
    return true;
}

double KTSimulatorSignal::At(const KTDateTime& utc) const
{
    // The ends exactly, where an interpolation might miss them by a hair.
    const double share = Share(utc);
    if (share <= 0.0) return low;
    return share >= 1.0 ? high : std::lerp(low, high, share);
}

double KTSimulatorSignal::Share(const KTDateTime& utc) const
{
    const std::int64_t time = utc.CalendarMicroseconds();
    const auto length = std::max<std::int64_t>(1, std::llround(periodSeconds * 1e6));
    switch (kind)
    {
        case Kind::constant:
            return 0.0;
        case Kind::sine:
            return (1.0 + std::sin(2.0 * std::numbers::pi * Find(time, length).passed)) / 2.0;
        case Kind::square:
            return Find(time, length).passed < 0.5 ? 1.0 : 0.0;
        case Kind::ramp:
            return Find(time, length).passed;
        case Kind::walk:
            return Walk(seed, time, length);
        case Kind::daily:
            return Daily(utc);
    }
    return 0.0;
}
