// The recording of an event's state changes.

#include <algorithm>

#include "engine/KTEventDriver.h"
#include "log/KTEventFile.h"
#include "log/KTEventPath.h"

namespace
{
constexpr int annotationKind = 1;

const KTDateTime* DateOf(const KTEventDriver::tagSEventRT& occurrence, int status)
{
    switch (status)
    {
        case KTEventDriver::statusActivated:
            return &occurrence.activationDate;
        case KTEventDriver::statusDeactivated:
            return &occurrence.deactivationDate;
        case KTEventDriver::statusAcknowledged:
            return &occurrence.acknowledgeDate;
        default:
            return nullptr;
    }
}

// A new month begins by itself: there is no file yet, and it is made. So is one whose header is damaged.
bool OpenOrCreate(KTEventFile& file, const wchar_t* path)
{
    if (file.Open(path, false)) return true;
    const KTEventFile::CNewFileTemplate current("EVENTv2.70", 2000);
    return KTEventFile::Create(path, current) && file.Open(path, false);
}
}  // namespace

void KTEventDriver::EventFileName(wchar_t* path, const KTDateTime& date, int kind) const
{
    static_assert(pathSize == kt::longestPath);
    path[0] = L'\0';
    if (!date.Valid()) return;
    KTWideString fileName = kt::EventFileTitle(name, date.Year(), date.Month());
    fileName += kind == annotationKind ? L".dat" : L".suc";
    const KTWideString whole = kt::EventFilePath(fileName, date.Year(), date.Month());
    std::copy_n(whole.Str(), whole.Length() + 1, path);
}

bool KTEventDriver::SaveEvent(tagSEventRT* occurrence, int status)
{
    if (!record) return false;
    const KTDateTime* const date = DateOf(*occurrence, status);
    if (date == nullptr) return false;
    wchar_t path[pathSize];
    EventFileName(path, *date, 0);
    if (path[0] == L'\0') return false;  // a name that is too long for the disk
    KTEventFile file(true);
    if (!OpenOrCreate(file, path)) return false;
    (void)file.NewRecord();  // after a failure Update has nowhere to write and is false
    file.SetEventId(occurrence->id);
    file.SetDateValue(*date);
    file.SetEventValue(status);
    file.SetEventAnnotation(occurrence->annotation);
    return file.Update();
}
