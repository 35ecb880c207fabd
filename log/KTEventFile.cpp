#include "log/KTEventFile.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <numeric>

#include "log/KTBigEndian.h"

namespace
{
constexpr int versionLength = 6;  // of the ten characters of a current file
constexpr char newVersion[] = "EVENT2.7";
constexpr char annotationHeader[KTEventFile::annotationHeaderSize] = "ANNOTATIONv2.70";
constexpr wchar_t sideExtension[] = L"dat";

// Places in a record.
constexpr std::size_t dateAt = 0;
constexpr std::size_t idAt = 4;
constexpr std::size_t valueAt = 20;
constexpr std::size_t annotationAt = 21;

// Places in the header.
constexpr std::size_t yearAt = 10;

// Eight bytes at a time, into four sums side by side that a block is too short to fill.
inline std::uint8_t Sum(const std::uint8_t* bytes, std::size_t size)
{
    constexpr std::uint64_t everyOther = 0x00FF00FF00FF00FF;
    std::uint64_t sums = 0;
    std::size_t i = 0;
    for (; i + sizeof sums <= size; i += sizeof sums)
    {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes + i, sizeof word);
        sums += (word & everyOther) + ((word >> 8) & everyOther);
    }
    const auto sum = static_cast<std::uint32_t>((sums * 0x0001000100010001) >> 48);
    return static_cast<std::uint8_t>(std::accumulate(bytes + i, bytes + size, sum));
}

// The last byte of a block is the complement of the sum of the others.
void Seal(std::uint8_t* block, std::size_t size) { block[size - 1] = static_cast<std::uint8_t>(~Sum(block, size - 1)); }

bool Sealed(const std::uint8_t* block, std::size_t size)
{
    return static_cast<std::uint8_t>(1 + Sum(block, size)) == 0;
}

std::uint32_t Pack(const KTDateTime& date, int baseYear)
{
    const auto field = [](int value, unsigned width, unsigned at)
    { return (static_cast<std::uint32_t>(value) & ((1U << width) - 1)) << at; };
    return field(date.Year() - baseYear, 6, 26) | field(date.Month(), 4, 22) | field(date.Day(), 5, 17) |
           field(date.Hour(), 5, 12) | field(date.Minute(), 6, 6) | field(date.Second(), 6, 0);
}

constexpr unsigned dayShift = 17;  // of the packed date's fields down to the day

int Field(std::uint32_t packed, unsigned width, unsigned at)
{
    return static_cast<int>((packed >> at) & ((1U << width) - 1));
}

int FullYear(int stored)
{
    if (stored >= 100) return stored;
    return stored < 80 ? 2000 + stored : 1900 + stored;
}

// Without its directories a file can't be made; they are made and it is tried once more.
int Make(const wchar_t* path, KTFiles::Mode mode)
{
    KTFiles& files = KTFiles::Get();
    const int file = files.Open(path, mode);
    if (file != KTFiles::none) return file;
    (void)CreateDirectoryW(path);  // the second open tells
    return files.Open(path, mode);
}
}  // namespace

class KTEventFile::OpenFile
{
public:
    explicit OpenFile(int file) : handle(file) {}
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    ~OpenFile() { KTFiles::Get().Close(handle); }

    static std::shared_ptr<const OpenFile> Of(int file)
    {
        return file == KTFiles::none ? nullptr : std::make_shared<const OpenFile>(file);
    }
    static std::shared_ptr<const OpenFile> At(const wchar_t* path, bool readOnly)
    {
        return Of(KTFiles::Get().Open(path, readOnly ? KTFiles::Mode::read : KTFiles::Mode::readWrite));
    }

    const int handle;
};

KTEventFile::CNewFileTemplate::CNewFileTemplate(const char* format, int year) : baseYear(year)
{
    for (std::size_t i = 0; i < text.size() && format[i] != '\0'; ++i) text[i] = format[i];
}

bool KTEventFile::CNewFileTemplate::Create(int file) const
{
    std::array<std::uint8_t, headerSize> header{};
    std::memcpy(header.data(), text.data(), text.size());
    kt::Put16(header.data() + yearAt, static_cast<std::uint32_t>(baseYear));
    Seal(header.data(), header.size());
    return KTFiles::Get().WriteAt(file, 0, header.data(), header.size()) == headerSize;
}

