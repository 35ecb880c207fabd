// The pseudo-device of one event: what it counts and how long it has been active.
#pragma once

#include <atomic>
#include <cstdint>

#include "suite/drivers/KTDriverBase.h"
#include "suite/drivers/KTElapsedTicks.h"

/// The device R$EVE_<event name>, fed by whoever observes the event. Its variables count from its construction:
/// ST (1 while active, else 0), TACT (seconds active now, 0 while not), CACT, CDIS, CACK (activations, deactivations and
/// acknowledgements) and CTIM (seconds active in all, the running period included).
///
/// Units:   seconds, with milliseconds behind the point, by the tick counter; a change of the wall clock doesn't matter.
/// Threads: one thread at a time calls Activated and Deactivated, as an event's mutex makes them; Acknowledged and all
///          reading come from any thread and take no lock. TACT and CTIM are computed when they are read, each from a word
///          of its own: between the two stores of a change one of them tells of it already and the other not yet.
class KTDriverEvent final : public KTDriverBase
{
public:
    static constexpr const wchar_t* namePrefix = L"R$EVE_";

    KTDriverEvent(const wchar_t* eventName, const wchar_t* eventDescription);

    /// Counts; an event that is active already goes on with its running period.
    void Activated();
    void Deactivated();
    void Acknowledged();

    bool ReadVariable(int id, KTValue& value) override;
    const std::atomic<double>* ValueCell(int id) override;
    [[nodiscard]] KTDateTime ValueTime(int id) const override;

protected:
    bool Write(int /*id*/, double /*value*/) override { return false; }

private:
    [[nodiscard]] double ActiveSeconds();
    [[nodiscard]] double TotalSeconds();

    KTElapsedTicks ticks;

    // One word each, so that a reader can't meet one half of a change.
    std::atomic<std::int64_t> activeSince;  // milliseconds of `ticks`, or notActive
    // Twice the milliseconds of all ended periods; while active, twice the moment from which all of them, the running one
    // included, would have been one period, plus 1.
    std::atomic<std::int64_t> total{0};
};
