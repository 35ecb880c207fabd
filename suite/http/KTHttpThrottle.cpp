#include "suite/http/KTHttpThrottle.h"

#include <algorithm>

std::uint64_t KTHttpThrottle::Wait(const std::string& address, std::uint64_t now) const
{
    const auto found = addresses.find(address);
    if (found == addresses.end() || !found->second.blocked) return 0;
    const std::uint64_t end = found->second.wrong.back() + pause;
    return end > now ? end - now : 0;
}

std::size_t KTHttpThrottle::Wrong(const std::string& address, std::uint64_t now) const
{
    const auto found = addresses.find(address);
    if (found == addresses.end() || found->second.blocked) return 0;
    const auto& wrong = found->second.wrong;
    return static_cast<std::size_t>(
        std::count_if(wrong.begin(), wrong.end(), [&](std::uint64_t time) { return now - time <= window; }));
}

void KTHttpThrottle::CountWrong(const std::string& address, std::uint64_t now)
{
    if (!addresses.contains(address)) MakeRoom(now);
    tagSAddress& entry = addresses[address];
    if (entry.blocked && Wait(address, now) == 0) entry = tagSAddress();  // a minute served is a clean sheet
    while (!entry.wrong.empty() && now - entry.wrong.front() > window) entry.wrong.pop_front();
    entry.wrong.push_back(now);
    if (entry.wrong.size() >= wrongLimit) entry.blocked = true;
}

bool KTHttpThrottle::IsOver(const tagSAddress& address, std::uint64_t now)
{
    return now - address.wrong.back() > std::max(window, pause);
}

void KTHttpThrottle::MakeRoom(std::uint64_t now)
{
    if (addresses.size() < addressLimit) return;
    std::erase_if(addresses, [&](const auto& entry) { return IsOver(entry.second, now); });
    if (addresses.size() < addressLimit) return;
    addresses.erase(std::min_element(addresses.begin(), addresses.end(),
                                     [](const auto& a, const auto& b)
                                     { return a.second.wrong.back() < b.second.wrong.back(); }));
}
