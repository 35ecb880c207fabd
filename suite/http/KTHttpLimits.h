// How far a client may go.
#pragma once

#include <chrono>
#include <cstddef>

/// The server's limits. The defaults are meant for every installation; tests make them small.
///
/// Times are real ones, not those of the installed clock.
struct KTHttpLimits
{
    std::size_t connections = 256;        // in all
    std::size_t connectionsOfOne = 128;   // from one address; a proxy in front has but one
    std::size_t streams = 128;            // replies without an end, in all
    std::size_t streamsOfOne = 64;        // from one address
    std::size_t headSize = 16 * 1024;     // bytes of the request line and the headers
    std::size_t discardSize = 64u << 20;  // bytes of a refused body that are read so that the client sees the refusal
    std::size_t bodyMemory = 64u << 20;   // bytes of all bodies at a time
    std::size_t bodyMemoryOfOne = 32u << 20;
    std::size_t replyMemory = 512u << 20;  // bytes of all large replies at a time
    std::size_t replyMemoryOfOne = 288u << 20;

    std::chrono::milliseconds idle{15'000};          // without a single byte
    std::chrono::milliseconds head{30'000};          // from the connection, or the last answer, to the end of the head
    std::chrono::milliseconds body{30'000};          // from the end of the head to the end of the body
    std::chrono::milliseconds sending{30'000};       // to take an answer, and in addition ...
    std::size_t sendingRate = 32 * 1024;             // ... a second for each so many bytes, ...
    std::chrono::milliseconds sendingMost{600'000};  // ... but never longer than this
    std::chrono::milliseconds streamIdle{15'000};    // to take what a stream has
    std::chrono::milliseconds settled{250};          // a younger wait isn't cut for want of room
    std::chrono::milliseconds stop{1'500};           // for answers under way when the server stops
};
