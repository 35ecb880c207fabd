#include <algorithm>
#include <ostream>
#include <unordered_map>
#include <unordered_set>

#include "apps/corvane/Commands.h"
#include "apps/corvane/Installation.h"
#include "apps/corvane/LoadReport.h"
#include "apps/corvane/Progress.h"
#include "apps/corvane/Rows.h"
#include "apps/corvane/Texts.h"
#include "apps/corvane/WatchedFiles.h"
#include "engine/KTEventServer.h"
#include "log/KTEventFile.h"
#include "log/KTOldEventFiles.h"
#include "log/KTTransformEventsFilesTo27.h"
#include "suite/tools/KTDirectoryLock.h"

namespace corvane
{
namespace
{
constexpr int recordFile = 0;  // of EventFileName
constexpr int firstYear = 2000;
constexpr int lastYear = 2063;

// What the conversion will find and drop, read beforehand: it tells nothing itself.
class Survey
{
public:
    Survey(std::ostream& messages, Progress& surveyProgress, KTEventServer& eventServer)
        : err(messages), progress(surveyProgress), server(eventServer)
    {
    }

    void Read(const std::vector<kt::KTOldEventMonth>& all)
    {
        for (const kt::KTOldEventMonth& month : all) ReadMonth(month);
    }

    struct Dropped
    {
        GUID eventId;
        std::int64_t records = 0;
        std::string reason;
    };
    [[nodiscard]] const std::vector<Dropped>& AllDropped() const { return dropped; }  // in the order of appearance
    [[nodiscard]] std::int64_t Records() const { return records; }
    [[nodiscard]] int Months() const { return months; }
    [[nodiscard]] bool Overwrites() const { return overwrites; }  // records of the old files, with others of them

private:
    void ReadMonth(const kt::KTOldEventMonth& month)
    {
        const int file = kt::OpenOldEvents(month.records.Str());
        if (file == KTFiles::none)
        {
            Tell(month.records, "doesn't begin as an event log: it stays as it is");
            return;
        }
        ++months;
        CheckYear(month);
        CheckAnnotations(month);
        CountRecords(month, file);
        KTFiles::Get().Close(file);
    }

    void CheckYear(const kt::KTOldEventMonth& month)
    {
        if (month.year < firstYear || month.year > lastYear)
            Tell(month.records,
                 "a record holds the years 2000 to 2063; its dates become years that are multiples of 64 away");
    }

    void CheckAnnotations(const kt::KTOldEventMonth& month)
    {
        KTFiles& files = KTFiles::Get();
        const int present = files.Open(month.annotations.Str(), KTFiles::Mode::read);
        if (present == KTFiles::none) return;  // a month may have none
        files.Close(present);
        const int file = kt::OpenOldAnnotations(month.annotations.Str());
        if (file == KTFiles::none)
            Tell(month.annotations, "doesn't begin as a file of annotations: its month loses them");
        else
            files.Close(file);
    }

    void CountRecords(const kt::KTOldEventMonth& month, int file)
    {
        std::unordered_set<GUID, KTGuidHash> ofMonth;
        kt::KTOldEventReader reader(file);
        for (kt::KTOldEventRecord record; reader.Next(record);)
        {
            ++records;
            if (ofMonth.insert(record.eventId).second) CheckTarget(month, record.eventId);
            const auto place = droppedPlaces.find(record.eventId);
            if (place != droppedPlaces.end()) ++dropped[place->second].records;
        }
    }

    // Where the records of an event in a month go to, and what stands there.
    void CheckTarget(const kt::KTOldEventMonth& month, const GUID& eventId)
    {
        if (droppedPlaces.contains(eventId)) return;
        const KTEventDriver* const event = KTEventSystem::Get().LockEvent(eventId);
        if (event == nullptr) return Drop(eventId, ReasonOfAbsence(eventId));
        wchar_t path[KTEventDriver::pathSize];
        event->EventFileName(path, month.Begin(), recordFile);
        if (path[0] == L'\0') return Drop(eventId, "the name of " + EventTitle(*event) + " is too long for a file");
        if (!targets.insert(path).second)
        {
            overwrites = true;
            return Tell(KTWideString(path),
                        "is written twice, for two old files of its month or two events of its "
                        "name; the records of the first get lost");
        }
        KTEventFile present(true);
        if (present.Open(path, true) && present.NRecords() > 0)
            Tell(KTWideString(path), "is there already; its " + std::to_string(present.NRecords()) +
                                         " records are replaced by the old ones");
    }

    void Drop(const GUID& eventId, std::string reason)
    {
        droppedPlaces.emplace(eventId, dropped.size());
        dropped.push_back({eventId, 0, std::move(reason)});
    }

    std::string ReasonOfAbsence(const GUID& eventId)
    {
        if (elements.empty()) IndexElements();
        const auto element = elements.find(eventId);
        if (element == elements.end()) return "no event of that id is configured";
        return EventTitle(*element->second) + " has no condition that can be used";
    }

