#include "suite/tools/KTVirtualClock.h"

#include "suite/tools/KTYield.h"

KTVirtualClock::KTVirtualClock(const KTDateTime& utc, std::uint32_t tickCount)
    : firstTick(tickCount), driver(std::this_thread::get_id()), origin(utc.CalendarMicroseconds())
{
}

bool KTVirtualClock::Advance(std::chrono::microseconds duration)
{
    if (!Drives() || duration.count() < 0) return false;
    {
        const std::lock_guard guard(mutex);
        elapsed.store(elapsed.load(std::memory_order_relaxed) + duration.count(), std::memory_order_release);
    }
    moved.notify_all();
    return true;
}

bool KTVirtualClock::SetUtc(const KTDateTime& utc)
{
    if (!Drives() || !utc.Valid()) return false;
    origin.store(utc.CalendarMicroseconds() - elapsed.load(std::memory_order_relaxed), std::memory_order_release);
    return true;
}

void KTVirtualClock::Release()
{
    {
        const std::lock_guard guard(mutex);
        released = true;
    }
    moved.notify_all();
}

int KTVirtualClock::Sleepers() const
{
    const std::lock_guard guard(mutex);
    return sleepers;
}

KTDateTime KTVirtualClock::UTC()
{
    return KTDateTime::FromCalendarMicroseconds(origin.load(std::memory_order_acquire) +
                                                elapsed.load(std::memory_order_acquire));
}

KTDateTime KTVirtualClock::LTC() { return KTDateTime::LocalFromUtc(UTC()); }

std::uint32_t KTVirtualClock::TickCount()
{
    return firstTick + static_cast<std::uint32_t>(elapsed.load(std::memory_order_acquire) / 1000);
}

void KTVirtualClock::Sleep(std::uint32_t milliseconds)
{
    if (milliseconds == 0)
    {
        kt::YieldProcessor();
        return;
    }
    if (Drives())
    {
        Advance(std::chrono::milliseconds(milliseconds));
        return;
    }
    std::unique_lock lock(mutex);
    const std::int64_t deadline = elapsed.load(std::memory_order_relaxed) + std::int64_t{milliseconds} * 1000;
    ++sleepers;
    moved.wait(lock, [&] { return released || elapsed.load(std::memory_order_relaxed) >= deadline; });
    --sleepers;
}

void KTVirtualClock::SetScanThread(bool scanning) { kt::SetScanThread(scanning); }
