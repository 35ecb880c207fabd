#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "host/KTCorvaneSetup.h"
#include "host/KTDebugInfo.h"
#include "host/KTNumberFormat.h"
#include "host/KTText.h"
#include "settings/TemporaryDirectory.h"
#include "suite/support/KTExecutable.h"
#include "suite/support/KTLanguage.h"
#include "suite/support/KTSettings.h"

namespace fs = std::filesystem;

namespace
{
std::string Narrowed(const KTWideString& wide)
{
    KTNarrowString text;
    Utf16ToUtf8(text, wide);
    return text.Str();
}

// Each test leaves the process as it found it.
class KTSettingsInstall : public ::testing::Test
{
protected:
    KTSettingsInstall() : mask(umask(022)) {}
    ~KTSettingsInstall() override
    {
        umask(mask);
        KTCorvaneSetup::Get().Configure(KTSetupData());
        LocaleInformationWide() = KTLocaleInformation();
        std::string ignored;
        (void)KTLanguage::Load("", "en", ignored);
    }

    KTSettings Parsed(const std::string& text)
    {
        KTSettings settings;
        EXPECT_TRUE(settings.Parse(text, (directory.Path() / "corvane.toml").string(), error)) << error;
        return settings;
    }

    static unsigned ModeOf(const fs::path& path)
    {
        struct stat status
        {
        };
        EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
        return status.st_mode & 0777U;
    }

    TemporaryDirectory directory;
    std::string error;
    mode_t mask;
};

// What a writer of the feed does: the text of "../html" is resolved, and then there is a directory.
fs::path FeedDirectory()
{
    KTWideString path;
    GetAppPath(path);
    EXPECT_TRUE(Narrowed(path).ends_with('/'));
    path += L"../html";
    return fs::path(Narrowed(path)).lexically_normal();
}
}  // namespace

TEST_F(KTSettingsInstall, MakesTheDirectoriesOfTheDataAndTheFeedButNotThatOfTheDocuments)
{
    ASSERT_TRUE(Parsed("[paths]\ndata = \"a/b/data\"\n").Install(error)) << error;
    EXPECT_EQ(ModeOf(directory.Path() / "a"), 0750u);
    EXPECT_EQ(ModeOf(directory.Path() / "a/b/data"), 0750u);
    EXPECT_EQ(ModeOf(directory.Path() / "html"), 0750u);
    EXPECT_FALSE(fs::exists(directory.Path() / "cfg"));
    ASSERT_TRUE(Parsed("[paths]\ndata = \"a/b/data\"\n").Install(error)) << error;  // a second time
}

TEST_F(KTSettingsInstall, SaysWhichDirectoryCantBeMade)
{
    std::ofstream(directory.Path() / "file") << "x";
    EXPECT_FALSE(Parsed("[paths]\ndata = \"file/data\"\n").Install(error));
    EXPECT_EQ(error, (directory.Path() / "corvane.toml").string() + ": can't make the directory " +
                         (directory.Path() / "file/data").string() + ": Not a directory");
    EXPECT_FALSE(Parsed("[paths]\nhtml = \"file\"\n").Install(error));
    EXPECT_NE(error.find((directory.Path() / "file").string()), std::string::npos) << error;
}

TEST_F(KTSettingsInstall, ConfiguresWithoutMakingAnything)
{
    ASSERT_TRUE(Parsed("").Configure(error)) << error;
    EXPECT_TRUE(fs::is_empty(directory.Path()));
    EXPECT_EQ(Narrowed(KTCorvaneSetup::Get().CfgPath()), (directory.Path() / "cfg/").string());
}

