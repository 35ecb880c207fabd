// The mutex of the registry, in which the scan goes before the services.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "host/KTThreadAnnotations.h"

/// A mutex with a lane for the one thread that mustn't wait longer than it has to.
///
/// An ordinary mutex goes to whoever grabs it first, and a crowd of clients that come again as soon as they are served
/// keeps the scan from it for seconds: events would be missed because somebody looks at them. Here the thread in the lane
/// is the next, whoever else waits.
///
/// Errors:  Lock and LockFirst are false when the calling thread holds the mutex already; nothing is taken then.
/// Threads: any; at most one uses the lane. Not recursive, and not fair among the others.
class KT_CAPABILITY("mutex") KTWorkMutex
{
public:
    KTWorkMutex() = default;
    KTWorkMutex(const KTWorkMutex&) = delete;
    KTWorkMutex& operator=(const KTWorkMutex&) = delete;

    [[nodiscard]] bool Lock() KT_TRY_ACQUIRE(true);
    /// As Lock, in the lane.
    [[nodiscard]] bool LockFirst() KT_TRY_ACQUIRE(true);
    void Unlock() KT_RELEASE();

private:
    [[nodiscard]] bool HeldByThisThread() const;
    void Take();

    std::mutex mutex;  // guards what follows, for the few instructions of each operation
    std::condition_variable forFirst;
    std::condition_variable forOthers;
    bool held = false;
    bool firstWaits = false;
    std::atomic<std::thread::id> owner{};
};
