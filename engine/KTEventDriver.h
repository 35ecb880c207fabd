// One configured event together with its run time: the state machine that the scan and the acknowledgement drive.
#pragma once

#include <array>
#include <cstdint>
#include <list>
#include <unordered_map>
#include <vector>

#include "actions/KTEventAction.h"
#include "engine/KTAnnotationArguments.h"
#include "host/KTDateTime.h"
#include "host/KTGuid.h"
#include "host/KTObject.h"
#include "host/KTString.h"
#include "host/KTThread.h"
#include "host/XmlDocument.h"

class KTEventDriverGroup;
class KTEventLoggerData;
class KTHttpResponse;
class KTTimeTable;

/// An event: a condition over device variables with delays, a time table, an annotation, a log and actions.
///
/// Units:   delays are milliseconds of the tick counter, looked at once a scan; dates of occurrences are UTC,
///          activationTime is local.
/// Errors:  told by false; a failed record or action changes no state of the event.
/// Threads: Work runs on the scan thread, the services on HTTP threads; `mutex` guards the run time and the occurrences.
///          `actived` is also read under KTEventServer's work mutex alone, which suffices because Work runs under it.
/// Memory:  owned by KTEventSystem. Keeps pointers into the document that it was loaded from, which must outlive it.
class alignas(64) KTEventDriver : public CObject
{
public:
    static constexpr int statusActivated = 1;
    static constexpr int statusDeactivated = 2;
    static constexpr int statusAcknowledged = 4;
    static constexpr int statusFinished = statusActivated | statusDeactivated | statusAcknowledged;

    /// One occurrence: an activation from the moment it began until it has been deactivated and acknowledged.
    struct tagSEventRT
    {
        GUID id;                  // fresh for each occurrence: the record id in the log, the key of an acknowledgement
        std::int32_t status = 0;  // bits of the status constants; 0 and 4 only before the first SetEventStatus
        KTDateTime activationDate;    // UTC, invalid until set
        KTDateTime acknowledgeDate;   // UTC, invalid until set
        KTDateTime deactivationDate;  // UTC, invalid until set
        KTNarrowString annotation;    // UTF-8, XML-escaped, frozen at creation
    };

    KTEventDriver();
    [[nodiscard]] const CRuntimeClass* GetRuntimeClass() const override { return &classKTEventDriver; }
    ~KTEventDriver() override;

    /// Builds the event from its element; time tables and groups must be in the registry already. False when it has no
    /// identity or no logical condition, and it is then to be deleted. On an object that has already loaded it replaces
    /// all but the actions, to which it appends.
    virtual bool LoadXml(const XmlDocument::XmlNode* element);
    /// Whether the event is to be evaluated at the local time `now`.
    virtual bool NeedCheck(const KTDateTime& now);
    /// Whether the event holds at this moment. Only a logical result of exactly 1.0 counts as true. An active event with a
    /// stop condition holds until that is true; a failed evaluation keeps it active, every other one is false.
    virtual bool CheckEvent();
    /// Expands the codes of the template `text`, as docs/annotations.md lists them, with the values of this moment, and
    /// replaces `out`; always true. A code that stands for nothing stays as it is written. Any thread may call it, also
    /// while others do: it takes no lock and changes nothing that shows.
    virtual bool ParseAnnotation(KTWideString& out, const KTWideString& text);

    /// One scan at the local time `now`. False only when the mutex can't be taken.
    bool Work(const KTDateTime& now);

    /// True when the event has just become active: its delay has passed, the annotation is expanded, the actions ran.
    bool Enable() KT_REQUIRES(mutex);
    /// True when the event has just become inactive. Without `useDelay` it does so at once.
    bool Disable(bool useDelay) KT_REQUIRES(mutex);
    /// Runs the server's actions of a phase, 0 to 3, in order; always true.
    bool ExecuteActions(int phase);

