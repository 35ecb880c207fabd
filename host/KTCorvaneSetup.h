// The suite-wide settings as the module sees them.
#pragma once

#include <vector>

#include "host/KTString.h"

/// What the host knows about its installation. All paths end in a separator.
struct KTSetupData
{
    KTWideString cfgPath;   // default.xeve, default.xtmt, default.xpark
    KTWideString dataPath;  // root of the event log tree
    KTWideString appPath;   // directory of the program; its "../html" holds the feed
    KTWideString programName;
    KTWideString currentLanguage;
    KTWideString rssUrl;  // host part of the feed's links
    bool rssActive = false;
    int rssMaxItems = 20;
    int httpServerPort = 0;
    unsigned programIdResource = 0;
    bool hasParking = false;
    KTNarrowString smtpServer;  // "host" or "host:port"
    KTNarrowString smtpFrom;
    KTNarrowString smtpUser;
    KTNarrowString smtpPassword;
    bool smtpAuthenticated = false;
    std::vector<KTWideString> screens;  // names of what clients can open
    std::vector<KTWideString> reports;
};

/// The one set of settings of the process.
///
/// Threads: Configure only while nobody reads; the getters from any thread.
class KTCorvaneSetup
{
public:
    static KTCorvaneSetup& Get();

    void Configure(const KTSetupData& values) { data = values; }

    [[nodiscard]] const KTWideString& CfgPath() const { return data.cfgPath; }
    [[nodiscard]] const KTWideString& DataPath() const { return data.dataPath; }
    [[nodiscard]] const KTWideString& ProgramName() const { return data.programName; }
    [[nodiscard]] unsigned ProgramIDResource() const { return data.programIdResource; }
    [[nodiscard]] const KTWideString& CurrentLanguage() const { return data.currentLanguage; }
    [[nodiscard]] const KTWideString& RssUrl() const { return data.rssUrl; }
    [[nodiscard]] bool RssActive() const { return data.rssActive; }
    [[nodiscard]] int RssMaxItems() const { return data.rssMaxItems; }
    [[nodiscard]] int HttpServerPort() const { return data.httpServerPort; }
    [[nodiscard]] bool HasParking() const { return data.hasParking; }
    [[nodiscard]] const KTNarrowString& SmtpServer() const { return data.smtpServer; }
    [[nodiscard]] const KTNarrowString& SmtpFrom() const { return data.smtpFrom; }
    [[nodiscard]] const KTNarrowString& SmtpUser() const { return data.smtpUser; }
    [[nodiscard]] const KTNarrowString& SmtpPassword() const { return data.smtpPassword; }
    [[nodiscard]] bool SmtpAuthenticated() const { return data.smtpAuthenticated; }
    [[nodiscard]] const KTWideString& AppPath() const { return data.appPath; }
    [[nodiscard]] const std::vector<KTWideString>& Screens() const { return data.screens; }
    [[nodiscard]] const std::vector<KTWideString>& Reports() const { return data.reports; }

private:
    KTSetupData data;
};

/// The directory of the running program, ending in a separator: the AppPath of the settings, or where the executable
/// lies while there is none. "../html" behind it, with the `..` taken out of the text, is the directory of the feed.
/// Replaces and returns `out`.
KTWideString& GetAppPath(KTWideString& out);

/// The place of a screen, or report, of that name among those of the settings, from 0. False, with `id` unchanged, when
/// there is none; the comparison is exact.
bool ScreenName2Id(const wchar_t* name, int& id);
bool ReportName2Id(const wchar_t* name, int& id);
