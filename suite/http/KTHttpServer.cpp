#include "suite/http/KTHttpServer.h"

#include <microhttpd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

#include "suite/http/KTHttpExchange.h"
#include "suite/http/KTHttpListener.h"
#include "suite/http/KTHttpTls.h"

namespace
{
constexpr std::chrono::milliseconds watchPeriod{200};
constexpr unsigned spareConnections = 64;  // beyond our own limit: those that are cut and not gone yet
constexpr const char* tlsPriorities = "NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2";

KTHttpCore& CoreOf(void* context) { return *static_cast<KTHttpCore*>(context); }

std::string LocalAddress(int socket)
{
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) return {};
    return CanonicalAddress(reinterpret_cast<const sockaddr*>(&address));
}

// The library's callbacks. Nothing may be thrown through it.

MHD_Result OnAccept(void* context, const sockaddr* address, socklen_t /*size*/)
{
    try
    {
        KTHttpCore& core = CoreOf(context);
        return !core.stopping && core.connections.Admit(CanonicalAddress(address)) ? MHD_YES : MHD_NO;
    }
    catch (const std::exception&)
    {
        return MHD_NO;
    }
}

void OnConnection(void* context, MHD_Connection* connection, void** place, MHD_ConnectionNotificationCode what)
{
    KTHttpConnections& connections = CoreOf(context).connections;
    if (what == MHD_CONNECTION_NOTIFY_CLOSED)
    {
        if (*place != nullptr) connections.Close(static_cast<KTHttpConnections::tagSEntry*>(*place));
        *place = nullptr;
        return;
    }
    try
    {
        const int socket = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
        const sockaddr* peer = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS)->client_addr;
        *place = connections.Open(socket, CanonicalAddress(peer), LocalAddress(socket));
    }
    catch (const std::exception&)
    {
        *place = nullptr;  // its first request is refused
    }
}

KTHttpConnections::tagSEntry* EntryOf(MHD_Connection* connection)
{
    const auto* place = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
    return place == nullptr ? nullptr : static_cast<KTHttpConnections::tagSEntry*>(place->socket_context);
}

void* OnTarget(void* context, const char* target, MHD_Connection* connection)
{
    KTHttpConnections::tagSEntry* const entry = EntryOf(connection);
    if (entry == nullptr) return nullptr;
    try
    {
        return new KTHttpExchange(CoreOf(context), connection, entry, target);  // OnCompleted deletes it
    }
    catch (const std::exception&)
    {
        return nullptr;
    }
}

MHD_Result OnRequest(void* /*context*/, MHD_Connection* /*connection*/, const char* /*url*/, const char* method,
                     const char* version, const char* data, std::size_t* size, void** exchange)
{
    if (*exchange == nullptr) return MHD_NO;
    try
    {
        return static_cast<KTHttpExchange*>(*exchange)->Step(method, version, data, size);
    }
    catch (const std::exception&)
    {
        return MHD_NO;
    }
}

void OnCompleted(void* context, MHD_Connection* connection, void** exchange, MHD_RequestTerminationCode /*how*/)
{
    delete static_cast<KTHttpExchange*>(*exchange);
    *exchange = nullptr;
    KTHttpCore& core = CoreOf(context);
    if (KTHttpConnections::tagSEntry* const entry = EntryOf(connection))
        (void)core.connections.Enter(entry, KTHttpConnections::Phase::head, core.limits.head);
}
}  // namespace

struct KTHttpServer::Parts
{
    Parts(const KTSettings& given, const KTHttpLimits& limits, KTHttpUsers::Verify verify)
        : settings(given), users(given.users, std::move(verify)), core(limits, settings, router, users)
    {
    }

    bool StartDaemon(std::string& error);
    void Watch();

    const KTSettings settings;
    KTHttpRouter router;
    KTHttpUsers users;
    KTHttpCore core;
    KTHttpListener listener;
    KTHttpTls tls;
    MHD_Daemon* daemon = nullptr;
    int port = 0;

    std::thread watcher;
    std::mutex mutex;
    std::condition_variable ended;
    bool ending = false;  // guarded by mutex
};

KTHttpServer::KTHttpServer(const KTSettings& settings, const KTHttpLimits& limits, KTHttpUsers::Verify verify)
    : parts(std::make_unique<Parts>(settings, limits, std::move(verify)))
{
}

KTHttpServer::~KTHttpServer() { Stop(); }

KTHttpRouter& KTHttpServer::Router() { return parts->router; }
KTHttpUsers& KTHttpServer::Users() { return parts->users; }
int KTHttpServer::Port() const { return parts->port; }
std::size_t KTHttpServer::Connections() const { return parts->core.connections.Size(); }

