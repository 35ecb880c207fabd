// The routes of the server: which path is answered by what.
#pragma once

#include <functional>
#include <string>

#include "host/KTDateTime.h"
#include "host/KTHttp.h"
#include "suite/http/KTHttpCall.h"
#include "suite/http/KTHttpServer.h"
#include "suite/support/KTSettings.h"

/// What the program offers behind the routes. Every one has to be there.
///
/// Threads: each is called from many threads at a time.
struct KTHttpServices
{
    using Document = std::function<bool(KTHttpRequest& request, KTHttpResponse& response)>;

    Document actived;
    Document notified;
    /// The log of a period whose end is later than its begin; both are UTC.
    std::function<bool(KTHttpRequest& request, KTHttpResponse& response, const KTDateTime& begin,
                       const KTDateTime& end)>
        logger;
    /// The body is a document with the root `eventsAck`, NUL-terminated. False when it wasn't admitted.
    std::function<bool(KTHttpRequest& request, const unsigned char* body)> acknowledge;
    std::function<std::string()> eventsList;  // JSON
    std::function<bool()> healthy;            // the scan is alive
    std::function<std::string()> metrics;     // as KTMetricsText writes them
};

/// Adds the routes of the events, the variables, the sessions and the console. `consoleDirectory` holds the console's files.
void AddHttpServices(KTHttpServer& server, const KTSettings& settings, const KTHttpServices& services,
                     const std::string& consoleDirectory);

/// Answers with the document that the service writes, as every route of a module's document does.
void ServeDocument(const KTHttpServices::Document& service, KTHttpCall& call, KTHttpAnswer& answer);

/// Where the console lies: beside the program, in the build tree as after an installation.
std::string ConsoleDirectory();
