#include "log/KTEventFile.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "settings/TemporaryDirectory.h"
#include "support/TestText.h"

namespace
{
namespace fs = std::filesystem;
using Bytes = std::vector<std::uint8_t>;

const KTEventFile::CNewFileTemplate current("EVENTv2.70", 2000);

class EventFile : public testing::Test
{
protected:
    [[nodiscard]] std::string At(const std::string& name) const { return (directory.Path() / name).string(); }
    [[nodiscard]] Bytes Read(const std::string& name) const
    {
        std::ifstream stream(At(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    void Write(const std::string& name, const Bytes& bytes) const
    {
        std::ofstream stream(At(name), std::ios::binary);
        stream.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }
    bool Create(const std::string& name) const { return KTEventFile::Create(Wide(At(name)).Str(), current); }
    bool Open(bool readOnly = true) { return file.Open(Wide(At("a.suc")).Str(), readOnly); }

    bool Append(const KTDateTime& date, int value, const std::string& annotation = "", unsigned id = 1)
    {
        (void)file.NewRecord();
        file.SetEventId(TestId(id));
        file.SetDateValue(date);
        file.SetEventValue(value);
        file.SetEventAnnotation(KTNarrowString(annotation.c_str()));
        return file.Update();
    }
    std::string Annotation()
    {
        KTNarrowString text;
        file.EventAnnotation(text);
        return text.Str();
    }

    TemporaryDirectory directory;
    KTEventFile file{true};
};

TEST_F(EventFile, ANewFileIsFourteenBytes)
{
    ASSERT_TRUE(Create("a.suc"));
    EXPECT_EQ(Read("a.suc"),
              (Bytes{0x45, 0x56, 0x45, 0x4E, 0x54, 0x76, 0x32, 0x2E, 0x37, 0x30, 0x07, 0xD0, 0x00, 0x69}));
}

TEST_F(EventFile, WritesTheBytesOfARecordAndItsAnnotation)
{
    ASSERT_TRUE(Create("a.suc"));
    ASSERT_TRUE(Open(false));
    const GUID id{0x6F9619FF, 0x8B86, 0xD011, {0xB4, 0x2D, 0x00, 0xCF, 0x4F, 0xC9, 0x64, 0xFF}};
    ASSERT_TRUE(file.NewRecord());
    file.SetEventId(id);
    file.SetDateValue(Date(2007, 3, 15, 12, 30, 45));
    file.SetEventValue(1);
    file.SetEventAnnotation(KTNarrowString("a&amp;b"));
    ASSERT_TRUE(file.Update());
    file.Close();
    EXPECT_EQ(Read("a.suc"),
              (Bytes{0x45, 0x56, 0x45, 0x4E, 0x54, 0x76, 0x32, 0x2E, 0x37, 0x30, 0x07, 0xD0, 0x00, 0x69,  //
                     0x1C, 0xDE, 0xC7, 0xAD,                                                              //
                     0x6F, 0x96, 0x19, 0xFF, 0x8B, 0x86, 0xD0, 0x11, 0xB4, 0x2D, 0x00, 0xCF, 0x4F, 0xC9,
                     0x64, 0xFF, 0x01, 0x00, 0x00, 0x00, 0x10, 0x46}));
    const std::string side = "ANNOTATIONv2.70" + std::string(
                                                     "\0\0\x08"
                                                     "a&amp;b\0",
                                                     11);
    EXPECT_EQ(Read("a.dat"), Bytes(side.begin(), side.end()));
}

TEST_F(EventFile, WhatIsWrittenIsRead)
{
    ASSERT_TRUE(Create("a.suc"));
    ASSERT_TRUE(Open(false));
    for (int i = 0; i < 200; ++i)
        ASSERT_TRUE(Append(Date(2024, 3, 1 + i / 100, 0, i / 60 % 24, i % 60), 1 + i % 4,
                           i % 3 == 0 ? std::to_string(i) : "", static_cast<unsigned>(i + 1)));
    ASSERT_TRUE(Open());
    EXPECT_EQ(file.NRecords(), 200);
    for (int i = 199; i >= 0; --i)
    {
        ASSERT_TRUE(file.GoRecord(i)) << i;
        EXPECT_EQ(file.EventId(), TestId(static_cast<unsigned>(i + 1)));
        EXPECT_EQ(file.EventValue(), 1 + i % 4);
        KTDateTime date;
        file.DateValue(date);
        EXPECT_EQ(date, Date(2024, 3, 1 + i / 100, 0, i / 60 % 24, i % 60));
        EXPECT_EQ(Annotation(), i % 3 == 0 ? std::to_string(i) : "");
    }
}
}  // namespace
