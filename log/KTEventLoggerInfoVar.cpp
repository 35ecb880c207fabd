#include "log/KTEventLoggerInfoVar.h"

#include "engine/KTEventSystem.h"

bool KTEventLoggerInfoVar::Lock()
{
    driver = KTEventSystem::Get().LockEvent(id);
    return driver != nullptr;
}