KTEventFile::KTEventFile(bool itsFlag) : version(newVersion, false), flag(itsFlag) {}

KTEventFile::KTEventFile(const KTEventFile& other) : flag(other.flag) { CopyFrom(other); }

KTEventFile& KTEventFile::operator=(const KTEventFile& other)
{
    if (this != &other) CopyFrom(other);
    return *this;
}

KTEventFile::~KTEventFile() = default;

// All but the windows, which a copy fills for itself.
void KTEventFile::CopyFrom(const KTEventFile& other)
{
    path = other.path;
    version = other.version;
    beginTime = other.beginTime;
    endTime = other.endTime;
    records = other.records;
    recordCount = other.recordCount;
    tailSize = other.tailSize;
    currentRecord = other.currentRecord;
    firstValid = other.firstValid;
    lastValid = other.lastValid;
    annotation.text = other.annotation.text;
    annotation.offset = other.annotation.offset;
    annotation.highest = other.annotation.highest;
    annotation.passed = other.annotation.passed;
    annotation.dirty = other.annotation.dirty;
    annotation.file = other.annotation.file;
    annotation.window.Forget();
    buffer = other.buffer;
    readOnly = other.readOnly;
    headerSound = other.headerSound;
    batch.reset();  // a batch is its writer's own
    dirty = other.dirty;
    flag = other.flag;
    baseYear = other.baseYear;
    day = other.day;
    window.Forget();
}

bool KTEventFile::Create(const wchar_t* path, const CNewFileTemplate& format)
{
    const int file = Make(path, KTFiles::Mode::create);
    if (file == KTFiles::none) return false;
    const bool good = format.Create(file);
    KTFiles::Get().Close(file);
    if (!good) (void)KTFiles::Get().Delete(path);  // a file without a header is of no use to anybody
    return good;
}

bool KTEventFile::Open(const wchar_t* itsPath, bool itsReadOnly)
{
    Close();
    readOnly = itsReadOnly;
    headerSound = false;
    tailSize = 0;
    records = OpenFile::At(itsPath, readOnly);
    if (records == nullptr) return false;
    if (!Setup())
    {
        Close();
        return false;
    }
    path = itsPath;
    return true;
}

void KTEventFile::Close()
{
    batch.reset();
    annotation.file.reset();
    if (!IsOpen()) return;
    records.reset();
    annotation.Forget();  // an offset in this side file means nothing in another
    annotation.dirty = false;
    buffer.fill(0);
    path.Clear();
    version.Clear();
}

void KTEventFile::Flush()
{
    if (readOnly) return;
    (void)EndBatch();  // its places belong to the handles of now
    const auto reopen = [](std::shared_ptr<const OpenFile>& file, const KTWideString& itsPath)
    {
        if (file == nullptr) return;
        (void)KTFiles::Get().Commit(file->handle);  // nobody is told of a flush that failed
        file.reset();
        file = OpenFile::At(itsPath.Str(), false);
    };
    reopen(annotation.file, SidePath());
    reopen(records, path);
}

void KTEventFile::BeginBatch()
{
    if (readOnly || !IsOpen()) return;
    const std::int64_t length = KTFiles::Get().Length(records->handle);
    if (length < headerSize) return;
    batch = std::make_unique<Batch>(
        Batch{{records->handle, Offset(static_cast<int>((length - headerSize) / recordSize))}, {}});
}

bool KTEventFile::EndBatch()
{
    if (batch == nullptr) return false;
    const std::unique_ptr<Batch> ended = std::move(batch);
    KTFiles& files = KTFiles::Get();
    // The texts first, as they were written: no record on the disk points at a text that isn't.
    const bool texts = !ended->texts || (ended->texts->Flush() && files.Commit(annotation.file->handle));
    return ended->records.Flush() && files.Commit(records->handle) && texts;
}

bool KTEventFile::OpenDamaged(const wchar_t* itsPath)
{
    toleratesHeader = true;
    const bool opened = Open(itsPath, true);
    toleratesHeader = false;
    return opened;
}

bool KTEventFile::Setup()
{
    currentRecord = -1;
    dirty = false;
    window.Forget();
    annotation.window.Forget();
    if (!ReadHeader()) return false;
    const std::int64_t length = KTFiles::Get().Length(records->handle);
    if (length < headerSize) return false;
    recordCount = static_cast<int>(std::min<std::int64_t>((length - headerSize) / recordSize, INT_MAX));
    tailSize = static_cast<int>((length - headerSize) % recordSize);
    buffer.fill(0);
    FindEnds();
    return true;
}

