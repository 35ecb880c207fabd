// Threads, mutexes and the counting semaphore.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

#include "host/KTThreadAnnotations.h"

/// A mutex that tells a failure instead of standing still for ever.
///
/// Errors:  Lock is false when the calling thread holds the mutex already; nothing is taken then.
/// Threads: any. Not recursive, not fair.
/// Memory:  16 bytes: each event has one, and a scan that passes a million of them waits for memory, not for locks. That
///          is why it isn't a std::mutex.
class KT_CAPABILITY("mutex") KTMutex
{
public:
    KTMutex() = default;
    KTMutex(const KTMutex&) = delete;
    KTMutex& operator=(const KTMutex&) = delete;

    [[nodiscard]] bool Lock() KT_TRY_ACQUIRE(true) KT_NO_THREAD_SAFETY_ANALYSIS
    {
        const std::thread::id self = std::this_thread::get_id();
        // Only this thread can have written its own id, so a relaxed look is enough.
        if (owner.load(std::memory_order_relaxed) == self) return false;
        int seen = unlocked;
        if (!word.compare_exchange_strong(seen, locked, std::memory_order_acquire, std::memory_order_relaxed)) Wait();
        owner.store(self, std::memory_order_relaxed);
        return true;
    }

    void Unlock() KT_RELEASE() KT_NO_THREAD_SAFETY_ANALYSIS
    {
        owner.store(std::thread::id(), std::memory_order_relaxed);
        if (word.exchange(unlocked, std::memory_order_release) == awaited) word.notify_one();
    }

private:
    static constexpr int unlocked = 0;
    static constexpr int locked = 1;
    static constexpr int awaited = 2;  // locked, and somebody may wait

    // Who has waited takes the mutex as awaited: there may be others, and one wake-up too many does no harm.
    void Wait()
    {
        while (word.exchange(awaited, std::memory_order_acquire) != unlocked)
            word.wait(awaited, std::memory_order_relaxed);
    }

    std::atomic<int> word{unlocked};
    std::atomic<std::thread::id> owner{};
};

/// Holds a mutex for the length of a scope; ask Locked() before touching what the mutex guards.
template <class Mutex>
class KT_SCOPED_CAPABILITY KTLockGuard
{
public:
    explicit KTLockGuard(Mutex& m) KT_ACQUIRE(m) KT_NO_THREAD_SAFETY_ANALYSIS : mutex(m), locked(m.Lock()) {}
    KTLockGuard(const KTLockGuard&) = delete;
    KTLockGuard& operator=(const KTLockGuard&) = delete;
    ~KTLockGuard() KT_RELEASE() KT_NO_THREAD_SAFETY_ANALYSIS
    {
        if (locked) mutex.Unlock();
    }

    [[nodiscard]] bool Locked() const { return locked; }

private:
    Mutex& mutex;
    const bool locked;
};

/// A counting semaphore with an upper bound and a timed wait.
///
/// Units:   milliseconds of real time, whatever clock is installed: it bounds the wait of one thread for another.
/// Errors:  Wait is false when no count came in time; Release is false when the semaphore is full, and changes nothing.
/// Threads: any; one at a time drains.
class KTSemaphore
{
public:
    KTSemaphore(int initial, int maximum) : count(initial), limit(maximum) {}
    KTSemaphore(const KTSemaphore&) = delete;
    KTSemaphore& operator=(const KTSemaphore&) = delete;

    [[nodiscard]] bool Wait(std::uint32_t milliseconds);
    bool Release();

    /// Takes all counts, however long their holders keep them. From the call on nobody else gets one: among many that ask
    /// again and again, somebody who needs every count would never be done.
    void Drain();

private:
    std::mutex mutex;
    std::condition_variable released;
    std::condition_variable full;
    int count;
    bool draining = false;
    const int limit;
};

/// One thread with an entry function and an argument, which the caller keeps alive until the thread has ended.
///
/// Errors:  Start is false when the system gives no thread.
/// Memory:  the destructor waits for the end of the thread.
class KTThread
{
public:
    using Entry = void (*)(void* argument);

    KTThread() = default;
    KTThread(const KTThread&) = delete;
    KTThread& operator=(const KTThread&) = delete;
    ~KTThread() { Join(); }

    [[nodiscard]] bool Start(Entry entry, void* argument);

    /// Waits for the end of the thread; returns at once when none was started.
    void Join();

private:
    std::thread thread;
};
