// What a running server counts: for /metrics, and for its own log where something gets lost.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

#include "engine/KTEventObserver.h"
#include "engine/KTEventServer.h"
#include "suite/drivers/KTDevices.h"
#include "suite/http/KTMetricsText.h"

namespace corvane
{
/// Counts what events do and what became of their records, and writes the page of figures.
///
/// It stands in front of the observer that was installed before and hands everything on to it, so the two end in the
/// opposite order.
///
/// Threads: made and destroyed while no scan runs. Page and the histogram from any thread, without any lock of the engine:
///          whoever watches a server mustn't hold it up.
/// Memory:  the server and the devices must outlive it.
class ServerFigures : public KTEventObserver
{
public:
    /// Reads the number of events once: a registry is never changed while it serves.
    ServerFigures(const KTEventServer& server, const KTDevices& devices);
    ~ServerFigures() override;

    void RecordSaved(const KTEventDriver& event, const KTEventDriver::tagSEventRT& occurrence, int status,
                     bool saved) override;
    void StatusChanged(const KTEventDriver& event, const KTEventDriver::tagSEventRT& occurrence, int status) override;

    /// The page; `alive` as /health says it.
    [[nodiscard]] std::string Page(bool alive) const;

    KTMetricsHistogram logQueries;  // the service that reads the event log

private:
    using Count = std::atomic<std::uint64_t>;

    void WriteScan(KTMetricsText& page, bool alive) const;
    void WriteEvents(KTMetricsText& page) const;
    void WriteDevices(KTMetricsText& page) const;
    void WriteProcess(KTMetricsText& page) const;

    const KTEventServer& server;
    const KTDevices& devices;
    const int events;
    const double started;         // seconds since 1970
    KTEventObserver* const next;  // not owned; may be null
    Count activated{0};
    Count deactivated{0};
    Count acknowledged{0};
    std::atomic<std::int64_t> unacknowledged{0};
    Count recordsWritten{0};
    Count recordsRefused{0};
    std::atomic<bool> refusing{false};  // the last record got lost
};
}  // namespace corvane
