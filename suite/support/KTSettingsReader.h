// Reads single values of the settings document into their fields, and remembers each mistake with its place.
#pragma once

#include <toml++/toml.h>

#include <algorithm>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// The mistakes of one document. Only the first in the order of the document is told: those behind it often follow from
/// it, and the order in which the checks happen to run must not show.
///
/// Threads: one thread at a time.
class KTSettingsProblems
{
public:
    /// Of two mistakes at the same place the one that was added first counts.
    void Add(const toml::source_position& at, std::string reason);

    [[nodiscard]] bool Empty() const { return reason.empty(); }
    [[nodiscard]] const std::string& Reason() const { return reason; }
    [[nodiscard]] unsigned Line() const { return place.line; }

private:
    toml::source_position place{};
    std::string reason;
};

/// What a text must look like.
struct KTTextRule
{
    bool (*holds)(std::string_view text);
    const char* allowed;  // completes "KEY must be ..."
    bool secret = false;  // its value is shown in no message
};

template <class T>
struct KTSettingsRow;

/// One value of the document. Each reading operation leaves its field alone when the value isn't allowed.
///
/// Threads: one thread at a time.
/// Memory:  refers to the document and to the list of mistakes.
class KTSettingsValue
{
public:
    KTSettingsValue(const toml::node& value, std::string valuePath, KTSettingsProblems& list)
        : node(value), path(std::move(valuePath)), problems(list)
    {
    }

    void Text(std::string& out, const KTTextRule& rule) const;
    void Word(std::string& out, std::span<const std::string_view> words) const;
    void Whole(int& out, int low, int high) const;

    /// Takes a whole number too. `holds` is asked only about finite numbers.
    void Number(double& out, bool (*holds)(double), const char* allowed) const;
    void Flag(bool& out) const;
    void Texts(std::vector<std::string>& out, const KTTextRule& rule) const;

    /// A table's keys, each by the row of its name. A key that isn't there keeps its field, one without row is a mistake.
    /// With `foreign`, a key that it names is a mistake too, for the reason that it gives.
    template <class T>
    void Table(std::span<const KTSettingsRow<T>> rows, T& out,
               const std::function<std::string(std::string_view key)>& foreign = nullptr) const;

    /// Calls `read` for each table of an array of tables, `[[path]]`.
    void Tables(const std::function<void(const toml::table&, const KTSettingsValue&)>& read) const;

    void Fail(std::string reason) const { problems.Add(node.source().begin, std::move(reason)); }
    void FailAt(const toml::node& place, std::string reason) const
    {
        problems.Add(place.source().begin, std::move(reason));
    }

    [[nodiscard]] const toml::node& Node() const { return node; }
    [[nodiscard]] const std::string& Path() const { return path; }

    /// The value as a message shows it: short, on one line.
    static std::string Shown(const toml::node& value);
    static std::string Quoted(std::string_view text);

private:
    void Refuse(const std::string& allowed) const;
    void UnknownKey(const toml::key& key, const std::string& reason, std::span<const std::string_view> known) const;
    [[nodiscard]] std::string UnderPath(std::string_view key) const;

    const toml::node& node;
    std::string path;
    KTSettingsProblems& problems;
};

/// One key of a table of the settings, and how its value gets into its field.
template <class T>
struct KTSettingsRow
{
    std::string_view key;
    void (*read)(const KTSettingsValue& value, T& out);
};

template <class T>
void KTSettingsValue::Table(std::span<const KTSettingsRow<T>> rows, T& out,
                            const std::function<std::string(std::string_view key)>& foreign) const
{
    const toml::table* const table = node.as_table();
    if (table == nullptr)
    {
        Refuse("a table, [" + path + "]");
        return;
    }
    for (const auto& [key, value] : *table)
    {
        const std::string_view word = key.str();
        const std::string reason = foreign ? foreign(word) : std::string();
        const auto row = std::find_if(rows.begin(), rows.end(), [&](const auto& r) { return r.key == word; });
        if (row != rows.end() && reason.empty())
        {
            row->read(KTSettingsValue(value, UnderPath(word), problems), out);
            continue;
        }
        std::vector<std::string_view> known;
        for (const KTSettingsRow<T>& r : rows)
            if (!foreign || foreign(r.key).empty()) known.push_back(r.key);
        UnknownKey(key, reason, known);
    }
}
