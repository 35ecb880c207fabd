#include "suite/drivers/KTDevices.h"

#include <fmt/format.h>

#include <chrono>
#include <thread>

#include "suite/drivers/KTDriverMemory.h"
#include "suite/drivers/KTDriverTable.h"

namespace
{
std::unique_ptr<KTDriverBase> Make(const KTDeviceSettings& device, KTDevices::Kind kind)
{
    if (kind == KTDevices::Kind::memory) return std::make_unique<KTDriverMemory>(device);
    const KTDriverRow* const row = FindDriverRow(device.driver);
    return row != nullptr && row->make != nullptr ? row->make(device) : nullptr;
}
}  // namespace

KTDevices::~KTDevices()
{
    Stop();
    Unregister();
}

bool KTDevices::Build(const std::vector<KTDeviceSettings>& settings, Kind kind, std::string& error)
{
    std::vector<std::unique_ptr<KTDriverBase>> made;
    for (const KTDeviceSettings& device : settings)
    {
        made.push_back(Make(device, kind));
        if (made.back() != nullptr) continue;
        error = fmt::format("device {}: driver {} is not available in this build", device.name, device.driver);
        return false;
    }
    devices = std::move(made);
    return true;
}

bool KTDevices::Register(std::string& error)
{
    for (; registered < devices.size(); ++registered)
    {
        KTDriverBase* const device = devices[registered].get();
        if (KTDriver::Register(device)) continue;
        error = fmt::format("device {}: name: a device of this name exists already", device->LogName());
        Unregister();
        return false;
    }
    return true;
}

bool KTDevices::Start(std::string& error)
{
    running = true;
    bool all = true;
    for (const auto& device : devices)
    {
        if (device->Start()) continue;
        error = fmt::format("device {}: the system gives no thread for it", device->LogName());
        all = false;
    }
    return all;
}

void KTDevices::Stop()
{
    if (!running) return;
    running = false;
    for (const auto& device : devices) device->RequestStop();
    for (const auto& device : devices) device->Join();
}

void KTDevices::Unregister()
{
    for (; registered > 0; --registered) KTDriver::Unregister(devices[registered - 1].get());
}

std::vector<const KTDriverBase*> KTDevices::FirstAnswer(int timeout) const
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout);
    std::vector<const KTDriverBase*> silent = Silent();
    while (!silent.empty() && std::chrono::steady_clock::now() < deadline)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        silent = Silent();
    }
    return silent;
}

std::vector<const KTDriverBase*> KTDevices::Silent() const
{
    std::vector<const KTDriverBase*> silent;
    for (const auto& device : devices)
        if (!device->Answered()) silent.push_back(device.get());
    return silent;
}
