// The HTTP server: listens, lets requests in, and hands them to the handlers of its routes.
#pragma once

#include <memory>
#include <string>

#include "suite/http/KTHttpLimits.h"
#include "suite/http/KTHttpRouter.h"
#include "suite/http/KTHttpUsers.h"
#include "suite/support/KTSettings.h"

/// The server of one installation, as the settings' section [http] describes it.
///
/// Each connection has a thread of its own, on which the handlers run; they may wait for locks. KTHttpLimits says how far a
/// client may go.
///
/// Errors:  what makes an operation false stands in its `error`, for a person to read.
/// Threads: one thread owns it; handlers run on many at a time.
/// Memory:  the destructor stops it.
class KTHttpServer
{
public:
    explicit KTHttpServer(const KTSettings& settings, const KTHttpLimits& limits = {},
                          KTHttpUsers::Verify verify = nullptr);
    KTHttpServer(const KTHttpServer&) = delete;
    KTHttpServer& operator=(const KTHttpServer&) = delete;
    ~KTHttpServer();

    /// Rows are added before Start.
    KTHttpRouter& Router();
    KTHttpUsers& Users();

    /// Refuses settings that would let strangers in, and a certificate or key that is of no use. Opens nothing.
    bool Check(std::string& error);

    /// Takes the port, so that it is known, after Check has been passed. Nobody is answered yet.
    bool Listen(std::string& error);

    /// Answers from now on; listens first when that hasn't been done.
    bool Start(std::string& error);

    /// Lets nobody in any more, gives answers under way KTHttpLimits::stop, and cuts who is left. Waits for handlers
    /// themselves, since they work with what their owner is about to take apart. Harmless when it doesn't run.
    void Stop();

    /// The port that is really open; 0 before Listen.
    [[nodiscard]] int Port() const;
    /// "http://127.0.0.1:8080/"
    [[nodiscard]] std::string Url() const;
    /// Connections that are open now.
    [[nodiscard]] std::size_t Connections() const;

private:
    struct Parts;
    std::unique_ptr<Parts> parts;
};
