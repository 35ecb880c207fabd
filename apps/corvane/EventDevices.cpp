#include "apps/corvane/EventDevices.h"

#include <spdlog/spdlog.h>

#include "apps/corvane/LoadReport.h"
#include "engine/KTEventSystem.h"

namespace corvane
{
EventDevices::EventDevices()
{
    const KTEventSystem& system = KTEventSystem::Get();
    for (auto event = system.EventsBegin(); event != system.EventsEnd(); ++event)
    {
        auto device = std::make_unique<KTDriverEvent>((*event)->Name().Str(), (*event)->Description().Str());
        if (!KTDriver::Register(device.get()))
        {
            spdlog::warn("{} bears the name of another event: R$EVE_ expressions read the other one",
                         EventTitle(**event));
            continue;
        }
        byEvent.emplace(*event, device.get());
        devices.push_back(std::move(device));
    }
    KTEventObserver::Install(this);
}

EventDevices::~EventDevices()
{
    KTEventObserver::Install(nullptr);
    for (auto& device : devices) KTDriver::Unregister(device.get());
}

void EventDevices::StatusChanged(const KTEventDriver& event, const KTEventDriver::tagSEventRT& /*occurrence*/,
                                 int status)
{
    const auto found = byEvent.find(&event);
    if (found == byEvent.end()) return;
    switch (status)
    {
        case KTEventDriver::statusActivated:
            found->second->Activated();
            break;
        case KTEventDriver::statusDeactivated:
            found->second->Deactivated();
            break;
        default:
            found->second->Acknowledged();
            break;
    }
}
}  // namespace corvane
