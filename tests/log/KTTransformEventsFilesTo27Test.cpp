#include "log/KTTransformEventsFilesTo27.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "engine/KTEventSystem.h"
#include "log/KTBigEndian.h"
#include "log/KTEventFile.h"
#include "support/TestConfig.h"
#include "support/TestFiles.h"

namespace
{
namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

constexpr unsigned pump = 1;
constexpr unsigned fan = 2;
constexpr unsigned gone = 99;  // not in the registry

std::string Big(std::uint32_t value, int size)
{
    std::string bytes;
    for (int i = size - 1; i >= 0; --i) bytes += static_cast<char>((value >> (8 * i)) & 0xFF);
    return bytes;
}

std::string Bytes(const GUID& guid)
{
    std::uint8_t bytes[16];
    kt::PutGuid(bytes, guid);
    return {bytes, bytes + sizeof bytes};
}

// A record of the old form.
std::string Old(unsigned event, unsigned occurrence, std::uint32_t seconds, int value, std::uint32_t annotation = 0)
{
    return Bytes(TestId(occurrence)) + Big(seconds, 4) + Bytes(TestId(event)) + static_cast<char>(value) +
           Big(annotation, 4);
}

class TransformEvents : public testing::Test
{
protected:
    TransformEvents() { LoadEvents({"pump", "fan"}); }

    void LoadEvents(const Strings& names)
    {
        system.Reset();
        std::string events;
        unsigned number = 0;
        for (const std::string& name : names) events += EventXml(++number, name, "1=1");
        const std::string text = "<main><eventsGroups/><events>" + events + "</events></main>";
        ASSERT_TRUE(document.Parse(text.c_str()));
        system.LoadXml(document);
    }

