#include "suite/drivers/KTElapsedTicks.h"

#include <algorithm>
#include <chrono>

#include "host/KTClock.h"

namespace
{
std::int64_t SteadyMilliseconds()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}
}  // namespace

KTElapsedTicks::KTElapsedTicks() : startTick(GetTickCount()), startSteady(SteadyMilliseconds()) {}

std::uint64_t KTElapsedTicks::Now()
{
    constexpr std::int64_t wrap = std::int64_t{1} << 32;
    std::uint64_t last = elapsed.load(std::memory_order_acquire);
    const std::uint32_t tick = GetTickCount();

    // Signed, since a thread that was held up comes with an older tick than the last result.
    const auto step = static_cast<std::int32_t>(tick - startTick - static_cast<std::uint32_t>(last));
    const std::uint64_t counted = step > 0 ? last + static_cast<std::uint32_t>(step) : last;

    // The nearest number of wraps: the two clocks needn't agree better than by 24 days.
    const auto sinceWrap = static_cast<std::int64_t>(tick - startTick);
    const std::int64_t steady = SteadyMilliseconds() - startSteady;
    const std::int64_t wraps = std::max<std::int64_t>(0, (steady - sinceWrap + wrap / 2) / wrap);
    const std::uint64_t now = std::max(counted, static_cast<std::uint64_t>(sinceWrap + wraps * wrap));

    while (last < now && !elapsed.compare_exchange_weak(last, now, std::memory_order_acq_rel)) continue;
    return std::max(last, now);
}
