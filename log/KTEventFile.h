// A month of one event: the file of its records and the side file of its annotations.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "host/KTDateTime.h"
#include "host/KTFiles.h"
#include "host/KTGuid.h"
#include "host/KTString.h"
#include "host/KTValue.h"
#include "log/KTFileTail.h"
#include "log/KTFileWindow.h"

/// The only reader and writer of both files: a cursor over the records, a search by time, and accessors that hide the
/// packed forms.
///
/// A writer calls Open, NewRecord, the setters, Update. A reader calls Open read-only, SearchByTime, then GoRecord in a
/// loop with the accessors. Accessors act on the record in the buffer: they mean something after a NewRecord or GoRecord
/// that was true.
///
/// Format:  docs/event-log.md. Records of 26 bytes behind a header of 14, big-endian, each with its own checksum.
/// Units:   dates are UTC in whole seconds, indexes count records from 0, offsets are bytes.
/// Errors:  false or -1. A damaged record makes its GoRecord false and nothing else.
/// Threads: one thread at a time; another object, thread or process may append meanwhile, and this one then goes on seeing
///          the records that were there when it opened.
/// Memory:  the files close with the object. Copies share the open files; the last one closes them.
class KTEventFile
{
public:
    static constexpr int headerSize = 14;  // bytes
    static constexpr int recordSize = 26;  // bytes
    static constexpr int formatSize = 10;  // characters of the format text in the header
    static constexpr int annotationHeaderSize = 16;

    /// What a new file begins with.
    class CNewFileTemplate
    {
    public:
        /// At most the first formatSize characters of `format` count. The file has 16 bits for the year.
        CNewFileTemplate(const char* format, int year);

        /// Writes the header into an open file; whether all of it was written.
        [[nodiscard]] bool Create(int file) const;

    private:
        std::array<char, formatSize> text{};  // padded with zeros
        std::int32_t baseYear;
    };

    /// The argument is kept and has no effect.
    explicit KTEventFile(bool flag);
    KTEventFile(const KTEventFile& other);
    KTEventFile& operator=(const KTEventFile& other);
    virtual ~KTEventFile();

    /// Makes an empty file, with its directories where they are missing. What a present file held is lost.
    static bool Create(const wchar_t* path, const CNewFileTemplate& format);

    /// False for a missing file and for a header that isn't whole or fails its checksum; the object is closed then. A file
    /// without a single good record opens.
    bool Open(const wchar_t* path, bool readOnly);
    void Close();

    /// Opens read-only, whatever the header's checksum says, for those who look at damage. False for a missing file and for
    /// one without a whole header.
    bool OpenDamaged(const wchar_t* path);
    [[nodiscard]] bool HeaderIsSound() const { return headerSound; }
    /// Bytes behind the last whole record at Open.
    [[nodiscard]] int TailSize() const { return tailSize; }

    /// Forces what was written to the disk: commits, closes and opens again both files, unless they are read-only.
    void Flush();

    [[nodiscard]] bool IsOpen() const { return records != nullptr; }
    [[nodiscard]] bool IsDirty() const { return dirty; }
    [[nodiscard]] int NRecords() const { return recordCount; }
    [[nodiscard]] int CurrentRecord() const { return currentRecord; }  // -1 for none
    [[nodiscard]] int BaseYear() const { return baseYear; }
    [[nodiscard]] const KTNarrowString& Version() const { return version; }
    [[nodiscard]] const KTDateTime& BeginTime() const { return beginTime; }
    [[nodiscard]] const KTDateTime& EndTime() const { return endTime; }

    /// Reads a record into the buffer. False, with nothing changed, for an index that isn't there; false, with the buffer
    /// as it was read and no current record, for one that can't be read or fails its checksum. The current record isn't
    /// read again, unless it was changed: then the changes are dropped.
    bool GoRecord(int index);
    bool GoFirst() { return GoRecord(0); }
    bool GoLast() { return GoRecord(recordCount - 1); }

    /// An empty record behind the last whole one; a torn tail will be written over.
    bool NewRecord();

    /// Writes the buffer, its annotation first, and commits it: when this is true the record stands on the disk. Nothing
    /// to do where nothing changed. Refuses a record older than the last one was at Open: history only grows forward.
    bool Update();

    /// From here to EndBatch, Update writes when it has enough to write and commits nothing: for a writer of many records,
    /// none of which counts before all of them stand on the disk. Nothing is read meanwhile.
    void BeginBatch();
    /// Writes what is left and commits both files. When this is true the whole batch stands on the disk. Without it, some
    /// of the batch may never get there.
    [[nodiscard]] bool EndBatch();

