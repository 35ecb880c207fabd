// The events that a query of the log is about.
#pragma once

#include <list>
#include <unordered_set>

#include "host/KTGuid.h"
#include "log/KTEventLoggerInfoVar.h"

/// The selection of a query: events in the order in which they were added, none twice.
///
/// Threads: one at a time.
/// Memory:  owns its variables; a copy has its own.
class KTEventLoggerInfo
{
public:
    using Iterator = std::list<KTEventLoggerInfoVar*>::iterator;
    using ConstIterator = std::list<KTEventLoggerInfoVar*>::const_iterator;

    KTEventLoggerInfo() = default;
    KTEventLoggerInfo(const KTEventLoggerInfo& other) { CopyFrom(other); }
    KTEventLoggerInfo& operator=(const KTEventLoggerInfo& other);
    virtual ~KTEventLoggerInfo() { DeleteAll(); }

    /// Does nothing when the event is listed already.
    void AddVariable(const GUID& id);
    void DeleteAll();

    /// Looks each event up in the registry. Those that aren't there any more leave the list.
    void Lock();
    void Unlock();

    [[nodiscard]] int NVariables() const { return static_cast<int>(variables.size()); }
    Iterator EventsBegin() { return variables.begin(); }
    Iterator EventsEnd() { return variables.end(); }
    [[nodiscard]] ConstIterator EventsBegin() const { return variables.begin(); }
    [[nodiscard]] ConstIterator EventsEnd() const { return variables.end(); }

private:
    void CopyFrom(const KTEventLoggerInfo& other);

    std::list<KTEventLoggerInfoVar*> variables;  // owned, in the order of adding
    std::unordered_set<GUID, KTGuidHash>
        identities;  // of the variables, so that a selection of all events isn't quadratic
};
