// Expanding the codes of annotations.

#include <cstddef>
#include <cwchar>
#include <string>

#include "engine/KTEventDriver.h"
#include "engine/KTEventDriverGroup.h"
#include "host/KTNumberFormat.h"
#include "host/KTText.h"
#include "timetable/KTTimeTable.h"

namespace
{
using XmlNode = XmlDocument::XmlNode;

// The text under construction. What a template says itself always goes in; what its codes stand for only up to a bound, so
// that a few megabytes of codes for a long description don't ask for more memory than the machine has.
class Expansion
{
public:
    Expansion(KTAnnotationArguments& compiled, std::size_t usualSize) : arguments(compiled) { text.reserve(usualSize); }

    KTAnnotationArguments::Use& Arguments() { return arguments; }

    void Copy(const wchar_t* from, const wchar_t* to) { text.append(from, static_cast<std::size_t>(to - from)); }

    // False when it is too much.
    bool Insert(const wchar_t* piece, std::size_t count)
    {
        if (count > room) return false;
        room -= count;
        text.append(piece, count);
        return true;
    }
    bool Insert(const KTWideString& piece) { return Insert(piece.Str(), static_cast<std::size_t>(piece.Length())); }

    void MoveTo(KTWideString& out) const { out.Assign(text.data(), static_cast<int>(text.size())); }

private:
    std::size_t room = std::size_t{1} << 25;  // characters
    std::wstring text;
    KTAnnotationArguments::Use arguments;
};

// The text of a child, borrowed from the document; empty without one.
KTWideString TextOf(const XmlNode& node, const wchar_t* tag)
{
    KTWideString text;
    if (const XmlNode* const child = node.Node(tag)) text.Attach(child->Value().Str());
    return text;
}

bool InsertSeconds(Expansion& out, std::uint32_t milliseconds)
{
    wchar_t digits[16];
    const int count = KTFormat(digits, 16, L"%d", static_cast<int>(milliseconds / 1000));
    return out.Insert(digits, static_cast<std::size_t>(count));
}

// The number-th entry from 1 on; null when there is none.
template <class Entries>
auto Entry(const Entries& entries, std::uint64_t number) -> typename Entries::value_type
{
    if (number < 1 || number > entries.size()) return nullptr;
    return entries[static_cast<std::size_t>(number - 1)];
}

void FormatNumberOf(const XmlNode& argument, double number, KTWideString& out)
{
    int integerDigits = 0;
    int decimalDigits = 0;
    bool leadingZerosInteger = false;
    bool leadingZerosDecimal = false;
    KTCardFormule::ParseFormat(TextOf(argument, L"format").Str(), integerDigits, decimalDigits, leadingZerosInteger,
                               leadingZerosDecimal);
    KTEditTemplateWnd::FormatDouble(out, number, integerDigits, decimalDigits,
                                    TextOf(argument, L"thousandSeparator") == L"T", leadingZerosInteger,
                                    leadingZerosDecimal);
}

// Behind the digits. However many there are, a number that no list is long enough for stays one.
const wchar_t* ReadNumber(const wchar_t* at, std::uint64_t& number)
{
    constexpr std::uint64_t largest = 0xFFFFFFFF;
    for (number = 0; *at >= L'0' && *at <= L'9'; ++at)
        if (number <= largest) number = number * 10 + static_cast<std::uint64_t>(*at - L'0');
    return at;
}
}  // namespace

/// A code of a template: a percent sign, a letter and, for some, a number.
struct KTEventDriver::AnnotationCode
{
    wchar_t letter;
    bool numbered;  // the digits behind the letter are the code's
    /// Inserts what the code stands for; false when that is nothing, and the code then stays as it is written.
    bool (*insert)(const KTEventDriver& event, std::uint64_t number, Expansion& out);

