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

// The system's clock, but a pause ends at once: one scan follows the other. Takes the time of each scan.
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
        Pause();
    }
    void SetScanThread(bool scanning) override { system.SetScanThread(scanning); }

    void Pause()
    {
        const double seconds = std::chrono::duration<double>(Steady::now() - begin).count();
        {
            const std::lock_guard guard(mutex);
            times.push_back(seconds);
        }
        // As after the pause of a real server: the processor was given away a moment ago.
        system.Sleep(1);
    }

    std::vector<double> Take()
    {
        const std::lock_guard guard(mutex);
        return std::exchange(times, {});
    }
    std::size_t Count()
    {
        const std::lock_guard guard(mutex);
        return times.size();
    }

private:
    KTClock& system;
    Steady::time_point begin;
    std::mutex mutex;
    std::vector<double> times;
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

int Rounds(int events) { return events >= 1'000'000 ? 15 : events >= 100'000 ? 60 : 400; }

double MeasureServer(ScanClock& clock, int rounds)
{
    KTEventServer& server = KTEventServer::Get();
    if (!server.Start()) std::abort();
    while (clock.Count() < 3) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    clock.Take();
    while (clock.Count() < static_cast<std::size_t>(rounds)) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    server.Stop();
    return Median(clock.Take());
}

double MeasureBare(ScanClock& clock, std::vector<std::unique_ptr<BareBase>>& events, int rounds)
{
    std::thread worker(
        [&]
        {
            clock.SetScanThread(true);
            for (int i = 0; i < rounds + 3; ++i)
            {
                if (i == 3) clock.Take();
                BareScan(events);
                clock.Pause();
            }
            clock.SetScanThread(false);
        });
    worker.join();
    return Median(clock.Take());
}

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
    const auto load = [] { KTEventServer::Get().LoadCfg(); };
    load();
    if (KTEventSystem::Get().EventsSize() != events) std::abort();
    const double server = MeasureServer(clock, Rounds(events));
    const double loop = MeasureBare(clock, bare, Rounds(events));
    std::printf("scan/%d_events/%d_variables        %10.1f us  %7.1f ns an event\n", events, variables, server * 1e6,
                server * 1e9 / events);
    std::printf("scan/%d_events/%d_variables/bare   %10.1f us  %7.1f ns an event   ratio %.2f\n", events, variables,
                loop * 1e6, loop * 1e9 / events, server / loop);
    if (events == 1000)
    {
        load();
        const BusyThread busy(0);
        const double crowded = MeasureServer(clock, 100);
        std::printf("scan/%d_events/%d_variables/busy   %10.1f us                        %.1f times idle\n", events,
                    variables, crowded * 1e6, crowded / server);
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
