#include "suite/drivers/KTDriverMemory.h"

#include "host/KTClock.h"

bool KTDriverMemory::SetValue(int id, double value)
{
    if (!Known(id)) return false;
    Publish(id, value, KTClock::Get().UTC());
    return true;
}

bool KTDriverMemory::SetAlarmTime(int seconds)
{
    int id = -1;
    return VariableId(L"ALARMTIME", id) && SetValue(id, seconds);
}
