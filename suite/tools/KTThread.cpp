#include "host/KTThread.h"

#include <chrono>
#include <system_error>

bool KTSemaphore::Wait(std::uint32_t milliseconds)
{
    std::unique_lock lock(mutex);
    const auto available = [this] { return count > 0 && !draining; };
    if (!released.wait_for(lock, std::chrono::milliseconds(milliseconds), available)) return false;
    --count;
    return true;
}

bool KTSemaphore::Release()
{
    bool drained = false;
    {
        const std::lock_guard guard(mutex);
        if (count >= limit) return false;
        ++count;
        drained = draining;
    }
    (drained ? full : released).notify_one();
    return true;
}

void KTSemaphore::Drain()
{
    std::unique_lock lock(mutex);
    draining = true;
    full.wait(lock, [this] { return count == limit; });
    count = 0;
    draining = false;
}

bool KTThread::Start(Entry entry, void* argument)
{
    Join();
    try
    {
        thread = std::thread(entry, argument);
    }
    catch (const std::system_error&)
    {
        return false;
    }
    return true;
}

void KTThread::Join()
{
    if (thread.joinable()) thread.join();
}
