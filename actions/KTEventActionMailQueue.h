// The mails that wait to be sent, and the thread that sends them.
#pragma once

#include <atomic>
#include <list>
#include <memory>
#include <vector>

#include "host/KTString.h"
#include "host/KTThread.h"

class KTSmtp;

/// One mail, all of it UTF-8.
struct KTEventMailEntry
{
    std::vector<KTNarrowString> addresses;
    KTNarrowString subject;
    KTNarrowString text;
};

/// Takes mails and sends them one after the other on a thread that runs while there are any. A mail that fails keeps its
/// turn and is tried again, for ever: an outage of the mail server, however long, must not cost the news of an alarm. When
/// too many wait, the oldest goes.
///
/// Units:   milliseconds of the clock.
/// Errors:  none is told. A mail ends by being sent, by being the oldest of too many, or with the queue.
/// Threads: Add from any, also several at once; one constructs and destroys it, while nobody adds. The mutex is held during
///          the dialogue with the server, so that Add may wait for one, though never for the whole queue.
/// Memory:  copies what it is given.
class KTEventActionMailQueue
{
public:
    static constexpr std::size_t mostEntries = 128;
    static constexpr std::uint32_t pauseBetweenMails = 10;  // milliseconds

    KTEventActionMailQueue() : cursor(entries.end()) {}
    KTEventActionMailQueue(const KTEventActionMailQueue&) = delete;
    KTEventActionMailQueue& operator=(const KTEventActionMailQueue&) = delete;
    /// A dialogue on its way is finished first; what still waits then is lost.
    ~KTEventActionMailQueue();

    /// Always true. Without a thread the mail waits for the next Add that gets one; only a caller who holds the mutex
    /// already leaves it unqueued.
    bool Add(const std::vector<KTNarrowString>& addresses, const char* subject, const char* text);

protected:
    enum State : int
    {
        starting = 1,  // Add has started the worker and hasn't seen it run
        running = 2,
        stopping = 3,  // the destructor waits for the worker
        stopped = 5    // no worker
    };
    using Entries = std::list<KTEventMailEntry*>;

    void DropOldest() KT_REQUIRES(mutex);
    void NeedWorker() KT_REQUIRES(mutex);

    KTMutex mutex;
    Entries entries KT_GUARDED_BY(mutex);           // owned, oldest first
    Entries::iterator cursor KT_GUARDED_BY(mutex);  // what the worker tries next, or the end
    std::atomic<int> state{stopped};

private:
    void Work();
    void RestartTurns();
    /// The mail whose turn it is. False when none waits: the worker has then ended, and `smtp` with it.
    bool SendNext(std::unique_ptr<KTSmtp>& smtp);

    KTThread worker;
};