std::string KTHttpServer::Url() const
{
    const std::string& listen = parts->settings.listen;
    const std::string host = listen.find(':') == listen.npos ? listen : '[' + listen + ']';
    return (parts->core.secure ? "https://" : "http://") + host + ':' + std::to_string(parts->port) + '/';
}

bool KTHttpServer::Check(std::string& error)
{
    const KTSettings& settings = parts->settings;
    if (!settings.MayListen(error)) return false;
    if (settings.certificate.empty() != settings.key.empty())
    {
        error = "[http] certificate and key belong together: one is missing";
        return false;
    }
    return !parts->core.secure || parts->tls.Load(settings.certificate, settings.key, error);
}

bool KTHttpServer::Listen(std::string& error)
{
    const KTSettings& settings = parts->settings;
    if (!Check(error)) return false;
    if (!parts->listener.Open(settings.listen, settings.port, error)) return false;
    parts->port = parts->listener.Port();
    parts->users.SetPort(parts->port);
    return true;
}

bool KTHttpServer::Start(std::string& error)
{
    if (parts->daemon != nullptr) return true;
    if (parts->listener.Socket() < 0 && !Listen(error)) return false;
    if (!parts->StartDaemon(error)) return false;
    parts->watcher = std::thread([this] { parts->Watch(); });
    return true;
}

bool KTHttpServer::Parts::StartDaemon(std::string& error)
{
    std::vector<MHD_OptionItem> options = {
        {MHD_OPTION_LISTEN_SOCKET, listener.Socket(), nullptr},
        {MHD_OPTION_CONNECTION_LIMIT, static_cast<intptr_t>(core.limits.connections + spareConnections), nullptr},
        // More than the head may have, so that most heads that are too large still get a refusal of ours.
        {MHD_OPTION_CONNECTION_MEMORY_LIMIT, static_cast<intptr_t>(core.limits.headSize * 4), nullptr},
        {MHD_OPTION_CONNECTION_TIMEOUT, static_cast<intptr_t>((core.limits.idle.count() + 999) / 1000), nullptr},
    };
    unsigned flags = MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_THREAD_PER_CONNECTION | MHD_USE_POLL | MHD_USE_ITC;
    if (core.secure)
    {
        flags |= MHD_USE_TLS;
        options.push_back({MHD_OPTION_HTTPS_MEM_CERT, 0, tls.certificate.data()});
        options.push_back({MHD_OPTION_HTTPS_MEM_KEY, 0, tls.key.data()});
        options.push_back({MHD_OPTION_HTTPS_PRIORITIES, 0, const_cast<char*>(tlsPriorities)});
    }
    options.push_back({MHD_OPTION_END, 0, nullptr});
    daemon = MHD_start_daemon(flags, static_cast<std::uint16_t>(port), &OnAccept, &core, &OnRequest, &core,
                              MHD_OPTION_NOTIFY_CONNECTION, &OnConnection, &core, MHD_OPTION_URI_LOG_CALLBACK,
                              &OnTarget, &core, MHD_OPTION_NOTIFY_COMPLETED, &OnCompleted, &core, MHD_OPTION_ARRAY,
                              options.data(), MHD_OPTION_END);
    if (daemon == nullptr)
    {
        error = "the system gives the server no thread, or no memory";
        return false;
    }
    (void)listener.Release();  // the daemon's now
    return true;
}

void KTHttpServer::Parts::Watch()
{
    std::unique_lock lock(mutex);
    while (!ended.wait_for(lock, watchPeriod, [this] { return ending; })) core.connections.CutLate();
}

void KTHttpServer::Stop()
{
    parts->listener.Close();
    if (parts->daemon == nullptr) return;
    KTHttpCore& core = parts->core;
    core.stopping = true;
    if (const int socket = MHD_quiesce_daemon(parts->daemon); socket >= 0) ::close(socket);
    // Answers under way may reach their clients; a connection that has its answer waits for nothing any more.
    const auto end = std::chrono::steady_clock::now() + core.limits.stop;
    do core.connections.CutWaiting();
    while (!core.connections.WaitUntilEmpty(std::chrono::milliseconds(20)) && std::chrono::steady_clock::now() < end);
    {
        const std::lock_guard guard(parts->mutex);
        parts->ending = true;
    }
    parts->ended.notify_all();
    parts->watcher.join();
    core.connections.CutAll();
    MHD_stop_daemon(parts->daemon);
    parts->daemon = nullptr;
}
