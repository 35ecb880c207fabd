#include "suite/http/KTHttpConnections.h"

#include <sys/socket.h>

#include <algorithm>

bool KTHttpConnections::Admit(const std::string& peer)
{
    const std::lock_guard guard(mutex);
    const Time now = std::chrono::steady_clock::now();
    const auto own = peers.find(peer);
    if (own != peers.end() && own->second >= limits.connectionsOfOne) return CutLongestWaiting(&peer, now);
    if (uncut < limits.connections) return true;
    // Whoever holds most gives first.
    const auto greediest =
        std::max_element(peers.begin(), peers.end(), [](const auto& a, const auto& b) { return a.second < b.second; });
    const std::string holder = greediest->first;
    return CutLongestWaiting(&holder, now) || CutLongestWaiting(nullptr, now);
}

KTHttpConnections::tagSEntry* KTHttpConnections::Open(int socket, const std::string& peer, const std::string& local)
{
    const std::lock_guard guard(mutex);
    const Time now = std::chrono::steady_clock::now();
    tagSEntry& entry = entries.emplace_back();
    entry.socket = socket;
    entry.peer = peer;
    entry.local = local;
    entry.since = now;
    entry.deadline = now + limits.head;
    entry.place = std::prev(entries.end());
    ++peers[peer];
    ++uncut;
    return &entry;
}

void KTHttpConnections::Close(tagSEntry* entry)
{
    const std::lock_guard guard(mutex);
    if (!entry->cut)
    {
        --uncut;
        const auto own = peers.find(entry->peer);
        if (--own->second == 0) peers.erase(own);
    }
    entries.erase(entry->place);
    if (entries.empty()) empty.notify_all();
}

bool KTHttpConnections::Enter(tagSEntry* entry, Phase phase, std::chrono::milliseconds allowance)
{
    const std::lock_guard guard(mutex);
    if (phase == Phase::streaming && entry->phase != Phase::streaming && TooManyStreams(entry->peer)) return false;
    entry->phase = phase;
    entry->since = std::chrono::steady_clock::now();
    entry->deadline = entry->since + allowance;
    return true;
}

void KTHttpConnections::EnterWork(tagSEntry* entry)
{
    const std::lock_guard guard(mutex);
    entry->phase = Phase::work;
    entry->since = std::chrono::steady_clock::now();
    entry->deadline = Time::max();
}

bool KTHttpConnections::IsCut(const tagSEntry* entry) const
{
    const std::lock_guard guard(mutex);
    return entry->cut;
}

void KTHttpConnections::CutLate()
{
    const std::lock_guard guard(mutex);
    const Time now = std::chrono::steady_clock::now();
    for (tagSEntry& entry : entries)
        if (now >= entry.deadline) Cut(entry);
}

void KTHttpConnections::CutWaiting()
{
    const std::lock_guard guard(mutex);
    for (tagSEntry& entry : entries)
        if (entry.phase == Phase::head || entry.phase == Phase::body) Cut(entry);
}

void KTHttpConnections::CutAll()
{
    const std::lock_guard guard(mutex);
    for (tagSEntry& entry : entries)
        if (entry.phase != Phase::work) Cut(entry);
}

bool KTHttpConnections::WaitUntilEmpty(std::chrono::milliseconds patience)
{
    std::unique_lock lock(mutex);
    return empty.wait_for(lock, patience, [this] { return entries.empty(); });
}

std::size_t KTHttpConnections::Size() const
{
    const std::lock_guard guard(mutex);
    return entries.size();
}

// The descriptor stays open until Close, so its number can't belong to another connection yet.
void KTHttpConnections::Cut(tagSEntry& entry)
{
    if (entry.cut) return;
    entry.cut = true;
    --uncut;
    const auto own = peers.find(entry.peer);
    if (--own->second == 0) peers.erase(own);
    ::shutdown(entry.socket, SHUT_RDWR);
}

bool KTHttpConnections::CutLongestWaiting(const std::string* peer, Time now)
{
    tagSEntry* longest = nullptr;
    for (tagSEntry& entry : entries)
    {
        if (entry.cut || entry.phase == Phase::work || entry.phase == Phase::streaming) continue;
        if ((peer != nullptr && entry.peer != *peer) || now - entry.since < limits.settled) continue;
        if (longest == nullptr || entry.since < longest->since) longest = &entry;
    }
    if (longest != nullptr) Cut(*longest);
    return longest != nullptr;
}

bool KTHttpConnections::TooManyStreams(const std::string& peer) const
{
    std::size_t all = 0;
    std::size_t own = 0;
    for (const tagSEntry& entry : entries)
    {
        if (entry.phase != Phase::streaming) continue;
        ++all;
        if (entry.peer == peer) ++own;
    }
    return all >= limits.streams || own >= limits.streamsOfOne;
}
