#include <algorithm>
#include <cstdlib>
#include <memory>
#include <ostream>
#include <unordered_map>

#include "apps/corvane/Commands.h"
#include "apps/corvane/Installation.h"
#include "apps/corvane/LoadReport.h"
#include "apps/corvane/Rows.h"
#include "apps/corvane/StreamResponse.h"
#include "apps/corvane/Texts.h"
#include "engine/KTEventServer.h"
#include "host/KTText.h"
#include "log/KTEventLoggerData.h"
#include "publish/KTEventLogReply.h"
#include "publish/KTEventReply.h"
#include "suite/tools/KTIsoTime.h"

namespace corvane
{
namespace
{
constexpr int widestName = 40;     // columns; a longer name moves its row
constexpr int dateWidth = 20;      // "2026-03-01T10:00:00Z"
constexpr int durationWidth = 12;  // "99d 23:59:59"
constexpr int firstYear = 1900;
constexpr int lastYear = 2162;
constexpr std::int64_t minute = 60;
constexpr std::int64_t hour = 60 * minute;
constexpr std::int64_t day = 24 * hour;

// "3d 04:05:06", and "4:05:06" for less than a day.
std::string ShownDuration(std::int64_t seconds)
{
    const std::int64_t size = std::abs(seconds);
    char text[48];
    if (size >= day)
        KTFormat(text, sizeof text, "%dd %02d:%02d:%02d", static_cast<int>(size / day),
                 static_cast<int>(size % day / hour), static_cast<int>(size % hour / minute),
                 static_cast<int>(size % minute));
    else
        KTFormat(text, sizeof text, "%d:%02d:%02d", static_cast<int>(size / hour),
                 static_cast<int>(size % hour / minute), static_cast<int>(size % minute));
    return seconds < 0 ? std::string("-") + text : text;
}

RowCell Duration(std::int64_t seconds) { return {seconds, ShownDuration(seconds)}; }

// A delay of a clock that went back is negative.
RowCell Delay(std::uint32_t seconds)
{
    if (seconds == KTEventLoggerData::noOffset) return {nullptr};
    return Duration(static_cast<std::int32_t>(seconds));
}

std::string GuidText(const GUID& guid)
{
    char text[guidTextSize];
    return guidtoc(guid, text);
}

std::string Unescaped(const KTNarrowString& annotation)
{
    KTNarrowString text;
    Xml2Text(text, annotation);
    return WellFormed(text);
}

class Query
{
public:
    Query(const LogOptions& logOptions, const Streams& logStreams) : options(logOptions), streams(logStreams) {}

    int Run()
    {
        Installation installation(streams.err);
        if (const int code = ReadPeriod(); code != done) return code;
        if (const int code = installation.Open(options.setup); code != done) return code;
        KTEventServer server;
        server.LoadCfg();
        if (const std::string fault = UnreadableEvents(server, installation.settings); !fault.empty())
            return Refuse(fault);
        KTEventLoggerInfo selection;
        if (const int code = Select(selection); code != done) return code;
        data.Setup(selection);
        (void)data.SelectData(begin, end, options.before);  // no file at all means no rows, which we tell ourselves
        return Write();
    }

private:
    int Refuse(const std::string& reason)
    {
        streams.err << "corvane: " << reason << '\n';
        return wrongUsage;
    }

    int ReadPeriod()
    {
        if (!kt::ParseIsoTime(options.begin, begin)) return Refuse("--begin: " + NoDate(options.begin));
        if (!kt::ParseIsoTime(options.end, end)) return Refuse("--end: " + NoDate(options.end));
        if (end <= begin) return Refuse("--end has to be after --begin");
        // A year is a file's base year and six bits, and base years come from the plants of a century: months outside would
        // only be looked for in vain.
        begin = std::max(begin, KTDateTime(firstYear, 1, 1, 0, 0, 0, 0, 0));
        end = std::min(end, KTDateTime(lastYear + 1, 1, 1, 0, 0, 0, 0, 0));
        return done;
    }

    static std::string NoDate(const std::string& text)
    {
        return '"' + text + "\" is no date; one looks like 2026-03-01T10:00:00Z (UTC)";
    }

    // The named events in the order given, or all of the registry.
    int Select(KTEventLoggerInfo& selection)
    {
        KTEventSystem& system = KTEventSystem::Get();
        for (const std::string& name : options.events)
        {
            const KTEventDriver* const event = system.LockEvent(Wide(name).Str());
            if (event == nullptr) return Refuse("there is no event \"" + OneLine(name) + '"');
            Add(selection, *event);
        }
        if (!options.events.empty()) return done;
        for (auto event = system.EventsBegin(); event != system.EventsEnd(); ++event) Add(selection, **event);
        return done;
    }