    /// Inserts what stands behind a percent sign; returns where the template goes on.
    static const wchar_t* Take(const KTEventDriver& event, const wchar_t* letter, Expansion& out)
    {
        if (const AnnotationCode* const code = Find(*letter))
        {
            std::uint64_t number = 0;
            const wchar_t* const behind = code->numbered ? ReadNumber(letter + 1, number) : letter + 1;
            if (code->insert(event, number, out)) return behind;
        }
        out.Copy(letter - 1, letter + 1);  // the digits of a code that failed are plain text
        return letter + 1;
    }

private:
    // Null for a letter that isn't a code's.
    static const AnnotationCode* Find(wchar_t letter)
    {
        static constexpr AnnotationCode codes[] = {
            {L'%', false, [](const auto&, auto, auto& out) { return out.Insert(L"%", 1); }},
            {L'a', true, InsertArgument},
            {L'b', false, [](const auto& event, auto, auto& out) { return InsertSeconds(out, event.delayToActivate); }},
            {L'c', false, [](const auto& event, auto, auto& out) { return InsertValue(event, L"condition", out); }},
            {L'd', false, InsertTimeTable},
            {L'e', false,
             [](const auto& event, auto, auto& out) { return InsertSeconds(out, event.delayToDeactivate); }},
            {L'g', true, InsertGroup},
            {L'n', false, [](const auto& event, auto, auto& out) { return InsertValue(event, L"name", out); }},
            {L's', false, [](const auto& event, auto, auto& out) { return InsertValue(event, L"conditionStop", out); }},
            {L't', false, [](const auto& event, auto, auto& out) { return InsertValue(event, L"description", out); }},
        };
        for (const AnnotationCode& code : codes)
            if (code.letter == letter) return &code;
        return nullptr;
    }

    // From the document and not from the fields: it may be edited while the event lives.
    static bool InsertValue(const KTEventDriver& event, const wchar_t* tag, Expansion& out)
    {
        return event.node == nullptr || out.Insert(TextOf(*event.node, tag));
    }

    // What isn't a number, or can't be read, shows as it is written: so a plain word can be an argument, and a meter that
    // doesn't answer shows its name.
    static bool InsertArgument(const KTEventDriver& event, std::uint64_t number, Expansion& out)
    {
        const XmlNode* const argument = Entry(event.arguments, number);
        if (argument == nullptr) return false;
        const KTWideString value = TextOf(*argument, L"value");
        if (value.Empty()) return false;
        double result = 0.0;
        if (!out.Arguments().Evaluate(static_cast<std::size_t>(number - 1), value, result)) return out.Insert(value);
        KTWideString shown;
        FormatNumberOf(*argument, result, shown);
        return out.Insert(shown);
    }

    static bool InsertGroup(const KTEventDriver& event, std::uint64_t number, Expansion& out)
    {
        const KTEventDriverGroup* const group = Entry(event.groups, number);
        return group != nullptr && !group->Name().Empty() && out.Insert(group->Name());
    }

    static bool InsertTimeTable(const KTEventDriver& event, std::uint64_t /*number*/, Expansion& out)
    {
        constexpr int noTimeTable = 32830;  // string id
        if (event.timeTable != nullptr) return out.Insert(event.timeTable->name);
        KTWideString none;
        return out.Insert(KTLoadString(noTimeTable, none));
    }
};

bool KTEventDriver::ParseAnnotation(KTWideString& out, const KTWideString& text)
{
    const wchar_t* at = text.Str();
    const wchar_t* const end = at + KTWideChar::Length(at);
    const auto findPercent = [end](const wchar_t* from)
    { return std::wmemchr(from, L'%', static_cast<std::size_t>(end - from)); };

    const wchar_t* percent = findPercent(at);
    if (percent == nullptr)
    {
        out = text;
        return true;
    }
    constexpr std::ptrdiff_t usualNames = 64;  // characters
    Expansion expansion(compiledArguments, static_cast<std::size_t>(end - at + usualNames));
    for (; percent != nullptr; percent = findPercent(at))
    {
        expansion.Copy(at, percent);
        const wchar_t* const letter = percent + 1;
        at = letter == end ? end : AnnotationCode::Take(*this, letter, expansion);  // the last one vanishes
    }
    expansion.Copy(at, end);
    expansion.MoveTo(out);
    return true;
}
