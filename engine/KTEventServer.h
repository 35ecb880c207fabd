// The module's one server object: the documents, the registry, the thread that scans, and the services' entry points.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "engine/KTEventSystem.h"
#include "engine/KTWorkMutex.h"
#include "host/KTDateTime.h"
#include "host/KTThread.h"
#include "host/XmlDocument.h"

class KTEventDriver;
class KTHttpRequest;
class KTHttpResponse;

/// Owns the configuration documents, the registry and the thread that scans all events once a second.
///
/// Errors:  told by false or -1; a service that isn't admitted within 100 ms answers 503.
/// Threads: the life-cycle operations from one thread of the host; the services from up to 32 threads at once, more are
///          refused. Locks are taken in the order: a count of requestSlots, workMutex, the mutex of one event.
/// Memory:  one object a process at a time, reachable through Get while it lives. The host makes and destroys it.
class KTEventServer
{
public:
    static constexpr int stateStarting = 1;
    static constexpr int stateRunning = 2;
    static constexpr int stateStopRequested = 3;
    static constexpr int stateStopped = 4;
    static constexpr int slots = 32;                          // services in progress at once
    static constexpr std::uint32_t admissionWait = 100;       // milliseconds
    static constexpr std::uint32_t pauseBetweenScans = 1000;  // milliseconds

    KTEventServer();
    KTEventServer(const KTEventServer&) = delete;
    KTEventServer& operator=(const KTEventServer&) = delete;
    virtual ~KTEventServer();

    static KTEventServer& Get() { return *instance; }
    /// Null while there is no server.
    static KTEventServer* Instance() { return instance; }

    /// Loads the three documents, an empty one for what is missing or unreadable, and builds the registry. Always true.
    /// Only while the scan isn't running.
    bool LoadCfg();

    /// True when the scan runs, also when it ran already; false when the system gives no thread.
    bool Start();

    /// Waits for every service in progress, then for the end of the scan, and empties the registry. No service is admitted
    /// until the next Start.
    void Stop();

    /// The body of the scan's thread: a scan and a pause of a second in turn, until Stop asks for the end.
    void Work();

    /// Events that are active now; -1 when the lock fails.
    int ActiveEventsCount();

    /// What the scan has done so far; any thread may look at any time.
    struct tagScanFigures
    {
        std::atomic<std::uint64_t> scans{0};         // since the server was made
        std::atomic<std::uint32_t> lastDuration{0};  // milliseconds of the last scan
        std::atomic<std::uint32_t> lastEnd{0};       // tick count at its end
    };
    [[nodiscard]] const tagScanFigures& ScanFigures() const { return scanFigures; }
    [[nodiscard]] bool IsRunning() const { return state == stateRunning; }

    XmlDocument* Cfg() { return &eventsCfg; }
    XmlDocument* TimeTableCfg() { return &timeTableCfg; }

    /// The active events, and the occurrences of notifying events, as documents. The result is that of the response's end.
    bool ProcessHttpServiceEventsActived(KTHttpRequest& request, KTHttpResponse& response);
    bool ProcessHttpServiceEventsNotified(KTHttpRequest& request, KTHttpResponse& response);

    /// The occurrences that began at or after `begin` and before `end`, UTC, as a document. Doesn't hold up the scan.
    bool ProcessHttpServiceEventsLogger(KTHttpRequest& request, KTHttpResponse& response, const KTDateTime& begin,
                                        const KTDateTime& end);

    /// Acknowledges each occurrence that the document names; unknown ones are passed over. `body` is NUL-terminated UTF-8.
    /// False when the service isn't admitted or the document isn't an acknowledgement.
    bool ProcessHttpServiceAck(KTHttpRequest& request, const unsigned char* body);

private:
    using DriverService = bool (KTEventDriver::*)(KTHttpResponse& response);

    void LoadXml();
    void Scan();
    void ScanEvents() KT_REQUIRES(workMutex);
    bool Serve(const KTHttpRequest& request, KTHttpResponse& response, const char* root, DriverService service);
    void Acknowledge(const XmlDocument::XmlNode& list) KT_REQUIRES(workMutex);

    static KTEventServer* instance;

    std::unique_ptr<KTSemaphore> requestSlots;
    std::atomic<std::int32_t> state{stateStopped};
    XmlDocument eventsCfg;
    XmlDocument timeTableCfg;
    XmlDocument parkingCfg;
    KTWorkMutex workMutex;  // guards the registry's contents against the scan and the services
    KTMutex spareMutex;     // never taken
    KTEventSystem eventSystem;
    KTThread worker;
    tagScanFigures scanFigures;
};
