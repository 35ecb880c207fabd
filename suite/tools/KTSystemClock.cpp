#include <sched.h>

#include <atomic>
#include <cerrno>
#include <ctime>

#include "host/KTClock.h"
#include "suite/tools/KTYield.h"

namespace
{
constexpr std::int64_t yieldPause = 200'000;  // nanoseconds

struct YieldState
{
    bool scanning = false;
    std::int64_t last = INT64_MIN / 2;  // nanoseconds of the monotonic clock
};

thread_local YieldState yieldState;

std::int64_t MonotonicNanoseconds()
{
    std::timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

class SystemClock final : public KTClock
{
public:
    KTDateTime UTC() override
    {
        std::timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        return KTDateTime::FromCalendarMicroseconds(std::int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000);
    }

    KTDateTime LTC() override { return KTDateTime::LocalFromUtc(UTC()); }

    std::uint32_t TickCount() override { return static_cast<std::uint32_t>(MonotonicNanoseconds() / 1'000'000); }

    void Sleep(std::uint32_t milliseconds) override
    {
        if (milliseconds == 0)
        {
            kt::YieldProcessor();
            return;
        }
        const std::int64_t until = MonotonicNanoseconds() + std::int64_t{milliseconds} * 1'000'000;
        const std::timespec deadline{static_cast<std::time_t>(until / 1'000'000'000),
                                     static_cast<long>(until % 1'000'000'000)};
        while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr) == EINTR)
        {
        }
        // A pause gave the processor away too: a scan that begins behind it need not do so again at once.
        if (yieldState.scanning) yieldState.last = MonotonicNanoseconds();
    }

    void SetScanThread(bool scanning) override { kt::SetScanThread(scanning); }
};

SystemClock& TheSystemClock()
{
    static auto* const clock = new SystemClock;  // never destroyed: threads may still ask at the end of the process
    return *clock;
}

std::atomic<KTClock*> installed{nullptr};
}  // namespace

void kt::SetScanThread(bool scanning) { yieldState.scanning = scanning; }

bool kt::YieldProcessor()
{
    YieldState& state = yieldState;
    if (state.scanning && MonotonicNanoseconds() - state.last < yieldPause) return false;
    sched_yield();
    // The pause counts from the return: the time slice that a yield costs isn't part of it.
    if (state.scanning) state.last = MonotonicNanoseconds();
    return true;
}

KTClock& KTClock::Get()
{
    KTClock* const clock = installed.load(std::memory_order_acquire);
    return clock != nullptr ? *clock : TheSystemClock();
}

KTClock* KTClock::Install(KTClock* clock) { return installed.exchange(clock, std::memory_order_acq_rel); }
