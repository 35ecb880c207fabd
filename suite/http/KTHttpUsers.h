// The users of the settings: their passwords, their sessions, and the patience with wrong ones.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "suite/drivers/KTElapsedTicks.h"
#include "suite/http/KTHttpSessions.h"
#include "suite/http/KTHttpThrottle.h"
#include "suite/support/KTSettings.h"

/// Tells who asks.
///
/// A password that was right is remembered for five minutes as a digest under a key of this process, so that not every
/// request pays for the slow hash. A wrong name takes as long as a wrong password. At most hashLimit hashes run at a time,
/// whoever asks, so that guessing never takes the processors from the scan; the others wait for their turn. Requests of one
/// address with the same name and password share one hash and count as one.
///
/// Units:   the lives of sessions and passwords go by the tick counter.
/// Threads: any. CheckPassword takes as long as the hash does, and no lock of ours is held meanwhile.
/// Memory:  the users it returns live as long as it does.
class KTHttpUsers
{
public:
    using Verify = std::function<bool(const std::string& password, const std::string& hash)>;

    static constexpr std::uint64_t passwordLife = std::uint64_t{5} * 60 * 1000;
    static constexpr int hashLimit = 2;
    static constexpr int patience = 10;    // seconds of real time until a waiting password gives up
    static constexpr int queueLimit = 64;  // passwords that wait; a further one gives up at once

    enum class Verdict
    {
        right,
        wrong,
        throttled,  // too many wrong ones from there
        busy        // its turn didn't come in time, or too many wait already
    };
    struct Result
    {
        Verdict verdict = Verdict::wrong;
        const KTUserSettings* user = nullptr;  // of a right password
        std::uint64_t wait = 0;                // of a throttled one, milliseconds
    };

    explicit KTHttpUsers(std::vector<KTUserSettings> settings, Verify slowHash = nullptr);

    /// Without users everything is allowed.
    [[nodiscard]] bool None() const { return users.empty(); }

    Result CheckPassword(const std::string& name, const std::string& password, const std::string& address);

    /// A new session of a user; the token is empty when the system gives no random numbers.
    std::string SignIn(const KTUserSettings& user);
    /// The user of a live session, which counts as used; null for any other token.
    const KTUserSettings* Session(std::string_view token);
    void SignOut(std::string_view token);

    /// Cookies don't know ports: two servers on one machine would sign each other's users out without one in the name.
    void SetPort(int port) { cookieName = "corvane_session_" + std::to_string(port); }
    [[nodiscard]] const std::string& CookieName() const { return cookieName; }

private:
    struct tagSRemembered
    {
        const KTUserSettings* user = nullptr;
        std::uint64_t end = 0;
    };
    struct tagSAttempt  // a hash that is running
    {
        bool done = false;
        Result result;
    };
    using Lock = std::unique_lock<std::mutex>;

    [[nodiscard]] const KTUserSettings* Find(std::string_view name) const;
    [[nodiscard]] std::string Key(const std::string& name, const std::string& password) const;
    const KTUserSettings* Remembered(const std::string& key, std::uint64_t now);
    bool WaitForChange(Lock& lock, std::chrono::steady_clock::time_point giveUp);
    [[nodiscard]] bool MayTry(const std::string& address, std::uint64_t now) const;
    Result Try(Lock& lock, const std::string& name, const std::string& password, const std::string& address,
               const std::string& key);
    [[nodiscard]] Result Hash(const std::string& name, const std::string& password) const;

    const std::vector<KTUserSettings> users;
    const Verify verify;
    std::string processKey;  // empty when the system gave no random numbers: nothing is remembered then
    std::string cookieName = "corvane_session";

    std::mutex mutex;                 // guards all below
    std::condition_variable changed;  // an attempt has ended
    KTElapsedTicks ticks;
    KTHttpThrottle throttle;
    KTHttpSessions sessions;
    std::map<std::string, tagSRemembered> remembered;              // by Key
    std::map<std::string, std::shared_ptr<tagSAttempt>> attempts;  // by address and Key
    int waiting = 0;
    std::map<std::string, std::size_t> trying;  // attempts by address
};
