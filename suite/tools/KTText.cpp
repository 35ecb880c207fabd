#include "host/KTText.h"

#include <cstring>
#include <limits>

#include "suite/tools/KTScratch.h"
#include "suite/tools/KTUnicode.h"

namespace
{
constexpr int idLimit = 250;

std::size_t Size(int length) { return static_cast<std::size_t>(length); }

// What XML 1.0 has a place for.
constexpr bool IsXmlChar(char32_t c)
{
    if (c < 0x20) return c == 0x09 || c == 0x0A || c == 0x0D;
    return c <= 0x10FFFF && !kt::IsSurrogate(c) && c != 0xFFFE && c != 0xFFFF;
}

const char* EntityFor(char c)
{
    switch (c)
    {
        case '&':
            return "&amp;";
        case '<':
            return "&lt;";
        case '>':
            return "&gt;";
        case '"':
            return "&quot;";
        case '\'':
            return "&apos;";
        default:
            return nullptr;
    }
}

bool IsDropped(char c)
{
    const auto unit = static_cast<unsigned char>(c);
    return unit < 0x20 && c != '\t' && c != '\n' && c != '\r';
}

int DigitOf(char32_t c, int base)
{
    if (c >= U'0' && c <= U'9') return static_cast<int>(c - U'0');
    if (base == 16 && c >= U'a' && c <= U'f') return static_cast<int>(c - U'a') + 10;
    if (base == 16 && c >= U'A' && c <= U'F') return static_cast<int>(c - U'A') + 10;
    return -1;
}

template <class CharT>
bool StartsWith(const CharT* at, const CharT* end, const char* word)
{
    for (; *word != '\0'; ++word, ++at)
        if (at == end || *at != static_cast<CharT>(*word)) return false;
    return true;
}

// The reference at `at`, which stands on `&`: its character, and `at` behind its `;`. 0 when it is none that we know, and
// `at` stays.
template <class CharT>
char32_t TakeReference(const CharT*& at, const CharT* end)
{
    static constexpr struct
    {
        const char* text;
        char32_t character;
    } named[] = {{"&amp;", U'&'}, {"&lt;", U'<'}, {"&gt;", U'>'}, {"&quot;", U'"'}, {"&apos;", U'\''}};
    for (const auto& entity : named)
        if (StartsWith(at, end, entity.text))
        {
            at += std::strlen(entity.text);
            return entity.character;
        }
    if (!StartsWith(at, end, "&#")) return 0;

    const CharT* p = at + 2;
    const int base = p != end && *p == CharT{'x'} ? 16 : 10;
    if (base == 16) ++p;
    char32_t value = 0;
    const CharT* const digits = p;
    for (; p != end; ++p)
    {
        const int digit = DigitOf(static_cast<char32_t>(*p), base);
        if (digit < 0) break;
        // Stops growing beyond what a character can be, however many digits follow.
        if (value <= 0x10FFFF) value = value * static_cast<char32_t>(base) + static_cast<char32_t>(digit);
    }
    if (p == digits || p == end || *p != CharT{';'} || !IsXmlChar(value)) return 0;
    at = p + 1;
    return value;
}

char* Put(char* out, char32_t c) { return kt::PutUtf8(out, c); }
wchar_t* Put(wchar_t* out, char32_t c) { return kt::PutWide(out, c); }

template <class String, class CharT>
void Unescape(String& out, const CharT* at, int length)
{
    // A reference is always longer than what it stands for.
    kt::Scratch<CharT> scratch(Size(length));
    CharT* p = scratch.Data();
    const CharT* const end = at + length;
    while (at != end)
    {
        const char32_t c = *at == CharT{'&'} ? TakeReference(at, end) : 0;
        if (c != 0)
            p = Put(p, c);
        else
            *p++ = *at++;
    }
    out.Assign(scratch.Data(), static_cast<int>(p - scratch.Data()));
}

bool IsBlank(wchar_t c) { return c == L' ' || (c >= L'\t' && c <= L'\r'); }

// The next code point in lower case; 0 at the end. A surrogate alone counts as the value it has, so that different
// texts stay different.
char32_t NextFolded(const wchar_t*& at)
{
    const auto c = static_cast<char32_t>(*at);
    if (c == 0) return 0;
    ++at;
    if (!kt::IsHighSurrogate(c) || !kt::IsLowSurrogate(static_cast<char32_t>(*at))) return kt::ToLower(c);
    const char32_t low = static_cast<char32_t>(*at++);
    return kt::ToLower(0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00));
}
}  // namespace