    /// A record of date T or next to it. Direction 1 gives the first valid record for a T before the file, direction 2 the
    /// last valid one for a T after it; otherwise those are -1. For a T between two records both give the later one; of
    /// several with date T it may be any.
    int SearchByTime(const KTDateTime& time, int direction);

    [[nodiscard]] _GUID EventId() const;
    /// The id of a record that a walk will come to, where it is in memory already; else false. Whether the record is good
    /// isn't known yet.
    bool PeekEventId(int index, _GUID& id) const;
    void SetEventId(const _GUID& id);

    [[nodiscard]] double EventValue() const;
    void EventValue(KTValue& value) const;
    void SetEventValue(double value);  // the low byte of the truncated number is kept
    void SetEventValue(const KTValue& value);

    [[nodiscard]] double DateValue() const;  // OLE date; 0 for fields that form no real date
    void DateValue(KTValue& value) const;
    void DateValue(KTDateTime& date) const;  // invalid for fields that form no real date
    void SetDateValue(const KTDateTime& date);

    /// The text that the record points at, XML-escaped as it was written; empty where there is none or it can't be read.
    /// What is returned is good until the next text is read or set.
    void EventAnnotation(KTNarrowString& text) { text = EventAnnotation(); }
    const KTNarrowString& EventAnnotation();
    /// What EventAnnotation would do to later ones, for who doesn't want this text: it is read only if it has to be.
    void PassAnnotation();
    void SetEventAnnotation(const KTNarrowString& text);

    /// The text at a place of the side file. False, with `text` unchanged, where none can be read.
    bool ReadAnnotation(std::uint32_t offset, KTNarrowString& text);

    /// Where in the side file the record's annotation lies; 0 for none.
    [[nodiscard]] std::uint32_t AnnotationOffset() const;

private:
    // An open file, shared by the copies of an object.
    class OpenFile;
    // What is known of the annotation that was read or set last, and where it lies.
    struct Annotation
    {
        void Forget()
        {
            text.Attach(KTChar::EmptyString());
            offset = highest = 0;
            passed.clear();
        }

        KTNarrowString text;                // set by a writer, or borrowed from `entry`
        std::vector<char> entry;            // what was read, terminated
        std::uint32_t offset = 0;           // of the text in the side file, 0 for none
        std::uint32_t highest = 0;          // of the offsets that were looked at or passed
        std::vector<std::uint32_t> passed;  // offsets since the last look
        bool dirty = false;
        std::shared_ptr<const OpenFile> file;  // null while the side file isn't open
        KTFileWindow window;
    };

    // What a batch has still to write.
    struct Batch
    {
        KTFileTail records;
        std::optional<KTFileTail> texts;  // from the first text on
    };

    void CopyFrom(const KTEventFile& other);
    bool Setup();
    bool ReadHeader();
    void FindEnds();
    bool WriteRecord();
    [[nodiscard]] std::int64_t RecordsEnd() const;
    std::uint32_t WriteAnnotation();
    std::int64_t TextsEnd();
    void WriteText(std::int64_t place, const void* entry, std::size_t size);
    bool OpenSideFile();
    bool CreateSideFile();
    bool LookAt(std::uint32_t offset);
    bool ReadEntry(std::uint32_t offset, std::vector<char>& entry);
    [[nodiscard]] KTWideString SidePath() const;
    [[nodiscard]] double OleDate(int index);
    [[nodiscard]] static std::int64_t Offset(int index) { return headerSize + std::int64_t{recordSize} * index; }

    KTWideString path;       // of the record file, empty when closed
    KTNarrowString version;  // format text of the header, cut
    KTDateTime beginTime;    // of the first valid record at Open
    KTDateTime endTime;      // of the last valid record at Open
    std::shared_ptr<const OpenFile> records;
    int recordCount = 0;
    int tailSize = 0;
    int currentRecord = -1;
    int firstValid = -1;
    int lastValid = -1;
    Annotation annotation;
    std::array<std::uint8_t, recordSize> buffer{};  // the current record in file form
    bool readOnly = false;
    bool toleratesHeader = false;  // while OpenDamaged opens
    bool headerSound = false;      // of the file that was opened last
    bool dirty = false;
    bool flag;
    int baseYear = 2000;
    KTFileWindow window;
    std::unique_ptr<Batch> batch;  // null outside of one

    // The day that was unpacked last.
    struct Day
    {
        std::uint32_t packed = UINT32_MAX;  // year, month and day as in a record; this is none
        KTDateTime begin;                   // invalid for no real date
    };
    mutable Day day;
};
