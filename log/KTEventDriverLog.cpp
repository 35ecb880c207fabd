// The recording of an event's state changes.

#include "engine/KTEventDriver.h"

bool KTEventDriver::SaveEvent(tagSEventRT* /*occurrence*/, int /*status*/) { return false; }
