#include "suite/support/KTLanguage.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include "host/KTText.h"
#include "settings/TemporaryDirectory.h"

namespace fs = std::filesystem;

namespace
{
std::string Narrowed(const KTWideString& wide)
{
    KTNarrowString text;
    Utf16ToUtf8(text, wide);
    return text.Str();
}
std::string Loaded(int id)
{
    KTWideString out(L"before");
    return Narrowed(KTLoadString(id, out));
}
std::string Text(const char* key)
{
    KTWideString out(L"before");
    return KTLoadText(key, out) ? Narrowed(out) : "none" + Narrowed(out);
}

// Each test leaves the installed English behind.
class KTLanguageTest : public ::testing::Test
{
protected:
    ~KTLanguageTest() override { (void)KTLanguage::Load("", "en", error); }

    void Write(const char* name, const std::string& content) const
    {
        std::ofstream(directory.Path() / name, std::ios::binary) << content;
    }
    bool Load(const char* language) { return KTLanguage::Load(directory.Path().string(), language, error); }

    TemporaryDirectory directory;
    std::string error;
};
}  // namespace

// Has to be the first of the program: nothing was loaded before it.
TEST(KTLanguage, IsEnglishWhenNothingWasLoaded)
{
    EXPECT_EQ(Loaded(607), "OFF");
    EXPECT_EQ(Loaded(608), "ON");
    EXPECT_EQ(Text("E62"), "the variable exists and has no value now");
}

TEST_F(KTLanguageTest, FindsTheInstalledLanguages)
{
    ASSERT_TRUE(fs::exists(fs::path(KTLanguage::InstalledDirectory()) / "en.tsv")) << KTLanguage::InstalledDirectory();
    ASSERT_TRUE(KTLanguage::Load("", "es", error)) << error;
    EXPECT_EQ(Loaded(711), "Sí");
    KTWideString out;
    EXPECT_EQ(Narrowed(StringId2String(711, out)), "Sí");
    ASSERT_TRUE(KTLanguage::Load("", "en", error)) << error;
    EXPECT_EQ(Loaded(711), "Yes");
}

TEST_F(KTLanguageTest, ReadsTheEscapesAndLeavesOutComments)
{
    Write("en.tsv",
          "\xEF\xBB\xBF# first\n\n1\ta\\nb\\tc\\\\d\\\\n\n2\tb\tc # d\r\n3\t\n4\t "
          "\xE2\x82\xAC\xF0\x9F\x98\x80\nE40\tnothing");
    ASSERT_TRUE(Load("en")) << error;
    EXPECT_EQ(Loaded(1), "a\nb\tc\\d\\n");
    EXPECT_EQ(Loaded(2), "b\tc # d");
    EXPECT_EQ(Text("3"), "");
    EXPECT_EQ(Loaded(4), " \xE2\x82\xAC\xF0\x9F\x98\x80");
    EXPECT_EQ(Text("E40"), "nothing");
    EXPECT_EQ(Text("E41"), "none");
    EXPECT_EQ(Loaded(5), "");
    EXPECT_EQ(Loaded(-1), "");
    EXPECT_EQ(Text(""), "none");
}

TEST_F(KTLanguageTest, TakesWhatALanguageLacksFromEnglish)
{
    Write("en.tsv", "1\tone\n2\ttwo\nE0\tsuccess\n");
    Write("nl.tsv", "2\ttwee\n3\tdrie\n");
    ASSERT_TRUE(Load("nl")) << error;
    EXPECT_EQ(Loaded(1), "one");
    EXPECT_EQ(Loaded(2), "twee");
    EXPECT_EQ(Loaded(3), "drie");
    EXPECT_EQ(Text("E0"), "success");
}

TEST_F(KTLanguageTest, TakesTheLanguageForAVarietyOfIt)
{
    Write("en.tsv", "1\tone\n");
    Write("pt.tsv", "1\tum\n");
    Write("pt-BR.tsv", "1\tum!\n");
    ASSERT_TRUE(Load("pt-PT")) << error;
    EXPECT_EQ(Loaded(1), "um");
    ASSERT_TRUE(Load("pt-BR")) << error;
    EXPECT_EQ(Loaded(1), "um!");
    ASSERT_TRUE(Load("pt-BR_x")) << error;
    EXPECT_EQ(Loaded(1), "um!");
    ASSERT_TRUE(Load("en-GB")) << error;
    EXPECT_EQ(Loaded(1), "one");
}

TEST_F(KTLanguageTest, SaysWhichLanguagesThereAreAndKeepsTheOneInForce)
{
    Write("en.tsv", "1\tone\n");
    Write("de.tsv", "1\teins\n");
    ASSERT_TRUE(Load("de"));
    EXPECT_FALSE(Load("fr"));
    EXPECT_NE(error.find("no texts for \"fr\""), std::string::npos) << error;
    EXPECT_NE(error.find("there are: de, en"), std::string::npos) << error;
    EXPECT_EQ(Loaded(1), "eins");
    EXPECT_FALSE(KTLanguage::Load((directory.Path() / "nowhere").string(), "en", error));
    EXPECT_NE(error.find("there are: none"), std::string::npos) << error;
}

TEST_F(KTLanguageTest, TellsTheLineOfAMistakeAndKeepsTheLanguageInForce)
{
    Write("en.tsv", "1\tone\n");
    ASSERT_TRUE(Load("en"));
    const struct
    {
        const char* content;
        const char* reason;
    } rows[] = {
        {"1\ta\n2 b\n", "de.tsv:2: a line is KEY<TAB>TEXT"},
        {"\ta\n", "de.tsv:1: a line is KEY<TAB>TEXT"},
        {"# c\n1\ta\\x\n", "de.tsv:2: the escapes are"},
        {"1\ta\\", "de.tsv:1: the escapes are"},
        {"1\ta\n\n1\tb\n2\n", "de.tsv:3: this key stands above already"},
    };
    for (const auto& row : rows)
    {
        Write("de.tsv", row.content);
        EXPECT_FALSE(Load("de"));
        EXPECT_NE(error.find(row.reason), std::string::npos) << error;
        EXPECT_EQ(Loaded(1), "one");
    }
}

TEST_F(KTLanguageTest, CanBeReadWhileItChanges)
{
    Write("en.tsv", "1\tone\n");
    Write("de.tsv", "1\teins\n");
    ASSERT_TRUE(Load("en"));
    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i)
        readers.emplace_back(
            [&]
            {
                while (!stop)
                {
                    const std::string text = Loaded(1);
                    if (text != "one" && text != "eins") ++wrong;
                }
            });
    for (int i = 0; i < 50; ++i) EXPECT_TRUE(Load(i % 2 == 0 ? "de" : "en"));
    stop = true;
    for (std::thread& reader : readers) reader.join();
    EXPECT_EQ(wrong, 0);
}
