#include "suite/http/KTHttpGate.h"

#include <algorithm>

namespace
{
// Splits the target into what was asked for: of whom, which path, with which query. The reason when it can't be read.
const char* ReadTarget(KTHttpCall& call)
{
    std::string_view target = call.target;
    for (const std::string_view scheme : {"http://", "https://"})
    {
        if (!EqualIgnoringCase(target.substr(0, scheme.size()), scheme)) continue;
        target.remove_prefix(scheme.size());
        call.authority = target.substr(0, target.find_first_of("/?"));
        target.remove_prefix(call.authority.size());
        if (target.empty()) target = "/";
        break;
    }
    if (!target.starts_with('/')) return "The path has to begin with a slash.";
    const auto unfit = [](char c) { return static_cast<unsigned char>(c) <= ' ' || c == 0x7F || c == '#'; };
    if (std::any_of(target.begin(), target.end(), unfit)) return "The path holds blanks or control characters.";
    const std::string_view path = target.substr(0, target.find('?'));
    const std::string_view query = target.substr(std::min(target.size(), path.size() + 1));
    if (!PercentDecode(path, false, call.path) || !ParseForm(query, call.query))
        return "The address holds an escape that can't be read.";
    return nullptr;
}

bool IsChange(const std::string& method) { return method != "GET" && method != "HEAD" && method != "OPTIONS"; }

// Whether an Origin names the same host and port as the request itself. Schemes aren't compared: behind a proxy that
// speaks TLS the page's own is another than ours.
bool IsOwnOrigin(std::string_view origin, const std::string& authority)
{
    const bool secure = EqualIgnoringCase(origin.substr(0, 8), "https://");
    if (!secure && !EqualIgnoringCase(origin.substr(0, 7), "http://")) return false;
    origin.remove_prefix(secure ? 8 : 7);
    std::string ownHost;
    std::string otherHost;
    int ownPort = 0;
    int otherPort = 0;
    if (!SplitAuthority(authority, ownHost, ownPort) || !SplitAuthority(origin, otherHost, otherPort)) return false;
    const int usual = secure ? 443 : 80;
    return EqualIgnoringCase(ownHost, otherHost) &&
           (ownPort == 0 ? usual : ownPort) == (otherPort == 0 ? usual : otherPort);
}

KTHttpAccess AccessOf(KTUserSettings::Role role)
{
    switch (role)
    {
        case KTUserSettings::Role::engineer:
            return KTHttpAccess::engineer;
        case KTUserSettings::Role::operatorRole:
            return KTHttpAccess::operatorRole;
        default:
            return KTHttpAccess::viewer;
    }
}

const char* NameOf(KTHttpAccess access)
{
    switch (access)
    {
        case KTHttpAccess::engineer:
            return "engineer";
        case KTHttpAccess::operatorRole:
            return "operator";
        default:
            return "viewer";
    }
}

// A script of a page has a form of its own to ask with.
bool AskedByScript(const KTHttpCall& call)
{
    if (call.path == "/session" || call.Header("X-Requested-With") != nullptr) return true;
    const std::string* mode = call.Header("Sec-Fetch-Mode");
    if (mode != nullptr && *mode != "navigate") return true;
    const std::string* accept = call.Header("Accept");
    return accept != nullptr && accept->starts_with("text/event-stream");
}

// A host as requests are compared with it: without brackets, and an address in its one way of writing.
std::string HostOf(std::string_view text)
{
    if (text.starts_with('[') && text.ends_with(']')) text = text.substr(1, text.size() - 2);
    const std::string address = CanonicalAddress(text);
    return address.empty() ? std::string(text) : address;
}

std::vector<std::string> HostsOf(const std::vector<std::string>& names)
{
    std::vector<std::string> hosts;
    hosts.reserve(names.size());
    for (const std::string& name : names) hosts.push_back(HostOf(name));
    return hosts;
}
}  // namespace

KTHttpGate::KTHttpGate(const KTSettings& settings, const KTHttpRouter& table, KTHttpUsers& known)
    : listen(HostOf(settings.listen)), names(HostsOf(settings.names)), router(table), users(known)
{
}

