// The signals of simulated variables, as functions of the time alone.
#pragma once

#include <cstdint>
#include <string_view>

#include "host/KTDateTime.h"

/// One signal. Its value at a time follows from its fields and that time, so it is the same in every run and on every
/// machine (for `daily`, of the same time zone).
///
/// Format:  docs/devices.md, "simulator".
/// Units:   the period is seconds; it begins anew at each whole multiple since 1970-01-01 00:00:00 UTC.
/// Threads: a plain value.
class KTSimulatorSignal
{
public:
    enum class Kind
    {
        constant,
        sine,
        square,
        ramp,
        walk,
        daily
    };

    /// By the names of the settings; false, with `out` unchanged, for an unknown one.
    static bool FindKind(std::string_view name, Kind& out);

    /// Only for a valid date.
    [[nodiscard]] double At(const KTDateTime& utc) const;

    Kind kind = Kind::sine;
    double low = 0.0;
    double high = 100.0;
    double periodSeconds = 60.0;  // above 0; counts as at least a microsecond
    std::int64_t seed = 1;

private:
    [[nodiscard]] double Share(const KTDateTime& utc) const;
};