    /// Acknowledges one occurrence, again as often as asked. False when it isn't one of this event's, or the mutex can't
    /// be taken.
    bool ProcessHttpServiceAck(const GUID& occurrenceId);
    /// Acknowledges an occurrence that IndexOccurrences gave, in the same hold of KTEventServer's work mutex.
    bool ProcessHttpServiceAck(tagSEventRT* occurrence);

    struct Occurrence
    {
        KTEventDriver* event;
        tagSEventRT* occurrence;
    };
    using OccurrenceIndex = std::unordered_map<GUID, Occurrence, KTGuidHash>;
    /// Adds this event's occurrences, so that a document of many acknowledgements costs one walk over the registry. What
    /// is in the index already stays. They are good until the event's next scan.
    void IndexOccurrences(OccurrenceIndex& index);

    static constexpr int pathSize = 260;  // characters of a path of the log, terminator included

    /// The path of the event's log file for the month of `date`, which is UTC, into a buffer of pathSize characters: the
    /// records, or the annotations for kind 1. Characters of the event's name that would leave the directory become `_`.
    /// The empty text where the path doesn't fit, where its last component has more than 255 bytes of UTF-8, and for an
    /// invalid date.
    void EventFileName(wchar_t* path, const KTDateTime& date, int kind) const;

    /// Writes the event's element when it is active; always true. Needs KTEventServer's work mutex.
    bool ProcessHttpServiceEventsActived(KTHttpResponse& response);
    /// Writes an element for each occurrence when the event notifies. False when the mutex can't be taken.
    bool ProcessHttpServiceEventsNotified(KTHttpResponse& response);

    /// Adds this event's occurrences that began at or after `begin` and before `end`, UTC, to `data`, with what completed
    /// them until the end of the month after `end`'s. With `searchBefore` it adds first the occurrence that was open at
    /// `begin`. False when no file of the period could be opened. Takes no lock: the log may be written meanwhile.
    bool Load(KTEventLoggerData& data, const KTDateTime& begin, const KTDateTime& end, bool searchBefore);

    /// Whole seconds since the activation; 0 while inactive.
    [[nodiscard]] int ActivedSeconds() const;
    [[nodiscard]] bool IsEnabled() const { return actived; }
    void ResetDelayONCounter() { delayOnCounter = 0; }
    void ResetDelayOFFCounter() { delayOffCounter = 0; }
    /// True when a group of the event bears exactly that name.
    [[nodiscard]] bool IsInGroup(const KTWideString& groupName) const;

    [[nodiscard]] const GUID& Id() const { return id; }
    [[nodiscard]] const KTWideString& Name() const { return name; }
    [[nodiscard]] const KTWideString& Description() const { return description; }
    [[nodiscard]] const KTWideString& Annotation() const { return annotationText; }
    [[nodiscard]] bool Notify() const { return notify; }
    [[nodiscard]] bool Record() const { return record; }
    [[nodiscard]] bool RssActivate() const { return rssActivate; }
    [[nodiscard]] bool RssDeactivate() const { return rssDeactivate; }
    [[nodiscard]] bool RssAcknowledge() const { return rssAcknowledge; }
    [[nodiscard]] const XmlDocument::XmlNode* Node() const { return node; }
    [[nodiscard]] const KTTimeTable* TimeTable() const { return timeTable; }                 // null: always checked
    [[nodiscard]] const std::vector<KTEventDriverGroup*>& Groups() const { return groups; }  // entries may be null

    /// In a large registry the parts of an event that a scan reads lie far from each other, and each is only found through
    /// the one before. Asks the processor for part `step`, 0 to prefetchSteps - 1, in time; the parts before it must have
    /// been asked for before.
    static constexpr int prefetchSteps = 4;
    void Prefetch(int step) const;

