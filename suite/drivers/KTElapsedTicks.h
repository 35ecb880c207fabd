// Milliseconds by the tick counter, past its wraps.
#pragma once

#include <atomic>
#include <cstdint>

/// Counts the ticks since its construction in 64 bits, though the counter wraps after 49.7 days.
///
/// Nobody has to ask in time: the system's own steady time tells how often the counter has wrapped meanwhile. Only under a
/// virtual clock, which that time knows nothing of, a pause of more than 24 days between two questions loses a wrap.
///
/// Units:   milliseconds.
/// Threads: any; waits for nothing. The result never falls.
class KTElapsedTicks
{
public:
    KTElapsedTicks();

    [[nodiscard]] std::uint64_t Now();

private:
    const std::uint32_t startTick;
    const std::int64_t startSteady;         // milliseconds
    std::atomic<std::uint64_t> elapsed{0};  // the last result
};
