#include "engine/KTEventDriver.h"

#include "engine/KTEventDriverGroup.h"
#include "engine/KTEventObserver.h"
#include "engine/KTEventSystem.h"
#include "host/KTClock.h"
#include "host/KTEvaluator.h"
#include "host/KTText.h"
#include "timetable/KTTimeTable.h"

namespace
{
// The verdict of one expression: true and false, or unknown when it can't be evaluated or isn't logical.
enum class Verdict
{
    no,
    yes,
    unknown
};

Verdict Judge(KTEvaluator& evaluator)
{
    double value = 0.0;
    int kind = 0;
    if (evaluator.polaca.Evaluate(value, kind) != KTPolaca::success || kind != 1) return Verdict::unknown;
    return value == 1.0 ? Verdict::yes : Verdict::no;
}

// Unsigned difference, so the tick counter may wrap; tick 0 itself means "not running".
bool DelayPassed(std::uint32_t& counter, std::uint32_t delay)
{
    if (counter == 0)
    {
        counter = GetTickCount();
        return false;
    }
    return GetTickCount() - counter >= delay;
}
}  // namespace

KTEventDriver::KTEventDriver() = default;

KTEventDriver::~KTEventDriver()
{
    delete conditionEvaluator;
    delete conditionStopEvaluator;
    for (auto& list : actionLists)
        for (KTEventAction* action : list) delete action;
    for (tagSEventRT* occurrence : occurrences) delete occurrence;
}

bool KTEventDriver::NeedCheck(const KTDateTime& now)
{
    if (conditionEvaluator == nullptr) return false;
    if (timeTable == nullptr) return true;
    return timeTable->NeedCheck(now);
}

bool KTEventDriver::CheckEvent()
{
    if (conditionEvaluator == nullptr) return false;
    // A stop condition that can't be read keeps the event active: better a stale alarm than one that ends unseen.
    if (actived && conditionStopEvaluator != nullptr) return Judge(*conditionStopEvaluator) != Verdict::yes;
    return Judge(*conditionEvaluator) == Verdict::yes;
}

bool KTEventDriver::Work(const KTDateTime& now)
{
    const KTLockGuard guard(mutex);
    if (!guard.Locked()) return false;
    Step(now);
    if (finished) SweepFinished();
    return true;
}

void KTEventDriver::Step(const KTDateTime& now)
{
    if (!NeedCheck(now))
    {
        // A table that closes ends the event at once, without the delay; an inactive event keeps its counters.
        if (actived && Disable(false)) SetStatusOfAll(statusDeactivated);
        return;
    }
    if (!CheckEvent())
    {
        if (!actived)
            delayOnCounter = 0;
        else if (Disable(true))
            SetStatusOfAll(statusDeactivated);
        return;
    }
    if (actived)
    {
        ExecuteActions(KTEventAction::phaseWhile);
        delayOffCounter = 0;
        return;
    }
    if (Enable()) SetEventStatus(NewEventRT(), statusActivated);
}

void KTEventDriver::SetStatusOfAll(int status)
{
    for (tagSEventRT* occurrence : occurrences) SetEventStatus(occurrence, status);
}

void KTEventDriver::SweepFinished()
{
    finished = false;
    std::erase_if(occurrences,
                  [](tagSEventRT* occurrence)
                  {
                      if (occurrence->status != statusFinished) return false;
                      delete occurrence;
                      return true;
                  });
}

bool KTEventDriver::Enable()
{
    delayOffCounter = 0;
    if (delayToActivate != 0 && !DelayPassed(delayOnCounter, delayToActivate)) return false;
    activationTime = KTDateTime::LTC();
    ParseAnnotation(annotationText, annotationTemplate);
    // The actions run before the event counts as active and before its occurrence exists.
    ExecuteActions(KTEventAction::phaseActivate);
    delayOffCounter = 0;
    actived = true;
    return true;
}

// The three ways out differ in what the deactivation actions find: the annotation after a closed table and after a delay,
// nothing without a delay.
bool KTEventDriver::Disable(bool useDelay)
{
    delayOnCounter = 0;
    if (!useDelay)
    {
        actived = false;
        ExecuteActions(KTEventAction::phaseDeactivate);
        delayOnCounter = 0;
        return true;
    }
    if (delayToDeactivate == 0)
    {
        actived = false;
        annotationText.Clear();
        ExecuteActions(KTEventAction::phaseDeactivate);
        activationTime.Invalidate();
        delayOnCounter = 0;
        return true;
    }
    if (!DelayPassed(delayOffCounter, delayToDeactivate)) return false;
    actived = false;
    ExecuteActions(KTEventAction::phaseDeactivate);
    annotationText.Clear();
    activationTime.Invalidate();
    delayOnCounter = 0;
    return true;
}

KTEventDriver::tagSEventRT* KTEventDriver::NewEventRT()
{
    auto* const occurrence = new tagSEventRT;
    occurrences.push_back(occurrence);
    // Without notification nobody has to acknowledge.
    occurrence->status = notify ? 0 : statusAcknowledged;
    NewGUID(occurrence->id);
    KTNarrowString plain;
    Utf16ToUtf8(plain, annotationText);
    Text2Xml(occurrence->annotation, plain);
    return occurrence;
}

