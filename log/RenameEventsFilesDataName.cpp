#include "log/RenameEventsFilesDataName.h"

#include <string_view>
#include <vector>

#include "host/KTCorvaneSetup.h"
#include "host/KTDateTime.h"
#include "host/KTFiles.h"
#include "host/KTText.h"
#include "log/KTEventPath.h"

namespace
{
constexpr int firstYear = 2000;

// Renames the files of one event, one month after the other backwards in time.
class Renaming
{
public:
    explicit Renaming(const KTDateTime& now) : year(now.Year()), month(now.Month()) {}

    // The cursors go on from where the event before has left them. The month ends at 0 and stays there, so that no year
    // but the first with a directory is renamed; the year ends below the first one, so that no further event is followed.
    void Follow(const KTWideString& from, const KTWideString& to)
    {
        for (; year >= firstYear; --year)
        {
            if (!YearExists()) continue;
            for (; month > 0; --month) RenameMonth(from, to);
        }
    }

    [[nodiscard]] int Failures() const { return failures; }

private:
    [[nodiscard]] bool YearExists() const
    {
        std::vector<KTFoundFile> found;
        return KTFiles::Get().Search(kt::YearDirectory(year).Str(), found);
    }

    void RenameMonth(const KTWideString& from, const KTWideString& to)
    {
        const KTWideString oldTitle = kt::EventFileTitle(from, year, month);
        std::vector<KTFoundFile> found;
        // A month without records has no directory.
        (void)KTFiles::Get().Search(kt::MonthDirectory(year, month).Str(), found);
        for (const KTFoundFile& entry : found)
        {
            const std::wstring_view name(entry.name.Str());
            if (entry.directory || !name.starts_with(oldTitle.Str())) continue;
            const wchar_t* const extension = entry.name.Str() + oldTitle.Length();
            if (*extension != L'.') continue;  // the name of another event begins with that of this one and a date
            KTWideString newName = kt::EventFileTitle(to, year, month);
            newName += extension;
            Rename(entry.name, newName);
        }
    }

    void Rename(const KTWideString& from, const KTWideString& to)
    {
        if (from == to) return;  // the two names differ only in what no file's name can hold
        const KTWideString source = kt::EventFilePath(from, year, month);
        const KTWideString target = kt::EventFilePath(to, year, month);
        if (target.Empty() || KTFiles::Get().Rename(source.Str(), target.Str()) == KTFiles::Renaming::failed)
            ++failures;
    }

    int year;
    int month;  // 0 when its year is done
    int failures = 0;
};
}  // namespace

bool RenameEventsFilesDataName(const XmlDocument::XmlNode* oldEvents, const XmlDocument::XmlNode* newEvents)
{
    if (oldEvents == nullptr || newEvents == nullptr) return true;
    Renaming renaming(KTDateTime::UTC());
    for (auto event = oldEvents->ChildsBegin(); event != oldEvents->ChildsEnd(); ++event)
    {
        const XmlDocument::XmlNode* const now = newEvents->NodeV(L"event?id=%s?", (*event)->Value(L"id", L"").Str());
        if (now == nullptr) continue;  // deleted: its files stay
        const KTWideString from = (*event)->Value(L"name", L"");
        const KTWideString to = now->Value(L"name", L"");
        if (!(from == to)) renaming.Follow(from, to);
    }
    return renaming.Failures() == 0;
}
