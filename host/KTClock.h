// The one source of time: the system's clock, or a virtual one that a test or a replay installs.
#pragma once

#include <cstdint>

#include "host/KTDateTime.h"

/// What the module asks the time of.
///
/// Units:   dates as KTDateTime, ticks and pauses in milliseconds. The tick counter wraps at 2^32.
/// Threads: all operations may be called from any thread; Install only while no other thread asks for the time.
/// Memory:  an installed clock stays the caller's and must outlive its installation.
class KTClock
{
public:
    KTClock() = default;
    KTClock(const KTClock&) = delete;
    KTClock& operator=(const KTClock&) = delete;
    virtual ~KTClock() = default;

    virtual KTDateTime UTC() = 0;
    virtual KTDateTime LTC() = 0;
    virtual std::uint32_t TickCount() = 0;

    /// 0 yields the processor. On the thread of a scan a yield happens at most once in 200 µs since that thread's last
    /// one: on a busy machine each costs a whole time slice, and a scan that yields after every event would stand still.
    virtual void Sleep(std::uint32_t milliseconds) = 0;

    /// The calling thread begins, or ends, to be the thread of a scan.
    virtual void SetScanThread(bool scanning) = 0;

    static KTClock& Get();

    /// Null installs the system's clock. Returns the clock that was installed before, null for the system's.
    static KTClock* Install(KTClock* clock);
};

inline std::uint32_t GetTickCount() { return KTClock::Get().TickCount(); }
inline void Sleep(std::uint32_t milliseconds) { KTClock::Get().Sleep(milliseconds); }
