// A request as its handler sees it, and the answer that the handler makes.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "host/KTHttp.h"
#include "suite/http/KTHttpReply.h"
#include "suite/http/KTHttpText.h"
#include "suite/support/KTSettings.h"

/// What a request needs to be let in. Each role includes those before it.
enum class KTHttpAccess
{
    everyone,  // no user at all
    viewer,
    operatorRole,
    engineer
};

/// One request.
///
/// Threads: belongs to the thread of its connection.
struct KTHttpCall
{
    std::string method;  // as sent: "HEAD" reaches the handlers of "GET"
    std::string target;  // as sent, still escaped
    std::string path;    // decoded
    std::string rest;    // decoded; what follows the path of a route that is a prefix
    KTHttpPairs query;   // decoded
    KTHttpPairs headers;
    std::string body;

    std::string authority;    // host and port that the client asked for: of the target or of `Host`
    std::string peerAddress;  // canonical, see CanonicalAddress
    std::string localAddress;
    bool secure = false;  // over TLS

    KTHttpAccess access = KTHttpAccess::everyone;  // what was granted
    std::string userName;                          // empty without users
    std::string session;                           // the token of the live session that let it in, or empty

    KTHttpRequest request;  // what the module sees of it

    /// The first header of that name, or null.
    [[nodiscard]] const std::string* Header(std::string_view name) const
    {
        for (const auto& [key, value] : headers)
            if (EqualIgnoringCase(key, name)) return &value;
        return nullptr;
    }
};

/// A reply without an end: a source of text that is asked again and again.
///
/// Threads: Next is called by the thread of the connection; the destructor by any.
class KTHttpStream
{
public:
    KTHttpStream() = default;
    KTHttpStream(const KTHttpStream&) = delete;
    KTHttpStream& operator=(const KTHttpStream&) = delete;
    virtual ~KTHttpStream() = default;

    /// Fills `out` with what is new; waits for it no longer than `patience`, and leaves `out` empty when nothing came.
    /// False ends the reply.
    virtual bool Next(std::string& out, std::chrono::milliseconds patience) = 0;
};

/// What goes back. A handler fills it; nothing is sent before the handler has returned.
class KTHttpAnswer
{
public:
    KTHttpAnswer(KTHttpBudget* budget, std::string account) : reply(budget, std::move(account)) {}

    /// Replaces whatever there was by a status with a short text that says why.
    void Text(int status, std::string_view why);
    /// Replaces whatever there was by a status without a body.
    void Empty(int status);
    /// Replaces whatever there was by a document.
    void Document(std::string_view type, std::string_view content);

    void SetHeader(std::string_view name, std::string_view value) { headers.emplace_back(name, value); }

    KTHttpReply reply;
    std::string contentType;  // of the reply's body
    KTHttpPairs headers;
    bool staticFile = false;               // carries its own Cache-Control
    std::unique_ptr<KTHttpStream> stream;  // instead of the reply's body
};

using KTHttpHandler = std::function<void(KTHttpCall& call, KTHttpAnswer& answer)>;