bool KTEventFile::ReadHeader()
{
    std::array<std::uint8_t, headerSize> header{};
    if (window.Read(records->handle, 0, header.data(), header.size()) != header.size()) return false;
    const auto* const text = reinterpret_cast<const char*>(header.data());
    version.Assign(text, static_cast<int>(std::find(text, text + versionLength, '\0') - text));
    baseYear = FullYear(kt::Get16(header.data() + yearAt));
    day = Day();
    headerSound = Sealed(header.data(), header.size());
    return headerSound || toleratesHeader;
}

// Bad records at either end are passed over: a crash may have left them.
void KTEventFile::FindEnds()
{
    firstValid = lastValid = -1;
    beginTime.Invalidate();
    endTime.Invalidate();
    int first = 0;
    while (first < recordCount && !GoRecord(first)) ++first;
    if (first >= recordCount) return;
    firstValid = lastValid = first;
    DateValue(beginTime);
    endTime = beginTime;
    for (int last = recordCount - 1; last > firstValid; --last)
    {
        if (!GoRecord(last)) continue;
        lastValid = last;
        DateValue(endTime);
        return;
    }
}

bool KTEventFile::GoRecord(int index)
{
    if (!IsOpen() || index < 0 || index >= recordCount) return false;
    if (index == currentRecord && !dirty) return true;
    currentRecord = -1;
    dirty = false;
    const std::size_t got =
        window.Read(records->handle, Offset(index), buffer.data(), buffer.size(), Offset(recordCount));
    if (got != recordSize || !Sealed(buffer.data(), recordSize)) return false;
    currentRecord = index;
    return true;
}

bool KTEventFile::NewRecord()
{
    annotation.Forget();
    if (readOnly || !IsOpen()) return false;
    const std::int64_t length = RecordsEnd();
    // Whoever goes on after a failure must not find himself on another record.
    currentRecord = -1;
    // Somebody may have cut the file; without a header a record would be lost at the next opening.
    if (length < headerSize || (length - headerSize) / recordSize >= INT_MAX) return false;
    buffer.fill(0);
    dirty = false;
    currentRecord = static_cast<int>((length - headerSize) / recordSize);
    return true;
}

std::int64_t KTEventFile::RecordsEnd() const
{
    return batch != nullptr ? batch->records.End() : KTFiles::Get().Length(records->handle);
}

bool KTEventFile::Update()
{
    if (!dirty) return true;
    if (readOnly || !IsOpen()) return false;
    if (endTime.Valid() && DateValue() < endTime.OleDateTime().date) return false;  // history only grows forward
    if (annotation.dirty)
    {
        const std::uint32_t offset = WriteAnnotation();
        if (offset != 0) kt::Put32(buffer.data() + annotationAt, offset);
    }
    Seal(buffer.data(), buffer.size());
    if (!WriteRecord()) return false;
    dirty = false;
    annotation.dirty = false;  // also where the text couldn't be written: the record went out without it
    if (currentRecord == recordCount) ++recordCount;
    return true;
}

// Commit before the count grows: a record that can be counted is a record on the disk.
bool KTEventFile::WriteRecord()
{
    if (currentRecord < 0) return false;
    window.Forget();
    KTFiles& files = KTFiles::Get();
    if (batch != nullptr && Offset(currentRecord) == batch->records.End())
        return batch->records.Append(buffer.data(), buffer.size());
    return files.WriteAt(records->handle, Offset(currentRecord), buffer.data(), buffer.size()) == recordSize &&
           files.Commit(records->handle);
}

// The text goes out before the record that points at it, and isn't committed: a record without its text is better than no
// record. 0 when there is nothing to write or no file to write to.
std::uint32_t KTEventFile::WriteAnnotation()
{
    annotation.offset = 0;
    if (annotation.text.Empty()) return 0;
    if (!OpenSideFile() && !CreateSideFile()) return 0;
    const std::int64_t end = TextsEnd();
    if (end < 0 || end > UINT32_MAX) return 0;
    annotation.offset = static_cast<std::uint32_t>(end);
    annotation.dirty = false;  // should the record fail, its next try finds the text written

    const auto size = static_cast<std::size_t>(annotation.text.Length()) + 1;  // with the terminator
    const auto entry = std::make_unique_for_overwrite<std::uint8_t[]>(size + 2);
    kt::Put16(entry.get(), static_cast<std::uint32_t>(size));  // modulo 65536
    std::memcpy(entry.get() + 2, annotation.text.Str(), size);
    WriteText(end, entry.get(), size + 2);
    return annotation.offset;
}

