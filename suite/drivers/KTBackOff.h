// The pauses between the attempts to reach a device that doesn't answer.
#pragma once

#include <algorithm>

/// Each pause is twice the one before, up to the longest.
///
/// Units:   milliseconds.
/// Threads: a plain value.
class KTBackOff
{
public:
    static constexpr int first = 1000;
    static constexpr int longest = 30000;

    /// The pause before the next attempt.
    int Next()
    {
        const int pause = next;
        next = std::min(2 * next, longest);
        return pause;
    }

    /// After an answer.
    void Reset() { next = first; }

private:
    int next = first;
};
