// Looking at a file that ordinary readers refuse, and writing many records at once.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>

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

TEST_F(EventFileDamage, ABatchWaitsForTheDiskOnceAFile)
{
    class Counting : public TestFiles
    {
    public:
        std::ptrdiff_t WriteAt(int handle, std::int64_t offset, const void* data, std::size_t size) override
        {
            ++writes;
            return TestFiles::WriteAt(handle, offset, data, size);
        }
        bool Commit(int handle) override
        {
            ++commits;
            return good && TestFiles::Commit(handle);
        }
        int writes = 0;
        int commits = 0;
        bool good = true;
    };
    Counting files;
    ASSERT_TRUE(Append(1, "first"));
    EXPECT_EQ(std::exchange(files.commits, 0), 1);
    files.writes = 0;
    file.BeginBatch();
    for (int second = 2; second < 10; ++second) ASSERT_TRUE(Append(second, "text"));
    EXPECT_EQ(file.NRecords(), 9);
    EXPECT_EQ(files.writes, 0);
    EXPECT_TRUE(file.EndBatch());
    EXPECT_EQ(files.writes, 2);
    EXPECT_EQ(std::exchange(files.commits, 0), 2);

    ASSERT_TRUE(Append(20));  // on its own again
    EXPECT_EQ(std::exchange(files.commits, 0), 1);
    file.BeginBatch();
    ASSERT_TRUE(Append(21));
    files.good = false;
    EXPECT_FALSE(file.EndBatch());
    files.good = true;

    ASSERT_TRUE(file.Open(path.Str(), true));
    EXPECT_EQ(file.NRecords(), 11);
    for (int index = 0; index < 11; ++index)
    {
        ASSERT_TRUE(file.GoRecord(index));
        KTNarrowString text;
        file.EventAnnotation(text);
        EXPECT_EQ(text, index == 0 ? "first" : index < 9 ? "text" : "") << index;
    }
}

TEST_F(EventFileDamage, ABatchIsTheSameBytesAsItsRecordsOneByOne)
{
    const auto fill = [this](bool batched)
    {
        std::filesystem::remove(directory.Path() / "a.dat");
        EXPECT_TRUE(KTEventFile::Create(path.Str(), {"EVENTv2.70", 2000}));
        std::ofstream(name, std::ios::app | std::ios::binary) << "torn";
        EXPECT_TRUE(file.Open(path.Str(), false));
        if (batched) file.BeginBatch();
        const std::string longText(3000, 'x');
        for (int i = 0; i < 60; ++i) EXPECT_TRUE(Append(i, i % 3 == 0 ? "" : longText.c_str()));
        EXPECT_EQ(file.EndBatch(), batched);
        std::string bytes;
        for (const char* part : {"a.suc", "a.dat"})
        {
            std::ifstream stream(directory.Path() / part, std::ios::binary);
            bytes.append(std::istreambuf_iterator<char>(stream), {});
        }
        return bytes;
    };
    const std::string single = fill(false);
    EXPECT_EQ(single.size(), 14 + 60 * 26 + 16 + 40 * 3003U);
    EXPECT_TRUE(single == fill(true));
}

TEST_F(EventFileDamage, ABatchThatDoesNotFitEndsWhereTheDiskDoes)
{
    class FullDisk : public TestFiles
    {
    public:
        std::ptrdiff_t WriteAt(int handle, std::int64_t offset, const void* data, std::size_t size) override
        {
            const auto room = static_cast<std::size_t>(std::max<std::int64_t>(150'000 - offset, 0));
            return TestFiles::WriteAt(handle, offset, data, std::min(size, room));
        }
    };
    const FullDisk files;
    file.BeginBatch();
    int good = 0;
    for (int i = 0; i < 10'000; ++i) good += Append(1) ? 1 : 0;
    EXPECT_FALSE(file.EndBatch());
    EXPECT_LT(good, 10'000);
    ASSERT_TRUE(file.Open(path.Str(), true));
    EXPECT_EQ(file.NRecords(), (150'000 - 14) / 26);
    EXPECT_TRUE(file.GoLast());
}

TEST_F(EventFileDamage, ABatchNeedsAFileToWriteTo)
{
    EXPECT_FALSE(file.EndBatch());
    ASSERT_TRUE(file.Open(path.Str(), true));
    file.BeginBatch();
    EXPECT_FALSE(file.EndBatch());
    file.Close();
    file.BeginBatch();
    EXPECT_FALSE(file.EndBatch());
    ASSERT_TRUE(file.Open(path.Str(), false));
    file.BeginBatch();
    ASSERT_TRUE(Append(1));
    const KTEventFile copy(file);  // no batch of its own
    file.Close();
    EXPECT_FALSE(file.EndBatch());
    ASSERT_TRUE(file.Open(path.Str(), true));
    EXPECT_EQ(file.NRecords(), 0);
}
}  // namespace
