#include "apps/corvane/Texts.h"

#include <locale.h>
#include <wchar.h>

#include <algorithm>

#include "host/KTText.h"

namespace
{
// The characters of Unicode, whatever the user's locale is.
class UnicodeLocale
{
public:
    UnicodeLocale() : locale(newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr))
    {
        if (locale != nullptr) before = uselocale(locale);
    }
    UnicodeLocale(const UnicodeLocale&) = delete;
    UnicodeLocale& operator=(const UnicodeLocale&) = delete;
    ~UnicodeLocale()
    {
        if (locale == nullptr) return;
        uselocale(before);
        freelocale(locale);
    }

private:
    locale_t locale;
    locale_t before = nullptr;
};

bool IsAscii(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}
}  // namespace

std::string corvane::Utf8(const KTWideString& text)
{
    KTNarrowString narrow;
    Utf16ToUtf8(narrow, text);
    return {narrow.Str(), static_cast<std::size_t>(narrow.Length())};
}

KTWideString corvane::Wide(const std::string& utf8)
{
    KTWideString wide;
    Utf8ToUtf16(wide, KTNarrowString(utf8.c_str()));
    return wide;
}

std::string corvane::WellFormed(const KTNarrowString& text)
{
    const std::string_view bytes(text.Str(), static_cast<std::size_t>(text.Length()));
    if (IsAscii(bytes)) return std::string(bytes);
    KTWideString wide;
    Utf8ToUtf16(wide, text);
    return Utf8(wide);
}

std::string corvane::OneLine(std::string_view utf8)
{
    std::string line(utf8);
    for (std::size_t i = 0; i < line.size(); ++i)
    {
        const auto c = static_cast<unsigned char>(line[i]);
        if (c < 0x20 || c == 0x7F) line[i] = ' ';
        // U+0080 to U+009F, which some terminals obey as they obey the escape character.
        if (c == 0xC2 && i + 1 < line.size() && static_cast<unsigned char>(line[i + 1]) < 0xA0) line.replace(i, 2, " ");
    }
    return line;
}

int corvane::DisplayWidth(std::string_view utf8)
{
    if (IsAscii(utf8)) return static_cast<int>(utf8.size());
    const UnicodeLocale unicode;
    int width = 0;
    mbstate_t state{};
    for (std::size_t at = 0; at < utf8.size();)
    {
        wchar_t character = 0;
        const std::size_t length = mbrtowc(&character, utf8.data() + at, utf8.size() - at, &state);
        if (length == 0 || length > utf8.size() - at) return static_cast<int>(utf8.size());  // not what was promised
        width += std::max(wcwidth(character), 0);
        at += length;
    }
    return width;
}