const KTHttpRoute* KTHttpGate::Admit(KTHttpCall& call, KTHttpAnswer& refusal)
{
    if (!IsFit(call, refusal)) return nullptr;
    KTHttpRouter::Found found = router.Find(call.method, call.path);
    const bool open = found.route != nullptr ? found.route->access == KTHttpAccess::everyone : found.everyone;
    if (!open && !Identify(call, refusal)) return nullptr;
    if (found.allowed.empty())
        refusal.Text(404, "There is nothing under this path.");
    else if (found.route == nullptr)
    {
        refusal.Text(405, "This path has no such method.");
        refusal.SetHeader("Allow", found.allowed);
    }
    else if (call.access < found.route->access)
        refusal.Text(403, std::string("This needs the role ") + NameOf(found.route->access) + ".");
    else
    {
        call.rest = std::move(found.rest);
        return found.route;
    }
    return nullptr;
}

// Whether it is a request that we answer at all, whoever asks.
bool KTHttpGate::IsFit(KTHttpCall& call, KTHttpAnswer& refusal) const
{
    const char* const unreadable = ReadTarget(call);
    const std::string* origin = call.Header("Origin");
    if (unreadable != nullptr)
        refusal.Text(400, unreadable);
    else if (!HostIsOurs(call))
        refusal.Text(421, "This server doesn't answer under that host name. [http] names can add it.");
    else if (IsChange(call.method) && origin != nullptr && !IsOwnOrigin(*origin, call.authority))
        refusal.Text(403, "Pages of other servers may change nothing here.");
    else
        return true;
    return false;
}

bool KTHttpGate::HostIsOurs(const KTHttpCall& call) const
{
    std::string host;
    int port = 0;  // any: a tunnel or a proxy may listen on another
    if (!SplitAuthority(call.authority, host, port)) return false;
    host = HostOf(host);
    if (host == call.localAddress || (EqualIgnoringCase(host, "localhost") && IsLoopback(call.localAddress)))
        return true;
    const auto isHost = [&](const std::string& name) { return EqualIgnoringCase(name, host); };
    return isHost(listen) || std::any_of(names.begin(), names.end(), isHost);
}

bool KTHttpGate::Identify(KTHttpCall& call, KTHttpAnswer& refusal)
{
    if (users.None())
    {
        call.access = KTHttpAccess::engineer;
        return true;
    }
    // The session first: whoever is signed in stays so, whatever others at the same address are guessing.
    const std::string* cookies = call.Header("Cookie");
    const std::string_view token = cookies == nullptr ? std::string_view() : FindCookie(*cookies, users.CookieName());
    if (const KTUserSettings* user = users.Session(token))
    {
        call.session = token;
        LetIn(*user, call);
        return true;
    }
    const std::string* authorization = call.Header("Authorization");
    std::string name;
    std::string password;
    if (authorization == nullptr || !ParseBasic(*authorization, name, password))
    {
        RefuseUnknownUser(call, "Sign in first.", refusal);
        return false;
    }
    return AcceptResult(users.CheckPassword(name, password, call.peerAddress), call, refusal);
}

bool KTHttpGate::AcceptResult(const KTHttpUsers::Result& result, KTHttpCall& call, KTHttpAnswer& refusal) const
{
    switch (result.verdict)
    {
        case KTHttpUsers::Verdict::right:
            LetIn(*result.user, call);
            return true;
        case KTHttpUsers::Verdict::wrong:
            RefuseUnknownUser(call, "Wrong name or password.", refusal);
            return false;
        default:
            RefuseForNow(result, refusal);
            return false;
    }
}

void KTHttpGate::LetIn(const KTUserSettings& user, KTHttpCall& call) const
{
    call.userName = user.name;
    call.access = AccessOf(user.role);
}

void RefuseUnknownUser(const KTHttpCall& call, const std::string& why, KTHttpAnswer& answer)
{
    answer.Text(401, why);
    // The second is a scheme that no browser has a dialog for.
    answer.SetHeader("WWW-Authenticate", AskedByScript(call) ? R"(Cookie realm="Corvane", form-action="/session")"
                                                             : R"(Basic realm="Corvane", charset="UTF-8")");
}

void RefuseForNow(const KTHttpUsers::Result& result, KTHttpAnswer& answer)
{
    const bool throttled = result.verdict == KTHttpUsers::Verdict::throttled;
    answer.Text(throttled ? 429 : 503, throttled ? "Too many wrong passwords from this address. Wait a minute."
                                                 : "Too many passwords are waiting to be checked. Try again.");
    answer.SetHeader("Retry-After", std::to_string(throttled ? (result.wait + 999) / 1000 : 1));
}
