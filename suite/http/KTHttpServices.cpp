#include "suite/http/KTHttpServices.h"

#include <memory>
#include <utility>

#include "host/XmlDocument.h"
#include "suite/http/KTHttpFiles.h"
#include "suite/http/KTHttpInformation.h"
#include "suite/http/KTHttpLogger.h"
#include "suite/http/KTHttpSignIn.h"
#include "suite/http/KTHttpVariables.h"
#include "suite/http/KTMetricsText.h"
#include "suite/support/KTExecutable.h"

namespace
{
constexpr std::size_t acknowledgementLimit = 1024 * 1024;
constexpr std::size_t smallLimit = 8 * 1024;
constexpr std::size_t feedLimit = 64 * 1024 * 1024;
constexpr const char* xmlType = "text/xml; charset=utf-8";
constexpr const char* jsonType = "application/json";

// The reason why a body isn't an acknowledgement, or null.
const char* CheckAcknowledgement(const std::string& body)
{
    if (body.find('\0') != body.npos) return "The body holds a NUL byte.";
    XmlDocument document;
    if (!document.Parse(body.c_str())) return "The body isn't a well-formed XML document.";
    const XmlDocument::XmlNode* root = std::as_const(document).Root();
    return root != nullptr && root->Tag() == L"eventsAck" ? nullptr : "The root of the document has to be eventsAck.";
}

void Acknowledge(const KTHttpServices& services, KTHttpCall& call, KTHttpAnswer& answer)
{
    if (const char* why = CheckAcknowledgement(call.body)) return answer.Text(400, why);
    if (services.acknowledge(call.request, reinterpret_cast<const unsigned char*>(call.body.c_str())))
        return answer.Empty(204);
    answer.Text(503, "The server is busy. Try again.");
    answer.SetHeader("Retry-After", "1");
}

void ServeHealth(const KTHttpServices& services, KTHttpAnswer& answer)
{
    if (services.healthy())
        answer.Text(200, "The scan is alive.");
    else
        answer.Text(503, "The scan stands still.");
}

void ServeFeed(const std::string& htmlPath, KTHttpAnswer& answer)
{
    std::string content;
    if (ReadWholeFile(htmlPath + "/events.rss", feedLimit, content))
        answer.Document("application/rss+xml; charset=utf-8", content);
    else
        answer.Text(404, "There is no feed.");
}

std::vector<std::string> ScreenNames(const KTSettings& settings)
{
    std::vector<std::string> names;
    for (const KTScreenSettings& screen : settings.screens) names.push_back(screen.name);
    return names;
}

void AddEventRoutes(KTHttpRouter& router, const std::shared_ptr<const KTHttpServices>& services)
{
    const auto document = [&](const char* path, KTHttpServices::Document KTHttpServices::*service)
    {
        router.Add({"GET", path, KTHttpAccess::viewer, 0, [services, service](KTHttpCall& call, KTHttpAnswer& answer) {
                        ServeDocument((*services).*service, call, answer);
                    }});
    };
    document("/services/events/actived.xml", &KTHttpServices::actived);
    document("/services/events/notified.xml", &KTHttpServices::notified);
    router.Add({"GET", "/services/events/logger.xml", KTHttpAccess::viewer, 0,
                [services](KTHttpCall& call, KTHttpAnswer& answer) { ServeLogger(*services, call, answer); }});
    router.Add({"POST", "/services/events/ack.xml", KTHttpAccess::operatorRole, acknowledgementLimit,
                [services](KTHttpCall& call, KTHttpAnswer& answer) { Acknowledge(*services, call, answer); }});
    router.Add({"GET", "/services/events/list.json", KTHttpAccess::viewer, 0,
                [services](KTHttpCall&, KTHttpAnswer& answer) { answer.Document(jsonType, services->eventsList()); }});
    router.Add({"GET", "/health", KTHttpAccess::everyone, 0,
                [services](KTHttpCall&, KTHttpAnswer& answer) { ServeHealth(*services, answer); }});
    router.Add({"GET", "/metrics", KTHttpAccess::viewer, 0, [services](KTHttpCall&, KTHttpAnswer& answer) {
                    answer.Document(KTMetricsText::contentType, services->metrics());
                }});
}

void AddPlantRoutes(KTHttpRouter& router, const KTSettings& settings)
{
    const auto fixed = [&](const char* path, std::string content)
    {
        router.Add({"GET", path, KTHttpAccess::viewer, 0,
                    [content = std::move(content)](KTHttpCall&, KTHttpAnswer& answer)
                    { answer.Document(xmlType, content); }});
    };
    fixed("/services/scadas/information.xml", ScadaInformation(ScreenNames(settings)));
    fixed("/services/reports/information.xml", ReportInformation(settings.reports));
    router.Add({"GET", "/services/variables.json", KTHttpAccess::viewer, 0,
                [](KTHttpCall&, KTHttpAnswer& answer) { answer.Document(jsonType, VariablesJson()); }});
    router.Add({"PUT", "/services/variables/*", KTHttpAccess::engineer, smallLimit, &PutVariable});
    router.Add({"GET", "/html/events.rss", KTHttpAccess::viewer, 0,
                [path = settings.htmlPath](KTHttpCall&, KTHttpAnswer& answer) { ServeFeed(path, answer); }});
}

void AddSessionRoutes(KTHttpRouter& router, KTHttpUsers& users)
{
    router.Add({"POST", "/session", KTHttpAccess::everyone, smallLimit,
                [&users](KTHttpCall& call, KTHttpAnswer& answer) { SignIn(users, call, answer); }});
    router.Add({"DELETE", "/session", KTHttpAccess::viewer, 0,
                [&users](KTHttpCall& call, KTHttpAnswer& answer) { SignOut(users, call, answer); }});
}

void AddConsoleRoutes(KTHttpRouter& router, const std::string& directory)
{
    const auto files = std::make_shared<const KTHttpFiles>(directory);
    router.Add({"GET", "/", KTHttpAccess::everyone, 0,
                [files](KTHttpCall& call, KTHttpAnswer& answer) { files->Serve("index.html", call, answer); }});
    router.Add({"GET", "/console/*", KTHttpAccess::everyone, 0,
                [files](KTHttpCall& call, KTHttpAnswer& answer) { files->Serve(call.rest, call, answer); }});
}
}  // namespace

void AddHttpServices(KTHttpServer& server, const KTSettings& settings, const KTHttpServices& services,
                     const std::string& consoleDirectory)
{
    AddEventRoutes(server.Router(), std::make_shared<const KTHttpServices>(services));
    AddPlantRoutes(server.Router(), settings);
    AddSessionRoutes(server.Router(), server.Users());
    AddConsoleRoutes(server.Router(), consoleDirectory);
}

void ServeDocument(const KTHttpServices::Document& service, KTHttpCall& call, KTHttpAnswer& answer)
{
    const bool complete = service(call.request, answer.reply);
    // What got lost for its size is the server's to tell.
    if (answer.reply.TooLarge() || answer.reply.NoRoom()) return;
    if (complete && answer.reply.Status() == 200)
    {
        answer.contentType = xmlType;
        return;
    }
    answer.Text(503, "The server is busy. Try again.");
    answer.SetHeader("Retry-After", "1");
}

std::string ConsoleDirectory() { return ExecutableDirectory() + "/../share/corvane/console"; }
