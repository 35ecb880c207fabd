// A scan of the registry against the loop that somebody would write by hand for the same events.
//
// The bare loop has the same length, locks a mutex, makes a virtual call, evaluates the condition in C++ over the same cells
// with the same tests for "no value", and yields by the same rule through the same clock.

#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <chrono>
#include <cmath>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bench/engine/BenchPlant.h"
#include "engine/KTEventServer.h"
#include "host/KTClock.h"

namespace
{
using Steady = std::chrono::steady_clock;

// The system's clock, but a pause runs what it is told instead: the scans of a server and of a bare loop alternate on the
// same thread, so that the machine's moods meet both.
class ScanClock : public KTClock
{
public:
    explicit ScanClock(KTClock& underlying) : system(underlying) {}
    KTDateTime UTC() override { return system.UTC(); }
    KTDateTime LTC() override
    {
        begin = Steady::now();
        return system.LTC();
    }
    std::uint32_t TickCount() override { return system.TickCount(); }
    void Sleep(std::uint32_t milliseconds) override
    {
        if (milliseconds == 0) return system.Sleep(0);
        onPause(Seconds());
        RestAsAfterAScan();
    }
    void SetScanThread(bool scanning) override { system.SetScanThread(scanning); }

    [[nodiscard]] double Seconds() const { return std::chrono::duration<double>(Steady::now() - begin).count(); }
    // As after the pause of a real server: the processor was given away a moment ago.
    void RestAsAfterAScan() { system.Sleep(1); }

    std::function<void(double scanSeconds)> onPause;

private:
    KTClock& system;
    Steady::time_point begin;
};

struct BareBase
{
    std::mutex mutex;
    bool active = false;
    virtual bool Check() = 0;
    virtual ~BareBase() = default;
};

template <int Variables>
struct Bare : BareBase
{
    const std::atomic<double>* cells[Variables];
    bool Check() override
    {
        for (int v = 0; v < Variables; ++v)
        {
            const double value = cells[v]->load(std::memory_order_relaxed);
            if (std::isnan(value)) return false;
            if (!(value > (v == Variables - 1 ? 50.0 : 5.0))) return false;
        }
        return true;
    }
};

template <int Variables>
std::vector<std::unique_ptr<BareBase>> MakeBare(int events, BenchDriver& driver)
{
    std::vector<std::unique_ptr<BareBase>> result;
    for (int i = 0; i < events; ++i)
    {
        auto event = std::make_unique<Bare<Variables>>();
        for (int v = 0; v < Variables; ++v)
            event->cells[v] = &driver.cells[static_cast<std::size_t>(i * Variables + v)];
        result.push_back(std::move(event));
    }
    return result;
}

void BareScan(std::vector<std::unique_ptr<BareBase>>& events)
{
    (void)KTDateTime::LTC();
    for (auto& event : events)
    {
        {
            const std::lock_guard guard(event->mutex);
            event->active = event->Check();
        }
        Sleep(0);
    }
}

double Median(std::vector<double> values)
{
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

struct Figures
{
    double server;  // seconds, median
    double bare;
    double ratio;  // median of the pairs
};

// Rounds of a few scans of each in turn; the first of each is not counted, it finds the caches full of the other's.
Figures MeasurePairs(ScanClock& clock, std::vector<std::unique_ptr<BareBase>>& events, int rounds)
{
    constexpr int scansARound = 4;
    std::vector<double> servers;
    std::vector<double> loops;
    std::vector<double> ratios;
    std::vector<double> current;
    std::atomic<bool> enough{false};
    clock.onPause = [&](double seconds)
    {
        if (enough) return;
        current.push_back(seconds);
        if (current.size() <= scansARound) return;
        const double server = Median({current.begin() + 1, current.end()});
        current.clear();
        for (int i = 0; i <= scansARound; ++i)
        {
            BareScan(events);
            current.push_back(clock.Seconds());
            clock.RestAsAfterAScan();
        }
        const double loop = Median({current.begin() + 1, current.end()});
        current.clear();
        servers.push_back(server);
        loops.push_back(loop);
        ratios.push_back(server / loop);
        enough = static_cast<int>(ratios.size()) > rounds;
    };
    KTEventServer& server = KTEventServer::Get();
    if (!server.Start()) std::abort();
    while (!enough) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    server.Stop();
    // The first round also binds the expressions and wakes the processor.
    for (auto* values : {&servers, &loops, &ratios}) values->erase(values->begin());
    return {Median(servers), Median(loops), Median(ratios)};
}

double MeasureServer(ScanClock& clock, int scans)
{
    std::vector<double> times;
    std::atomic<bool> enough{false};
    clock.onPause = [&](double seconds)
    {
        if (enough) return;
        times.push_back(seconds);
        enough = static_cast<int>(times.size()) > scans;
    };
    KTEventServer& server = KTEventServer::Get();
    if (!server.Start()) std::abort();
    while (!enough) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    server.Stop();
    times.erase(times.begin());
    return Median(times);
}

int Rounds(int events) { return events >= 1'000'000 ? 5 : events >= 100'000 ? 15 : 100; }

void PinTo(int processor)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(processor, &set);
    pthread_setaffinity_np(pthread_self(), sizeof set, &set);
}

// Computes on one processor until told to end.
class BusyThread
{
public:
    explicit BusyThread(int processor)
        : thread(
              [this, processor]
              {
                  PinTo(processor);
                  volatile double x = 1.0;
                  while (!stop.load(std::memory_order_relaxed)) x = x * 1.0000001 + 0.1;
              })
    {
    }
    ~BusyThread()
    {
        stop = true;
        thread.join();
    }

private:
    std::atomic<bool> stop{false};
    std::thread thread;
};

void Compare(ScanClock& clock, int events, int variables)
{
    BenchDriver driver(events * variables);
    const BenchDirectory directory;
    directory.Use();
    (void)directory.WriteEvents(events, variables, 0);
    auto bare = variables == 1 ? MakeBare<1>(events, driver) : MakeBare<8>(events, driver);
    const auto load = [events]
    {
        KTEventServer::Get().LoadCfg();
        if (KTEventSystem::Get().EventsSize() != events) std::abort();
    };
    load();
    const Figures figures = MeasurePairs(clock, bare, Rounds(events));
    const std::string name = "scan/" + std::to_string(events) + "_events/" + std::to_string(variables) + "_variables";
    std::printf("%-36s %10.1f us  %6.1f ns an event\n", name.c_str(), figures.server * 1e6,
                figures.server * 1e9 / events);
    std::printf("%-36s %10.1f us  %6.1f ns an event   ratio %.2f\n", (name + "/bare").c_str(), figures.bare * 1e6,
                figures.bare * 1e9 / events, figures.ratio);
    if (events == 1000)
    {
        load();
        const double idle = MeasureServer(clock, 100);
        load();
        const BusyThread busy(0);
        const double crowded = MeasureServer(clock, 100);
        std::printf("%-36s %10.1f us                       %.1f times idle\n", (name + "/busy").c_str(), crowded * 1e6,
                    crowded / idle);
    }
    std::fflush(stdout);
}
}  // namespace

int main()
{
    PinTo(0);  // the threads made from here on inherit it
    ScanClock clock(KTClock::Get());
    KTClock::Install(&clock);
    {
        KTEventServer server;
        for (const int events : {1000, 100'000, 1'000'000})
            for (const int variables : {1, 8}) Compare(clock, events, variables);
    }
    KTClock::Install(nullptr);
    return 0;
}
