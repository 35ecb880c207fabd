// Signing in and out.
#pragma once

#include "suite/http/KTHttpCall.h"
#include "suite/http/KTHttpUsers.h"

/// POST /session: a form with `name` and `password`. 204 with the cookie of a new session; 400 for another form, 401 for a
/// wrong password, 429 after too many of them. Without users there is nobody to be: 204 without a cookie.
void SignIn(KTHttpUsers& users, KTHttpCall& call, KTHttpAnswer& answer);

/// DELETE /session: ends the session that the request came with. 204.
void SignOut(KTHttpUsers& users, KTHttpCall& call, KTHttpAnswer& answer);
