// Who has tried too many wrong passwords.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <string>

/// Counts wrong passwords by address. After five within a minute the address has to wait a minute.
///
/// Units:   times are milliseconds of any counter that never falls.
/// Threads: not synchronised.
/// Memory:  at most addressLimit addresses; the one that has been quiet longest makes room for a new one.
class KTHttpThrottle
{
public:
    static constexpr std::size_t wrongLimit = 5;
    static constexpr std::uint64_t window = 60'000;
    static constexpr std::uint64_t pause = 60'000;
    static constexpr std::size_t addressLimit = 4096;

    /// Milliseconds that passwords from there still have to wait; 0 for none.
    [[nodiscard]] std::uint64_t Wait(const std::string& address, std::uint64_t now) const;

    /// Wrong passwords of the last minute.
    [[nodiscard]] std::size_t Wrong(const std::string& address, std::uint64_t now) const;

    void CountWrong(const std::string& address, std::uint64_t now);

    [[nodiscard]] std::size_t Addresses() const { return addresses.size(); }

private:
    struct tagSAddress
    {
        std::deque<std::uint64_t> wrong;  // times, oldest first, wrongLimit at most
        bool blocked = false;             // since the last of them
    };

    [[nodiscard]] static bool IsOver(const tagSAddress& address, std::uint64_t now);
    void MakeRoom(std::uint64_t now);

    std::map<std::string, tagSAddress> addresses;
};
