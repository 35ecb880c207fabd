#include <spdlog/spdlog.h>

#include <chrono>
#include <csignal>
#include <optional>
#include <ostream>

#include "apps/corvane/Commands.h"
#include "apps/corvane/EventDevices.h"
#include "apps/corvane/EventList.h"
#include "apps/corvane/Installation.h"
#include "apps/corvane/LoadReport.h"
#include "apps/corvane/ServerFigures.h"
#include "engine/KTEventServer.h"
#include "host/KTClock.h"
#include "suite/http/KTHttpServices.h"
#include "suite/tools/KTDirectoryLock.h"

namespace
{
// Under nohup a closed terminal is nothing to end for; a blocked signal would be told all the same.
bool IsIgnored(int signal)
{
    struct sigaction current
    {
    };
    return sigaction(signal, nullptr, &current) == 0 && current.sa_handler == SIG_IGN;
}

// The signals that end the server. Blocked before any thread is made, so that only the wait below takes them.
sigset_t BlockEndingSignals()
{
    (void)std::signal(SIGPIPE, SIG_IGN);  // a client that goes away is told by the write
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    if (!IsIgnored(SIGHUP)) sigaddset(&signals, SIGHUP);  // the terminal was closed
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

// Alive: the last scan ended not long ago, or a scan takes no longer than can be expected of it. The first one counts from
// `started`, a tick count.
bool ScanIsAlive(const KTEventServer& server, std::uint32_t started)
{
    constexpr std::uint32_t patience = 10'000;  // milliseconds
    const KTEventServer::tagScanFigures& figures = server.ScanFigures();
    // Before the clock is asked: a scan that ends in between would seem to have ended ages ago.
    const std::uint32_t since = figures.scans > 0 ? figures.lastEnd.load() : started;
    return server.IsRunning() && GetTickCount() - since < patience + 2 * figures.lastDuration;
}

double SecondsSince(std::chrono::steady_clock::time_point begin)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

KTHttpServices ServicesOf(KTEventServer& server, corvane::ServerFigures& figures)
{
    KTHttpServices services;
    services.actived = [&server](KTHttpRequest& request, KTHttpResponse& response)
    { return server.ProcessHttpServiceEventsActived(request, response); };
    services.notified = [&server](KTHttpRequest& request, KTHttpResponse& response)
    { return server.ProcessHttpServiceEventsNotified(request, response); };
    services.logger = [&server, &figures](KTHttpRequest& request, KTHttpResponse& response, const KTDateTime& begin,
                                          const KTDateTime& end)
    {
        const auto began = std::chrono::steady_clock::now();
        const bool result = server.ProcessHttpServiceEventsLogger(request, response, begin, end);
        figures.logQueries.Observe(SecondsSince(began));
        return result;
    };
    services.acknowledge = [&server](KTHttpRequest& request, const unsigned char* body)
    { return server.ProcessHttpServiceAck(request, body); };
    services.eventsList = [list = corvane::EventListJson()] { return list; };
    services.healthy = [&server, started = GetTickCount()] { return ScanIsAlive(server, started); };
    services.metrics = [&figures, healthy = services.healthy] { return figures.Page(healthy()); };
    return services;
}

class Server
{
public:
    Server(const corvane::ServeOptions& serveOptions, const corvane::Streams& serveStreams)
        : options(serveOptions), streams(serveStreams), installation(serveStreams.err)
    {
    }

    int Run()
    {
        const sigset_t endingSignals = BlockEndingSignals();
        if (const int code = Open(); code != corvane::done) return code;
        if (const int code = installation.StartDevices(); code != corvane::done) return code;
        KTEventServer server;
        server.LoadCfg();
        corvane::ReportLoading(server, installation.settings);
        const corvane::EventDevices eventDevices;
        corvane::ServerFigures figures(server, installation.devices);
        if (!server.Start()) return Fail("the system gives no thread for the scan");
        AddHttpServices(*http, installation.settings, ServicesOf(server, figures), ConsoleDirectory());
        if (std::string error; !http->Start(error))
        {
            server.Stop();  // before the pseudo-devices go, which the scan reads
            return Fail(error);
        }
        streams.out << "listening on " << http->Url() << std::endl;
        int signal = 0;
        sigwait(&endingSignals, &signal);
        spdlog::info("stopping");
        http->Stop();
        server.Stop();
        return corvane::done;
    }

private:
    int Open()
    {
        KTSettings& settings = installation.settings;
        if (const int code = installation.Open(options.setup); code != corvane::done) return code;
        if (options.port >= 0) settings.port = options.port;
        std::string error;
        if (!settings.MayListen(error)) return Refuse(error);
        http.emplace(settings);
        if (!http->Check(error)) return Refuse(error);
        // From here on something is made: the settings are good.
        if (!settings.MakeDirectories(error)) return Fail(error);
        if (!dataLock.Lock(settings.dataPath, error)) return Fail(error);
        if (!http->Listen(error)) return Fail(error);
        // The links of the feed carry the port that is really open.
        settings.port = http->Port();
        return settings.Configure(error) ? corvane::done : Fail(error);
    }

    int Refuse(const std::string& error)
    {
        streams.err << "corvane: " << error << '\n';
        return corvane::wrongUsage;
    }

    int Fail(const std::string& error)
    {
        streams.err << "corvane: " << error << '\n';
        return corvane::workFailed;
    }

    const corvane::ServeOptions& options;
    const corvane::Streams& streams;
    KTDirectoryLock dataLock;
    corvane::Installation installation;
    std::optional<KTHttpServer> http;
};
}  // namespace

int corvane::Serve(const ServeOptions& options, const Streams& streams) { return Server(options, streams).Run(); }
