#include "suite/http/KTHttpRouter.h"

namespace
{
// Characters of the route's path that the asked one has to begin with, or npos when the route isn't about it.
std::size_t Matching(const KTHttpRoute& route, std::string_view path)
{
    const std::string_view own = route.path;
    if (!own.ends_with("/*")) return own == path ? own.size() : own.npos;
    const std::string_view prefix = own.substr(0, own.size() - 1);
    return path.starts_with(prefix) ? prefix.size() : own.npos;
}

bool IsExact(const KTHttpRoute& route) { return !route.path.ends_with("/*"); }
}  // namespace

KTHttpRouter::Found KTHttpRouter::Find(std::string_view method, std::string_view path) const
{
    const std::string_view asked = method == "HEAD" ? "GET" : method;
    const KTHttpRoute* nearest = nullptr;
    std::size_t length = 0;
    for (const KTHttpRoute& route : routes)
    {
        const std::size_t matching = Matching(route, path);
        if (matching == std::string_view::npos) continue;
        if (nearest != nullptr && (IsExact(*nearest) || (!IsExact(route) && matching <= length))) continue;
        nearest = &route;
        length = matching;
    }
    Found found;
    if (nearest == nullptr) return found;
    for (const KTHttpRoute& route : routes)
    {
        if (route.path != nearest->path) continue;
        found.everyone |= route.access == KTHttpAccess::everyone;
        if (!found.allowed.empty()) found.allowed += ", ";
        found.allowed += route.method == "GET" ? "GET, HEAD" : route.method;
        if (route.method == asked) found.route = &route;
    }
    if (!IsExact(*nearest)) found.rest = path.substr(length);
    return found;
}
