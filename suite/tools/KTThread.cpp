#include "host/KTThread.h"

#include <chrono>
#include <system_error>

bool KTSemaphore::Wait(std::uint32_t milliseconds)
{
    std::unique_lock lock(mutex);
    if (!released.wait_for(lock, std::chrono::milliseconds(milliseconds), [this] { return count > 0; })) return false;
    --count;
    return true;
}

bool KTSemaphore::Release()
{
    {
        const std::lock_guard guard(mutex);
        if (count >= limit) return false;
        ++count;
    }
    released.notify_one();
    return true;
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
