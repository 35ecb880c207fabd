#include <cerrno>
#include <cstring>
#include <ostream>

#include "apps/corvane/Commands.h"
#include "apps/corvane/Rows.h"
#include "apps/corvane/Texts.h"
#include "host/KTFiles.h"
#include "log/KTEventFile.h"
#include "suite/tools/KTIsoTime.h"

namespace corvane
{
namespace
{
constexpr int mostTold = 100;  // a file of thousands of bad records has one story, not thousands
constexpr int indexWidth = 6;
constexpr int guidWidth = guidTextSize - 1;
constexpr int dateWidth = 20;

const char* NameOf(int value)
{
    switch (value)
    {
        case 1:
            return "activated";
        case 2:
            return "deactivated";
        case 4:
            return "acknowledged";
        default:
            return "";  // shown as it is
    }
}

class Listing
{
public:
    Listing(const LogOptions& logOptions, const Streams& logStreams) : options(logOptions), streams(logStreams) {}

    int Run()
    {
        const bool opened = file.OpenDamaged(Wide(options.file).Str());
        if (!opened && !TellWhyNot()) return wrongUsage;
        damaged = !file.HeaderIsSound();
        if (opened && damaged)
            Tell("byte 13: the header fails its checksum; the records below are read as if it were sound");
        WriteRecords();
        TellTail();
        if (told > mostTold) streams.err << "corvane: and " << told - mostTold << " more messages of this kind\n";
        return damaged || file.NRecords() == 0 ? foundSomething : done;
    }

private:
    // False for a file that can't be read. One that holds too little is damaged.
    bool TellWhyNot()
    {
        KTFiles& files = KTFiles::Get();
        errno = 0;
        const int handle = files.Open(Wide(options.file).Str(), KTFiles::Mode::read);
        if (handle == KTFiles::none)
        {
            streams.err << "corvane: " << OneLine(options.file) << ": "
                        << (errno != 0 ? std::strerror(errno) : "can't be read") << '\n';
            return false;
        }
        const std::int64_t length = files.Length(handle);
        files.Close(handle);
        Tell("byte " + std::to_string(length) + ": the file ends inside its header of " +
             std::to_string(KTEventFile::headerSize) + " bytes");
        return true;
    }

    void WriteRecords()
    {
        const auto writer = RowWriter::Make(options.format,
                                            {{"index", "RECORD", indexWidth, RowColumn::right},
                                             {"valid", "", 7},
                                             {"id", "OCCURRENCE", guidWidth},
                                             {"date", "DATE", dateWidth},
                                             {"value", "CHANGE", 12},
                                             {"annotationOffset", nullptr},
                                             {"annotation", "ANNOTATION", 0, RowColumn::last}},
                                            streams.out);
        for (int index = 0; index < file.NRecords() && streams.out; ++index) WriteRecord(*writer, index);
    }

    void WriteRecord(RowWriter& writer, int index)
    {
        const bool valid = file.GoRecord(index);
        damaged = damaged || !valid;
        if (!valid) Tell(At(index) + "the record fails its checksum");
        KTDateTime date;
        file.DateValue(date);
        const auto value = static_cast<std::int64_t>(file.EventValue());
        char id[guidTextSize];
        writer.Write({{std::int64_t{index}},
                      {valid, valid ? " " : "damaged"},
                      {guidtoc(file.EventId(), id)},
                      date.Valid() ? RowCell{kt::IsoTime(date)} : RowCell{nullptr},
                      {value, NameOf(static_cast<int>(value))},
                      {std::int64_t{file.AnnotationOffset()}},
                      {AnnotationOf(index)}});
    }

    std::string AnnotationOf(int index)
    {
        const std::uint32_t offset = file.AnnotationOffset();
        KTNarrowString text;
        if (offset != 0 && !file.ReadAnnotation(offset, text))
            Tell(At(index) + "its annotation at byte " + std::to_string(offset) + " of the .dat file can't be read");
        return WellFormed(text);
    }

    void TellTail()
    {
        if (const int tail = file.TailSize(); tail > 0)
            Tell("byte " + std::to_string(PlaceOf(file.NRecords())) + ": " + std::to_string(tail) +
                 " bytes at the end are no whole record; the next record will be written over them");
    }

    static std::int64_t PlaceOf(int index)
    {
        return KTEventFile::headerSize + std::int64_t{KTEventFile::recordSize} * index;
    }
    static std::string At(int index)
    {
        return "record " + std::to_string(index) + " at byte " + std::to_string(PlaceOf(index)) + ": ";
    }

    void Tell(const std::string& damage)
    {
        if (++told <= mostTold) streams.err << "corvane: " << OneLine(options.file) << ": " << damage << '\n';
    }

    const LogOptions& options;
    const Streams& streams;
    KTEventFile file{true};
    bool damaged =
        false;  // the header or a record; a torn tail isn't one, and a text that is gone leaves its record good
    int told = 0;
};
}  // namespace

int LogFile(const LogOptions& options, const Streams& streams) { return Listing(options, streams).Run(); }
}  // namespace corvane
