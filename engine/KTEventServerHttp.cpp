// Admission and locks of the services; what they write is made in publish/.

#include "engine/KTEventDriver.h"
#include "engine/KTEventServer.h"
#include "host/KTHttp.h"
#include "host/KTText.h"
#include "log/KTEventLoggerData.h"
#include "publish/KTEventLogReply.h"
#include "publish/KTEventReply.h"

namespace
{
constexpr int httpOk = 200;
constexpr int httpUnavailable = 503;

bool Refuse(KTHttpResponse& response)
{
    response.Start(httpUnavailable, 0);
    return response.Finish();
}

int LogStartMode(const KTHttpRequest& request) { return (request.flags & KTHttpRequest::longStart) != 0 ? 4 : 2; }

// The documents that stand for a moment's state begin in the mode above that of a log.
int StartMode(const KTHttpRequest& request) { return LogStartMode(request) + 1; }

bool Acquire(KTSemaphore& requestSlots) { return requestSlots.Wait(KTEventServer::admissionWait); }

// Gives a count back however the service ends: a question about years may well run out of memory.
class HeldSlot
{
public:
    explicit HeldSlot(KTSemaphore& requestSlots) : slots(requestSlots) {}
    HeldSlot(const HeldSlot&) = delete;
    HeldSlot& operator=(const HeldSlot&) = delete;
    ~HeldSlot() { slots.Release(); }

private:
    KTSemaphore& slots;
};

void WriteRow(KTHttpResponse& response, const KTEventLoggerData::CDataRecord& row)
{
    KTEventLogReply::Write(
        response, {row.RecordId(), row.EventId(), row.Annotation(), row.Time(), row.AckOffset(), row.DisableOffset()});
}
}  // namespace

bool KTEventServer::ProcessHttpServiceEventsActived(KTHttpRequest& request, KTHttpResponse& response)
{
    return Serve(request, response, "activedEvents", &KTEventDriver::ProcessHttpServiceEventsActived);
}

bool KTEventServer::ProcessHttpServiceEventsNotified(KTHttpRequest& request, KTHttpResponse& response)
{
    return Serve(request, response, "notifiedEvents", &KTEventDriver::ProcessHttpServiceEventsNotified);
}

bool KTEventServer::Serve(const KTHttpRequest& request, KTHttpResponse& response, const char* root,
                          DriverService service)
{
    if (!Acquire(*requestSlots)) return Refuse(response);
    const HeldSlot slot(*requestSlots);
    const KTLockGuard guard(workMutex);
    if (!guard.Locked()) return Refuse(response);
    response.Start(httpOk, StartMode(request));
    KTEventReply::Open(response, root);
    for (auto event = eventSystem.EventsBegin(); event != eventSystem.EventsEnd(); ++event)
        (void)((*event)->*service)(response);  // an event that can't be locked contributes nothing
    KTEventReply::Close(response, root);
    return response.Finish();
}

// The work mutex stays free: the count alone keeps the registry, and the files may be written meanwhile. So the scan goes on
// while a long period is read.
bool KTEventServer::ProcessHttpServiceEventsLogger(KTHttpRequest& request, KTHttpResponse& response,
                                                   const KTDateTime& begin, const KTDateTime& end)
{
    if (!Acquire(*requestSlots)) return Refuse(response);
    const HeldSlot slot(*requestSlots);
    KTEventLoggerInfo selection;
    for (auto event = eventSystem.EventsBegin(); event != eventSystem.EventsEnd(); ++event)
        selection.AddVariable((*event)->Id());
    KTEventLoggerData data;
    data.Setup(selection);
    (void)data.SelectData(begin, end, false);  // a period without files is an empty document
    response.Start(httpOk, LogStartMode(request));
    KTEventReply::Open(response, "loggerEvents");
    KTEventLoggerData::CRecordGroup& rows = data.RecordGroup();
    for (auto row = rows.Begin(); row != rows.End(); ++row) WriteRow(response, **row);
    KTEventReply::Close(response, "loggerEvents");
    return response.Finish();
}

bool KTEventServer::ProcessHttpServiceAck(KTHttpRequest& /*request*/, const unsigned char* body)
{
    if (!Acquire(*requestSlots)) return false;
    const HeldSlot slot(*requestSlots);
    const KTLockGuard guard(workMutex);
    XmlDocument document;
    const bool good =
        guard.Locked() && document.Parse(reinterpret_cast<const char*>(body)) && document.Root()->Tag() == L"eventsAck";
    if (good) Acknowledge(*document.Root());
    return good;
}

void KTEventServer::Acknowledge(const XmlDocument::XmlNode& list)
{
    KTEventDriver::OccurrenceIndex index;
    for (auto event = eventSystem.EventsBegin(); event != eventSystem.EventsEnd(); ++event)
        (*event)->IndexOccurrences(index);
    for (auto child = list.ChildsBegin(); child != list.ChildsEnd(); ++child)
    {
        if (!((*child)->Tag() == L"id")) continue;
        const auto found = index.find(wtoguid((*child)->Value().Str()));
        if (found == index.end()) continue;  // unknown, or finished and gone
        (void)found->second.event->ProcessHttpServiceAck(found->second.occurrence);
    }
}
