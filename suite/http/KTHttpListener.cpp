#include "suite/http/KTHttpListener.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

namespace
{
int PortOf(int socket)
{
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) return 0;
    // The port stands at the same place in both families.
    return ntohs(reinterpret_cast<const sockaddr_in*>(&address)->sin_port);
}

bool Bind(int socket, const addrinfo& where)
{
    const int on = 1;
    const int off = 0;
    // A restart mustn't wait for the old connections to time out.
    (void)::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (where.ai_family == AF_INET6) (void)::setsockopt(socket, IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
    return ::bind(socket, where.ai_addr, where.ai_addrlen) == 0 && ::listen(socket, SOMAXCONN) == 0;
}
}  // namespace

bool KTHttpListener::Open(const std::string& address, int port, std::string& error)
{
    Close();
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
    addrinfo* list = nullptr;
    const int code = ::getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &list);
    if (code != 0)
    {
        error = "can't listen on " + address + ": " + ::gai_strerror(code);
        return false;
    }
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> freed(list, &::freeaddrinfo);
    for (const addrinfo* where = list; where != nullptr; where = where->ai_next)
    {
        socket = ::socket(where->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        if (socket >= 0 && Bind(socket, *where))
        {
            boundPort = PortOf(socket);
            return true;
        }
        error = "can't listen on " + address + " port " + std::to_string(port) + ": " + std::strerror(errno);
        Close();
    }
    return false;
}

void KTHttpListener::Close()
{
    if (socket >= 0) ::close(socket);
    socket = -1;
}

int KTHttpListener::Release() { return std::exchange(socket, -1); }
