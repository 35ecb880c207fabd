// All devices of an installation, from the settings to their end.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "suite/drivers/KTDriverBase.h"

/// Makes the devices that the settings name, registers them, runs them and ends them.
///
/// Errors:  what makes an operation false stands in its `error`, for a person to read.
/// Threads: one thread.
/// Memory:  owns the devices. The destructor stops and unregisters what still runs.
class KTDevices
{
public:
    enum class Kind
    {
        asSet,   // each by its driver
        memory,  // all as memory devices with the same variables, labels and flags, for a replay
    };

    KTDevices() = default;
    KTDevices(const KTDevices&) = delete;
    KTDevices& operator=(const KTDevices&) = delete;
    ~KTDevices();

    /// Makes the devices, in the order of the settings, which KTSettings has checked; nothing runs yet. False, with no
    /// device made, when one needs a driver that this program was built without.
    bool Build(const std::vector<KTDeviceSettings>& settings, Kind kind, std::string& error);

    /// False when a name is taken; nothing is registered then.
    bool Register(std::string& error);

    /// False when the system gives a device no thread; the others run.
    bool Start(std::string& error);

    /// Ends all devices at the same time, in about a second however many of them hang. Their variables can still be read.
    void Stop();

    /// Waits until nobody holds a device any more.
    void Unregister();

    /// Waits until each device has answered once, at most the milliseconds (of real time) given. Returns those that
    /// stayed silent.
    [[nodiscard]] std::vector<const KTDriverBase*> FirstAnswer(int timeout) const;

    [[nodiscard]] const std::vector<std::unique_ptr<KTDriverBase>>& All() const { return devices; }

private:
    [[nodiscard]] std::vector<const KTDriverBase*> Silent() const;

    std::vector<std::unique_ptr<KTDriverBase>> devices;  // in the order of the settings
    std::size_t registered = 0;                          // the first so many
    bool running = false;
};