    static constexpr CRuntimeClass classKTEventDriver{"KTEventDriver", &CObject::classCObject};

protected:
    tagSEventRT* NewEventRT() KT_REQUIRES(mutex);
    /// Sets the bit of a status (1, 2 or 4), dates it, records it and publishes it. False when it is set already, when the
    /// occurrence wasn't activated before it is deactivated or acknowledged, or for any other status.
    bool SetEventStatus(tagSEventRT* occurrence, int status) KT_REQUIRES(mutex);
    /// Writes the record of a state change; true when it stands on the disk. False, with nothing written, for an event that
    /// isn't to be recorded; false also for a record older than the file's last one and where the disk refuses. A file
    /// whose header is damaged begins anew.
    bool SaveEvent(tagSEventRT* occurrence, int status);
    /// One month of Load; false when the file can't be opened.
    bool Load(KTEventLoggerData& data, const KTDateTime& begin, const KTDateTime& end, const wchar_t* path);
    /// Completes rows by the records of one file from `from` on, and takes the rows that are complete then out of `pending`,
    /// until that is empty. False when the file can't be opened.
    bool LoadIncomplete(KTEventLoggerData& data, const KTDateTime& from, const wchar_t* path, std::list<GUID>& pending);
    /// Adds the occurrence that was open at `begin`, if the month of `begin` or the one before tells of it; always true.
    bool SearchActivationBeforePeriod(KTEventLoggerData& data, const KTDateTime& begin);
    void PublishStatus(const tagSEventRT& occurrence, int status) const;
    bool ProcessHttpServiceEventsNotified(tagSEventRT* occurrence, KTHttpResponse& response) KT_REQUIRES(mutex);

    // What every scan reads stands in the object's first cache line: with a million events the way to memory is what a
    // scan costs.
    KTMutex mutex;
    KTTimeTable* timeTable = nullptr;  // not owned: KTEventSystem's, outlives the event; null means always checked
    KTEvaluator* conditionEvaluator = nullptr;      // owned; null means never active
    KTEvaluator* conditionStopEvaluator = nullptr;  // owned
    bool actived = false;
    bool finished KT_GUARDED_BY(mutex) = false;  // an occurrence waits for the sweep
    std::uint32_t delayOnCounter = 0;            // ticks; 0 means that the delay isn't running
    std::uint32_t delayOffCounter = 0;           // ticks; 0 means that the delay isn't running
    std::uint32_t delayToActivate = 0;           // milliseconds; seconds in the document
    std::uint32_t delayToDeactivate = 0;         // milliseconds; seconds in the document

    bool notify = false;  // occurrences wait for an acknowledgement
    bool record = false;  // state changes are written to the event log
    bool rssActivate = false;
    bool rssDeactivate = false;
    bool rssAcknowledge = false;
    GUID id;
    KTWideString name;
    KTWideString description;
    KTWideString annotationText;  // as expanded at the last activation; cleared at a delayed deactivation
    KTWideString annotationTemplate;
    std::vector<KTEventDriverGroup*> groups;             // not owned; a null keeps the place of a group that is gone
    std::vector<const XmlDocument::XmlNode*> arguments;  // not owned: the document outlives us
    const XmlDocument::XmlNode* node = nullptr;          // not owned: the document outlives us
    KTDateTime activationTime;                           // local; when the event last became active
    std::array<std::list<KTEventAction*>, KTEventAction::sections * KTEventAction::phases>
        actionLists;                                           // owned, in order
    std::list<tagSEventRT*> occurrences KT_GUARDED_BY(mutex);  // owned, oldest first

private:
    struct AnnotationCode;

    KTAnnotationArguments compiledArguments;  // what annotations of before have compiled

    void Step(const KTDateTime& now) KT_REQUIRES(mutex);
    void SetStatusOfAll(int status) KT_REQUIRES(mutex);
    void SweepFinished() KT_REQUIRES(mutex);
    void FeedTitle(KTWideString& title, int word) const;
    void FeedDescription(KTWideString& text, const tagSEventRT& occurrence) const;

    void LoadValues();
    bool LoadConditions();
    void LoadGroups();
    void LoadArguments();
    void LoadActions();
};
