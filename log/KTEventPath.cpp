#include "log/KTEventPath.h"

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

// Each record asks for its path: by hand this is ten times as fast as a format.
void AppendNumber(KTWideString& text, int number, int digits)
{
    if (digits > 1) AppendNumber(text, number / 10, digits - 1);
    text += static_cast<wchar_t>(L'0' + number % 10);
}
}  // namespace

KTWideString kt::YearDirectory(int year)
{
    KTWideString directory(KTWideString::growSmall);
    directory = KTCorvaneSetup::Get().DataPath();
    AppendNumber(directory, year, 4);
    directory += L'/';
    return directory;
}

KTWideString kt::MonthDirectory(int year, int month)
{
    KTWideString directory = YearDirectory(year);
    AppendNumber(directory, month, 2);
    directory += L'/';
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
    title += L' ';
    AppendNumber(title, month, 2);
    title += L'-';
    AppendNumber(title, year, 4);
    return title;
}

KTWideString kt::EventFilePath(const KTWideString& fileName, int year, int month)
{
    KTWideString path = MonthDirectory(year, month);
    path += fileName;
    if (path.Length() >= longestPath || !FileNameFits(fileName)) path.Clear();
    return path;
}