    void Add(KTEventLoggerInfo& selection, const KTEventDriver& event)
    {
        selection.AddVariable(event.Id());
        const auto [entry, isNew] = names.try_emplace(event.Id(), Utf8(event.Name()));
        if (isNew) nameWidth = std::max(nameWidth, std::min(DisplayWidth(OneLine(entry->second)), widestName));
    }

    int Write()
    {
        if (WriteRows() > 0) return done;
        streams.err << "corvane: the log holds no occurrence of that period\n";
        return foundSomething;
    }

    // The number of rows.
    int WriteRows()
    {
        if (options.asReply) return WriteReply();
        return options.totals ? WriteTotals() : WriteOccurrences();
    }

    int WriteOccurrences()
    {
        const auto writer = RowWriter::Make(options.format,
                                            {{"event", "EVENT", nameWidth},
                                             {"eventId", nullptr},
                                             {"occurrenceId", nullptr},
                                             {"activated", "ACTIVATED", dateWidth},
                                             {"annotation", "ANNOTATION", 0, RowColumn::last},
                                             {"deactivatedAfter", "ENDED AFTER", durationWidth, RowColumn::right},
                                             {"acknowledgedAfter", "ACKNOWLEDGED", durationWidth, RowColumn::right}},
                                            streams.out);
        int rows = 0;
        const KTEventLoggerData::CRecordGroup& group = data.RecordGroup();
        for (auto at = group.Begin(); at != group.End() && streams.out; ++at, ++rows)
        {
            const KTEventLoggerData::CDataRecord& row = **at;
            writer->Write({{names.at(row.EventId())},
                           {GuidText(row.EventId())},
                           {GuidText(row.RecordId())},
                           row.Time().Valid() ? RowCell{kt::IsoTime(row.Time())} : RowCell{nullptr},
                           {Unescaped(row.Annotation())},
                           Delay(row.DisableOffset()),
                           Delay(row.AckOffset())});
        }
        return rows;
    }

    int WriteTotals()
    {
        const auto writer = RowWriter::Make(options.format,
                                            {{"event", "EVENT", nameWidth},
                                             {"eventId", nullptr},
                                             {"activations", "ACTIVATIONS", 0, RowColumn::right},
                                             {"deactivations", "ENDS", 0, RowColumn::right},
                                             {"acknowledgements", "ACKNOWLEDGEMENTS", 0, RowColumn::right},
                                             {"duration", "DURATION", durationWidth, RowColumn::right}},
                                            streams.out);
        int rows = 0;
        const KTEventLoggerData::CRecordGroupTotalized& totals = data.RecordGroupTotalized();
        for (auto at = totals.Begin(); at != totals.End(); ++at, ++rows)
        {
            const KTEventLoggerData::CDataRecordTotalized& total = **at;
            writer->Write({{names.at(total.EventId())},
                           {GuidText(total.EventId())},
                           {std::int64_t{total.EnableCount()}},
                           {std::int64_t{total.DisableCount()}},
                           {std::int64_t{total.AckCount()}},
                           Duration(total.Duration())});
        }
        return rows;
    }

    int WriteReply()
    {
        StreamResponse response(streams.out);
        KTEventReply::Open(response, "loggerEvents");
        int rows = 0;
        const KTEventLoggerData::CRecordGroup& group = data.RecordGroup();
        for (auto at = group.Begin(); at != group.End() && streams.out; ++at, ++rows)
        {
            const KTEventLoggerData::CDataRecord& row = **at;
            KTEventLogReply::Write(response, {row.RecordId(), row.EventId(), row.Annotation(), row.Time(),
                                              row.AckOffset(), row.DisableOffset()});
        }
        KTEventReply::Close(response, "loggerEvents");
        return rows;
    }

    const LogOptions& options;
    const Streams& streams;
    KTDateTime begin;
    KTDateTime end;
    KTEventLoggerData data;
    std::unordered_map<GUID, std::string, KTGuidHash> names;  // of the selected events
    int nameWidth = 0;                                        // columns
};
}  // namespace

int Log(const LogOptions& options, const Streams& streams)
{
    const bool ofFile = !options.file.empty();
    const bool ofPeriod = !options.setup.empty() || !options.begin.empty() || !options.end.empty() ||
                          !options.events.empty() || options.before || options.totals;
    const char* mistake = nullptr;
    if (ofFile && ofPeriod)
        mistake = "log takes either --file or a period of an installation";
    else if (!ofFile && (options.setup.empty() || options.begin.empty() || options.end.empty()))
        mistake = "log needs --setup, --begin and --end, or --file";
    else if (options.asReply && (ofFile || options.totals))
        mistake = "the format xml is the reply of the logger service, which has neither files nor totals";
    if (mistake != nullptr)
    {
        streams.err << "corvane: " << mistake << '\n';
        return wrongUsage;
    }
    if (ofFile) return LogFile(options, streams);
    return Query(options, streams).Run();
}
}  // namespace corvane
