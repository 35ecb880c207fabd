// Dates as programs write them to each other: "2026-03-01T10:00:00Z", UTC, whole seconds.
#pragma once

#include <string>
#include <string_view>

#include "host/KTDateTime.h"

namespace kt
{
/// Empty for an invalid date; fractions of a second are cut.
std::string IsoTime(const KTDateTime& date);

/// False, with `date` unchanged, for anything but exactly that form and a date that exists.
bool ParseIsoTime(std::string_view text, KTDateTime& date);
}  // namespace kt