// Where the next text belongs; -1 when that can't be known.
std::int64_t KTEventFile::TextsEnd()
{
    if (batch != nullptr && batch->texts) return batch->texts->End();
    KTFiles& files = KTFiles::Get();
    const std::int64_t end = files.Length(annotation.file->handle);
    if (end != 0) return end;
    // A power cut has left the name and taken the content. The first entry stands behind a header, or else its offset
    // would say that there is none.
    const bool good =
        files.WriteAt(annotation.file->handle, 0, annotationHeader, sizeof annotationHeader) == annotationHeaderSize;
    return good ? annotationHeaderSize : -1;
}

// A text cut short is still a record, so nobody asks how it went.
void KTEventFile::WriteText(std::int64_t place, const void* entry, std::size_t size)
{
    const int file = annotation.file->handle;
    if (batch == nullptr)
    {
        (void)KTFiles::Get().WriteAt(file, place, entry, size);
        return;
    }
    if (!batch->texts) batch->texts.emplace(file, place);
    (void)batch->texts->Append(entry, size);
}

bool KTEventFile::OpenSideFile()
{
    if (annotation.file == nullptr) annotation.file = OpenFile::At(SidePath().Str(), readOnly);
    return annotation.file != nullptr;
}

// Only where there is none: texts that can't be opened for the moment must not be lost.
bool KTEventFile::CreateSideFile()
{
    const KTWideString sidePath = SidePath();
    auto file = OpenFile::Of(Make(sidePath.Str(), KTFiles::Mode::createNew));
    if (file == nullptr) return false;
    KTFiles& files = KTFiles::Get();
    if (files.WriteAt(file->handle, 0, annotationHeader, sizeof annotationHeader) != annotationHeaderSize)
    {
        file.reset();
        (void)files.Delete(sidePath.Str());
        return false;
    }
    annotation.file = std::move(file);
    return true;
}

KTWideString KTEventFile::SidePath() const
{
    KTWideString side;
    KTWideString::SubString(side, path, 0, path.ReverseFind(L'.') + 1);
    if (side.Empty()) side = path;
    side += sideExtension;
    return side;
}

double KTEventFile::OleDate(int index)
{
    (void)GoRecord(index);  // a damaged record is judged by the date that was read from it
    return DateValue();
}

int KTEventFile::SearchByTime(const KTDateTime& time, int direction)
{
    const double target = time.OleDateTime().date;
    if (target < beginTime.OleDateTime().date) return direction == 1 ? firstValid : -1;
    if (target > endTime.OleDateTime().date) return direction == 2 ? lastValid : -1;
    int low = firstValid;
    int high = lastValid;
    int middle = low;
    while (high - low > 1)
    {
        middle = low + (high - low) / 2;
        const double date = OleDate(middle);
        if (target == date) return middle;
        (target > date ? low : high) = middle;
    }
    if (GoRecord(low) && DateValue() == target) return low;
    if (GoRecord(high) && DateValue() == target) return high;
    // Between two records it is the later one for either direction: the direction matters at the ends of the file only.
    if (direction == 1)
    {
        for (const int index : {high, middle, low})
            if (GoRecord(index) && DateValue() <= target) return high;
    }
    else if (direction == 2)
    {
        for (const int index : {low, middle, high})
            if (GoRecord(index) && DateValue() >= target) return high;
    }
    return -1;
}

_GUID KTEventFile::EventId() const { return kt::GetGuid(buffer.data() + idAt); }

bool KTEventFile::PeekEventId(int index, _GUID& id) const
{
    if (index < 0 || index >= recordCount) return false;
    const std::uint8_t* const record = window.Peek(Offset(index), recordSize);
    if (record != nullptr) id = kt::GetGuid(record + idAt);
    return record != nullptr;
}

void KTEventFile::SetEventId(const _GUID& id)
{
    kt::PutGuid(buffer.data() + idAt, id);
    dirty = true;
}