bool KTEventDriver::SetEventStatus(tagSEventRT* occurrence, int status)
{
    if ((occurrence->status & status) != 0) return false;
    if (status == statusActivated)
    {
        if (!occurrence->activationDate.Valid()) occurrence->activationDate = KTDateTime::UTC();
    }
    else if (status == statusDeactivated)
    {
        if ((occurrence->status & statusActivated) == 0) return false;
        if (!occurrence->deactivationDate.Valid()) occurrence->deactivationDate = KTDateTime::UTC();
    }
    else if (status == statusAcknowledged)
    {
        if ((occurrence->status & statusActivated) == 0) return false;
        if (!occurrence->acknowledgeDate.Valid())
        {
            occurrence->acknowledgeDate = KTDateTime::UTC();
            ExecuteActions(KTEventAction::phaseAcknowledge);
        }
    }
    else
    {
        return false;
    }
    occurrence->status |= status;
    finished = finished || occurrence->status == statusFinished;
    const bool saved = SaveEvent(occurrence, status);  // a full disk must not stop the scan
    if (KTEventSystem::Get().GetRssActive()) PublishStatus(*occurrence, status);
    if (KTEventObserver* const observer = KTEventObserver::Installed())
    {
        if (record) observer->RecordSaved(*this, *occurrence, status, saved);
        observer->StatusChanged(*this, *occurrence, status);
    }
    return true;
}

void KTEventDriver::PublishStatus(const tagSEventRT& occurrence, int status) const
{
    const struct
    {
        int status;
        bool wanted;
        int word;  // string id of the change's name
        const KTDateTime& date;
    } changes[] = {
        {statusActivated, rssActivate, 32724, occurrence.activationDate},
        {statusDeactivated, rssDeactivate, 32149, occurrence.deactivationDate},
        {statusAcknowledged, rssAcknowledge, 32858, occurrence.acknowledgeDate},
    };
    for (const auto& change : changes)
    {
        if (change.status != status || !change.wanted) continue;
        KTWideString title;
        KTWideString text;
        FeedTitle(title, change.word);
        FeedDescription(text, occurrence);
        KTEventSystem::Get().PublishRSS(title, text, change.date, status);
    }
}

void KTEventDriver::FeedTitle(KTWideString& title, int word) const
{
    KTWideString wordText;
    KTLoadString(word, wordText);
    title = name;
    title += L" (";
    title += wordText;
    title += L")";
}

// With a description the texts are unescaped and marked up; without one the annotation goes out as it is stored.
void KTEventDriver::FeedDescription(KTWideString& text, const tagSEventRT& occurrence) const
{
    if (description.Length() < 1)
    {
        Utf8ToUtf16(text, occurrence.annotation);
        return;
    }
    KTWideString plain;
    Xml2Text(plain, description);
    text = L"<p><b>";
    text += plain;
    text += L"</b></p>";
    KTNarrowString annotation;
    Xml2Text(annotation, occurrence.annotation);
    Utf8ToUtf16(plain, annotation);
    if (plain.Empty()) return;
    text += L"<p>";
    text += plain;
    text += L"</p>";
}

bool KTEventDriver::ProcessHttpServiceAck(const GUID& occurrenceId)
{
    const KTLockGuard guard(mutex);
    if (!guard.Locked()) return false;
    for (tagSEventRT* occurrence : occurrences)
    {
        if (occurrence->id == occurrenceId)
        {
            SetEventStatus(occurrence, statusAcknowledged);
            return true;
        }
    }
    return false;
}

bool KTEventDriver::ProcessHttpServiceAck(tagSEventRT* occurrence)
{
    const KTLockGuard guard(mutex);
    if (!guard.Locked()) return false;
    SetEventStatus(occurrence, statusAcknowledged);
    return true;
}

void KTEventDriver::IndexOccurrences(OccurrenceIndex& index)
{
    const KTLockGuard guard(mutex);
    if (!guard.Locked()) return;
    for (tagSEventRT* occurrence : occurrences) index.try_emplace(occurrence->id, Occurrence{this, occurrence});
}

int KTEventDriver::ActivedSeconds() const
{
    if (!actived || !activationTime.Valid()) return 0;
    return (KTDateTime::LTC() - activationTime).TotalSeconds();
}

bool KTEventDriver::IsInGroup(const KTWideString& groupName) const
{
    for (const KTEventDriverGroup* group : groups)
        if (group != nullptr && group->Name() == groupName) return true;
    return false;
}

void KTEventDriver::Prefetch(int step) const
{
    switch (step)
    {
        case 0:
            __builtin_prefetch(this, 1);
            break;
        case 1:
            __builtin_prefetch(conditionEvaluator);
            break;
        case 2:
            if (conditionEvaluator != nullptr) conditionEvaluator->polaca.PrefetchHead();
            break;
        default:
            if (conditionEvaluator != nullptr) conditionEvaluator->polaca.PrefetchCode();
            break;
    }
}
