// How much memory the requests and replies of all clients may take.
#pragma once

#include <cstddef>
#include <map>
#include <mutex>
#include <string>

/// An account of bytes with a limit in all and a smaller one for each owner, so that one greedy client leaves room for the
/// others.
///
/// Units:   bytes. An owner is a client's address.
/// Threads: any.
class KTHttpBudget
{
public:
    KTHttpBudget(std::size_t inAll, std::size_t perOwner) : limit(inAll), ownerLimit(perOwner) {}
    KTHttpBudget(const KTHttpBudget&) = delete;
    KTHttpBudget& operator=(const KTHttpBudget&) = delete;

    /// False, with nothing taken, when it would pass one of the limits.
    [[nodiscard]] bool Take(const std::string& owner, std::size_t bytes);

    /// Gives back what Take took.
    void Give(const std::string& owner, std::size_t bytes);

    [[nodiscard]] std::size_t Taken() const;

private:
    const std::size_t limit;
    const std::size_t ownerLimit;
    mutable std::mutex mutex;
    std::size_t taken = 0;                      // guarded by mutex
    std::map<std::string, std::size_t> owners;  // guarded by mutex; only those that have taken something
};