void Utf16ToUtf8(KTNarrowString& out, const KTWideString& in)
{
    const wchar_t* at = in.Str();
    const wchar_t* const end = at + in.Length();
    std::size_t size = 0;
    for (const wchar_t* p = at; p != end; ++p)
    {
        const auto c = static_cast<char32_t>(*p);
        size += c < 0x80 ? 1U : (c < 0x800 ? 2U : (c < 0x10000 || c > 0x10FFFF ? 3U : 4U));
    }
    kt::Scratch<char> scratch(size);
    char* p = scratch.Data();
    while (at != end) p = kt::PutUtf8(p, kt::NextWide(at, end));
    out.Assign(scratch.Data(), static_cast<int>(p - scratch.Data()));
}

void Utf8ToUtf16(KTWideString& out, const KTNarrowString& in)
{
    const char* at = in.Str();
    const char* const end = at + in.Length();
    kt::Scratch<wchar_t> scratch(Size(in.Length()));  // never more elements than bytes
    wchar_t* p = scratch.Data();
    while (at != end) p = kt::PutWide(p, kt::NextUtf8(at, end));
    out.Assign(scratch.Data(), static_cast<int>(p - scratch.Data()));
}

void Text2Xml(KTNarrowString& out, const KTNarrowString& in)
{
    const char* const begin = in.Str();
    const char* const end = begin + in.Length();
    std::size_t size = 0;
    for (const char* p = begin; p != end; ++p)
    {
        const char* const entity = EntityFor(*p);
        size += entity != nullptr ? std::strlen(entity) : 1U;
    }
    kt::Scratch<char> scratch(size);
    char* p = scratch.Data();
    for (const char* at = begin; at != end; ++at)
    {
        if (IsDropped(*at)) continue;
        const char* entity = EntityFor(*at);
        if (entity == nullptr)
            *p++ = *at;
        else
            while (*entity != '\0') *p++ = *entity++;
    }
    out.Assign(scratch.Data(), static_cast<int>(p - scratch.Data()));
}

void Xml2Text(KTNarrowString& out, const KTNarrowString& in) { Unescape(out, in.Str(), in.Length()); }

void Xml2Text(KTWideString& out, const KTWideString& in) { Unescape(out, in.Str(), in.Length()); }

KTWideString& ParseXMLText(const KTNarrowString& in, KTWideString& out)
{
    KTNarrowString text;
    Xml2Text(text, in);
    Utf8ToUtf16(out, text);
    return out;
}

wchar_t KTWideChar::ToUpper(wchar_t character)
{
    return static_cast<wchar_t>(kt::ToUpper(static_cast<char32_t>(character)));
}

int _wcsicmp(const wchar_t* a, const wchar_t* b)
{
    for (;;)
    {
        const char32_t left = NextFolded(a);
        const char32_t right = NextFolded(b);
        if (left != right) return left < right ? -1 : 1;
        if (left == 0) return 0;
    }
}

int _wtoi(const wchar_t* text)
{
    while (IsBlank(*text)) ++text;
    const bool negative = *text == L'-';
    if (*text == L'-' || *text == L'+') ++text;
    constexpr std::int64_t limit = std::numeric_limits<int>::max();
    std::int64_t value = 0;
    for (; *text >= L'0' && *text <= L'9'; ++text)
        if (value <= limit) value = value * 10 + (*text - L'0');
    if (negative) return static_cast<int>(value > limit ? -limit - 1 : -value);
    return static_cast<int>(value > limit ? limit : value);
}

bool IsValidId(const wchar_t* text, bool allowBlank)
{
    const int length = KTWideChar::Length(text);
    if (length < 1 || length > idLimit) return false;
    if (text[0] == L' ' || text[length - 1] == L' ') return false;

    const wchar_t* at = text;
    const wchar_t* const end = text + length;
    bool markAllowed = false;  // a combining mark needs a letter or digit that it belongs to
    while (at != end)
    {
        const char32_t c = kt::NextWide(at, end);
        const bool sign = c < 0x80 && std::strchr("_-+()#&", static_cast<int>(c)) != nullptr;
        const bool letter = kt::IsLetter(c) || kt::IsDigit(c) || (markAllowed && kt::IsMark(c));
        if (!letter && !sign && !(allowBlank && c == U' ')) return false;
        markAllowed = letter;
    }
    return true;
}
