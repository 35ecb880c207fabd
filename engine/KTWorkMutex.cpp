#include "engine/KTWorkMutex.h"

bool KTWorkMutex::HeldByThisThread() const
{
    // Only this thread can have written its own id, so a relaxed look is enough.
    return owner.load(std::memory_order_relaxed) == std::this_thread::get_id();
}

void KTWorkMutex::Take()
{
    held = true;
    owner.store(std::this_thread::get_id(), std::memory_order_relaxed);
}

bool KTWorkMutex::Lock()
{
    if (HeldByThisThread()) return false;
    std::unique_lock lock(mutex);
    forOthers.wait(lock, [this] { return !held && !firstWaits; });
    Take();
    return true;
}

bool KTWorkMutex::LockFirst()
{
    if (HeldByThisThread()) return false;
    std::unique_lock lock(mutex);
    firstWaits = true;
    forFirst.wait(lock, [this] { return !held; });
    firstWaits = false;
    Take();
    return true;
}

void KTWorkMutex::Unlock()
{
    bool first = false;
    {
        const std::lock_guard lock(mutex);
        owner.store(std::thread::id(), std::memory_order_relaxed);
        held = false;
        first = firstWaits;
    }
    // One of the others is woken by whoever leaves the lane.
    (first ? forFirst : forOthers).notify_one();
}
