// Looking at a file that ordinary readers refuse, and writing many records at once.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "log/KTEventFile.h"
#include "settings/TemporaryDirectory.h"
#include "support/TestFiles.h"
#include "support/TestText.h"

namespace
{
class EventFileDamage : public testing::Test
{
protected:
    EventFileDamage()
    {
        EXPECT_TRUE(KTEventFile::Create(path.Str(), {"EVENTv2.70", 2000}));
        EXPECT_TRUE(file.Open(path.Str(), false));
    }

    bool Append(int second, const char* annotation = "")
    {
        EXPECT_TRUE(file.NewRecord());
        file.SetEventId(TestId(1));
        file.SetDateValue(Date(2024, 3, 10, 8, 0, second));
        file.SetEventValue(1);
        file.SetEventAnnotation(KTNarrowString(annotation));
        return file.Update();
    }
    void Spoil(int place, char byte) const
    {
        std::fstream stream(name, std::ios::binary | std::ios::in | std::ios::out);
        stream.seekp(place).put(byte);
    }

    TemporaryDirectory directory;
    const std::string name = (directory.Path() / "a.suc").string();
    const KTWideString path = Wide(name);
    KTEventFile file{true};
};

TEST_F(EventFileDamage, ABadHeaderHidesNoRecordFromWhoAsksForThem)
{
    ASSERT_TRUE(Append(1, "warm"));
    Spoil(13, 0);
    EXPECT_FALSE(file.Open(path.Str(), true));
    EXPECT_FALSE(file.IsOpen());
    ASSERT_TRUE(file.OpenDamaged(path.Str()));
    EXPECT_FALSE(file.HeaderIsSound());
    EXPECT_EQ(file.NRecords(), 1);
    ASSERT_TRUE(file.GoRecord(0));
    KTNarrowString text;
    EXPECT_TRUE(file.ReadAnnotation(file.AnnotationOffset(), text));
    EXPECT_EQ(text, "warm");
    EXPECT_FALSE(file.NewRecord());  // nothing is written there
    EXPECT_FALSE(file.Open(path.Str(), true));
}

TEST_F(EventFileDamage, ASoundHeaderIsToldFromABadOne)
{
    EXPECT_TRUE(file.HeaderIsSound());
    EXPECT_TRUE(file.OpenDamaged(path.Str()));
    EXPECT_TRUE(file.HeaderIsSound());
}

TEST_F(EventFileDamage, AFileCutInItsHeaderDoesNotOpen)
{
    for (const std::uintmax_t size : {13U, 1U, 0U})
    {
        std::filesystem::resize_file(name, size);
        EXPECT_FALSE(file.OpenDamaged(path.Str())) << size;
        EXPECT_FALSE(file.HeaderIsSound()) << size;
        EXPECT_EQ(file.TailSize(), 0) << size;
    }
    EXPECT_FALSE(file.OpenDamaged(Wide(name + ".none").Str()));
}

TEST_F(EventFileDamage, BytesBehindTheLastWholeRecordAreCounted)
{
    ASSERT_TRUE(Append(1));
    for (const int tail : {0, 1, 25, 26})
    {
        std::filesystem::resize_file(name, static_cast<std::uintmax_t>(14 + 26 + tail));
        ASSERT_TRUE(file.Open(path.Str(), true));
        EXPECT_EQ(file.TailSize(), tail % 26);
        EXPECT_EQ(file.NRecords(), 1 + tail / 26);
    }
}

TEST_F(EventFileDamage, DeferredCommitsAreMadeForBothFilesTogether)
{
    class Counting : public TestFiles
    {
    public:
        bool Commit(int handle) override
        {
            ++commits;
            return good && TestFiles::Commit(handle);
        }
        int commits = 0;
        bool good = true;
    };
    Counting files;
    ASSERT_TRUE(Append(1));
    EXPECT_EQ(files.commits, 1);
    file.DeferCommits();
    for (int second = 2; second < 10; ++second) ASSERT_TRUE(Append(second, "text"));
    EXPECT_EQ(files.commits, 1);
    EXPECT_TRUE(file.Commit());
    EXPECT_EQ(files.commits, 3);
    files.good = false;
    EXPECT_FALSE(file.Commit());
    files.good = true;
    ASSERT_TRUE(file.Open(path.Str(), false));
    EXPECT_EQ(file.NRecords(), 9);
    files.commits = 0;
    ASSERT_TRUE(Append(20));  // each again on its own
    EXPECT_EQ(files.commits, 1);
    EXPECT_TRUE(file.Commit());  // the side file isn't open
    EXPECT_EQ(files.commits, 2);
    ASSERT_TRUE(file.Open(path.Str(), true));
    EXPECT_FALSE(file.Commit());
    file.Close();
    EXPECT_FALSE(file.Commit());
}
}  // namespace
