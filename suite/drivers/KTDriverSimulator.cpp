#include "suite/drivers/KTDriverSimulator.h"

#include <chrono>
#include <cmath>
#include <limits>

#include "host/KTClock.h"

KTDriverSimulator::KTDriverSimulator(const KTDeviceSettings& settings)
    : KTDriverBase(settings), forced(settings.variables.size(), std::numeric_limits<double>::quiet_NaN())
{
    for (const KTVariableSettings& variable : settings.variables)
    {
        KTSimulatorSignal& signal = signals.emplace_back();
        (void)KTSimulatorSignal::FindKind(variable.signal, signal.kind);  // the settings were checked
        signal.low = variable.low;
        signal.high = variable.high;
        signal.periodSeconds = variable.periodSeconds;
        signal.seed = variable.seed;
    }
}

KTDriverSimulator::~KTDriverSimulator()
{
    RequestStop();
    thread.Join();
}

bool KTDriverSimulator::Start()
{
    Refresh();
    return thread.Start([](void* self) { static_cast<KTDriverSimulator*>(self)->Run(); }, this);
}

void KTDriverSimulator::RequestStop()
{
    {
        const std::lock_guard guard(mutex);
        stopping = true;
    }
    wake.notify_all();
}

void KTDriverSimulator::Join() { thread.Join(); }

void KTDriverSimulator::Refresh()
{
    const std::lock_guard guard(mutex);
    const KTDateTime now = KTClock::Get().UTC();
    for (std::size_t i = 0; i < signals.size(); ++i)
        Publish(static_cast<int>(i), std::isnan(forced[i]) ? signals[i].At(now) : forced[i], now);
}

bool KTDriverSimulator::Write(int id, double value)
{
    // Under the mutex, or a refresh that has just computed the signal would put it back over the forced value.
    const std::lock_guard guard(mutex);
    forced[static_cast<std::size_t>(id)] = value;
    Publish(id, value, KTClock::Get().UTC());
    return true;
}

void KTDriverSimulator::Run()
{
    std::unique_lock lock(mutex);
    while (!wake.wait_for(lock, std::chrono::milliseconds(refreshPause), [this] { return stopping; }))
    {
        lock.unlock();
        Refresh();
        lock.lock();
    }
}
