// The event log as it was before every event had files of its own: a pair of files a month for all events together.
#pragma once

#include <cstdint>
#include <vector>

#include "host/KTDateTime.h"
#include "host/KTFiles.h"
#include "host/KTGuid.h"
#include "host/KTString.h"
#include "log/KTFileWindow.h"

/// What is read of the old files, which nothing writes any more.
///
/// Format:  docs/event-log.md, "Before version 2.7". Headers of 11 bytes; records of 41 bytes without a checksum,
///          big-endian; annotations behind their 2-byte size.
/// Units:   offsets and sizes are bytes.
namespace kt
{
/// A month of the data directory.
struct KTOldEventMonth
{
    KTWideString records;      // paths
    KTWideString annotations;  // may lead to nothing
    int year = 0;
    int month = 0;  // 1 to 12

    [[nodiscard]] KTDateTime Begin() const { return {year, month, 1, 0, 0, 0, 0, 0}; }
};

/// The months of the data directory, in the order of the names of their record files. A file is one when its name begins
/// with "Events", ends in ".eve" and has before that a month in two digits, any one character and a year in four.
std::vector<KTOldEventMonth> FindOldEventMonths();

/// The handle of a file that begins as a record file or an annotation file does, or KTFiles::none.
int OpenOldEvents(const wchar_t* path);
int OpenOldAnnotations(const wchar_t* path);

struct KTOldEventRecord
{
    GUID id;                    // of the occurrence
    std::uint32_t seconds = 0;  // since the beginning of the file's month
    GUID eventId;
    std::uint8_t value = 0;        // as in the records of today
    std::uint32_t annotation = 0;  // place in the annotation file; 0 for none
};

/// Goes through a record file once.
///
/// Errors:  a torn record at the end is none.
/// Memory:  the file stays the caller's.
class KTOldEventReader
{
public:
    explicit KTOldEventReader(int recordFile) : file(recordFile) {}

    /// False at the end.
    bool Next(KTOldEventRecord& record);

    /// How far it is, in bytes of the file.
    [[nodiscard]] std::int64_t Position() const { return position; }

private:
    static constexpr std::int64_t headerSize = 11;

    const int file;
    std::int64_t position = headerSize;
    KTFileWindow window;
};

/// The text at a place of an annotation file; empty where there is none, and where the file isn't open.
void ReadOldAnnotation(KTNarrowString& text, int file, std::uint32_t offset, KTFileWindow& window);
}  // namespace kt
