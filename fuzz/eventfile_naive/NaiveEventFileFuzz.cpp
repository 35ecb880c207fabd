// Any bytes as an event's two files, and any order of operations on them: the naive reader must see and write the same.
//
// Input: flags (1 gives the header a right checksum, 2 each record), the number of operations, the operations, two bytes of
// the side file's size, the side file (none for size 0), the record file.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include "log/KTEventFile.h"
#include "log/LogBytes.h"
#include "log/NaiveEventFile.h"
#include "support/FaultyFiles.h"
#include "support/TestText.h"

namespace
{
class Input
{
public:
    Input(const std::uint8_t* bytes, std::size_t count) : at(bytes), left(count) {}

    unsigned Byte()
    {
        if (left == 0) return 0;
        --left;
        return *at++;
    }
    std::string Bytes(std::size_t count)
    {
        const std::size_t taken = count < left ? count : left;
        const auto* const from = reinterpret_cast<const char*>(at);
        at += taken;
        left -= taken;
        return {from, taken};
    }
    std::string Rest() { return Bytes(left); }

private:
    const std::uint8_t* at;
    std::size_t left;
};

void Must(bool same, const char* what)
{
    if (same) return;
    std::fprintf(stderr, "the naive reader sees another %s\n", what);
    std::abort();
}

std::string WithChecksums(std::string bytes, unsigned flags)
{
    if ((flags & 1) != 0 && bytes.size() >= 14) bytes.replace(0, 14, Sealed(bytes.substr(0, 13)));
    if ((flags & 2) != 0)
        for (std::size_t at = 14; at + 26 <= bytes.size(); at += 26)
            bytes.replace(at, 26, Sealed(bytes.substr(at, 25)));
    return bytes;
}

class Pair
{
public:
    Pair(FaultyFiles& memory, std::string& records, std::optional<std::string>& side) : naive(records, side)
    {
        memory.Put("a.suc", records);
        if (side) memory.Put("a.dat", *side);
    }

    bool Open(bool readOnly)
    {
        const bool opened = naive.Open(readOnly);
        Must(file.Open(L"a.suc", readOnly) == opened, "opening");
        return opened;
    }
    void Do(unsigned operation, unsigned argument)
    {
        switch (operation % 8)
        {
            case 0:
            {
                const int index = static_cast<int>(argument) - 1;
                Must(file.GoRecord(index) == naive.GoRecord(index), "record");
                break;
            }
            case 1:
            {
                const int index = naive.count - static_cast<int>(argument);
                Must(file.GoRecord(index) == naive.GoRecord(index), "record from the end");
                break;
            }
            case 2:
                Search(argument);
                break;
            case 3:
                Annotation();
                break;
            case 4:
                Must(file.NewRecord() == naive.NewRecord(), "new record");
                break;
            case 5:
                file.SetEventValue(argument);
                naive.SetValue(static_cast<int>(argument));
                break;
            case 6:
            {
                const std::string text(argument, 'a');
                file.SetEventAnnotation(KTNarrowString(text.c_str()));
                naive.SetAnnotation(text);
                break;
            }
            default:
                Must(file.Update() == naive.Update(), "update");
                break;
        }
        Compare();
    }

private:
    // The dates of records, and what lies between them and around them.
    void Search(unsigned argument)
    {
        const int index = static_cast<int>(argument / 4);
        (void)file.GoRecord(index);
        (void)naive.GoRecord(index);
        KTDateTime date;
        file.DateValue(date);
        KTDateTimeSpan shift;
        shift.SetDateTimeSpan(0, 0, 0, static_cast<int>(argument % 3) - 1, 0, 0);
        date = date + shift;
        const int direction = static_cast<int>(argument % 4);
        Must(file.SearchByTime(date, direction) == naive.SearchByTime(date.OleDateTime().date, direction), "search");
    }
    void Annotation()
    {
        KTNarrowString text;
        file.EventAnnotation(text);
        Must(naive.Annotation() == text.Str(), "annotation");
    }
    void Compare()
    {
        Must(file.NRecords() == naive.count && file.CurrentRecord() == naive.current, "place");
        Must(file.IsDirty() == naive.dirty, "state");
        Must(file.EventId() == naive.Id() && file.EventValue() == naive.Value(), "content");
        Must(file.DateValue() == naive.Date() && file.AnnotationOffset() == naive.AnnotationOffset(), "date");
    }

    NaiveEventFile naive;
    KTEventFile file{true};
};
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const unsigned flags = input.Byte();
    const std::string operations = input.Bytes(input.Byte());
    std::size_t sideSize = input.Byte() * 256U;
    sideSize += input.Byte();
    std::optional<std::string> side;
    if (sideSize > 0) side = input.Bytes(sideSize);
    if (side && side->empty()) side.reset();  // an empty one gets a header, which the naive writer knows nothing of
    std::string records = WithChecksums(input.Rest(), flags);

    FaultyFiles memory;
    Pair pair(memory, records, side);
    if (!pair.Open((flags & 4) != 0)) return 0;
    for (std::size_t i = 0; i + 1 < operations.size(); i += 2)
        pair.Do(static_cast<unsigned char>(operations[i]), static_cast<unsigned char>(operations[i + 1]));
    Must(memory.Content("a.suc") == records, "record file");
    Must(memory.Content("a.dat") == side.value_or("missing"), "side file");
    return 0;
}
