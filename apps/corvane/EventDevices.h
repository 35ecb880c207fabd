// The pseudo-devices R$EVE_…: one for each event, fed by what the event does.
#pragma once

#include <memory>
#include <unordered_map>
#include <vector>

#include "engine/KTEventObserver.h"
#include "suite/drivers/KTDriverEvent.h"

namespace corvane
{
/// Makes and registers a pseudo-device for each event of the registry, and keeps them up to date.
///
/// Threads: made and destroyed while no scan runs; told of changes on the threads that make them.
/// Memory:  owns the devices. Of events that bear the same name only the first has one.
class EventDevices : public KTEventObserver
{
public:
    /// Reads KTEventSystem's registry and installs itself as the observer.
    EventDevices();
    ~EventDevices() override;

    void StatusChanged(const KTEventDriver& event, const KTEventDriver::tagSEventRT& occurrence, int status) override;

private:
    std::vector<std::unique_ptr<KTDriverEvent>> devices;
    std::unordered_map<const KTEventDriver*, KTDriverEvent*> byEvent;
};
}  // namespace corvane
