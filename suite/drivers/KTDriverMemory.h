// A device that is nothing but its values: clients, tests and replays set them.
#pragma once

#include "suite/drivers/KTDriverBase.h"

/// The driver "memory".
///
/// Threads: any. A value that is set is there for every reader at once.
class KTDriverMemory final : public KTDriverBase
{
public:
    explicit KTDriverMemory(const KTDeviceSettings& settings) : KTDriverBase(settings) {}

    /// NaN means no value. Every variable can be set, writable or not: forcing is what `writable` allows. False for an
    /// unknown id.
    bool SetValue(int id, double value) override;

    /// A limit that the engine gives isn't forced.
    bool SetAlarmTime(int seconds) override;

protected:
    bool Write(int id, double value) override { return SetValue(id, value); }
};
