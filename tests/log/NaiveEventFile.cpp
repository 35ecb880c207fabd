#include "log/NaiveEventFile.h"

#include "log/LogBytes.h"

namespace
{
bool IsLeap(int year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

int DaysIn(int year, int month)
{
    constexpr int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return days[month - 1] + (month == 2 && IsLeap(year) ? 1 : 0);
}

// Days since 30 December 1899, year by year.
int DayNumber(int year, int month, int day)
{
    constexpr int cycle = 400;  // years after which the calendar repeats itself
    int number = 2;             // 1 January 1900
    for (; year < 1900 - cycle; year += cycle) number -= 146097;
    for (int y = 1900; y < year; ++y) number += IsLeap(y) ? 366 : 365;
    for (int y = year; y < 1900; ++y) number -= IsLeap(y) ? 366 : 365;
    for (int m = 1; m < month; ++m) number += DaysIn(year, m);
    return number + day - 1;
}

std::uint32_t Read(const std::string& bytes, std::size_t place, std::size_t count)
{
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < count; ++i) number = number * 256 + static_cast<unsigned char>(bytes[place + i]);
    return number;
}
}  // namespace

std::uint32_t NaiveEventFile::Number(std::size_t place, std::size_t bytes) const { return Read(buffer, place, bytes); }

bool NaiveEventFile::Open(bool forReading)
{
    readOnly = forReading;
    current = -1;
    dirty = false;
    text.clear();
    textOffset = 0;
    textDirty = false;
    buffer.assign(26, '\0');
    first = last = -1;
    begin.reset();
    end.reset();
    if (records.size() < 14) return false;
    version = records.substr(0, 6).c_str();
    baseYear = static_cast<int>(Read(records, 10, 2));
    if (baseYear < 80)
        baseYear += 2000;
    else if (baseYear < 100)
        baseYear += 1900;
    if (!IsSealed(records.substr(0, 14))) return false;
    count = static_cast<int>((records.size() - 14) / 26);
    for (first = 0; first < count && !GoRecord(first);) ++first;
    if (first == count)
    {
        first = -1;
        return true;
    }
    begin = end = RealDate();
    for (last = count - 1; last > first; --last)
        if (GoRecord(last))
        {
            end = RealDate();
            break;
        }
    return true;
}

bool NaiveEventFile::GoRecord(int index)
{
    if (index < 0 || index >= count) return false;
    if (index == current && !dirty) return true;
    current = -1;
    dirty = false;
    const std::size_t place = 14 + 26 * static_cast<std::size_t>(index);
    const std::string got = place < records.size() ? records.substr(place, 26) : "";
    buffer.replace(0, got.size(), got);
    if (got.size() < 26 || !IsSealed(buffer)) return false;
    current = index;
    return true;
}

bool NaiveEventFile::NewRecord()
{
    text.clear();
    textOffset = 0;
    if (readOnly) return false;
    buffer.assign(26, '\0');
    dirty = false;
    current = static_cast<int>((records.size() - 14) / 26);
    return true;
}

bool NaiveEventFile::Update()
{
    if (!dirty) return true;
    if (readOnly) return false;
    if (end && Date() < *end) return false;
    if (textDirty)
    {
        textOffset = 0;
        if (!text.empty())
        {
            if (!side) side = annotationHeader;
            textOffset = static_cast<std::uint32_t>(side->size());
            *side += EntryBytes(text);
            buffer.replace(21, 4, BigEndian(textOffset, 4));
            textDirty = false;  // written once, whatever becomes of the record
        }
    }
    buffer = Sealed(buffer.substr(0, 25));
    if (current < 0) return false;
    const std::size_t place = 14 + 26 * static_cast<std::size_t>(current);
    if (records.size() < place + 26) records.resize(place + 26);
    records.replace(place, 26, buffer);
    dirty = textDirty = false;
    if (current == count) ++count;
    return true;
}

bool NaiveEventFile::Good(int index, double& date)
{
    if (!GoRecord(index)) return false;
    date = Date();
    return true;
}

int NaiveEventFile::SearchByTime(double time, int direction)
{
    if (time < begin.value_or(0)) return direction == 1 ? first : -1;
    if (time > end.value_or(0)) return direction == 2 ? last : -1;
    int lo = first;
    int hi = last;
    int m = lo;
    while (hi - lo > 1)
    {
        m = (lo + hi) / 2;
        GoRecord(m);
        if (Date() == time) return m;
        if (time > Date())
            lo = m;
        else
            hi = m;
    }
    double date = 0;
    if (Good(lo, date) && date == time) return lo;
    if (Good(hi, date) && date == time) return hi;
    if (direction == 1)
    {
        if (Good(hi, date) && date <= time) return hi;
        if (Good(m, date) && date <= time) return hi;
        return Good(lo, date) && date <= time ? hi : -1;
    }
    if (direction == 2)
    {
        if (Good(lo, date) && date >= time) return hi;
        if (Good(m, date) && date >= time) return hi;
        return Good(hi, date) && date >= time ? hi : -1;
    }
    return -1;
}

std::optional<double> NaiveEventFile::RealDate() const
{
    const std::uint32_t packed = Number(0, 4);
    const int year = baseYear + static_cast<int>(packed >> 26);
    const int month = static_cast<int>(packed >> 22 & 15);
    const int day = static_cast<int>(packed >> 17 & 31);
    const int hour = static_cast<int>(packed >> 12 & 31);
    const int minute = static_cast<int>(packed >> 6 & 63);
    const int second = static_cast<int>(packed & 63);
    if (year > 9999 || month < 1 || month > 12 || day < 1 || day > DaysIn(year, month)) return {};
    if (hour > 23 || minute > 59 || second > 59) return {};
    const int days = DayNumber(year, month, day);
    const double part = (hour * 3600 + minute * 60 + second) / 86400.0;
    return days < 0 ? days - part : days + part;
}

double NaiveEventFile::Date() const { return RealDate().value_or(0); }

GUID NaiveEventFile::Id() const
{
    GUID id;
    id.Data1 = Number(4, 4);
    id.Data2 = static_cast<std::uint16_t>(Number(8, 2));
    id.Data3 = static_cast<std::uint16_t>(Number(10, 2));
    for (std::size_t i = 0; i < 8; ++i) id.Data4[i] = static_cast<std::uint8_t>(At(12 + i));
    return id;
}

std::string NaiveEventFile::Annotation()
{
    const std::uint32_t offset = AnnotationOffset();
    if (offset == textOffset) return text;
    text.clear();
    if (offset == 0 || !side || side->size() < offset + std::size_t{2}) return text;
    const std::size_t size = Read(*side, offset, 2);
    if (side->size() < offset + 2 + size) return text;
    text = side->substr(offset + 2, size);
    text = text.substr(0, text.find('\0'));
    textOffset = offset;
    return text;
}

void NaiveEventFile::Replace(std::size_t place, const std::string& bytes)
{
    buffer.replace(place, bytes.size(), bytes);
    dirty = true;
}

void NaiveEventFile::SetId(const GUID& id) { Replace(4, RecordBytes(0, id, 0).substr(4, 16)); }
void NaiveEventFile::SetDate(std::uint32_t packed) { Replace(0, BigEndian(packed, 4)); }
void NaiveEventFile::SetValue(int value) { Replace(20, std::string(1, Byte(static_cast<std::uint32_t>(value)))); }

void NaiveEventFile::SetAnnotation(const std::string& annotation)
{
    text = annotation;
    textDirty = dirty = true;
}
