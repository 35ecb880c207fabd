// Texts that are passed over, against a file that reads each of them.

#include <gtest/gtest.h>

#include <random>

#include "NaiveHistory.h"
#include "log/KTEventFile.h"
#include "support/MemoryFiles.h"

namespace
{
// Few texts, so that their offsets come again, and some that are none.
NaiveFile RandomFile(std::mt19937& random)
{
    NaiveFile file;
    std::vector<std::uint32_t> offsets = {0, 0, 3, 40, 5000};
    for (const char* text : {"one", "two", "three"}) offsets.push_back(file.AddText(text));
    for (unsigned i = 0; i < 30; ++i)
        file.records.push_back({NaiveFile::Pack(Date(2024, 3, 5)), TestId(i), 1, offsets[random() % offsets.size()]});
    return file;
}
}  // namespace

TEST(KTEventFilePassing, ChangesNoLaterText)
{
    MemoryFiles files;
    for (unsigned seed = 1; seed <= 300 && !testing::Test::HasFailure(); ++seed)
    {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        const NaiveFile content = RandomFile(random);
        files.files["e.suc"] = std::make_shared<MemoryFiles::Bytes>(content.Bytes());
        files.files["e.dat"] = std::make_shared<MemoryFiles::Bytes>(content.side.begin(), content.side.end());
        KTEventFile reading(true);
        KTEventFile passing(true);
        ASSERT_TRUE(reading.Open(L"e.suc", true) && passing.Open(L"e.suc", true));
        for (int i = 0; i < reading.NRecords(); ++i)
        {
            ASSERT_TRUE(reading.GoRecord(i) && passing.GoRecord(i));
            const KTNarrowString text = reading.EventAnnotation();
            if (random() % 3 == 0)
                EXPECT_EQ(passing.EventAnnotation(), text) << "record " << i;
            else
                passing.PassAnnotation();
        }
    }
}

TEST(KTEventFilePassing, ReadsOnlyTheTextsThatAreWanted)
{
    class CountingFiles : public MemoryFiles
    {
    public:
        std::ptrdiff_t ReadAt(int file, std::int64_t offset, void* buffer, std::size_t size) override
        {
            ++reads;
            return MemoryFiles::ReadAt(file, offset, buffer, size);
        }
        int reads = 0;
    };
    CountingFiles files;
    NaiveFile content;
    for (unsigned i = 0; i < 3; ++i)
        content.records.push_back({NaiveFile::Pack(Date(2024, 3, 5)), TestId(i), 1, content.AddText("text")});
    files.files["e.suc"] = std::make_shared<MemoryFiles::Bytes>(content.Bytes());
    files.files["e.dat"] = std::make_shared<MemoryFiles::Bytes>(content.side.begin(), content.side.end());
    KTEventFile file(true);
    ASSERT_TRUE(file.Open(L"e.suc", true));
    const int before = files.reads;
    for (int i = 0; i < 2; ++i)
    {
        ASSERT_TRUE(file.GoRecord(i));
        file.PassAnnotation();
    }
    EXPECT_EQ(files.opened, std::vector<std::string>{"e.suc"});
    EXPECT_EQ(files.reads, before);
    ASSERT_TRUE(file.GoRecord(2));
    EXPECT_EQ(file.EventAnnotation(), "text");
    EXPECT_EQ(files.opened, (std::vector<std::string>{"e.suc", "e.dat"}));
}
