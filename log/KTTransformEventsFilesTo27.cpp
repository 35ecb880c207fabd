#include "log/KTTransformEventsFilesTo27.h"

#include <cstdint>
#include <deque>
#include <unordered_map>
#include <vector>

#include "engine/KTEventDriver.h"
#include "engine/KTEventSystem.h"
#include "host/KTFiles.h"
#include "host/KTGuid.h"
#include "log/KTEventFile.h"
#include "log/KTOldEventFiles.h"

namespace
{
constexpr int recordFile = 0;  // of EventFileName
constexpr int baseYear = 2000;
constexpr const char* format = "EVENTv2.70";

struct Record
{
    GUID id;
    KTNarrowString annotation;
    KTDateTime date;
    int value = 0;
};

// What one file holds of one event.
struct EventRecords
{
    GUID eventId;
    std::deque<Record> records;  // in the order of the file; grows without moving them
};

// The events of a file in the order in which they first appear.
class EventsOfFile
{
public:
    std::deque<Record>& Of(const GUID& eventId)
    {
        const auto [place, isNew] = places.try_emplace(eventId, all.size());
        if (isNew) all.push_back({eventId, {}});
        return all[place->second].records;
    }
    [[nodiscard]] const std::vector<EventRecords>& All() const { return all; }

private:
    std::vector<EventRecords> all;
    std::unordered_map<GUID, std::size_t, KTGuidHash> places;
};

// In days and seconds: 32 bits of seconds are more than an int holds.
KTDateTimeSpan SpanOf(std::uint32_t seconds)
{
    constexpr std::uint32_t day = 86'400;
    KTDateTimeSpan span;
    span.SetDateTimeSpan(static_cast<int>(seconds / day), 0, 0, static_cast<int>(seconds % day), 0, 0);
    return span;
}

void WriteRecords(KTEventFile& file, const std::deque<Record>& records)
{
    // None of them counts before all stand on the disk: until then the old file is there.
    file.BeginBatch();
    for (const Record& record : records)
    {
        (void)file.NewRecord();
        file.SetEventId(record.id);
        file.SetDateValue(record.date);
        file.SetEventValue(record.value);
        file.SetEventAnnotation(record.annotation);
        (void)file.Update();
    }
    (void)file.EndBatch();  // what doesn't fit on the disk is dropped
}

void WriteEvent(const EventRecords& event, const KTDateTime& monthStart)
{
    KTEventDriver* const driver = KTEventSystem::Get().LockEvent(event.eventId);
    if (driver == nullptr) return;
    wchar_t path[KTEventDriver::pathSize];
    driver->EventFileName(path, monthStart, recordFile);
    if (path[0] == L'\0') return;  // a name that is too long for the disk
    KTEventFile file(true);
    if (!KTEventFile::Create(path, {format, baseYear}) || !file.Open(path, false)) return;
    WriteRecords(file, event.records);
}
}  // namespace

bool KTTransformEventsFilesTo27::Transform()
{
    KTFiles& files = KTFiles::Get();
    for (const kt::KTOldEventMonth& month : kt::FindOldEventMonths())
    {
        const int records = OpenFile(month.records.Str());
        if (records == KTFiles::none) continue;
        const int annotations = OpenAnnotationFile(month.annotations.Str());
        (void)TransformFile(month.Begin(), records, annotations);
        files.Close(records);
        if (annotations != KTFiles::none) files.Close(annotations);
        (void)files.Delete(month.records.Str());
        (void)files.Delete(month.annotations.Str());  // there may be none
    }
    return true;
}

bool KTTransformEventsFilesTo27::TransformFile(const KTDateTime& monthStart, int recordFileHandle, int annotationFile)
{
    if (recordFileHandle == KTFiles::none) return false;
    EventsOfFile events;
    kt::KTOldEventReader reader(recordFileHandle);
    KTFileWindow annotations;
    for (kt::KTOldEventRecord old; reader.Next(old);)
    {
        Record& record = events.Of(old.eventId).emplace_back();
        record.id = old.id;
        record.date = monthStart + SpanOf(old.seconds);
        record.value = old.value;
        (void)LoadAnnotation(record.annotation, annotationFile, old.annotation, annotations);
    }
    for (const EventRecords& event : events.All()) WriteEvent(event, monthStart);
    return true;
}

int KTTransformEventsFilesTo27::OpenFile(const wchar_t* path) { return kt::OpenOldEvents(path); }

int KTTransformEventsFilesTo27::OpenAnnotationFile(const wchar_t* path) { return kt::OpenOldAnnotations(path); }

bool KTTransformEventsFilesTo27::LoadAnnotation(KTNarrowString& text, int file, unsigned long offset,
                                                KTFileWindow& window)
{
    kt::ReadOldAnnotation(text, file, static_cast<std::uint32_t>(offset), window);
    return true;
}
