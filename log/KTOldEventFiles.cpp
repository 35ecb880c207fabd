#include "log/KTOldEventFiles.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "host/KTCorvaneSetup.h"
#include "host/KTText.h"
#include "log/KTBigEndian.h"

namespace
{
constexpr std::wstring_view prefix = L"Events";
constexpr std::wstring_view extension = L".eve";
constexpr std::size_t dateLength = 7;  // "03-2007", with any one character between the two

constexpr std::size_t recordSize = 41;
constexpr std::size_t idAt = 0;
constexpr std::size_t secondsAt = 16;
constexpr std::size_t eventIdAt = 20;
constexpr std::size_t valueAt = 36;
constexpr std::size_t annotationAt = 37;

constexpr std::string_view eventsMark = "EVENT";
constexpr std::string_view annotationsMark = "ANNOTATIONS";
constexpr std::size_t headerSize = 11;

bool AreDigits(std::wstring_view text)
{
    return std::all_of(text.begin(), text.end(), [](wchar_t c) { return c >= L'0' && c <= L'9'; });
}

// False for a name that isn't that of a month.
bool ReadMonth(std::wstring_view name, int& year, int& month)
{
    if (!name.starts_with(prefix) || !name.ends_with(extension)) return false;
    name.remove_suffix(extension.size());
    if (name.size() < prefix.size() + dateLength) return false;
    const std::wstring monthText(name.substr(name.size() - dateLength, 2));
    const std::wstring yearText(name.substr(name.size() - 4));
    if (!AreDigits(monthText) || !AreDigits(yearText)) return false;
    year = _wtoi(yearText.c_str());
    month = _wtoi(monthText.c_str());
    return KTDateTime(year, month, 1, 0, 0, 0, 0, 0).Valid();
}

// The file, when its header begins with the mark.
int OpenMarked(const wchar_t* path, std::string_view mark)
{
    KTFiles& files = KTFiles::Get();
    const int file = files.Open(path, KTFiles::Mode::read);
    if (file == KTFiles::none) return KTFiles::none;
    std::array<char, headerSize> header{};
    if (files.ReadAt(file, 0, header.data(), header.size()) >= static_cast<std::ptrdiff_t>(mark.size()) &&
        std::string_view(header.data(), mark.size()) == mark)
        return file;
    files.Close(file);
    return KTFiles::none;
}
}  // namespace

std::vector<kt::KTOldEventMonth> kt::FindOldEventMonths()
{
    const KTWideString& dataPath = KTCorvaneSetup::Get().DataPath();
    std::vector<KTFoundFile> found;
    (void)KTFiles::Get().Search(dataPath.Str(), found);  // a directory that can't be read holds nothing for us
    std::vector<KTOldEventMonth> months;
    for (const KTFoundFile& entry : found)
    {
        KTOldEventMonth month;
        if (entry.directory || !ReadMonth(entry.name.Str(), month.year, month.month)) continue;
        month.records = dataPath;
        month.records += entry.name;
        wchar_t annotations[32];
        KTFormat(annotations, std::size(annotations), L"Annotations %02d-%04d.dat", month.month, month.year);
        month.annotations = dataPath;
        month.annotations += annotations;
        months.push_back(std::move(month));
    }
    return months;
}

int kt::OpenOldEvents(const wchar_t* path) { return OpenMarked(path, eventsMark); }

int kt::OpenOldAnnotations(const wchar_t* path) { return OpenMarked(path, annotationsMark); }

bool kt::KTOldEventReader::Next(KTOldEventRecord& record)
{
    std::array<std::uint8_t, recordSize> bytes{};
    if (window.Read(file, position, bytes.data(), bytes.size()) != bytes.size()) return false;
    position += static_cast<std::int64_t>(bytes.size());
    record.id = GetGuid(bytes.data() + idAt);
    record.seconds = Get32(bytes.data() + secondsAt);
    record.eventId = GetGuid(bytes.data() + eventIdAt);
    record.value = bytes[valueAt];
    record.annotation = Get32(bytes.data() + annotationAt);
    return true;
}

void kt::ReadOldAnnotation(KTNarrowString& text, int file, std::uint32_t offset, KTFileWindow& window)
{
    text.Clear();
    if (file == KTFiles::none || offset == 0) return;
    std::array<std::uint8_t, 2> sizeField{};
    if (window.Read(file, offset, sizeField.data(), sizeField.size()) != sizeField.size()) return;
    const std::size_t size = Get16(sizeField.data());
    std::array<char, UINT16_MAX> entry;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled as far as it is used
    if (window.Read(file, std::int64_t{offset} + 2, entry.data(), size) != size) return;
    text.Assign(entry.data(), static_cast<int>(std::find(entry.data(), entry.data() + size, '\0') - entry.data()));
}
