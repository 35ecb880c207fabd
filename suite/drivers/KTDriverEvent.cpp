#include "suite/drivers/KTDriverEvent.h"

#include "host/KTClock.h"
#include "host/KTText.h"

namespace
{
enum Id  // in the order of `rows`
{
    idState,
    idActiveTime,
    idActivations,
    idDeactivations,
    idAcknowledgements,
    idTotalTime
};

struct Row
{
    const wchar_t* name;
    int textId;
};
constexpr Row rows[] = {
    {L"ST", 32031}, {L"TACT", 34103}, {L"CACT", 34100}, {L"CDIS", 34101}, {L"CACK", 34102}, {L"CTIM", 34103},
};

constexpr std::int64_t notActive = -1;

bool IsComputed(int id) { return id == idActiveTime || id == idTotalTime; }

KTWideString FullName(const wchar_t* eventName)
{
    KTWideString full(KTDriverEvent::namePrefix);
    full += eventName;
    return full;
}

std::vector<KTWideString> StateTexts()
{
    std::vector<KTWideString> texts(2);
    KTLoadString(607, texts[0]);
    KTLoadString(608, texts[1]);
    return texts;
}

double SecondsOf(std::int64_t milliseconds) { return static_cast<double>(milliseconds) / 1000.0; }
}  // namespace

KTDriverEvent::KTDriverEvent(const wchar_t* eventName, const wchar_t* eventDescription)
    : KTDriverBase(FullName(eventName).Str(), L"R$EVE", eventDescription), activeSince(notActive)
{
    const KTDateTime now = KTClock::Get().UTC();
    for (const Row& row : rows)
    {
        const int id = VariableCount();
        KTWideString text;
        KTLoadString(row.textId, text);
        AddVariable(row.name, text.Str(), id == idState ? StateTexts() : std::vector<KTWideString>(), false);
        Publish(id, 0.0, now);
    }
}

void KTDriverEvent::Activated()
{
    const KTDateTime now = KTClock::Get().UTC();
    Increase(idActivations, now);
    if (activeSince.load(std::memory_order_relaxed) != notActive) return;
    const auto start = static_cast<std::int64_t>(ticks.Now());
    const std::int64_t ended = total.load(std::memory_order_relaxed) / 2;
    total.store(2 * (start - ended) + 1, std::memory_order_release);
    activeSince.store(start, std::memory_order_release);
    Publish(idState, 1.0, now);
}

void KTDriverEvent::Deactivated()
{
    const KTDateTime now = KTClock::Get().UTC();
    Increase(idDeactivations, now);
    const std::int64_t start = activeSince.load(std::memory_order_relaxed);
    if (start == notActive) return;
    const auto end = static_cast<std::int64_t>(ticks.Now());
    const std::int64_t origin = total.load(std::memory_order_relaxed) / 2;
    total.store(2 * (end - origin), std::memory_order_release);
    activeSince.store(notActive, std::memory_order_release);
    Publish(idState, 0.0, now);
}

void KTDriverEvent::Acknowledged() { Increase(idAcknowledgements, KTClock::Get().UTC()); }

bool KTDriverEvent::ReadVariable(int id, KTValue& value)
{
    if (!IsComputed(id)) return KTDriverBase::ReadVariable(id, value);
    value.SetNumeric(id == idActiveTime ? ActiveSeconds() : TotalSeconds());
    return true;
}

const std::atomic<double>* KTDriverEvent::ValueCell(int id)
{
    return IsComputed(id) ? nullptr : KTDriverBase::ValueCell(id);
}

KTDateTime KTDriverEvent::ValueTime(int id) const
{
    return IsComputed(id) ? KTClock::Get().UTC() : KTDriverBase::ValueTime(id);
}

// A reader that was held up between the word and the clock would count time in which the event was no longer active, so
// the word has to be the same afterwards.
double KTDriverEvent::ActiveSeconds()
{
    for (;;)
    {
        const std::int64_t start = activeSince.load(std::memory_order_acquire);
        if (start == notActive) return 0.0;
        const auto now = static_cast<std::int64_t>(ticks.Now());
        if (activeSince.load(std::memory_order_acquire) == start) return SecondsOf(now - start);
    }
}

double KTDriverEvent::TotalSeconds()
{
    for (;;)
    {
        const std::int64_t word = total.load(std::memory_order_acquire);
        if (word % 2 == 0) return SecondsOf(word / 2);
        const auto now = static_cast<std::int64_t>(ticks.Now());
        if (total.load(std::memory_order_acquire) == word) return SecondsOf(now - word / 2);
    }
}