TEST_F(KTSettingsInstall, HandsTheModuleWhatItReads)
{
    ASSERT_TRUE(Parsed(R"(
[program]
name = "Plañt"
language = "es"
[http]
port = 0
[rss]
active = true
items = 7
url = "feed.example"
[smtp]
server = "mail:25"
from = "f"
user = "ü"
password = "p"
authenticated = true
[parking]
enabled = true
[[screen]]
name = "Main"
[[screen]]
name = "Cold store"
[[report]]
name = "Daily"
)")
                    .Install(error))
        << error;
    const KTCorvaneSetup& setup = KTCorvaneSetup::Get();
    EXPECT_EQ(Narrowed(setup.CfgPath()), (directory.Path() / "cfg/").string());
    EXPECT_EQ(Narrowed(setup.DataPath()), (directory.Path() / "data/").string());
    EXPECT_EQ(Narrowed(setup.ProgramName()), "Plañt");
    EXPECT_EQ(Narrowed(setup.CurrentLanguage()), "es");
    EXPECT_EQ(Narrowed(setup.RssUrl()), "feed.example");
    EXPECT_TRUE(setup.RssActive());
    EXPECT_EQ(setup.RssMaxItems(), 7);
    EXPECT_EQ(setup.HttpServerPort(), 0);
    EXPECT_TRUE(setup.HasParking());
    EXPECT_STREQ(setup.SmtpServer().Str(), "mail:25");
    EXPECT_STREQ(setup.SmtpFrom().Str(), "f");
    EXPECT_STREQ(setup.SmtpUser().Str(), "ü");
    EXPECT_STREQ(setup.SmtpPassword().Str(), "p");
    EXPECT_TRUE(setup.SmtpAuthenticated());
    KTWideString text;
    EXPECT_EQ(Narrowed(KTLoadString(711, text)), "Sí");

    int id = 77;
    EXPECT_TRUE(ScreenName2Id(L"Cold store", id));
    EXPECT_EQ(id, 1);
    EXPECT_TRUE(ReportName2Id(L"Daily", id));
    EXPECT_EQ(id, 0);
    id = 77;
    EXPECT_FALSE(ScreenName2Id(L"main", id));
    EXPECT_FALSE(ScreenName2Id(L"Daily", id));
    EXPECT_FALSE(ReportName2Id(L"", id));
    EXPECT_EQ(id, 77);
}

TEST_F(KTSettingsInstall, SetsTheSeparatorsAndTheWeek)
{
    ASSERT_TRUE(
        Parsed("[locale]\ndate_order = \"dmy\"\ndate_separator = \"/\"\ntime_separator = \".\"\ndecimal = \",\"\n"
               "thousands = \"\\u202F\"\nfirst_day = \"saturday\"\n")
            .Install(error))
        << error;
    const KTLocaleInformation& locale = LocaleInformationWide();
    EXPECT_EQ(locale.dateOrder, KTLocaleInformation::DateOrder::dmy);
    EXPECT_EQ(locale.dateSeparator, L'/');
    EXPECT_EQ(locale.timeSeparator, L'.');
    EXPECT_EQ(locale.decimalSeparator, L',');
    EXPECT_EQ(locale.thousandSeparator, L'\u202F');
    EXPECT_EQ(locale.firstDayOfWeek, 7);

    ASSERT_TRUE(Parsed("").Install(error)) << error;
    EXPECT_EQ(LocaleInformationWide().dateOrder, KTLocaleInformation::DateOrder::ymd);
    EXPECT_EQ(LocaleInformationWide().firstDayOfWeek, 2);
    ASSERT_TRUE(Parsed("[locale]\ndate_order = \"mdy\"\nfirst_day = \"sunday\"\n").Install(error)) << error;
    EXPECT_EQ(LocaleInformationWide().dateOrder, KTLocaleInformation::DateOrder::mdy);
    EXPECT_EQ(LocaleInformationWide().firstDayOfWeek, 1);
}

TEST_F(KTSettingsInstall, LetsTheFeedBeFoundFromTheProgramsDirectory)
{
    for (const char* const html : {"html", "deep/down/html", "web", "html/feed", "html/html/"})
    {
        const KTSettings settings = Parsed(std::string("[paths]\nhtml = \"") + html + "\"\n");
        ASSERT_TRUE(settings.Install(error)) << error;
        EXPECT_TRUE(fs::equivalent(FeedDirectory(), settings.htmlPath)) << html << " " << FeedDirectory();

        // The system takes the `..` out by itself, and comes to the same directory.
        KTWideString path;
        GetAppPath(path);
        EXPECT_TRUE(fs::equivalent(Narrowed(path) + "../html", settings.htmlPath)) << html;
        std::ofstream(FeedDirectory() / "events.rss") << "x";
        EXPECT_TRUE(fs::exists(fs::path(settings.htmlPath) / "events.rss")) << html;
    }
    EXPECT_FALSE(fs::exists(directory.Path() / "html/.corvane"));
}

