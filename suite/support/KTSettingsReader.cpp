#include "suite/support/KTSettingsReader.h"

#include <cmath>
#include <sstream>

namespace
{
constexpr std::size_t longestShown = 60;  // characters of a text in a message

std::string List(std::span<const std::string_view> words)
{
    std::string list;
    for (std::size_t i = 0; i < words.size(); ++i)
    {
        if (i > 0) list += i + 1 == words.size() ? " or " : ", ";
        list += KTSettingsValue::Quoted(words[i]);
    }
    return list;
}
}  // namespace

void KTSettingsProblems::Add(const toml::source_position& at, std::string text)
{
    if (!reason.empty() && !(at < place)) return;
    place = at;
    reason = std::move(text);
}

void KTSettingsValue::Text(std::string& out, const KTTextRule& rule) const
{
    const auto* const text = node.as_string();
    // The module's texts end at the first NUL, so nothing behind it would ever be seen.
    if (text != nullptr && text->get().find('\0') == std::string::npos && rule.holds(text->get()))
        out = text->get();
    else if (rule.secret)
        Fail(path + " must be " + rule.allowed);
    else
        Refuse(rule.allowed);
}

void KTSettingsValue::Word(std::string& out, std::span<const std::string_view> words) const
{
    if (const auto* const text = node.as_string())
        for (const std::string_view word : words)
            if (text->get() == word)
            {
                out = word;
                return;
            }
    Refuse(List(words));
}

void KTSettingsValue::Whole(int& out, int low, int high) const
{
    const auto* const number = node.as_integer();
    if (number != nullptr && number->get() >= low && number->get() <= high)
        out = static_cast<int>(number->get());
    else
        Refuse("a whole number from " + std::to_string(low) + " to " + std::to_string(high));
}

void KTSettingsValue::Number(double& out, bool (*holds)(double), const char* allowed) const
{
    const auto* const whole = node.as_integer();
    const auto* const real = node.as_floating_point();
    const double number = whole != nullptr  ? static_cast<double>(whole->get())
                          : real != nullptr ? real->get()
                                            : std::nan("");
    if (std::isfinite(number) && holds(number))
        out = number;
    else
        Refuse(allowed);
}

void KTSettingsValue::Flag(bool& out) const
{
    if (const auto* const flag = node.as_boolean())
        out = flag->get();
    else
        Refuse("true or false");
}

void KTSettingsValue::Texts(std::vector<std::string>& out, const KTTextRule& rule) const
{
    const toml::array* const array = node.as_array();
    if (array == nullptr)
    {
        Refuse("a list of texts");
        return;
    }
    out.clear();
    for (const toml::node& element : *array)
        KTSettingsValue(element, "each entry of " + path, problems).Text(out.emplace_back(), rule);
}

void KTSettingsValue::Tables(const std::function<void(const toml::table&, const KTSettingsValue&)>& read) const
{
    const toml::array* const array = node.as_array();
    if (array == nullptr)
    {
        Refuse("an array of tables, each begun by [[" + path + "]]");
        return;
    }
    for (const toml::node& element : *array)
    {
        const KTSettingsValue value(element, path, problems);
        if (const toml::table* const table = element.as_table())
            read(*table, value);
        else
            value.Refuse("an array of tables, each begun by [[" + path + "]]");
    }
}

std::string KTSettingsValue::Quoted(std::string_view text)
{
    std::string quoted = "\"";
    for (const char character : text)
    {
        if (quoted.size() > longestShown && (static_cast<unsigned char>(character) & 0xC0) != 0x80)
            return quoted + "...\"";  // cut between two characters, not inside one
        const bool control = static_cast<unsigned char>(character) < 0x20 || character == 0x7F;
        quoted += control ? '?' : character;
    }
    return quoted + '"';
}

std::string KTSettingsValue::Shown(const toml::node& value)
{
    switch (value.type())
    {
        case toml::node_type::string:
            return Quoted(value.as_string()->get());
        case toml::node_type::table:
            return "a table";
        case toml::node_type::array:
            return "a list";
        case toml::node_type::date:
        case toml::node_type::time:
        case toml::node_type::date_time:
            return "a date or time";
        default:
        {
            std::ostringstream text;
            value.visit(
                [&](const auto& v)
                {
                    if constexpr (toml::is_value<decltype(v)>) text << v;
                });
            return text.str();
        }
    }
}

void KTSettingsValue::Refuse(const std::string& allowed) const
{
    Fail(path + " must be " + allowed + ", not " + Shown(node));
}

void KTSettingsValue::UnknownKey(const toml::key& key, const std::string& reason,
                                 std::span<const std::string_view> known) const
{
    std::string text = "unknown key " + Quoted(key.str());
    if (!path.empty()) text += " in [" + path + "]";
    text += reason + "; known here: ";
    for (const std::string_view word : known)
    {
        text += word;
        if (word != known.back()) text += ", ";
    }
    problems.Add(key.source().begin, std::move(text));
}

std::string KTSettingsValue::UnderPath(std::string_view key) const
{
    return path.empty() ? std::string(key) : path + '.' + std::string(key);
}
