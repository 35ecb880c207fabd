// Who is connected, what each connection is doing, and until when it may.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <list>
#include <map>
#include <mutex>
#include <string>

#include "suite/http/KTHttpLimits.h"

/// The book of the connections. Nobody waits here for a client: who is late is cut, by shutting the socket down, and the
/// thread of the connection finds its end by itself.
///
/// When an address, or all together, hold as many connections as they may, a new one is taken nonetheless if one of them
/// can be cut that has been waiting for its client: the longest waiting goes. So neither many idle connections nor many
/// dripping ones keep anybody out. A connection whose request is at work is never cut, and a stream only when it is late.
///
/// Units:   real time, whatever clock is installed: it bounds what other people's machines do.
/// Threads: any. An entry is used by the thread of its connection.
/// Memory:  Open makes an entry, Close frees it. The socket must stay open until Close.
class KTHttpConnections
{
public:
    enum class Phase
    {
        head,      // waits for a request, or for the rest of its head
        body,      // waits for the body
        work,      // the request is being answered
        sending,   // waits for the client to take the answer
        streaming  // the same, without an end
    };

    struct tagSEntry
    {
        int socket = -1;
        std::string peer;   // canonical address
        std::string local;  // canonical address
        Phase phase = Phase::head;
        std::chrono::steady_clock::time_point since;
        std::chrono::steady_clock::time_point deadline;
        bool cut = false;
        std::list<tagSEntry>::iterator place;
    };

    explicit KTHttpConnections(const KTHttpLimits& bounds) : limits(bounds) {}
    KTHttpConnections(const KTHttpConnections&) = delete;
    KTHttpConnections& operator=(const KTHttpConnections&) = delete;

    /// Whether a new connection from there may come in. Makes room for it when it can.
    [[nodiscard]] bool Admit(const std::string& peer);

    /// A connection that was admitted; it begins with the phase `head`.
    tagSEntry* Open(int socket, const std::string& peer, const std::string& local);
    void Close(tagSEntry* entry);

    /// The connection may stay in that phase for so long. False when there are too many streams, and nothing is changed.
    bool Enter(tagSEntry* entry, Phase phase, std::chrono::milliseconds allowance);
    /// In `work`, which has no end of its own.
    void EnterWork(tagSEntry* entry);

    [[nodiscard]] bool IsCut(const tagSEntry* entry) const;

    /// Cuts who is late.
    void CutLate();
    /// Cuts who is in one of the phases that wait for a request.
    void CutWaiting();
    /// Cuts everybody who isn't at work.
    void CutAll();

    /// Waits until all connections are gone, at most so long. Returns whether they are.
    bool WaitUntilEmpty(std::chrono::milliseconds patience);

    [[nodiscard]] std::size_t Size() const;

private:
    using Time = std::chrono::steady_clock::time_point;

    void Cut(tagSEntry& entry);
    bool CutLongestWaiting(const std::string* peer, Time now);
    [[nodiscard]] bool TooManyStreams(const std::string& peer) const;

    const KTHttpLimits limits;
    mutable std::mutex mutex;
    std::condition_variable empty;
    std::list<tagSEntry> entries;              // guarded by mutex
    std::map<std::string, std::size_t> peers;  // guarded by mutex; connections of each address that aren't cut
    std::size_t uncut = 0;                     // guarded by mutex
};