TEST_F(KTSettingsInstall, ResolvesTheDetourToADirectoryThatMoved)
{
    ASSERT_TRUE(Parsed("[paths]\nhtml = \"web\"\n").Install(error)) << error;
    fs::rename(directory.Path() / "web", directory.Path() / "moved");
    const KTSettings moved = Parsed("[paths]\nhtml = \"moved\"\n");
    ASSERT_TRUE(moved.Install(error)) << error;
    EXPECT_TRUE(fs::equivalent(FeedDirectory(), moved.htmlPath));
}

TEST_F(KTSettingsInstall, TellsTheLineOfALanguageWithoutTexts)
{
    EXPECT_FALSE(Parsed("[program]\nname = \"x\"\nlanguage = \"xx\"\n").Install(error));
    EXPECT_TRUE(error.starts_with((directory.Path() / "corvane.toml").string() + ":3: program.language: ")) << error;
    EXPECT_NE(error.find("there are: en, es"), std::string::npos) << error;
    EXPECT_FALSE(Parsed("[paths]\nresources = \"nowhere\"\n").Install(error));
    EXPECT_TRUE(error.starts_with((directory.Path() / "corvane.toml").string() + ":2: ")) << error;
    EXPECT_FALSE(fs::exists(directory.Path() / "data"));
}

TEST_F(KTSettingsInstall, TakesTheTextsFromTheDirectoryOfTheSettings)
{
    fs::create_directory(directory.Path() / "texts");
    std::ofstream(directory.Path() / "texts/en.tsv") << "607\taus\n";
    ASSERT_TRUE(Parsed("[paths]\nresources = \"texts\"\n").Install(error)) << error;
    KTWideString text;
    EXPECT_EQ(Narrowed(KTLoadString(607, text)), "aus");
}

TEST_F(KTSettingsInstall, RefusesAPathThatIsNoUtf8)
{
    KTSettings settings;
    ASSERT_TRUE(settings.Parse("", (directory.Path() / "\xff/corvane.toml").string(), error)) << error;
    EXPECT_FALSE(settings.Install(error));
    EXPECT_NE(error.find("isn't UTF-8"), std::string::npos) << error;
}

TEST(GetAppPath, IsTheDirectoryOfTheExecutableWithoutSettings)
{
    KTWideString path(L"before");
    EXPECT_EQ(&GetAppPath(path), &path);
    EXPECT_EQ(Narrowed(path), fs::read_symlink("/proc/self/exe").parent_path().string() + "/");
    EXPECT_EQ(ExecutableDirectory() + "/", Narrowed(path));
}

TEST(KTCorvaneSetup, IsOneForTheProcess)
{
    EXPECT_EQ(&KTCorvaneSetup::Get(), &KTCorvaneSetup::Get());
    EXPECT_TRUE(KTCorvaneSetup::Get().CfgPath().Empty());
}

TEST(KTDebugInfo, KeepsTheWarningsInTheirOrder)
{
    ASSERT_NE(KTDebugInfo::instance, nullptr);
    KTDebugInfo& info = *KTDebugInfo::instance;
    info.Clear();
    KTWideString name(L"Pump");
    info.AddWarning(16415, name.Str(), L"{id}", L"a");
    name = L"changed";
    info.AddWarning(16416, L"", L"", L"");
    ASSERT_EQ(info.Warnings().size(), 2u);
    EXPECT_EQ(info.Warnings().front().code, 16415);
    EXPECT_TRUE(info.Warnings().front().name == L"Pump");
    EXPECT_TRUE(info.Warnings().front().id == L"{id}");
    EXPECT_TRUE(info.Warnings().front().text == L"a");
    EXPECT_EQ(info.Warnings().back().code, 16416);
    info.Clear();
    EXPECT_TRUE(info.Warnings().empty());
}
