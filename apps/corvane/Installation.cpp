#include "apps/corvane/Installation.h"

#include <ostream>

#include "apps/corvane/Commands.h"

namespace corvane
{
int Installation::Open(const std::string& setup)
{
    std::string error;
    if (settings.Load(setup, error) && settings.Configure(error)) return done;
    err << "corvane: " << error << '\n';
    return wrongUsage;
}

int Installation::StartDevices()
{
    std::string error;
    if (!devices.Build(settings.devices, KTDevices::Kind::asSet, error))
    {
        err << "corvane: " << error << '\n';
        return wrongUsage;
    }
    if (devices.Register(error) && devices.Start(error)) return done;
    err << "corvane: " << error << '\n';
    return workFailed;
}
}  // namespace corvane
