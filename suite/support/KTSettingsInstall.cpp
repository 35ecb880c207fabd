#include <arpa/inet.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "host/KTCorvaneSetup.h"
#include "host/KTNumberFormat.h"
#include "host/KTText.h"
#include "suite/support/KTLanguage.h"
#include "suite/support/KTSettings.h"

namespace
{
constexpr mode_t directoryMode = 0750;

// Where html has another name, a directory below it leads back to it under the name that the feed looks for.
constexpr const char* detour = "/.corvane";

KTNarrowString Narrow(const std::string& text) { return KTNarrowString(text.c_str()); }

KTWideString Wide(const std::string& text)
{
    KTWideString wide;
    Utf8ToUtf16(wide, Narrow(text));
    return wide;
}

std::vector<KTWideString> WideNames(const std::vector<std::string>& names)
{
    std::vector<KTWideString> wide;
    wide.reserve(names.size());
    for (const std::string& name : names) wide.push_back(Wide(name));
    return wide;
}

std::string WithSeparator(const std::string& path) { return path.ends_with('/') ? path : path + '/'; }

bool IsNamedHtml(const std::string& path) { return std::filesystem::path(path).filename() == "html"; }

// The directory itself serves as the program's: "../html" of it is the same directory, in the text as for the system.
std::string AppPathFor(const std::string& htmlPath)
{
    return WithSeparator(IsNamedHtml(htmlPath) ? htmlPath : htmlPath + detour + "/bin");
}

bool MakeDirectory(const std::string& path, std::string& error)
{
    for (std::size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1))
    {
        const std::string part = path.substr(0, slash);
        // What exists is left as it is, and is no directory only where the next step fails too.
        if (::mkdir(part.c_str(), directoryMode) != 0 && errno != EEXIST && errno != EROFS)
        {
            error = "can't make the directory " + part + ": " + std::strerror(errno);
            return false;
        }
        if (slash == std::string::npos) break;
    }
    if (std::error_code failure; std::filesystem::is_directory(path, failure)) return true;
    error = "can't make the directory " + path + ": there is no directory, and something of that name may be";
    return false;
}

bool MakeDetour(const std::string& htmlPath, std::string& error)
{
    const std::string directory = htmlPath + detour;
    if (!MakeDirectory(directory + "/bin", error)) return false;
    const std::string link = directory + "/html";
    if (::symlink("..", link.c_str()) == 0 || errno == EEXIST) return true;
    error = "can't make the link " + link + ": " + std::strerror(errno);
    return false;
}

KTLocaleInformation::DateOrder DateOrderOf(const std::string& word)
{
    if (word == "mdy") return KTLocaleInformation::DateOrder::mdy;
    return word == "dmy" ? KTLocaleInformation::DateOrder::dmy : KTLocaleInformation::DateOrder::ymd;
}

int DayOfWeekOf(const std::string& word)
{
    constexpr std::array<std::string_view, 7> days = {"sunday",   "monday", "tuesday", "wednesday",
                                                      "thursday", "friday", "saturday"};
    for (std::size_t i = 0; i < days.size(); ++i)
        if (days[i] == word) return static_cast<int>(i) + 1;
    return 2;
}

KTLocaleInformation LocaleOf(const KTSettings& settings)
{
    KTLocaleInformation locale;
    locale.decimalSeparator = Wide(settings.decimal).Str()[0];
    locale.thousandSeparator = Wide(settings.thousands).Str()[0];
    locale.dateSeparator = Wide(settings.dateSeparator).Str()[0];
    locale.timeSeparator = Wide(settings.timeSeparator).Str()[0];
    locale.dateOrder = DateOrderOf(settings.dateOrder);
    locale.firstDayOfWeek = DayOfWeekOf(settings.firstDay);
    return locale;
}

KTSetupData SetupOf(const KTSettings& settings)
{
    KTSetupData data;
    data.cfgPath = Wide(WithSeparator(settings.cfgPath));
    data.dataPath = Wide(WithSeparator(settings.dataPath));
    data.appPath = Wide(AppPathFor(settings.htmlPath));
    data.programName = Wide(settings.programName);
    data.currentLanguage = Wide(settings.language);
    data.rssUrl = Wide(settings.rssUrl);
    data.rssActive = settings.rssActive;
    data.rssMaxItems = settings.rssItems;
    data.httpServerPort = settings.port;
    data.hasParking = settings.parkingEnabled;
    data.smtpServer = Narrow(settings.smtpServer);
    data.smtpFrom = Narrow(settings.smtpFrom);
    data.smtpUser = Narrow(settings.smtpUser);
    data.smtpPassword = Narrow(settings.smtpPassword);
    data.smtpAuthenticated = settings.smtpAuthenticated;
    std::vector<std::string> screens;
    for (const KTScreenSettings& screen : settings.screens) screens.push_back(screen.name);
    data.screens = WideNames(screens);
    data.reports = WideNames(settings.reports);
    return data;
}

// Paths go through wide text, which can't hold every name that the file system allows.
bool SurvivesWideText(const std::string& path)
{
    KTNarrowString back;
    Utf16ToUtf8(back, Wide(path));
    return path == back.Str();
}
}  // namespace

bool IsLoopbackAddress(const std::string& address)
{
    if (address == "localhost") return true;
    if (in_addr v4{}; inet_pton(AF_INET, address.c_str(), &v4) == 1) return (ntohl(v4.s_addr) >> 24) == 127;
    in6_addr v6{};
    if (inet_pton(AF_INET6, address.c_str(), &v6) != 1) return false;
    return IN6_IS_ADDR_LOOPBACK(&v6) || (IN6_IS_ADDR_V4MAPPED(&v6) && v6.s6_addr[12] == 127);
}

bool KTSettings::MayListen(std::string& error) const
{
    if (open || IsLoopbackAddress(listen) || (!users.empty() && !certificate.empty())) return true;
    const char* const lacking = users.empty() ? "[[http.user]] to sign in" : "http.certificate and http.key for TLS";
    error = file + ':' + std::to_string(listenLine) +
            ": http.listen must be a loopback address (127.0.0.1 or ::1), not \"" + listen + "\", without " + lacking +
            "; http.open = true allows it all the same";
    return false;
}

bool KTSettings::Configure(std::string& error) const
{
    for (const std::string* path : {&cfgPath, &dataPath, &htmlPath})
        if (!SurvivesWideText(*path))
        {
            error = file + ": the path " + *path + " isn't UTF-8";
            return false;
        }
    std::string reason;
    if (!KTLanguage::Load(resourcesPath, language, reason))
    {
        const unsigned line = languageLine != 0 ? languageLine : resourcesLine;
        error = file + (line != 0 ? ':' + std::to_string(line) : std::string()) + ": program.language: " + reason;
        return false;
    }
    LocaleInformationWide() = LocaleOf(*this);
    KTCorvaneSetup::Get().Configure(SetupOf(*this));
    return true;
}

bool KTSettings::MakeDirectories(std::string& error) const
{
    std::string reason;
    if (MakeDirectory(dataPath, reason) && MakeDirectory(htmlPath, reason) &&
        (IsNamedHtml(htmlPath) || MakeDetour(htmlPath, reason)))
        return true;
    error = file + ": " + reason;
    return false;
}

bool KTSettings::Install(std::string& error) const { return Configure(error) && MakeDirectories(error); }
