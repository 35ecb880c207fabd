// An event's part of the services' replies.

#include "engine/KTEventDriver.h"
#include "host/KTHttp.h"
#include "publish/KTEventReply.h"

bool KTEventDriver::ProcessHttpServiceEventsActived(KTHttpResponse& response)
{
    if (!actived) return true;
    KTNarrowString annotation;
    KTEventReply::Escape(annotation, annotationText);
    KTNarrowString piece(KTNarrowString::growSmall);
    piece += "<event>";
    KTEventReply::AppendEvent(piece, id, name, description, annotation);
    if (activationTime.Valid()) KTEventReply::AppendDate(piece, "dateTime", activationTime.LTC2UTC());
    piece += "</event>";
    response.Write(piece);
    return true;
}

bool KTEventDriver::ProcessHttpServiceEventsNotified(KTHttpResponse& response)
{
    const KTLockGuard guard(mutex);
    if (!guard.Locked()) return false;
    if (!notify) return true;
    for (tagSEventRT* occurrence : occurrences) ProcessHttpServiceEventsNotified(occurrence, response);
    return true;
}

bool KTEventDriver::ProcessHttpServiceEventsNotified(tagSEventRT* occurrence, KTHttpResponse& response)
{
    if (occurrence->status == 0) return true;
    const struct
    {
        int status;
        const char* tag;
        const KTDateTime& date;
    } dates[] = {
        {statusActivated, "dateTime", occurrence->activationDate},
        {statusAcknowledged, "ackDateTime", occurrence->acknowledgeDate},
        {statusDeactivated, "disableDateTime", occurrence->deactivationDate},
    };
    KTNarrowString piece(KTNarrowString::growSmall);
    piece += "<event>";
    KTEventReply::AppendEvent(piece, occurrence->id, name, description, occurrence->annotation);
    for (const auto& row : dates)
        if ((occurrence->status & row.status) != 0 && row.date.Valid())
            KTEventReply::AppendDate(piece, row.tag, row.date);
    piece += "</event>";
    response.Write(piece);
    return true;
}
