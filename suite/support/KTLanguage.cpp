#include "suite/support/KTLanguage.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/KTText.h"
#include "suite/support/KTExecutable.h"

namespace fs = std::filesystem;

namespace
{
constexpr const char* fallbackLanguage = "en";

struct KeyHash
{
    using is_transparent = void;
    std::size_t operator()(std::string_view key) const { return std::hash<std::string_view>()(key); }
};
using Catalogue = std::unordered_map<std::string, KTWideString, KeyHash, std::equal_to<>>;

struct Languages
{
    std::mutex mutex;                                // of the changes
    std::atomic<const Catalogue*> current{nullptr};  // null until the first text is asked for
    std::vector<std::unique_ptr<const Catalogue>> all;
};

Languages& TheLanguages()
{
    static Languages languages;
    return languages;
}

bool Unescape(std::string_view text, std::string& out)
{
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        if (text[i] != '\\')
        {
            out += text[i];
            continue;
        }
        const char escaped = ++i < text.size() ? text[i] : '\0';
        if (escaped != 'n' && escaped != 't' && escaped != '\\') return false;
        out += escaped == 'n' ? '\n' : escaped == 't' ? '\t' : '\\';
    }
    return true;
}

// Empty when the line is in order.
const char* AddLine(std::string_view line, Catalogue& catalogue)
{
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (line.empty() || line.front() == '#') return "";
    const std::size_t tab = line.find('\t');
    if (tab == std::string_view::npos || tab == 0) return "a line is KEY<TAB>TEXT";
    std::string text;
    if (!Unescape(line.substr(tab + 1), text)) return "the escapes are \\n, \\t and \\\\";
    KTWideString wide;
    Utf8ToUtf16(wide, KTNarrowString(text.c_str()));
    if (!catalogue.emplace(line.substr(0, tab), std::move(wide)).second) return "this key stands above already";
    return "";
}

// Adds the texts of a file. Goes on behind a mistake, and tells the first.
bool Read(const fs::path& file, Catalogue& catalogue, std::string& error)
{
    std::ifstream stream(file, std::ios::binary);
    if (!stream)
    {
        error = "can't read " + file.string() + ": " + std::strerror(errno);
        return false;
    }
    bool good = true;
    std::string line;
    for (int number = 1; std::getline(stream, line); ++number)
    {
        if (number == 1 && line.starts_with("\xEF\xBB\xBF")) line.erase(0, 3);
        const char* const mistake = AddLine(line, catalogue);
        if (*mistake != '\0' && good) error = file.string() + ':' + std::to_string(number) + ": " + mistake;
        good = good && *mistake == '\0';
    }
    return good;
}

std::string FileName(const std::string& language) { return language + ".tsv"; }

// The language, or the one that it is a variety of; empty when there is neither.
std::string Existing(const fs::path& directory, std::string language)
{
    std::error_code failure;
    while (!language.empty() && !fs::is_regular_file(directory / FileName(language), failure))
    {
        const std::size_t end = language.find_last_of("-_");
        language.resize(end == std::string::npos ? 0 : end);
    }
    return language;
}

std::string Offered(const fs::path& directory)
{
    std::vector<std::string> names;
    std::error_code failure;
    for (fs::directory_iterator entry(directory, failure), end; !failure && entry != end; entry.increment(failure))
        if (entry->path().extension() == ".tsv") names.push_back(entry->path().stem().string());
    std::sort(names.begin(), names.end());
    std::string list;
    for (const std::string& name : names) list += (list.empty() ? "" : ", ") + name;
    return list.empty() ? "none" : list;
}

void PutInForce(Languages& languages, Catalogue catalogue)
{
    languages.all.push_back(std::make_unique<const Catalogue>(std::move(catalogue)));
    languages.current.store(languages.all.back().get(), std::memory_order_release);
}

const Catalogue& Current()
{
    Languages& languages = TheLanguages();
    if (const Catalogue* const current = languages.current.load(std::memory_order_acquire)) return *current;
    const std::lock_guard guard(languages.mutex);
    if (languages.current.load(std::memory_order_relaxed) == nullptr)
    {
        Catalogue catalogue;
        std::string error;  // nobody asked for a language, so there is nobody to tell; unknown texts are empty
        (void)Read(fs::path(KTLanguage::InstalledDirectory()) / FileName(fallbackLanguage), catalogue, error);
        PutInForce(languages, std::move(catalogue));
    }
    return *languages.current.load(std::memory_order_relaxed);
}

bool Find(std::string_view key, KTWideString& out)
{
    const Catalogue& catalogue = Current();
    const auto found = catalogue.find(key);
    if (found == catalogue.end())
    {
        out.Clear();
        return false;
    }
    out = found->second;
    return true;
}
}  // namespace

std::string KTLanguage::InstalledDirectory()
{
    const fs::path beside = (fs::path(ExecutableDirectory()) / "../share/corvane/resources").lexically_normal();
    std::error_code failure;
    // A program of somebody else, which only uses the library, lies elsewhere.
    if (!fs::is_directory(beside, failure) && fs::is_directory(CORVANE_RESOURCES_DIRECTORY, failure))
        return CORVANE_RESOURCES_DIRECTORY;
    return beside.string();
}

bool KTLanguage::Load(const std::string& directory, const std::string& language, std::string& error)
{
    const fs::path place = directory.empty() ? InstalledDirectory() : directory;
    const std::string existing = Existing(place, language);
    if (existing.empty())
    {
        error = "there are no texts for \"" + language + "\" in " + place.string() + "; there are: " + Offered(place);
        return false;
    }
    Catalogue catalogue;
    if (!Read(place / FileName(existing), catalogue, error)) return false;
    if (Catalogue english; existing != fallbackLanguage && !Existing(place, fallbackLanguage).empty())
    {
        if (!Read(place / FileName(fallbackLanguage), english, error)) return false;
        catalogue.merge(english);
    }
    Languages& languages = TheLanguages();
    const std::lock_guard guard(languages.mutex);
    PutInForce(languages, std::move(catalogue));
    return true;
}

KTWideString& KTLoadString(int id, KTWideString& out)
{
    char key[16];
    const char* const end = std::to_chars(key, key + sizeof key, id).ptr;
    (void)Find(std::string_view(key, static_cast<std::size_t>(end - key)), out);
    return out;
}

KTWideString& StringId2String(int id, KTWideString& out) { return KTLoadString(id, out); }

bool KTLoadText(const char* key, KTWideString& out) { return Find(key, out); }
