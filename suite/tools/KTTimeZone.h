// The process's time zone.
#pragma once

#include <cstdint>

namespace kt
{
/// Seconds east of UTC at an instant, given in seconds since 1970-01-01 UTC. A change of TZ counts from the next call on.
///
/// Threads: any; TZ itself must not be changed while another thread asks.
std::int32_t ZoneOffset(std::int64_t utcSeconds);
}  // namespace kt
