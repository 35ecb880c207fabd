// What every command that works on an installation begins with: its settings, its language, its devices.
#pragma once

#include <iosfwd>
#include <string>

#include "suite/drivers/KTDevices.h"
#include "suite/support/KTSettings.h"

namespace corvane
{
/// An installation, opened as far as a command needs it.
///
/// Errors:  each operation returns an exit code; when it isn't `done`, the reason stands on `err`.
/// Memory:  owns the devices and ends them; whoever holds a device (an event, an evaluator) must go first.
class Installation
{
public:
    explicit Installation(std::ostream& messages) : err(messages) {}
    Installation(const Installation&) = delete;
    Installation& operator=(const Installation&) = delete;

    /// Reads the settings and puts them in force.
    int Open(const std::string& setup);

    /// Makes the devices and lets them run.
    int StartDevices();

    KTSettings settings;
    KTDevices devices;

private:
    std::ostream& err;
};
}  // namespace corvane
