#include "apps/corvane/ServerFigures.h"

#include <spdlog/spdlog.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>

#include "apps/corvane/LoadReport.h"
#include "host/KTClock.h"

namespace
{
double Seconds(const timeval& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

double CpuSeconds()
{
    rusage usage{};
    (void)getrusage(RUSAGE_SELF, &usage);
    return Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
}

double ResidentBytes()
{
    std::ifstream statm("/proc/self/statm");
    double size = 0;
    double resident = 0;
    statm >> size >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE));
}

double OpenFiles()
{
    std::error_code error;
    const std::filesystem::directory_iterator open("/proc/self/fd", error);
    if (error) return 0;
    return static_cast<double>(std::distance(begin(open), end(open)));
}

double MostFiles()
{
    rlimit limit{};
    (void)getrlimit(RLIMIT_NOFILE, &limit);
    return static_cast<double>(limit.rlim_cur);
}

double Value(std::uint64_t count) { return static_cast<double>(count); }
}  // namespace

namespace corvane
{
ServerFigures::ServerFigures(const KTEventServer& eventServer, const KTDevices& plant)
    : server(eventServer),
      devices(plant),
      events(KTEventSystem::Get().EventsSize()),
      started(static_cast<double>(KTDateTime::UTC().CalendarMicroseconds()) / 1e6),
      next(KTEventObserver::Install(this))
{
}

ServerFigures::~ServerFigures() { KTEventObserver::Install(next); }

void ServerFigures::RecordSaved(const KTEventDriver& event, const KTEventDriver::tagSEventRT& occurrence, int status,
                                bool saved)
{
    ++(saved ? recordsWritten : recordsRefused);
    // A full disk refuses every record: one line when it begins and one when it ends are enough.
    if (refusing.exchange(!saved) == saved)
    {
        if (saved)
            spdlog::info("records of the event log are written again");
        else
            spdlog::error("a record of {} is lost: its file can't be written, or the clock was set back",
                          EventTitle(event));
    }
    if (next != nullptr) next->RecordSaved(event, occurrence, status, saved);
}

void ServerFigures::StatusChanged(const KTEventDriver& event, const KTEventDriver::tagSEventRT& occurrence, int status)
{
    switch (status)
    {
        case KTEventDriver::statusActivated:
            ++activated;
            if ((occurrence.status & KTEventDriver::statusAcknowledged) == 0) ++unacknowledged;
            break;
        case KTEventDriver::statusDeactivated:
            ++deactivated;
            break;
        default:
            ++acknowledged;
            --unacknowledged;
            break;
    }
    if (next != nullptr) next->StatusChanged(event, occurrence, status);
}

std::string ServerFigures::Page(bool alive) const
{
    KTMetricsText page;
    WriteScan(page, alive);
    WriteEvents(page);
    WriteDevices(page);
    WriteProcess(page);
    return page.Take();
}

void ServerFigures::WriteScan(KTMetricsText& page, bool alive) const
{
    const KTEventServer::tagScanFigures& scan = server.ScanFigures();
    page.Gauge("corvane_scan_alive", "1 while the scan of the events is alive, as /health says it.");
    page.Sample(alive ? 1 : 0);
    page.Counter("corvane_scans_total", "Scans of all events since the start.");
    page.Sample(Value(scan.scans));
    page.Gauge("corvane_scan_duration_seconds", "How long the last scan took.");
    page.Sample(scan.lastDuration / 1e3);
    page.Gauge("corvane_scan_age_seconds", "Time since the end of the last scan; NaN before the first.");
    const std::uint32_t end = scan.lastEnd;  // before the clock is asked
    page.Sample(scan.scans > 0 ? (GetTickCount() - end) / 1e3 : std::nan(""));
}

void ServerFigures::WriteEvents(KTMetricsText& page) const
{
    page.Gauge("corvane_events", "Events that are configured.");
    page.Sample(events);
    // In this order: an event that ends in between must not make the difference negative.
    const std::uint64_t ended = deactivated;
    const std::uint64_t begun = activated;
    page.Gauge("corvane_events_active", "Events that are active.");
    page.Sample(Value(begun - ended));
    page.Gauge("corvane_occurrences_unacknowledged", "Occurrences that wait for an acknowledgement.");
    page.Sample(static_cast<double>(std::max<std::int64_t>(unacknowledged, 0)));
    page.Counter("corvane_event_changes_total", "Changes of state since the start.");
    page.Sample(Value(begun), {{"change", "activated"}});
    page.Sample(Value(ended), {{"change", "deactivated"}});
    page.Sample(Value(acknowledged), {{"change", "acknowledged"}});
    page.Counter("corvane_log_records_written_total", "Records of the event log that stand on the disk.");
    page.Sample(Value(recordsWritten));
    page.Counter("corvane_log_records_refused_total", "Records of the event log that got lost.");
    page.Sample(Value(recordsRefused));
    page.Histogram("corvane_log_query_duration_seconds", "How long queries of the event log took.", logQueries);
}

void ServerFigures::WriteDevices(KTMetricsText& page) const
{
    const auto& all = devices.All();
    const auto faulty = [](const auto& device) { return (device->DeviceState() & KTDriver::stateError) != 0; };
    page.Gauge("corvane_devices", "Devices that are configured.");
    page.Sample(static_cast<double>(all.size()));
    page.Gauge("corvane_devices_in_error", "Devices that can't be reached.");
    page.Sample(static_cast<double>(std::count_if(all.begin(), all.end(), faulty)));
    if (all.empty()) return;
    page.Gauge("corvane_device_up", "1 while the device can be reached.");
    for (const auto& device : all) page.Sample(faulty(device) ? 0 : 1, {{"device", device->LogName()}});
}

void ServerFigures::WriteProcess(KTMetricsText& page) const
{
    page.Counter("process_cpu_seconds_total", "Processor time of the program.");
    page.Sample(CpuSeconds());
    page.Gauge("process_resident_memory_bytes", "Memory of the program.");
    page.Sample(ResidentBytes());
    page.Gauge("process_open_fds", "File descriptors that are open.");
    page.Sample(OpenFiles());
    page.Gauge("process_max_fds", "File descriptors that may be open.");
    page.Sample(MostFiles());
    page.Gauge("process_start_time_seconds", "When the program started, in seconds since 1970.");
    page.Sample(started);
}
}  // namespace corvane