    // Of the events in the document, those included that didn't load.
    void IndexElements()
    {
        const XmlDocument::XmlNode& events = *server.Cfg()->Root()->Node(L"events");
        for (auto at = events.ChildsBegin(); at != events.ChildsEnd(); ++at)
            elements.try_emplace(wtoguid((*at)->Value(L"id", L"").Str()), *at);
    }

    void Tell(const KTWideString& path, const std::string& what)
    {
        progress.Clear();
        err << "corvane: " << OneLine(Utf8(path)) << ": " << what << '\n';
    }

    std::ostream& err;
    Progress& progress;
    KTEventServer& server;
    std::vector<Dropped> dropped;
    std::unordered_map<GUID, std::size_t, KTGuidHash> droppedPlaces;
    std::unordered_map<GUID, const XmlDocument::XmlNode*, KTGuidHash> elements;  // empty until asked for
    std::unordered_set<std::wstring> targets;                                    // paths
    std::int64_t records = 0;
    int months = 0;
    bool overwrites = false;
};

std::int64_t LengthOf(const KTWideString& path)
{
    KTFiles& files = KTFiles::Get();
    const int file = files.Open(path.Str(), KTFiles::Mode::read);
    if (file == KTFiles::none) return 0;
    const std::int64_t length = files.Length(file);
    files.Close(file);
    return std::max<std::int64_t>(length, 0);
}

class Migration
{
public:
    Migration(const MigrateOptions& migrateOptions, const Streams& migrateStreams)
        : options(migrateOptions), streams(migrateStreams), progress(streams.err, streams.errorTerminal)
    {
    }

    int Run()
    {
        Installation installation(streams.err);
        if (const int code = installation.Open(options.setup); code != done) return code;
        KTDirectoryLock lock;
        std::string error;
        if (!options.dryRun &&
            (!installation.settings.MakeDirectories(error) || !lock.Lock(installation.settings.dataPath, error)))
            return Fail(workFailed, error);
        KTEventServer server;
        server.LoadCfg();
        if (error = UnreadableEvents(server, installation.settings); !error.empty()) return Fail(wrongUsage, error);
        const std::vector<kt::KTOldEventMonth> months = kt::FindOldEventMonths();
        Survey survey(streams.err, progress, server);
        Read(survey, months);
        const bool written = options.dryRun || Convert(months);
        const int code = Report(survey);
        return written ? code : workFailed;
    }

private:
    int Fail(int code, const std::string& error)
    {
        progress.Clear();
        streams.err << "corvane: " << error << '\n';
        return code;
    }

    void Read(Survey& survey, const std::vector<kt::KTOldEventMonth>& months)
    {
        std::int64_t bytes = 0;
        for (const kt::KTOldEventMonth& month : months) bytes += LengthOf(month.records);
        progress.Begin("counting", bytes);
        WatchedFiles files;
        files.onRead = [this](std::int64_t count) { progress.Add(count); };
        survey.Read(months);
        progress.Clear();
    }

    // False when something that was read could not be written.
    bool Convert(const std::vector<kt::KTOldEventMonth>& months)
    {
        std::int64_t bytes = 0;
        for (const kt::KTOldEventMonth& month : months) bytes += LengthOf(month.records) + LengthOf(month.annotations);
        progress.Begin("converting", bytes);
        WatchedFiles files;
        files.onRead = [this](std::int64_t count) { progress.Add(count); };
        KTTransformEventsFilesTo27().Transform();
        progress.Clear();
        for (const std::wstring& path : files.notMade)
            streams.err << "corvane: " << OneLine(Utf8(KTWideString(path.c_str())))
                        << ": can't be made; its records are lost\n";
        if (files.writeFailed) streams.err << "corvane: not all could be written; records are lost\n";
        return files.notMade.empty() && !files.writeFailed;
    }

    int Report(const Survey& survey)
    {
        const char* const verb = options.dryRun ? " would be converted" : " converted";
        streams.err << "corvane: " << survey.Months() << (survey.Months() == 1 ? " file of " : " files of ")
                    << survey.Records() << (survey.Records() == 1 ? " record" : " records") << verb << '\n';
        if (survey.AllDropped().empty()) return survey.Overwrites() ? foundSomething : done;
        const auto writer = RowWriter::Make(options.json ? RowFormat::json : RowFormat::table,
                                            {{"eventId", "EVENT ID", guidTextSize - 1},
                                             {"records", "DROPPED", 0, RowColumn::right},
                                             {"reason", "WHY", 0, RowColumn::last}},
                                            streams.out);
        for (const Survey::Dropped& event : survey.AllDropped())
        {
            char id[guidTextSize];
            writer->Write({{guidtoc(event.eventId, id)}, {event.records}, {event.reason}});
        }
        return foundSomething;
    }

    const MigrateOptions& options;
    const Streams& streams;
    Progress progress;
};
}  // namespace

int Migrate(const MigrateOptions& options, const Streams& streams) { return Migration(options, streams).Run(); }
}  // namespace corvane
