#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cwchar>

#include "host/KTText.h"
#include "suite/tools/KTWideFormat.h"

namespace
{
// Where the text goes; counts on when it is full.
class Sink
{
public:
    Sink(wchar_t* out, std::size_t room) : buffer(out), size(room) {}

    void Put(wchar_t c)
    {
        if (count < size) buffer[count] = c;
        ++count;
    }
    void Fill(wchar_t c, std::size_t times)
    {
        for (; times > 0; --times) Put(c);
    }
    [[nodiscard]] std::size_t Count() const { return count; }

private:
    wchar_t* buffer;
    std::size_t size;
    std::size_t count = 0;
};

// One conversion: %[-0+ ][width][.precision][h|l|ll]type.
struct Conversion
{
    bool left = false;
    bool zero = false;
    wchar_t plus = 0;  // what stands before a number that isn't negative
    std::size_t width = 0;
    int precision = -1;  // none
    int longs = 0;       // how often `l` stood there
};

constexpr int largestField = 1'000'000;  // a width or precision beyond it is a mistake, and mustn't hang the caller

int ReadNumber(const wchar_t*& at)
{
    int value = 0;
    for (; *at >= L'0' && *at <= L'9'; ++at) value = std::min(value * 10 + (*at - L'0'), largestField);
    return value;
}

void PutText(Sink& sink, const Conversion& how, const wchar_t* text)
{
    if (text == nullptr) text = L"(null)";
    std::size_t length = 0;
    while ((how.precision < 0 || length < static_cast<std::size_t>(how.precision)) && text[length] != L'\0') ++length;
    const std::size_t pad = how.width > length ? how.width - length : 0;
    if (!how.left) sink.Fill(L' ', pad);
    for (std::size_t i = 0; i < length; ++i) sink.Put(text[i]);
    if (how.left) sink.Fill(L' ', pad);
}

void PutNumber(Sink& sink, const Conversion& how, std::uint64_t value, wchar_t sign, unsigned base, bool upper)
{
    const wchar_t* const digits = upper ? L"0123456789ABCDEF" : L"0123456789abcdef";
    wchar_t text[24];
    std::size_t length = 0;
    for (; value != 0; value /= base) text[length++] = digits[value % base];

    // As in C: a precision is the least number of digits, and takes the meaning from the flag 0; without one it is 1.
    const std::size_t least = how.precision < 0 ? 1 : static_cast<std::size_t>(how.precision);
    std::size_t zeros = least > length ? least - length : 0;
    const std::size_t written = length + zeros + (sign != 0 ? 1 : 0);
    std::size_t blanks = how.width > written ? how.width - written : 0;
    if (how.zero && !how.left && how.precision < 0)
    {
        zeros += blanks;
        blanks = 0;
    }
    if (!how.left) sink.Fill(L' ', blanks);
    if (sign != 0) sink.Put(sign);
    sink.Fill(L'0', zeros);
    while (length > 0) sink.Put(text[--length]);
    if (how.left) sink.Fill(L' ', blanks);
}

void PutSigned(Sink& sink, const Conversion& how, std::int64_t value)
{
    const bool negative = value < 0;
    const std::uint64_t magnitude =
        negative ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
    PutNumber(sink, how, magnitude, negative ? L'-' : how.plus, 10, false);
}

// A reader of the arguments; a struct, so that it can go through functions by reference.
struct Arguments
{
    std::va_list list;
};

std::int64_t TakeSigned(Arguments& arguments, const Conversion& how)
{
    if (how.longs >= 2) return va_arg(arguments.list, long long);
    if (how.longs == 1) return va_arg(arguments.list, long);
    return va_arg(arguments.list, int);
}

std::uint64_t TakeUnsigned(Arguments& arguments, const Conversion& how)
{
    if (how.longs >= 2) return va_arg(arguments.list, unsigned long long);
    if (how.longs == 1) return va_arg(arguments.list, unsigned long);
    return va_arg(arguments.list, unsigned);
}

void ReadFlags(const wchar_t*& at, Conversion& how)
{
    for (;; ++at)
    {
        if (*at == L'-')
            how.left = true;
        else if (*at == L'0')
            how.zero = true;
        else if (*at == L'+')
            how.plus = L'+';
        else if (*at == L' ')
            how.plus = how.plus != 0 ? how.plus : L' ';
        else
            return;
    }
}

void ReadSizes(const wchar_t*& at, Conversion& how, Arguments& arguments)
{
    int width = 0;
    if (*at == L'*')
    {
        ++at;
        width = std::clamp(va_arg(arguments.list, int), -largestField, largestField);
        if (width < 0) how.left = true;
    }
    else
        width = ReadNumber(at);
    how.width = static_cast<std::size_t>(width < 0 ? -width : width);

    if (*at != L'.') return;
    ++at;
    if (*at == L'*')
    {
        ++at;
        how.precision = std::clamp(va_arg(arguments.list, int), -1, largestField);
    }
    else
        how.precision = ReadNumber(at);
}

// Writes the conversion whose type stands at `type`; false when it is none of ours.
bool PutConversion(Sink& sink, const Conversion& how, wchar_t type, Arguments& arguments)
{
    switch (type)
    {
        case L'd':
        case L'i':
            PutSigned(sink, how, TakeSigned(arguments, how));
            return true;
        case L'u':
            PutNumber(sink, how, TakeUnsigned(arguments, how), 0, 10, false);
            return true;
        case L'x':
        case L'X':
            PutNumber(sink, how, TakeUnsigned(arguments, how), 0, 16, type == L'X');
            return true;
        case L's':
            PutText(sink, how, va_arg(arguments.list, const wchar_t*));
            return true;
        case L'c':
        {
            const wchar_t text[2] = {static_cast<wchar_t>(va_arg(arguments.list, std::wint_t)), L'\0'};
            PutText(sink, how, text);
            return true;
        }
        default:
            return false;
    }
}
}  // namespace

