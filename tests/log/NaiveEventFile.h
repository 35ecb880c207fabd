// A second reader and writer of the log's files, slow and obvious, to compare the real one with.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "host/KTGuid.h"

/// Works on the bytes of the two files themselves, one record at a time; no disk, nothing remembered but what an object of
/// the log remembers. Dates are OLE dates, by counting days.
class NaiveEventFile
{
public:
    /// The files' content; no side file where `sideBytes` is empty. They must outlive this.
    NaiveEventFile(std::string& recordBytes, std::optional<std::string>& sideBytes)
        : records(recordBytes), side(sideBytes)
    {
    }

    bool Open(bool forReading);
    bool GoRecord(int index);
    bool NewRecord();
    bool Update();
    int SearchByTime(double time, int direction);

    [[nodiscard]] double Date() const;  // 0 for no real date
    [[nodiscard]] GUID Id() const;
    [[nodiscard]] int Value() const { return At(20); }
    [[nodiscard]] std::uint32_t AnnotationOffset() const { return Number(21, 4); }
    std::string Annotation();

    void SetId(const GUID& id);
    void SetDate(std::uint32_t packed);
    void SetValue(int value);
    void SetAnnotation(const std::string& text);

    int count = 0;
    int current = -1;
    int baseYear = 2000;
    bool dirty = false;
    std::optional<double> begin;  // none where the first record has no real date, or there is no record
    std::optional<double> end;
    std::string version;

private:
    [[nodiscard]] int At(std::size_t place) const { return static_cast<unsigned char>(buffer[place]); }
    [[nodiscard]] std::uint32_t Number(std::size_t place, std::size_t bytes) const;
    [[nodiscard]] std::optional<double> RealDate() const;
    void Replace(std::size_t place, const std::string& bytes);
    bool Good(int index, double& date);

    std::string& records;
    std::optional<std::string>& side;
    std::string buffer = std::string(26, '\0');
    int first = -1;
    int last = -1;
    bool readOnly = false;
    std::string text;
    std::uint32_t textOffset = 0;
    bool textDirty = false;
};