double KTEventFile::EventValue() const { return buffer[valueAt]; }

void KTEventFile::EventValue(KTValue& value) const { value.SetNumeric(EventValue()); }

void KTEventFile::SetEventValue(double value)
{
    // Beyond 64 bits, and for what is no number, there is no low byte.
    const bool whole = std::fabs(value) < 9.2e18;
    buffer[valueAt] = static_cast<std::uint8_t>(whole ? static_cast<std::int64_t>(value) : 0);
    dirty = true;
}

void KTEventFile::SetEventValue(const KTValue& value) { SetEventValue(value.number); }

double KTEventFile::DateValue() const
{
    KTDateTime date;
    DateValue(date);
    return date.Valid() ? date.OleDateTime().date : 0.0;
}

void KTEventFile::DateValue(KTValue& value) const { value.SetNumeric(DateValue()); }

// Most records are of the same day as the one before.
void KTEventFile::DateValue(KTDateTime& date) const
{
    const std::uint32_t packed = kt::Get32(buffer.data() + dateAt);
    const int hour = Field(packed, 5, 12);
    const int minute = Field(packed, 6, 6);
    const int second = Field(packed, 6, 0);
    if (hour > 23 || minute > 59 || second > 59) return date.Invalidate();
    if (packed >> dayShift != day.packed)
    {
        day.packed = packed >> dayShift;
        day.begin.SetDate(baseYear + Field(packed, 6, 26), Field(packed, 4, 22), Field(packed, 5, dayShift));
    }
    constexpr std::int64_t microseconds = 1'000'000;
    date = day.begin + KTDateTimeSpan((hour * 3600 + minute * 60 + second) * microseconds);
}

void KTEventFile::SetDateValue(const KTDateTime& date)
{
    // Through the OLE form, which rounds to the nearest second.
    const KTDateTime rounded(date.OleDateTime());
    kt::Put32(buffer.data() + dateAt, rounded.Valid() ? Pack(rounded, baseYear) : 0);
    dirty = true;
}

std::uint32_t KTEventFile::AnnotationOffset() const { return kt::Get32(buffer.data() + annotationAt); }

const KTNarrowString& KTEventFile::EventAnnotation()
{
    const std::uint32_t offset = AnnotationOffset();
    // What was passed over matters only where an offset comes again, which it does in no file of ours.
    if (offset <= annotation.highest || !LookAt(offset))
    {
        for (const std::uint32_t passed : annotation.passed) LookAt(passed);
        LookAt(offset);
    }
    annotation.passed.clear();
    return annotation.text;
}

void KTEventFile::PassAnnotation()
{
    const std::uint32_t offset = AnnotationOffset();
    annotation.passed.push_back(offset);
    annotation.highest = std::max({annotation.highest, annotation.offset, offset});
}

// Without an annotation the remembered offset stays, and the text of that one is no longer known: who reads such a record
// between two looks at another finds the other's empty.
bool KTEventFile::LookAt(std::uint32_t offset)
{
    annotation.highest = std::max(annotation.highest, offset);
    if (offset == annotation.offset) return true;
    const bool found = offset != 0 && ReadEntry(offset, annotation.entry);
    annotation.text.Attach(found ? annotation.entry.data() : KTChar::EmptyString());
    if (found) annotation.offset = offset;
    return found;
}

bool KTEventFile::ReadAnnotation(std::uint32_t offset, KTNarrowString& text)
{
    std::vector<char> entry;
    if (!ReadEntry(offset, entry)) return false;
    text = entry.data();
    return true;
}

bool KTEventFile::ReadEntry(std::uint32_t offset, std::vector<char>& entry)
{
    if (!IsOpen() || !OpenSideFile()) return false;
    const int file = annotation.file->handle;
    std::array<std::uint8_t, 2> sizeField{};
    if (annotation.window.Read(file, offset, sizeField.data(), sizeField.size()) != sizeField.size()) return false;
    const std::size_t size = kt::Get16(sizeField.data());
    if (entry.size() <= size) entry.resize(size + 1);
    if (annotation.window.Read(file, std::int64_t{offset} + 2, entry.data(), size) != size) return false;
    entry[size] = '\0';  // where the file lacks it
    return true;
}

void KTEventFile::SetEventAnnotation(const KTNarrowString& text)
{
    annotation.text = text;
    annotation.dirty = true;
    dirty = true;
}
