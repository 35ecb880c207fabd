// The recording of an event's state changes.

#include "engine/KTEventDriver.h"
#include "host/KTCorvaneSetup.h"
#include "host/KTText.h"
#include "log/KTEventFile.h"

namespace
{
constexpr int annotationKind = 1;
constexpr int largestFileName = 255;  // bytes; what file systems take
constexpr int largestUnit = 4;        // bytes of UTF-8 that one element of wide text may need

// The name as a part of a file's name: it can't lead into another directory.
KTWideString Harmless(const KTWideString& name)
{
    KTWideString harmless;
    for (const wchar_t* c = name.Str(); *c != L'\0'; ++c)
    {
        const bool bad = *c == L'/' || *c == L'\\' || (*c >= 0 && *c < 0x20);
        harmless += bad ? L'_' : *c;
    }
    return harmless;
}

bool FileNameFits(const wchar_t* fileName)
{
    if (KTWideChar::Length(fileName) * largestUnit <= largestFileName) return true;
    KTNarrowString narrow;
    Utf16ToUtf8(narrow, KTWideString(fileName, false));
    return narrow.Length() <= largestFileName;
}

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
    path[0] = L'\0';
    if (!date.Valid()) return;
    const KTWideString& root = KTCorvaneSetup::Get().DataPath();
    constexpr int others = 20;  // "2024/03/" and " 03-2024.suc"
    if (root.Length() + name.Length() + others >= pathSize) return;
    const KTWideString fileName = Harmless(name);
    KTFormat(path, pathSize, L"%s%04d/%02d/%s %02d-%04d.%s", root.Str(), date.Year(), date.Month(), fileName.Str(),
             date.Month(), date.Year(), kind == annotationKind ? L"dat" : L"suc");
    if (!FileNameFits(path + root.Length() + 8)) path[0] = L'\0';
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
