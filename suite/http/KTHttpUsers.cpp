#include "suite/http/KTHttpUsers.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <algorithm>
#include <array>
#include <new>

#include "suite/support/KTPassword.h"

KTHttpUsers::KTHttpUsers(std::vector<KTUserSettings> settings, Verify slowHash)
    : users(std::move(settings)),
      verify(slowHash ? std::move(slowHash)
                      : [](const std::string& password, const std::string& hash)
                 { return KTPassword::Verify(password, hash); })
{
    std::array<unsigned char, 32> random{};
    if (RAND_bytes(random.data(), static_cast<int>(random.size())) == 1)
        processKey.assign(reinterpret_cast<const char*>(random.data()), random.size());
}

KTHttpUsers::Result KTHttpUsers::CheckPassword(const std::string& name, const std::string& password,
                                               const std::string& address)
{
    const std::string key = Key(name, password);
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(patience);
    Lock lock(mutex);
    for (;;)
    {
        const std::uint64_t now = ticks.Now();
        // Before the memory of right passwords: from a guessing address not even a right one gets an answer.
        if (const std::uint64_t wait = throttle.Wait(address, now); wait > 0)
            return {Verdict::throttled, nullptr, wait};
        if (const KTUserSettings* user = Remembered(key, now)) return {Verdict::right, user, 0};
        if (const auto running = attempts.find(address + '\n' + key); running != attempts.end())
        {
            const std::shared_ptr<tagSAttempt> attempt = running->second;
            while (!attempt->done)
                if (!WaitForChange(lock, giveUp)) return {Verdict::busy, nullptr, 0};
            return attempt->result;
        }
        if (MayTry(address, now)) return Try(lock, name, password, address, key);
        if (!WaitForChange(lock, giveUp)) return {Verdict::busy, nullptr, 0};
    }
}

// False when the time is over, or when so many wait that the threads are needed elsewhere.
bool KTHttpUsers::WaitForChange(Lock& lock, std::chrono::steady_clock::time_point giveUp)
{
    if (waiting >= queueLimit) return false;
    ++waiting;
    const bool changedInTime = changed.wait_until(lock, giveUp) == std::cv_status::no_timeout;
    --waiting;
    return changedInTime;
}

std::string KTHttpUsers::SignIn(const KTUserSettings& user)
{
    const Lock lock(mutex);
    return sessions.Begin(user.name, ticks.Now());
}

const KTUserSettings* KTHttpUsers::Session(std::string_view token)
{
    if (token.empty()) return nullptr;
    const Lock lock(mutex);
    return Find(sessions.Use(token, ticks.Now()));
}

void KTHttpUsers::SignOut(std::string_view token)
{
    const Lock lock(mutex);
    sessions.End(token);
}

const KTUserSettings* KTHttpUsers::Find(std::string_view name) const
{
    const auto found = std::find_if(users.begin(), users.end(), [&](const auto& user) { return user.name == name; });
    return found == users.end() || name.empty() ? nullptr : &*found;
}

std::string KTHttpUsers::Key(const std::string& name, const std::string& password) const
{
    // The length in front keeps "ab" + "c" and "a" + "bc" apart.
    const std::string text = std::to_string(name.size()) + ':' + name + password;
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned size = 0;
    if (HMAC(EVP_sha256(), processKey.data(), static_cast<int>(processKey.size()),
             reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest.data(), &size) == nullptr)
        return {};
    return {reinterpret_cast<const char*>(digest.data()), size};
}

const KTUserSettings* KTHttpUsers::Remembered(const std::string& key, std::uint64_t now)
{
    const auto found = remembered.find(key);
    if (found == remembered.end()) return nullptr;
    if (now < found->second.end) return found->second.user;
    remembered.erase(found);
    return nullptr;
}

bool KTHttpUsers::MayTry(const std::string& address, std::uint64_t now) const
{
    std::size_t running = 0;
    for (const auto& [from, count] : trying) running += count;
    if (running >= static_cast<std::size_t>(hashLimit)) return false;
    // An attempt under way may yet turn out wrong: it holds one of the five.
    const auto own = trying.find(address);
    return throttle.Wrong(address, now) + (own == trying.end() ? 0 : own->second) < KTHttpThrottle::wrongLimit;
}

KTHttpUsers::Result KTHttpUsers::Try(Lock& lock, const std::string& name, const std::string& password,
                                     const std::string& address, const std::string& key)
{
    const auto attempt = std::make_shared<tagSAttempt>();
    attempts[address + '\n' + key] = attempt;
    ++trying[address];
    lock.unlock();
    const Result result = Hash(name, password);
    lock.lock();

    const std::uint64_t now = ticks.Now();
    attempt->result = result;
    attempt->done = true;
    attempts.erase(address + '\n' + key);
    if (--trying[address] == 0) trying.erase(address);
    if (result.verdict == Verdict::wrong) throttle.CountWrong(address, now);
    // One right password a user, so this holds as many as there are users.
    if (result.verdict == Verdict::right && !key.empty() && !processKey.empty())
        remembered[key] = {result.user, now + passwordLife};
    changed.notify_all();
    return result;
}

KTHttpUsers::Result KTHttpUsers::Hash(const std::string& name, const std::string& password) const
{
    if (users.empty()) return {};
    try
    {
        const KTUserSettings* const user = Find(name);
        // A name that nobody has is tried against somebody's hash, so that the time tells nothing about names.
        const std::string& hash = user != nullptr ? user->password : users.front().password;
        const bool right = verify(password, hash) && user != nullptr;
        return right ? Result{Verdict::right, user, 0} : Result{};
    }
    catch (const std::bad_alloc&)
    {
        return {Verdict::busy, nullptr, 0};
    }
}