    [[nodiscard]] fs::path At(const std::string& name) const { return config.Data() / name; }
    void Write(const std::string& name, const std::string& bytes) const
    {
        fs::create_directories(At(name).parent_path());
        std::ofstream(At(name), std::ios::binary) << bytes;
    }
    void WriteOld(const std::string& records, const std::string& name = "Events 05-2007.eve") const
    {
        Write(name, "EVENTv1.00\x07" + records);
    }
    [[nodiscard]] std::string Read(const std::string& name) const
    {
        std::ifstream stream(At(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    [[nodiscard]] Strings Files() const
    {
        Strings found;
        for (const auto& entry : fs::recursive_directory_iterator(config.Data()))
            if (entry.is_regular_file()) found.push_back(entry.path().lexically_relative(config.Data()).string());
        std::sort(found.begin(), found.end());
        return found;
    }
    static void Transform() { EXPECT_TRUE(KTTransformEventsFilesTo27().Transform()); }

    // Each record as "OCCURRENCE VALUE DATE ANNOTATION".
    [[nodiscard]] Strings Records(const std::string& name) const
    {
        KTEventFile file(true);
        EXPECT_TRUE(file.Open(Wide(At(name).string()).Str(), true)) << name;
        Strings records;
        for (int index = 0; index < file.NRecords(); ++index)
        {
            EXPECT_TRUE(file.GoRecord(index));
            KTDateTime date;
            KTNarrowString annotation;
            file.DateValue(date);
            file.EventAnnotation(annotation);
            records.push_back(std::to_string(file.EventId().Data1) + ' ' +
                              std::to_string(static_cast<int>(file.EventValue())) + ' ' + Text(date).substr(0, 19) +
                              ' ' + annotation.Str());
        }
        return records;
    }

    TestConfig config;
    KTEventSystem system;
    XmlDocument document;
};

TEST_F(TransformEvents, GivesEachEventItsOwnFileWithItsRecordsInTheirOrder)
{
    WriteOld(Old(fan, 21, 60, 1) + Old(pump, 11, 30, 1) + Old(pump, 12, 20, 1) + Old(fan, 21, 90, 2));
    Transform();
    EXPECT_EQ(Files(), (Strings{"2007/05/fan 05-2007.suc", "2007/05/pump 05-2007.suc"}));
    EXPECT_EQ(Records("2007/05/fan 05-2007.suc"), (Strings{"21 1 2007-05-01 00:01:00 ", "21 2 2007-05-01 00:01:30 "}));
    // Earlier than the one before, as it stood in the old file.
    EXPECT_EQ(Records("2007/05/pump 05-2007.suc"), (Strings{"11 1 2007-05-01 00:00:30 ", "12 1 2007-05-01 00:00:20 "}));
    EXPECT_EQ(Read("2007/05/pump 05-2007.suc").substr(0, 14), std::string("EVENTv2.70\x07\xD0\0\x69", 14));
}

TEST_F(TransformEvents, PassesOverATornRecordAtTheEnd)
{
    WriteOld(Old(pump, 1, 0, 1) + Old(pump, 2, 1, 1) + "7 bytes");
    Transform();
    EXPECT_EQ(Records("2007/05/pump 05-2007.suc").size(), 2U);
}

TEST_F(TransformEvents, CarriesTheAnnotationsOver)
{
    // "warm" at 11, "hot" at 17, and a text that ends before its entry does.
    Write("Annotations 05-2007.dat", "ANNOTATIONS" + Big(4, 2) + "warm" + Big(3, 2) + "hot" + Big(6, 2) +
                                         std::string("dry\0ly", 6) + Big(9, 2) + "cut");
    WriteOld(Old(pump, 1, 0, 1, 17) + Old(pump, 2, 0, 1, 11) + Old(pump, 3, 0, 1, 0) + Old(pump, 4, 0, 1, 22) +
             Old(pump, 5, 0, 1, 30) + Old(pump, 6, 0, 1, 4000) + Old(pump, 7, 0, 1, 17));
    Transform();
    const std::string at = " 1 2007-05-01 00:00:00 ";
    EXPECT_EQ(Records("2007/05/pump 05-2007.suc"), (Strings{"1" + at + "hot", "2" + at + "warm", "3" + at,
                                                            "4" + at + "dry", "5" + at, "6" + at, "7" + at + "hot"}));
    EXPECT_EQ(Read("2007/05/pump 05-2007.dat"),
              std::string("ANNOTATIONv2.70\0\0\4hot\0\0\5warm\0\0\4dry\0\0\4hot\0", 16 + 6 + 7 + 6 + 6));
    EXPECT_FALSE(fs::exists(At("Annotations 05-2007.dat")));
}

TEST_F(TransformEvents, ConvertsAMonthWithoutAnnotationFile)
{
    WriteOld(Old(pump, 1, 5, 1, 11));
    Transform();
    EXPECT_EQ(Records("2007/05/pump 05-2007.suc"), Strings{"1 1 2007-05-01 00:00:05 "});
    EXPECT_EQ(Files(), Strings{"2007/05/pump 05-2007.suc"});
}

TEST_F(TransformEvents, TakesAFileOfAnotherKindForNoAnnotations)
{
    Write("Annotations 05-2007.dat", "ANNOTATION" + Big(4, 2) + "warm");
    WriteOld(Old(pump, 1, 5, 1, 10));
    Transform();
    EXPECT_EQ(Records("2007/05/pump 05-2007.suc"), Strings{"1 1 2007-05-01 00:00:05 "});
    EXPECT_FALSE(fs::exists(At("Annotations 05-2007.dat")));
}

TEST_F(TransformEvents, CountsSecondsFromTheBeginningOfTheMonth)
{
    WriteOld(Old(pump, 1, 86'400, 1) + Old(pump, 2, 31 * 86'400, 2) + Old(pump, 3, 0x7FFFFFFF, 4) +
             Old(pump, 4, 0xFFFFFFFF, 1));
    Transform();
    // The last two are years that need more bits than a record has for them.
    EXPECT_EQ(Records("2007/05/pump 05-2007.suc"), (Strings{"1 1 2007-05-02 00:00:00 ", "2 2 2007-06-01 00:00:00 ",
                                                            "3 4 2011-05-19 03:14:07 ", "4 1 2015-06-07 06:28:15 "}));
}

TEST_F(TransformEvents, HasNothingToDoTheSecondTime)
{
    WriteOld(Old(pump, 1, 0, 1));
    WriteOld(Old(fan, 2, 0, 1), "Events 06-2007.eve");
    Transform();
    const Strings files = Files();
    EXPECT_EQ(files, (Strings{"2007/05/pump 05-2007.suc", "2007/06/fan 06-2007.suc"}));
    const std::string before = Read(files[0]) + Read(files[1]);
    Transform();
    EXPECT_EQ(Files(), files);
    EXPECT_EQ(Read(files[0]) + Read(files[1]), before);
}

TEST_F(TransformEvents, DropsRecordsOfEventsThatAreGone)
{
    WriteOld(Old(gone, 1, 0, 1) + Old(pump, 2, 0, 1) + Old(gone, 1, 9, 2));
    Transform();
    EXPECT_EQ(Files(), Strings{"2007/05/pump 05-2007.suc"});
    EXPECT_EQ(Records("2007/05/pump 05-2007.suc").size(), 1U);
    WriteOld(Old(gone, 1, 0, 1), "Events 06-2007.eve");
    Transform();
    EXPECT_EQ(Files(), Strings{"2007/05/pump 05-2007.suc"});
}

TEST_F(TransformEvents, DropsRecordsWhoseFileCannotBeMade)
{
    Write("2007", "a file where a directory should be");
    WriteOld(Old(pump, 1, 0, 1));
    Transform();
    EXPECT_EQ(Files(), Strings{"2007"});
    LoadEvents({std::string(300, 'x')});
    WriteOld(Old(pump, 1, 0, 1), "Events 06-2008.eve");
    Transform();
    EXPECT_EQ(Files(), Strings{"2007"});
}

TEST_F(TransformEvents, ReplacesAFileThatIsThereAndAppendsToItsAnnotations)
{
    Write("2007/05/pump 05-2007.suc", "what the running system has written");
    Write("2007/05/pump 05-2007.dat", std::string("ANNOTATIONv2.70\0\0\2a\0", 20));
    Write("Annotations 05-2007.dat", "ANNOTATIONS" + Big(1, 2) + "b");
    WriteOld(Old(pump, 1, 0, 1, 11));
    Transform();
    EXPECT_EQ(Records("2007/05/pump 05-2007.suc"), Strings{"1 1 2007-05-01 00:00:00 b"});
    EXPECT_EQ(Read("2007/05/pump 05-2007.dat"), std::string("ANNOTATIONv2.70\0\0\2a\0\0\2b\0", 24));
}

TEST_F(TransformEvents, LeavesAFileThatDoesNotBeginAsOneAndItsAnnotations)
{
    for (const char* head : {"", "EVEN", "event------", "EVENX------"})
    {
        Write("Events 05-2007.eve", head + Old(pump, 1, 0, 1));
        Write("Annotations 05-2007.dat", "ANNOTATIONS");
        Transform();
        EXPECT_EQ(Files(), (Strings{"Annotations 05-2007.dat", "Events 05-2007.eve"})) << head;
    }
    Write("Events 05-2007.eve", "EVEN");
    Transform();
    EXPECT_TRUE(fs::exists(At("Events 05-2007.eve")));
}

TEST_F(TransformEvents, DeletesAFileThatHoldsNothingBehindItsBeginning)
{
    for (const char* whole : {"EVENT", "EVENT00", "EVENT000000", "EVENT0000001234"})
    {
        Write("Events 05-2007.eve", whole);
        Transform();
        EXPECT_EQ(Files(), Strings{}) << whole;
    }
}

TEST_F(TransformEvents, FindsAMonthByTheEndOfItsName)
{
    const struct
    {
        const char* name;
        const char* file;  // null: it isn't one
    } rows[] = {
        {"Events 05-2007.eve", "2007/05/pump 05-2007.suc"},
        {"Events05-2007.eve", "2007/05/pump 05-2007.suc"},
        {"Events.12.2010.eve", "2010/12/pump 12-2010.suc"},
        {"Events of the plant 01_2000.eve", "2000/01/pump 01-2000.suc"},
        {"Events 99 01ñ2063.eve", "2063/01/pump 01-2063.suc"},
        {"Events 12-1999.eve", "1999/12/pump 12-1999.suc"},
        {"Event 05-2007.eve", nullptr},
        {"events 05-2007.eve", nullptr},
        {"My Events 05-2007.eve", nullptr},
        {"Events 05-2007.eve2", nullptr},
        {"Events 05-2007.EVE", nullptr},
        {"Events 05-2007", nullptr},
        {"Events.eve", nullptr},
        {"Events5-2007.eve", nullptr},
        {"Events 5-2007.eve", nullptr},
        {"Events 05-207.eve", nullptr},
        {"Events 052007.eve", nullptr},
        {"Events 00-2007.eve", nullptr},
        {"Events 13-2007.eve", nullptr},
        {"Events 05-0000.eve", nullptr},
        {"Events 05-2007 .eve", nullptr},
        {"Events +5-2007.eve", nullptr},
        {"2007/Events 05-2007.eve", nullptr},
    };
    for (const auto& r : rows)
    {
        WriteOld(Old(pump, 1, 0, 1), r.name);
        Transform();
        EXPECT_EQ(Files(), Strings{r.file == nullptr ? r.name : r.file}) << r.name;
        for (const auto& entry : fs::directory_iterator(config.Data())) fs::remove_all(entry.path());
    }
    fs::create_directory(At("Events 05-2007.eve"));
    Transform();
    EXPECT_TRUE(fs::is_directory(At("Events 05-2007.eve")));
}

TEST_F(TransformEvents, TakesOnlyTheAnnotationsOfItsMonth)
{
    Write("Annotations 5-2007.dat", "ANNOTATIONS" + Big(1, 2) + "x");
    Write("Annotations 06-2007.dat", "ANNOTATIONS" + Big(1, 2) + "y");
    WriteOld(Old(pump, 1, 0, 1, 11));
    Transform();
    EXPECT_EQ(Records("2007/05/pump 05-2007.suc"), Strings{"1 1 2007-05-01 00:00:00 "});
    EXPECT_TRUE(fs::exists(At("Annotations 5-2007.dat")));
    EXPECT_TRUE(fs::exists(At("Annotations 06-2007.dat")));
}

TEST_F(TransformEvents, KeepsTheDatesOfTheOldFileInWhateverTimeTheyWere)
{
    // No time zone is asked: 30 March 2008, 2:30, exists in the file although no clock of Madrid ever showed it.
    WriteOld(Old(pump, 1, (29 * 24 + 2) * 3600 + 1800, 1), "Events 03-2008.eve");
    Transform();
    EXPECT_EQ(Records("2008/03/pump 03-2008.suc"), Strings{"1 1 2008-03-30 02:30:00 "});
}

// What came before is deleted only when nothing more can happen to what comes after.
TEST_F(TransformEvents, DeletesTheOldFilesWhenTheNewOnesStandOnTheDisk)
{
    class Watching : public TestFiles
    {
    public:
        int Open(const wchar_t* path, Mode mode) override
        {
            const int file = TestFiles::Open(path, mode);
            names[file] = fs::path(Utf8(KTWideString(path))).filename().string();
            return file;
        }
        std::ptrdiff_t WriteAt(int file, std::int64_t offset, const void* data, std::size_t size) override
        {
            if (deeds.empty() || deeds.back() != "write " + names[file]) deeds.push_back("write " + names[file]);
            return TestFiles::WriteAt(file, offset, data, size);
        }
        bool Commit(int file) override
        {
            deeds.push_back("commit " + names[file]);
            return TestFiles::Commit(file);
        }
        bool Delete(const wchar_t* path) override
        {
            deeds.push_back("delete " + fs::path(Utf8(KTWideString(path))).filename().string());
            return TestFiles::Delete(path);
        }
        std::map<int, std::string> names;
        Strings deeds;
    };
    Write("Annotations 05-2007.dat", "ANNOTATIONS" + Big(1, 2) + "b");
    std::string records;
    for (unsigned i = 0; i < 100; ++i) records += Old(pump, i, i, 1, 0);
    WriteOld(records + Old(pump, 1, 0, 1, 11));
    Watching files;
    Transform();
    // However many records there are, the disk is waited for twice.
    const Strings end(files.deeds.end() - 6, files.deeds.end());
    EXPECT_EQ(end, (Strings{"write pump 05-2007.dat", "commit pump 05-2007.dat", "write pump 05-2007.suc",
                            "commit pump 05-2007.suc", "delete Events 05-2007.eve", "delete Annotations 05-2007.dat"}));
    EXPECT_LT(files.deeds.size(), 12U);
}

TEST_F(TransformEvents, WritesTheRecordsThatFitOnAFullDisk)
{
    class FullDisk : public TestFiles
    {
    public:
        std::ptrdiff_t WriteAt(int file, std::int64_t offset, const void* data, std::size_t size) override
        {
            const std::int64_t room = 14 + 2 * 26 + 5 - offset;
            return TestFiles::WriteAt(file, offset, data, std::min(size, static_cast<std::size_t>(room)));
        }
    };
    WriteOld(Old(pump, 1, 0, 1) + Old(pump, 2, 0, 1) + Old(pump, 3, 0, 1) + Old(pump, 4, 0, 1));
    {
        FullDisk files;
        Transform();
    }
    EXPECT_EQ(Files(), Strings{"2007/05/pump 05-2007.suc"});
    EXPECT_EQ(Records("2007/05/pump 05-2007.suc").size(), 2U);
}

TEST_F(TransformEvents, IsNothingButItsOperations)
{
    const KTTransformEventsFilesTo27 first;
    KTTransformEventsFilesTo27 second(first);
    second = first;
    EXPECT_TRUE(second.Transform());  // and an empty data directory holds nothing to do
    config.setup.dataPath = L"/dev/null/none/";
    config.Apply();
    EXPECT_TRUE(second.Transform());
}
}  // namespace
