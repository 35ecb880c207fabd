// One event of a query's selection.
#pragma once

#include "host/KTGuid.h"

class KTEventDriver;

/// An event by its id, and while it is locked the event itself.
///
/// Threads: one at a time. Lock holds nothing: the event stays good until the registry's next Reset, which a caller keeps
///          off by a count of KTEventServer's request slots.
class KTEventLoggerInfoVar
{
public:
    explicit KTEventLoggerInfoVar(const GUID& eventId) : id(eventId) {}
    KTEventLoggerInfoVar(const KTEventLoggerInfoVar&) = default;
    KTEventLoggerInfoVar& operator=(const KTEventLoggerInfoVar&) = default;
    virtual ~KTEventLoggerInfoVar() = default;

    [[nodiscard]] const GUID& Id() const { return id; }
    KTEventDriver* Driver() { return driver; }  // null until Lock

    /// Looks the event up in the registry; false when it isn't there.
    bool Lock();
    void Unlock() { driver = nullptr; }
    [[nodiscard]] bool IsLocked() const { return driver != nullptr; }

private:
    GUID id;
    KTEventDriver* driver = nullptr;  // not owned: KTEventSystem's
};
