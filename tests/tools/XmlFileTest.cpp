#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "host/KTText.h"
#include "host/XmlDocument.h"
#include "tools/XmlSamples.h"

namespace
{
namespace fs = std::filesystem;

class XmlFile : public testing::Test
{
protected:
    void SetUp() override
    {
        std::string pattern = (fs::temp_directory_path() / "corvane-xml-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        directory = pattern;
    }
    void TearDown() override { fs::remove_all(directory); }

    [[nodiscard]] std::string At(const std::string& name) const { return (directory / name).string(); }

    static KTWideString Wide(const std::string& path)
    {
        KTWideString out;
        Utf8ToUtf16(out, KTNarrowString(path.c_str()));
        return out;
    }
    static void Write(const std::string& path, const std::string& text)
    {
        std::ofstream(path, std::ios::binary) << text;
    }
    static std::string Read(const std::string& path)
    {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    static unsigned ModeOf(const std::string& path)
    {
        struct stat status
        {
        };
        return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
    }
    [[nodiscard]] int FilesThere() const
    {
        return static_cast<int>(std::distance(fs::directory_iterator(directory), fs::directory_iterator()));
    }

    fs::path directory;
};

const char* const declaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

TEST_F(XmlFile, WhatIsSavedLoads)
{
    XmlDocument document;
    EXPECT_FALSE(document.Load(Wide(At("a.xml")).Str()));
    document.Create(L"main");
    document.Root()->SetValue(L"name", L" caf\u00E9 <&>\r\n");
    document.Root()->NewChild(L"empty");
    document.Root()->NewChild(L"mixed")->SetValue(L"text");
    document.Node(L"mixed")->NewChild(L"b")->NewChild(L"c")->SetValue(L"1");
    ASSERT_TRUE(document.Save());
    EXPECT_EQ(Read(At("a.xml")), std::string(declaration) +
                                     "<main>\n  <name> caf\xC3\xA9 &lt;&amp;&gt;&#13;\n</name>\n  <empty/>\n"
                                     "  <mixed>text<b>\n      <c>1</c>\n    </b></mixed>\n</main>\n");
    XmlDocument back;
    ASSERT_TRUE(back.Load(Wide(At("a.xml")).Str()));
    EXPECT_EQ(CodeOf(back), CodeOf(document));
    EXPECT_EQ(FilesThere(), 1) << "nothing is left beside it";
}

TEST_F(XmlFile, AFailedLoadRemembersThePathForASave)
{
    for (const char* content : {"", "<broken", "<a></b>"})
    {
        if (*content != '\0') Write(At("d.xeve"), content);
        XmlDocument document = Parsed("<before/>");
        EXPECT_FALSE(document.Load(Wide(At("d.xeve")).Str())) << content;
        EXPECT_EQ(document.Root(), nullptr);
        EXPECT_FALSE(document.Save()) << "there is nothing to save";
        EXPECT_EQ(Read(At("d.xeve")), content);
        document.Create(L"main");
        EXPECT_TRUE(document.Save());
        EXPECT_EQ(Read(At("d.xeve")), std::string(declaration) + "<main/>\n");
        fs::remove(At("d.xeve"));
    }
}

TEST_F(XmlFile, ParseAndCreateKeepThePathAndCopiesTakeIt)
{
    Write(At("a.xml"), "<a/>");
    XmlDocument document;
    ASSERT_TRUE(document.Load(Wide(At("a.xml")).Str()));
    ASSERT_TRUE(document.Parse("<b/>"));
    ASSERT_TRUE(document.Save());
    EXPECT_EQ(Read(At("a.xml")), std::string(declaration) + "<b/>\n");
    XmlDocument copy(document);
    copy.Create(L"c");
    ASSERT_TRUE(copy.Save());
    EXPECT_EQ(Read(At("a.xml")), std::string(declaration) + "<c/>\n");
    XmlDocument nowhere = Parsed("<x/>");
    EXPECT_FALSE(nowhere.Save()) << "no path is known";
}

TEST_F(XmlFile, TheLastLoadCounts)
{
    Write(At("a.xml"), "<a/>");
    Write(At("b.xml"), "<b/>");
    XmlDocument document;
    ASSERT_TRUE(document.Load(Wide(At("a.xml")).Str()));
    ASSERT_TRUE(document.Load(Wide(At("b.xml")).Str()));
    document.Root()->SetValue(L"x");
    ASSERT_TRUE(document.Save());
    EXPECT_EQ(Read(At("a.xml")), "<a/>");
    EXPECT_EQ(Read(At("b.xml")), std::string(declaration) + "<b>x</b>\n");
}

TEST_F(XmlFile, RefusesWhatIsNoRegularFile)
{
    XmlDocument document;
    EXPECT_FALSE(document.Load(Wide(directory.string()).Str()));
    EXPECT_FALSE(document.Load(L""));
    ASSERT_EQ(mkfifo(At("pipe").c_str(), 0600), 0);
    EXPECT_FALSE(document.Load(Wide(At("pipe")).Str())) << "without waiting for a writer";
    document.Create(L"main");
    EXPECT_FALSE(XmlDocument(document).Load(Wide(At("missing/a.xml")).Str()));
    document.Load(Wide(At("missing/a.xml")).Str());
    document.Create(L"main");
    EXPECT_FALSE(document.Save()) << "the directory isn't there";
}

TEST_F(XmlFile, ANewFileGetsItsModeAndAnOldOneKeepsIts)
{
    const mode_t before = umask(022);
    XmlDocument document;
    document.Load(Wide(At("new.xml")).Str());
    document.Create(L"main");
    ASSERT_TRUE(document.Save());
    EXPECT_EQ(ModeOf(At("new.xml")), 0640U);
    for (const mode_t mode : {0600U, 0664U, 0444U})
    {
        ASSERT_EQ(chmod(At("new.xml").c_str(), mode), 0);
        ASSERT_TRUE(document.Save());
        EXPECT_EQ(ModeOf(At("new.xml")), mode);
    }
    umask(before);
}

TEST_F(XmlFile, SavesThroughALink)
{
    fs::create_directory(At("real"));
    Write(At("real/a.xml"), "<old/>");
    fs::create_symlink("real/a.xml", At("link.xml"));
    XmlDocument document;
    ASSERT_TRUE(document.Load(Wide(At("link.xml")).Str()));
    document.Create(L"new");
    ASSERT_TRUE(document.Save());
    EXPECT_TRUE(fs::is_symlink(At("link.xml")));
    EXPECT_EQ(Read(At("real/a.xml")), std::string(declaration) + "<new/>\n");
}

TEST_F(XmlFile, SavesBesideTheProcessesOwnDirectory)
{
    const fs::path before = fs::current_path();
    fs::current_path(directory);
    XmlDocument document;
    document.Load(L"bare.xml");
    document.Create(L"main");
    EXPECT_TRUE(document.Save());
    EXPECT_TRUE(fs::exists(At("bare.xml")));
    fs::current_path(before);
}

// The disk takes so many bytes and no more; in a process of its own, since the limit can't be taken back by everyone.
TEST_F(XmlFile, AFullDiskLeavesTheOldFile)
{
    const std::string old = "<old>everything that matters</old>";
    XmlDocument document;
    document.Load(Wide(At("a.xml")).Str());
    document.Create(L"main");
    for (int i = 0; i < 20'000; ++i) document.Root()->NewChild(L"event")->SetValue(L"id", L"some text");
    ASSERT_TRUE(document.Save());
    const auto whole = fs::file_size(At("a.xml"));

    for (const rlim_t room : {rlim_t{0}, rlim_t{1}, rlim_t{65'536}, rlim_t{70'000}, static_cast<rlim_t>(whole - 1)})
    {
        Write(At("a.xml"), old);
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0)
        {
            std::signal(SIGXFSZ, SIG_IGN);
            const rlimit limit{room, room};
            setrlimit(RLIMIT_FSIZE, &limit);
            _exit(document.Save() ? 1 : 0);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the save must fail with room for " << room;
        EXPECT_EQ(Read(At("a.xml")), old) << room;
        EXPECT_EQ(FilesThere(), 1) << room;
    }
}

TEST_F(XmlFile, ASaveThatCannotBePutInPlaceLeavesNothing)
{
    fs::create_directory(At("a.xml"));  // a name that can't be replaced
    Write(At("a.xml/inside"), "x");
    XmlDocument document;
    EXPECT_FALSE(document.Load(Wide(At("a.xml")).Str()));
    document.Create(L"main");
    EXPECT_FALSE(document.Save());
    EXPECT_EQ(FilesThere(), 1);
    EXPECT_TRUE(fs::exists(At("a.xml/inside")));
}

// A process that was killed leaves its unfinished file behind, and the next one may well get the same number.
TEST_F(XmlFile, SavesPastWhatAKilledWriterLeftBehind)
{
    constexpr int left = 300;
    for (int i = 0; i < left; ++i)
        Write(At("a.xml." + std::to_string(getpid()) + "-" + std::to_string(i) + ".new"), "half");
    XmlDocument document;
    EXPECT_FALSE(document.Load(Wide(At("a.xml")).Str()));
    document.Create(L"main");
    EXPECT_TRUE(document.Save());
    EXPECT_TRUE(document.Load(Wide(At("a.xml")).Str()));
    EXPECT_EQ(FilesThere(), left + 1);
}

// A writer that is killed in the middle: whoever reads meets a whole document, the old one or the new one.
TEST_F(XmlFile, AKilledWriterNeverLeavesHalfADocument)
{
    XmlDocument document;
    document.Load(Wide(At("a.xml")).Str());
    document.Create(L"main");
    for (int i = 0; i < 5'000; ++i) document.Root()->NewChild(L"event")->SetValue(L"id", L"some text");
    ASSERT_TRUE(document.Save());
    for (int round = 0; round < 10; ++round)
    {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0)
            for (int i = 0;; ++i)
            {
                document.Root()->SetValue(L"round", std::to_wstring(i).c_str());
                (void)document.Save();
            }
        for (int look = 0; look < 5; ++look)
        {
            XmlDocument seen;
            EXPECT_TRUE(seen.Load(Wide(At("a.xml")).Str()));
            ASSERT_NE(seen.Root(), nullptr);
            EXPECT_GE(seen.Root()->Size(), 5'000);
        }
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        XmlDocument seen;
        EXPECT_TRUE(seen.Load(Wide(At("a.xml")).Str()));
    }
}

TEST_F(XmlFile, LoadsWhatIsLargerThanOneReading)
{
    std::string text = "<main>";
    while (text.size() < 2'000'000)
        text += "<event><id>{6F9619FF-8B86-D011-B42D-00CF4FC964FF}</id><n>caf\xC3\xA9</n></event>";
    text += "</main>";
    Write(At("a.xml"), text);
    XmlDocument document;
    ASSERT_TRUE(document.Load(Wide(At("a.xml")).Str()));
    EXPECT_EQ(CodeOf(document), text);
}

TEST_F(XmlFile, AVeryDeepDocumentIsSavedAndLoaded)
{
    XmlDocument document;
    document.Load(Wide(At("a.xml")).Str());
    ASSERT_TRUE(document.Parse(Nested(100'000).c_str()));
    ASSERT_TRUE(document.Save());
    EXPECT_LT(fs::file_size(At("a.xml")), 20'000'000U);
    XmlDocument back;
    ASSERT_TRUE(back.Load(Wide(At("a.xml")).Str()));
    EXPECT_EQ(CodeOf(back), CodeOf(document));
}
}  // namespace
