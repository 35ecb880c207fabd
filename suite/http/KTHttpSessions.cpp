#include "suite/http/KTHttpSessions.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <array>

namespace
{
std::string Digest(std::string_view token)
{
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned size = 0;
    if (EVP_Digest(token.data(), token.size(), digest.data(), &size, EVP_sha256(), nullptr) != 1) return {};
    return {reinterpret_cast<const char*>(digest.data()), size};
}

std::string NewToken()
{
    std::array<unsigned char, 32> random{};
    if (RAND_bytes(random.data(), static_cast<int>(random.size())) != 1) return {};
    std::string token;
    for (const unsigned char byte : random)
    {
        token += "0123456789abcdef"[byte >> 4];
        token += "0123456789abcdef"[byte & 15];
    }
    return token;
}
}  // namespace

std::string KTHttpSessions::Begin(const std::string& user, std::uint64_t now)
{
    std::string token = NewToken();
    const std::string digest = Digest(token);
    if (token.empty() || digest.empty()) return {};
    MakeRoom(user, now);
    sessions[digest] = {user, now};
    return token;
}

std::string KTHttpSessions::Use(std::string_view token, std::uint64_t now)
{
    const auto found = sessions.find(Digest(token));
    if (found == sessions.end()) return {};
    if (now - found->second.used >= idleLimit)
    {
        sessions.erase(found);
        return {};
    }
    found->second.used = now;
    return found->second.user;
}

void KTHttpSessions::End(std::string_view token) { sessions.erase(Digest(token)); }

void KTHttpSessions::MakeRoom(const std::string& user, std::uint64_t now)
{
    std::erase_if(sessions, [&](const auto& entry) { return now - entry.second.used >= idleLimit; });
    const auto owned = [&](const auto& entry) { return entry.second.user == user; };
    const bool tooMany = static_cast<std::size_t>(std::count_if(sessions.begin(), sessions.end(), owned)) >= userLimit;
    if (!tooMany && sessions.size() < sessionLimit) return;
    auto oldest = sessions.end();
    for (auto i = sessions.begin(); i != sessions.end(); ++i)
        if ((!tooMany || owned(*i)) && (oldest == sessions.end() || i->second.used < oldest->second.used)) oldest = i;
    sessions.erase(oldest);
}
