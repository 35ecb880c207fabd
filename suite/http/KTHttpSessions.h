// Who is signed in.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

/// The live sessions. A session ends when nobody has used it for twelve hours.
///
/// A token is 32 random bytes in hexadecimal digits. Only its digest is kept, so that neither the time of a lookup nor the
/// memory of the process gives a token away.
///
/// Units:   times are milliseconds of any counter that never falls.
/// Threads: not synchronised.
/// Memory:  at most sessionLimit sessions and userLimit of one user; the one unused longest, of the user or of all, makes
///          room for a new one.
class KTHttpSessions
{
public:
    static constexpr std::uint64_t idleLimit = std::uint64_t{12} * 60 * 60 * 1000;
    static constexpr std::size_t sessionLimit = 1024;
    static constexpr std::size_t userLimit = 64;

    /// Begins a session and returns its token; empty when the system gives no random numbers.
    std::string Begin(const std::string& user, std::uint64_t now);

    /// The user of a live session, which counts as used now; empty for any other token.
    std::string Use(std::string_view token, std::uint64_t now);

    void End(std::string_view token);

    [[nodiscard]] std::size_t Size() const { return sessions.size(); }

private:
    struct tagSSession
    {
        std::string user;
        std::uint64_t used = 0;
    };

    void MakeRoom(const std::string& user, std::uint64_t now);

    std::map<std::string, tagSSession> sessions;  // by the digest of the token
};
