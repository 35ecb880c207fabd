// Waiting for what should happen.
#pragma once

#include <chrono>
#include <thread>

/// True as soon as the condition is; false when it isn't for longer than any sane machine needs.
template <class Condition>
[[nodiscard]] bool Eventually(Condition condition, std::chrono::seconds patience = std::chrono::seconds(40))
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!condition())
    {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}
