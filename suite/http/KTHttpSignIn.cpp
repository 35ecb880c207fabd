#include "suite/http/KTHttpSignIn.h"

#include "suite/http/KTHttpGate.h"

namespace
{
// Scripts can't read it, other sites can't use it, and over TLS it never leaves it.
std::string Cookie(const KTHttpUsers& users, const KTHttpCall& call, const std::string& value)
{
    return users.CookieName() + '=' + value + "; Path=/; HttpOnly; SameSite=Strict" + (call.secure ? "; Secure" : "");
}

void BeginSession(KTHttpUsers& users, const KTUserSettings& user, KTHttpCall& call, KTHttpAnswer& answer)
{
    const std::string token = users.SignIn(user);
    if (token.empty()) return answer.Text(503, "The system gives no random numbers. Try again.");
    answer.Empty(204);
    answer.SetHeader("Set-Cookie", Cookie(users, call, token));
}
}  // namespace

void SignIn(KTHttpUsers& users, KTHttpCall& call, KTHttpAnswer& answer)
{
    if (users.None()) return answer.Empty(204);
    KTHttpPairs form;
    const bool readable = ParseForm(TrimBlanks(call.body), form);
    const std::string* name = FindPair(form, "name");
    const std::string* password = FindPair(form, "password");
    if (!readable || name == nullptr || password == nullptr)
        return answer.Text(400, "The body has to be a form with name and password.");

    const KTHttpUsers::Result result = users.CheckPassword(*name, *password, call.peerAddress);
    switch (result.verdict)
    {
        case KTHttpUsers::Verdict::right:
            return BeginSession(users, *result.user, call, answer);
        case KTHttpUsers::Verdict::wrong:
            return RefuseUnknownUser(call, "Wrong name or password.", answer);
        default:
            return RefuseForNow(result, answer);
    }
}

void SignOut(KTHttpUsers& users, KTHttpCall& call, KTHttpAnswer& answer)
{
    users.SignOut(call.session);
    answer.Empty(204);
    answer.SetHeader("Set-Cookie", Cookie(users, call, "") + "; Max-Age=0");
}
