// The running of an event's actions.

#include "engine/KTEventDriver.h"
#include "host/KTClock.h"

bool KTEventDriver::ExecuteActions(int phase)
{
    for (KTEventAction* action : actionLists[static_cast<std::size_t>(phase)])
    {
        (void)action->Execute(phase);  // an action that fails never stops the ones behind it
        Sleep(0);
    }
    return true;
}
