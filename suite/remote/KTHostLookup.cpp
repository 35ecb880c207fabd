#include "suite/remote/KTHostLookup.h"

#include <netdb.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>
#include <utility>

namespace
{
addrinfo* Ask(const std::string& host, int port, int flags, int& result)
{
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICSERV | flags;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    result = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
    return result == 0 ? found : nullptr;
}
}  // namespace

void KTHostLookup::Free::operator()(addrinfo* list) const { freeaddrinfo(list); }

KTHostLookup::Addresses KTHostLookup::Numeric(const std::string& host, int port)
{
    int result = 0;
    return Addresses(Ask(host, port, AI_NUMERICHOST, result));
}

std::shared_ptr<KTHostLookup> KTHostLookup::Start(const std::string& host, int port)
{
    auto lookup = std::make_shared<KTHostLookup>(host, port);
    std::thread([lookup] { lookup->Run(); }).detach();
    return lookup;
}

KTHostLookup::KTHostLookup(std::string hostName, int portNumber)
    : host(std::move(hostName)), port(portNumber), ended(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
}

KTHostLookup::~KTHostLookup()
{
    if (ended >= 0) close(ended);
}

void KTHostLookup::Run()
{
    addresses.reset(Ask(host, port, 0, result));
    done.store(true, std::memory_order_release);
    (void)eventfd_write(ended, 1);
}
