// Who is told of what events do: live streams, metrics, pseudo-devices, a replay's output.
#pragma once

#include <vector>

#include "engine/KTEventDriver.h"

/// Told of each state change, and of each mail that is about to be sent. No observer is the default, and nothing in the
/// engine depends on there being one.
///
/// Threads: called on the scan thread, or on the thread of an acknowledging request, with the work mutex and the event's
///          mutex held: it mustn't block, nor call back into the engine. Install only while neither runs.
/// Memory:  an installed observer stays the caller's; what it is shown is good only during the call.
class KTEventObserver
{
public:
    KTEventObserver() = default;
    KTEventObserver(const KTEventObserver&) = delete;
    KTEventObserver& operator=(const KTEventObserver&) = delete;
    virtual ~KTEventObserver() = default;

    /// `status` is the bit that was just set; the occurrence's own status includes it.
    virtual void StatusChanged(const KTEventDriver& event, const KTEventDriver::tagSEventRT& occurrence,
                               int status) = 0;

    /// Right before StatusChanged, for events that are recorded: whether the record of the change stands on the disk.
    virtual void RecordSaved(const KTEventDriver& /*event*/, const KTEventDriver::tagSEventRT& /*occurrence*/,
                             int /*status*/, bool /*saved*/)
    {
    }

    /// A mail of `event`, composed and about to be queued; all of it UTF-8. True takes it over: it isn't sent.
    virtual bool TakesMail(const KTEventDriver& /*event*/, int /*phase*/,
                           const std::vector<KTNarrowString>& /*addresses*/, const KTNarrowString& /*subject*/,
                           const KTNarrowString& /*text*/)
    {
        return false;
    }

    /// Null when there is none.
    static KTEventObserver* Installed();
    /// Null removes. Returns the observer that was installed before.
    static KTEventObserver* Install(KTEventObserver* observer);
};
