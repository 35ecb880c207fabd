#include "log/KTEventPath.h"

#include <iterator>

#include "host/KTCorvaneSetup.h"
#include "host/KTText.h"

namespace
{
constexpr int largestUnit = 4;  // bytes of UTF-8 that one element of wide text may need

bool FileNameFits(const KTWideString& fileName)
{
    if (fileName.Length() * largestUnit <= kt::longestFileName) return true;
    KTNarrowString narrow;
    Utf16ToUtf8(narrow, fileName);
    return narrow.Length() <= kt::longestFileName;
}
}  // namespace

KTWideString kt::YearDirectory(int year)
{
    wchar_t name[16];
    KTFormat(name, std::size(name), L"%04d/", year);
    KTWideString directory(KTWideString::growSmall);
    directory = KTCorvaneSetup::Get().DataPath();
    directory += name;
    return directory;
}

KTWideString kt::MonthDirectory(int year, int month)
{
    wchar_t name[16];
    KTFormat(name, std::size(name), L"%02d/", month);
    KTWideString directory = YearDirectory(year);
    directory += name;
    return directory;
}

KTWideString kt::EventFileTitle(const KTWideString& eventName, int year, int month)
{
    KTWideString title(KTWideString::growSmall);
    for (const wchar_t* c = eventName.Str(); *c != L'\0'; ++c)
    {
        const bool bad = *c == L'/' || *c == L'\\' || (*c >= 0 && *c < 0x20);
        title += bad ? L'_' : *c;
    }
    wchar_t date[32];
    KTFormat(date, std::size(date), L" %02d-%04d", month, year);
    title += date;
    return title;
}

KTWideString kt::EventFilePath(const KTWideString& fileName, int year, int month)
{
    KTWideString path = MonthDirectory(year, month);
    path += fileName;
    if (path.Length() >= longestPath || !FileNameFits(fileName)) path.Clear();
    return path;
}
