// The rows of the event log in the services' reply.
#pragma once

#include <cstdint>

#include "host/KTDateTime.h"
#include "host/KTGuid.h"
#include "host/KTString.h"

class KTHttpResponse;

/// Writes `<record>` elements.
///
/// Units:   delays are seconds after `time`.
/// Errors:  none; what the response does with a piece is the response's business.
/// Threads: stateless.
struct KTEventLogReply
{
    static constexpr std::uint32_t noDelay = 0xFFFFFFFF;  // the change was not seen

    struct Row
    {
        const GUID& recordId;
        const GUID& eventId;
        const KTNarrowString& annotation;  // escaped already
        const KTDateTime& time;            // UTC
        std::uint32_t ackDelay;            // one of a clock that went back counts as negative
        std::uint32_t disabledDelay;
    };

    /// One piece for a row, or a few where the annotation is long.
    static void Write(KTHttpResponse& response, const Row& row);
};