std::size_t kt::FormatWide(wchar_t* out, std::size_t size, const wchar_t* format, std::va_list list)
{
    Arguments arguments;
    va_copy(arguments.list, list);
    Sink sink(out, size);
    for (const wchar_t* at = format; *at != L'\0';)
    {
        const wchar_t* const start = at;
        if (*at++ != L'%')
        {
            sink.Put(*start);
            continue;
        }
        if (*at == L'%')
        {
            sink.Put(*at++);
            continue;
        }
        Conversion how;
        ReadFlags(at, how);
        ReadSizes(at, how, arguments);
        for (; *at == L'l' || *at == L'h'; ++at) how.longs += *at == L'l' ? 1 : 0;
        if (PutConversion(sink, how, *at, arguments))
        {
            ++at;
            continue;
        }
        // An unknown type stands as it was written: it can't be told which argument it meant.
        for (const wchar_t* p = start; p != at; ++p) sink.Put(*p);
    }
    va_end(arguments.list);
    return sink.Count();
}

int KTFormat(wchar_t* out, int size, const wchar_t* format, ...)
{
    if (size <= 0) return 0;
    std::va_list arguments;
    va_start(arguments, format);
    const auto room = static_cast<std::size_t>(size) - 1;
    const std::size_t written = std::min(kt::FormatWide(out, room, format, arguments), room);
    va_end(arguments);
    out[written] = L'\0';
    return static_cast<int>(written);
}

int KTFormat(char* out, int size, const char* format, ...)
{
    if (size <= 0) return 0;
    std::va_list arguments;
    va_start(arguments, format);
    const int needed = std::vsnprintf(out, static_cast<std::size_t>(size), format, arguments);
    va_end(arguments);
    if (needed < 0) out[0] = '\0';
    return std::clamp(needed, 0, size - 1);
}
