// One request on its way through the server: head, body, handler, answer.
#pragma once

#include <microhttpd.h>

#include <atomic>
#include <cstdint>
#include <string>

#include "suite/http/KTHttpBudget.h"
#include "suite/http/KTHttpCall.h"
#include "suite/http/KTHttpConnections.h"
#include "suite/http/KTHttpGate.h"
#include "suite/http/KTHttpLimits.h"

/// What all exchanges of a server share.
struct KTHttpCore
{
    KTHttpCore(const KTHttpLimits& bounds, const KTSettings& settings, const KTHttpRouter& router, KTHttpUsers& users)
        : limits(bounds),
          connections(bounds),
          bodies(bounds.bodyMemory, bounds.bodyMemoryOfOne),
          replies(bounds.replyMemory, bounds.replyMemoryOfOne),
          gate(settings, router, users),
          secure(!settings.certificate.empty())
    {
    }

    const KTHttpLimits limits;
    KTHttpConnections connections;
    KTHttpBudget bodies;
    KTHttpBudget replies;
    KTHttpGate gate;
    const bool secure;
    std::atomic<bool> stopping{false};
};

/// One request.
///
/// A refused request is answered after its body has been read and thrown away, since many clients don't look for an answer
/// before they have sent everything. Only a body that nobody would wait for, or that the client offers to hold back, is
/// answered at once; the connection ends then.
///
/// Threads: belongs to the thread of its connection.
class KTHttpExchange
{
public:
    KTHttpExchange(KTHttpCore& shared, MHD_Connection* link, KTHttpConnections::tagSEntry* place, const char* target);
    KTHttpExchange(const KTHttpExchange&) = delete;
    KTHttpExchange& operator=(const KTHttpExchange&) = delete;
    ~KTHttpExchange();

    /// The library's steps: first without data for the head, then for each part of the body, then without data for the end.
    MHD_Result Step(const char* method, const char* version, const char* data, std::size_t* size);

private:
    MHD_Result Head(const char* method, const char* version);
    MHD_Result Body(const char* data, std::size_t size);
    MHD_Result Work();
    MHD_Result Send();
    MHD_Result SendStream();
    MHD_Result Queue(MHD_Response* response, int status);

    void ReadCall(const char* method);
    [[nodiscard]] bool IsWellFormed(const char* version);
    bool Reject(int status, const char* why);  // always false; the connection ends
    void Refuse(int status, const char* why);
    void ReserveBody();
    [[nodiscard]] bool AnswerAtOnce() const;
    void CompleteAnswer();
    void SetIdleLimit(bool on);
    [[nodiscard]] std::size_t Count(std::string_view header) const;

    KTHttpCore& core;
    MHD_Connection* const connection;           // the library's
    KTHttpConnections::tagSEntry* const entry;  // the book's
    KTHttpCall call;
    std::unique_ptr<KTHttpAnswer> answer;  // until it is sent
    const KTHttpRoute* route = nullptr;    // null: refused
    bool begun = false;
    bool close = false;  // end the connection after the answer
    bool hasLength = false;
    std::uint64_t length = 0;  // of the body, as the head tells it
    std::size_t received = 0;  // bytes of the body
    std::size_t reserved = 0;  // bytes of the budget for bodies
};
