// A device that makes its values up: signals computed from the clock.
#pragma once

#include <condition_variable>
#include <mutex>
#include <vector>

#include "host/KTThread.h"
#include "suite/drivers/KTDriverBase.h"
#include "suite/drivers/KTSimulatorSignal.h"

/// The driver "simulator". A forced variable keeps the forced value in place of its signal until the program ends.
///
/// Threads: as KTDriverBase; one thread of its own, which refreshes the values.
class KTDriverSimulator final : public KTDriverBase
{
public:
    static constexpr int refreshPause = 100;  // milliseconds

    explicit KTDriverSimulator(const KTDeviceSettings& settings);
    ~KTDriverSimulator() override;

    /// The values are there when it returns.
    [[nodiscard]] bool Start() override;
    void RequestStop() override;
    void Join() override;

    /// All values as they are at the clock's time; the thread does it every refreshPause of real time, so that a virtual
    /// clock that stands still doesn't hold up a stop.
    void Refresh();

protected:
    bool Write(int id, double value) override;

private:
    void Run();

    std::vector<KTSimulatorSignal> signals;  // by variable id
    std::mutex mutex;
    std::condition_variable wake;
    std::vector<double> forced;  // by variable id, NaN for none; guarded by mutex
    bool stopping = false;       // guarded by mutex
    KTThread thread;
};
