#include <algorithm>
#include <ostream>
#include <string_view>
#include <utility>

#include "apps/corvane/Commands.h"
#include "apps/corvane/Installation.h"
#include "apps/corvane/Rows.h"
#include "apps/corvane/Texts.h"
#include "apps/corvane/WatchedFiles.h"
#include "host/KTClock.h"
#include "host/KTCorvaneSetup.h"
#include "host/XmlDocument.h"
#include "log/KTEventPath.h"
#include "log/RenameEventsFilesDataName.h"
#include "suite/tools/KTDirectoryLock.h"
#include "suite/tools/XmlFault.h"

namespace corvane
{
namespace
{
using XmlNode = XmlDocument::XmlNode;

constexpr int firstYear = 2000;  // of the tree

class Renaming
{
public:
    Renaming(const RenameOptions& renameOptions, const Streams& renameStreams)
        : options(renameOptions), streams(renameStreams)
    {
    }

    int Run()
    {
        Installation installation(streams.err);
        if (const int code = installation.Open(options.setup); code != done) return code;
        XmlDocument oldDocument;
        XmlDocument newDocument;
        const XmlNode* const oldEvents = EventsOf(oldDocument, options.oldEvents);
        const XmlNode* const newEvents = EventsOf(newDocument, options.newEvents);
        if (oldEvents == nullptr || newEvents == nullptr) return wrongUsage;
        KTDirectoryLock lock;
        if (std::string error;
            !installation.settings.MakeDirectories(error) || !lock.Lock(installation.settings.dataPath, error))
        {
            streams.err << "corvane: " << error << '\n';
            return workFailed;
        }
        WatchedFiles files;
        const bool good = RenameEventsFilesDataName(oldEvents, newEvents);
        const bool told = Report(files);
        if (!good && !told) streams.err << "corvane: the new name is too long for a file\n";
        if (!good) return workFailed;
        TellWhatStays(*oldEvents, *newEvents);
        return done;
    }

private:
    // Null, with a message, for a file without events.
    const XmlNode* EventsOf(XmlDocument& document, const std::string& path)
    {
        const bool loaded = document.Load(Wide(path).Str());
        const XmlNode* const events = loaded ? std::as_const(document).Node(L"events") : nullptr;
        if (events == nullptr)
        {
            const std::string fault = kt::XmlFaultOf(path);
            streams.err << "corvane: " << OneLine(path) << ": " << (fault.empty() ? "there are no events in it" : fault)
                        << '\n';
        }
        return events;
    }

    // Whether a failure was among it.
    bool Report(const WatchedFiles& files)
    {
        bool failed = false;
        const auto writer =
            RowWriter::Make(options.json ? RowFormat::json : RowFormat::table,
                            {{"old", "OLD", 32}, {"new", "NEW", 32}, {"renamed", "", 0, RowColumn::last}}, streams.out);
        for (const WatchedFiles::Renamed& file : files.renamed)
        {
            const bool renamed = file.result == KTFiles::Renaming::done;
            writer->Write({{BelowData(file.from)}, {BelowData(file.to)}, {renamed, renamed ? " " : "failed"}});
            if (file.result != KTFiles::Renaming::failed) continue;
            failed = true;
            streams.err << "corvane: " << BelowData(file.from) << " can't be renamed: "
                        << (Exists(file.to) ? "there is a file of the new name" : "the disk refuses") << '\n';
        }
        return failed;
    }

    static bool Exists(const KTWideString& path)
    {
        const int file = KTFiles::Get().Open(path.Str(), KTFiles::Mode::read);
        KTFiles::Get().Close(file);
        return file != KTFiles::none;
    }

    static std::string BelowData(const KTWideString& path)
    {
        KTWideString shorter;
        KTWideString::SubString(shorter, path, KTCorvaneSetup::Get().DataPath().Length(), path.Length());
        return Utf8(shorter);
    }

    // One changed name is followed a call, and not into other years. Whoever changed more, or looks for more, has to know.
    void TellWhatStays(const XmlNode& oldEvents, const XmlNode& newEvents)
    {
        bool followed = false;
        for (auto at = oldEvents.ChildsBegin(); at != oldEvents.ChildsEnd(); ++at)
        {
            const XmlNode* const now = newEvents.NodeV(L"event?id=%s?", (*at)->Value(L"id", L"").Str());
            if (now == nullptr || now->Value(L"name", L"") == (*at)->Value(L"name", L"")) continue;
            if (!followed)
                TellOlderFiles(**at);
            else
                streams.err << "corvane: \"" << NameOf(**at) << "\" is \"" << NameOf(*now)
                            << "\" now, but one changed name is followed at a time: its files stay\n";
            followed = true;
        }
        if (!followed) streams.err << "corvane: no event bears another name\n";
    }

    void TellOlderFiles(const XmlNode& event)
    {
        const KTWideString name = event.Value(L"name", L"");
        std::ptrdiff_t files = 0;
        for (int year = firstYear; year <= KTDateTime::UTC().Year(); ++year)
            for (int month = 1; month <= 12; ++month) files += FilesOf(name, year, month);
        if (files > 0)
            streams.err << "corvane: " << files << (files == 1 ? " file keeps" : " files keep") << " the name of \""
                        << NameOf(event) << "\": only those of this year are followed, from this month back\n";
    }

    static std::ptrdiff_t FilesOf(const KTWideString& name, int year, int month)
    {
        KTWideString begin = kt::EventFileTitle(name, year, month);
        begin += L'.';
        std::vector<KTFoundFile> found;
        (void)KTFiles::Get().Search(kt::MonthDirectory(year, month).Str(), found);  // no directory, no files
        return std::count_if(found.begin(), found.end(),
                             [&begin](const KTFoundFile& file)
                             { return std::wstring_view(file.name.Str()).starts_with(begin.Str()); });
    }

    static std::string NameOf(const XmlNode& event) { return OneLine(Utf8(event.Value(L"name", L""))); }

    const RenameOptions& options;
    const Streams& streams;
};
}  // namespace

int Rename(const RenameOptions& options, const Streams& streams) { return Renaming(options, streams).Run(); }
}  // namespace corvane
