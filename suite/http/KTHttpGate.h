// What a request has to pass before its handler sees it.
#pragma once

#include <string>
#include <vector>

#include "suite/http/KTHttpCall.h"
#include "suite/http/KTHttpRouter.h"
#include "suite/http/KTHttpUsers.h"

/// Checks, in this order: the target can be read (400), the host is ours (421), a change comes from our own pages (403), the
/// user and his password (401, 429), path and method are known (404, 405), the role is large enough (403).
///
/// A path that only users may see is told to be unknown only to users.
///
/// Threads: any, while no rows are added to the router.
/// Memory:  router and users must outlive it.
class KTHttpGate
{
public:
    KTHttpGate(const KTSettings& settings, const KTHttpRouter& table, KTHttpUsers& known);

    /// The row whose handler answers, with the call's path, query, user and role filled in. Null, with the refusal filled in,
    /// when nobody may.
    const KTHttpRoute* Admit(KTHttpCall& call, KTHttpAnswer& refusal);

private:
    [[nodiscard]] bool IsFit(KTHttpCall& call, KTHttpAnswer& refusal) const;
    [[nodiscard]] bool HostIsOurs(const KTHttpCall& call) const;
    [[nodiscard]] bool Identify(KTHttpCall& call, KTHttpAnswer& refusal);
    [[nodiscard]] bool AcceptResult(const KTHttpUsers::Result& result, KTHttpCall& call, KTHttpAnswer& refusal) const;
    void LetIn(const KTUserSettings& user, KTHttpCall& call) const;

    const std::string listen;              // canonical when it is numeric
    const std::vector<std::string> names;  // the same
    const KTHttpRouter& router;
    KTHttpUsers& users;
};

/// The refusal of who isn't signed in: 401, with a challenge that opens the browser's own dialog only where no page of ours
/// is there to ask.
void RefuseUnknownUser(const KTHttpCall& call, const std::string& why, KTHttpAnswer& answer);

/// The refusals of a password that wasn't looked at: 429 or 503, both with the time to wait.
void RefuseForNow(const KTHttpUsers::Result& result, KTHttpAnswer& answer);
