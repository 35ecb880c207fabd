#include "log/KTEventFile.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "log/EventFileFixture.h"

namespace
{
TEST_F(EventFile, ANewFileIsFourteenBytes)
{
    ASSERT_TRUE(Create());
    EXPECT_EQ(Records(), std::string("\x45\x56\x45\x4E\x54\x76\x32\x2E\x37\x30\x07\xD0\x00\x69", 14));
    EXPECT_EQ(files.Paths(), Strings{"a.suc"}) << "no side file before the first annotation";
}

TEST_F(EventFile, TheHeaderHoldsTenCharactersAndAYear)
{
    const struct
    {
        const char* format;
        int year;
        const char* text;
        std::uint32_t stored;
    } rows[] = {
        {"EVENTv2.70", 2000, "EVENTv2.70", 2000},
        {"EVENTv2.70 and more", 2000, "EVENTv2.70", 2000},
        {"E", 1999, "E", 1999},
        {"", 65536 + 7, "", 7},
        {"EVENTv2.70", -1, "EVENTv2.70", 65535},
    };
    for (const auto& r : rows)
    {
        ASSERT_TRUE(KTEventFile::Create(L"a.suc", {r.format, r.year}));
        EXPECT_EQ(Records(), HeaderBytes(r.stored, r.text)) << r.format;
    }
}

TEST_F(EventFile, WritesTheBytesOfARecordAndItsAnnotation)
{
    ASSERT_TRUE(Create() && Open(false));
    const GUID id{0x6F9619FF, 0x8B86, 0xD011, {0xB4, 0x2D, 0x00, 0xCF, 0x4F, 0xC9, 0x64, 0xFF}};
    ASSERT_TRUE(file.NewRecord());
    file.SetEventId(id);
    file.SetDateValue(Date(2007, 3, 15, 12, 30, 45));
    file.SetEventValue(1);
    file.SetEventAnnotation(KTNarrowString("a&amp;b"));
    ASSERT_TRUE(file.Update());
    EXPECT_EQ(Records().substr(14), std::string("\x1C\xDE\xC7\xAD"                                                  //
                                                "\x6F\x96\x19\xFF\x8B\x86\xD0\x11\xB4\x2D\x00\xCF\x4F\xC9\x64\xFF"  //
                                                "\x01\x00\x00\x00\x10\x46",
                                                26));
    EXPECT_EQ(Side(), std::string("ANNOTATIONv2.70\0\0\x08"
                                  "a&amp;b\0",
                                  26));
}

TEST_F(EventFile, PacksADate)
{
    ASSERT_TRUE(Create() && Open(false));
    const struct
    {
        KTDateTime date;
        std::uint32_t packed;
    } rows[] = {
        {Date(2007, 3, 15, 12, 30, 45), 0x1CDEC7AD},
        {Date(2000, 1, 1), 0x00420000},
        {Date(2063, 12, 31, 23, 59, 59), 0xFF3F7EFB},
        {Date(2064, 2, 29), PackedDate(0, 2, 29)},  // the year is cut to six bits
        {Date(1999, 12, 31), PackedDate(63, 12, 31)},
        {KTDateTime(2024, 1, 31, 23, 59, 59, 499, 999), PackedDate(24, 1, 31, 23, 59, 59)},
        {KTDateTime(2024, 1, 31, 23, 59, 59, 500, 0), PackedDate(24, 2, 1)},  // rounded, as the OLE rules want it
        {KTDateTime(), 0},
    };
    for (const auto& r : rows)
    {
        ASSERT_TRUE(file.NewRecord());
        file.SetDateValue(r.date);
        ASSERT_TRUE(file.Update());
        EXPECT_EQ(Records().substr(14, 4), BigEndian(r.packed, 4)) << Text(r.date);
        files.Put("a.suc", HeaderBytes());
        ASSERT_TRUE(Open(false));
    }
}

TEST_F(EventFile, TellsADateInItsThreeForms)
{
    const struct
    {
        std::uint32_t packed;
        double ole;
        const char* date;
    } rows[] = {
        {PackedDate(0, 1, 1, 6), 36526.25, "2000-01-01 06:00:00.000000"},
        {0x1CDEC7AD, 39156 + 45045 / 86400.0, "2007-03-15 12:30:45.000000"},
        {PackedDate(63, 12, 31, 12), 59901.5, "2063-12-31 12:00:00.000000"},
        {PackedDate(24, 2, 29), 45351, "2024-02-29 00:00:00.000000"},
        {PackedDate(23, 2, 29), 0, "invalid"},  // no real date from here on
        {PackedDate(24, 0, 1), 0, "invalid"},
        {PackedDate(24, 13, 1), 0, "invalid"},
        {PackedDate(24, 1, 0), 0, "invalid"},
        {PackedDate(24, 1, 1, 24), 0, "invalid"},
        {PackedDate(24, 1, 1, 0, 60), 0, "invalid"},
        {PackedDate(24, 1, 1, 0, 0, 60), 0, "invalid"},
        {0xFFFFFFFF, 0, "invalid"},
    };
    for (const auto& r : rows)
    {
        files.Put("a.suc", HeaderBytes() + RecordBytes(r.packed, TestId(1), 1));
        ASSERT_TRUE(Open() && file.GoFirst());
        EXPECT_EQ(file.DateValue(), r.ole) << r.date;
        KTValue value;
        file.DateValue(value);
        EXPECT_TRUE(value.IsNumeric());
        EXPECT_EQ(value.number, r.ole) << r.date;
        KTDateTime date = Date(1980, 1, 1);
        file.DateValue(date);
        EXPECT_EQ(Text(date), r.date);
    }
}

TEST_F(EventFile, KeepsTheLowByteOfAValue)
{
    ASSERT_TRUE(Create() && Open(false));
    const struct
    {
        double value;
        int stored;
    } rows[] = {
        {1, 1},      {2.9, 2},          {4, 4},
        {255, 255},  {256, 0},          {-1, 255},
        {-1.9, 255}, {4294967297, 1},   {-0.5, 0},
        {1e300, 0},  {std::nan(""), 0}, {-std::numeric_limits<double>::infinity(), 0},
    };
    ASSERT_TRUE(file.NewRecord());
    for (const auto& r : rows)
    {
        file.SetEventValue(r.value);
        EXPECT_EQ(file.EventValue(), r.stored) << r.value;
        KTValue value;
        value.SetNumeric(r.value);
        file.SetEventValue(0);
        file.SetEventValue(value);
        KTValue back;
        file.EventValue(back);
        EXPECT_EQ(back.number, r.stored) << r.value;
    }
}

TEST_F(EventFile, AFreshFileHasNoRecordsAndNoTimes)
{
    ASSERT_TRUE(Create() && Open());
    EXPECT_TRUE(file.IsOpen());
    EXPECT_EQ(file.NRecords(), 0);
    EXPECT_EQ(file.CurrentRecord(), -1);
    EXPECT_EQ(file.BaseYear(), 2000);
    EXPECT_FALSE(file.BeginTime().Valid());
    EXPECT_FALSE(file.EndTime().Valid());
    EXPECT_FALSE(file.GoFirst());
    EXPECT_FALSE(file.GoLast());
    for (const int direction : {0, 1, 2})
        for (const KTDateTime& date : {Date(2007, 3, 15), Date(1899, 12, 30), Date(1850, 1, 1), KTDateTime()})
            EXPECT_EQ(file.SearchByTime(date, direction), -1) << Text(date);
}

TEST_F(EventFile, ANewObjectIsClosed)
{
    EXPECT_FALSE(file.IsOpen());
    EXPECT_FALSE(file.IsDirty());
    EXPECT_EQ(file.NRecords(), 0);
    EXPECT_EQ(file.CurrentRecord(), -1);
    EXPECT_EQ(file.BaseYear(), 2000);
    EXPECT_STREQ(file.Version().Str(), "EVENT2.7");
    EXPECT_FALSE(file.BeginTime().Valid());
    EXPECT_FALSE(file.GoRecord(0));
    EXPECT_FALSE(file.NewRecord());
    EXPECT_TRUE(file.Update()) << "nothing has changed";
    EXPECT_EQ(file.SearchByTime(Date(2024, 1, 1), 1), -1);
    file.Flush();
    file.Close();
    EXPECT_STREQ(file.Version().Str(), "EVENT2.7");
}

TEST_F(EventFile, TheVersionIsTheHeadersFirstSixCharacters)
{
    for (const auto& [format, version] : std::vector<std::pair<std::string, std::string>>{
             {"EVENTv2.70", "EVENTv"}, {"ABC", "ABC"}, {"", ""}, {"whatever!!", "whatev"}})
    {
        files.Put("a.suc", HeaderBytes(2000, format));
        EXPECT_TRUE(Open()) << "any text will do while the checksum is right";
        EXPECT_EQ(file.Version().Str(), version);
    }
    file.Close();
    EXPECT_STREQ(file.Version().Str(), "");
}

TEST_F(EventFile, AYearOfTwoDigitsIsCompleted)
{
    const struct
    {
        std::uint32_t stored;
        int year;
    } rows[] = {{95, 1995}, {79, 2079}, {80, 1980}, {0, 2000}, {99, 1999}, {100, 100}, {2000, 2000}, {1990, 1990}};
    for (const auto& r : rows)
    {
        files.Put("a.suc", HeaderBytes(r.stored) + RecordBytes(PackedDate(3, 5, 6), TestId(1), 1));
        ASSERT_TRUE(Open());
        EXPECT_EQ(file.BaseYear(), r.year);
        ASSERT_TRUE(file.GoFirst());
        KTDateTime date;
        file.DateValue(date);
        EXPECT_EQ(date, Date(r.year + 3, 5, 6));
    }
}

TEST_F(EventFile, DatesAreWrittenWithTheFilesOwnBaseYear)
{
    files.Put("a.suc", HeaderBytes(1990));
    ASSERT_TRUE(Open(false) && Append(Date(2024, 3, 1)));
    EXPECT_EQ(Records().substr(14, 4), BigEndian(PackedDate(34, 3, 1), 4));
}

TEST_F(EventFile, CreatingMakesTheDirectoriesAndEmptiesWhatIsThere)
{
    EXPECT_TRUE(KTEventFile::Create(L"/data/2024/03/e 03-2024.suc", current));
    EXPECT_TRUE(files.IsDirectory("/data/2024/03"));
    EXPECT_EQ(files.Content("/data/2024/03/e 03-2024.suc"), HeaderBytes());
    files.Put("a.suc", HeaderBytes() + std::string(1000, 'x'));
    EXPECT_TRUE(Create());
    EXPECT_EQ(Records(), HeaderBytes());
}

TEST_F(EventFile, CreatingTriesOnceMoreWhenItHasMadeTheDirectories)
{
    files.Trace();
    EXPECT_TRUE(KTEventFile::Create(L"d/a.suc", current));
    EXPECT_EQ(files.Trace(),
              (Strings{"create a.suc", "directories a.suc", "create a.suc", "write a.suc 0+14", "close a.suc"}));
    files.FailDirectories(true);
    EXPECT_FALSE(KTEventFile::Create(L"e/a.suc", current));
    EXPECT_EQ(files.Trace(), (Strings{"create a.suc", "directories a.suc", "create a.suc"}));
}

TEST_F(EventFile, AHeaderThatCannotBeWrittenLeavesNoFile)
{
    for (const std::ptrdiff_t kept : {-1, 0, 13})
    {
        files.FailWrite(1, kept);
        EXPECT_FALSE(Create());
        EXPECT_FALSE(files.Exists("a.suc")) << kept;
    }
}

TEST_F(EventFile, OpensOnlyWithAWholeHeader)
{
    EXPECT_FALSE(Open()) << "there is no file";
    for (std::size_t size = 0; size < 14; ++size)
    {
        files.Put("a.suc", HeaderBytes().substr(0, size));
        EXPECT_FALSE(Open()) << size;
        EXPECT_FALSE(file.IsOpen());
    }
    for (std::size_t at = 0; at < 14; ++at)
    {
        files.Put("a.suc", Damaged(HeaderBytes(), at));
        EXPECT_FALSE(Open()) << at;
    }
    files.Put("a.suc", HeaderBytes());
    EXPECT_TRUE(Open());
    files.FailOpen(1);
    EXPECT_FALSE(Open());
    files.FailLength(1);
    EXPECT_FALSE(Open());
    files.SpoilAt("a.suc", 13);
    EXPECT_FALSE(Open());
    files.Heal();
    EXPECT_TRUE(Open());
}

TEST_F(EventFile, ATailThatIsNoRecordIsNotCountedAndIsWrittenOver)
{
    files.Put("a.suc", HeaderBytes() + Three() + std::string(10, 'x'));
    ASSERT_TRUE(Open(false));
    EXPECT_EQ(file.NRecords(), 3);
    ASSERT_TRUE(file.NewRecord());
    EXPECT_EQ(file.CurrentRecord(), 3);
    file.SetDateValue(Date(2024, 3, 4));
    ASSERT_TRUE(file.Update());
    EXPECT_EQ(file.NRecords(), 4);
    EXPECT_EQ(Records(), HeaderBytes() + Three() + RecordBytes(PackedDate(24, 3, 4), {}, 0));
}

TEST_F(EventFile, WithAllRecordsDamagedItOpensAndFindsNothing)
{
    files.Put("a.suc", HeaderBytes() + Damaged(Day(1)) + Damaged(Day(2)) + Damaged(Day(3)));
    ASSERT_TRUE(Open());
    EXPECT_EQ(file.NRecords(), 3);
    EXPECT_FALSE(file.BeginTime().Valid());
    EXPECT_FALSE(file.EndTime().Valid());
    for (int i = 0; i < 3; ++i) EXPECT_FALSE(file.GoRecord(i));
    for (const int direction : {0, 1, 2}) EXPECT_EQ(file.SearchByTime(Date(2024, 3, 2), direction), -1);
}

TEST_F(EventFile, BadRecordsAtTheEndsArePassedOver)
{
    files.Put("a.suc", HeaderBytes() + Damaged(Day(1)) + Day(2) + Damaged(Day(3)) + Day(4) + Damaged(Day(5)));
    ASSERT_TRUE(Open());
    EXPECT_EQ(file.NRecords(), 5);
    EXPECT_EQ(file.BeginTime(), Date(2024, 3, 2));
    EXPECT_EQ(file.EndTime(), Date(2024, 3, 4));
    EXPECT_EQ(file.CurrentRecord(), 3);
    EXPECT_EQ(file.SearchByTime(Date(2024, 3, 1), 1), 1);
    EXPECT_EQ(file.SearchByTime(Date(2024, 3, 9), 2), 3);
    files.Put("a.suc", HeaderBytes() + Damaged(Day(1)) + Day(2) + Damaged(Day(3)));
    ASSERT_TRUE(Open());
    EXPECT_EQ(file.BeginTime(), Date(2024, 3, 2));
    EXPECT_EQ(file.EndTime(), Date(2024, 3, 2));
}

TEST_F(EventFile, AnOldFileOpenedAnewForgetsTheTimesOfTheOneBefore)
{
    files.Put("a.suc", HeaderBytes() + Three());
    ASSERT_TRUE(Open());
    EXPECT_TRUE(file.EndTime().Valid());
    file.Close();
    EXPECT_FALSE(file.IsOpen());
    EXPECT_EQ(file.NRecords(), 3) << "the count and the times stay";
    EXPECT_EQ(file.EndTime(), Date(2024, 3, 3));
    EXPECT_FALSE(file.GoRecord(0));
    ASSERT_TRUE(Create() && Open());
    EXPECT_FALSE(file.BeginTime().Valid());
    EXPECT_FALSE(file.EndTime().Valid());
}

TEST_F(EventFile, ARecordOutsideIsRefusedAndChangesNothing)
{
    files.Put("a.suc", HeaderBytes() + Three());
    ASSERT_TRUE(Open() && file.GoRecord(1));
    for (const int index : {-1, 3, 1000, INT32_MAX, INT32_MIN}) EXPECT_FALSE(file.GoRecord(index));
    EXPECT_EQ(file.CurrentRecord(), 1);
    EXPECT_EQ(Day(), 2);
}

TEST_F(EventFile, ADamagedRecordIsReadAndIsNotTheCurrentOne)
{
    files.Put("a.suc", HeaderBytes() + Day(1) + Damaged(Day(2)) + Day(3));
    ASSERT_TRUE(Open() && file.GoFirst());
    EXPECT_FALSE(file.GoRecord(1));
    EXPECT_EQ(file.CurrentRecord(), -1);
    EXPECT_EQ(Day(), 2) << "the buffer holds what was read";
    EXPECT_TRUE(file.GoRecord(2));
}

// One bad place on the disk costs the record that lies there, whatever was read together with it.
TEST_F(EventFile, ARecordThatCannotBeReadIsTheOnlyOneLost)
{
    std::string bytes = HeaderBytes();
    constexpr int count = 400;
    for (unsigned i = 0; i < count; ++i)
        bytes += RecordBytes(PackedDate(24, 3, 1, 0, i / 60, i % 60), TestId(i + 1), 1);
    files.Put("a.suc", bytes);
    for (const int bad : {1, 156, 157, 158, 200, 398})
    {
        files.SpoilAt("a.suc", 14 + 26 * static_cast<std::size_t>(bad) + 5);
        ASSERT_TRUE(Open());
        for (int i = 0; i < count; ++i) EXPECT_EQ(file.GoRecord(i), i != bad) << i;
        for (int i = count - 1; i >= 0; --i) EXPECT_EQ(file.GoRecord(i), i != bad) << i;
    }
}

TEST_F(EventFile, EveryChangedBitOfARecordIsSeen)
{
    const std::string record = Day(2);
    for (std::size_t at = 0; at < record.size(); ++at)
        for (int bit = 0; bit < 8; ++bit)
        {
            std::string changed = record;
            changed[at] = static_cast<char>(changed[at] ^ (1 << bit));
            files.Put("a.suc", HeaderBytes() + Day(1) + changed + Day(3));
            ASSERT_TRUE(Open());
            EXPECT_FALSE(file.GoRecord(1)) << at << " " << bit;
        }
}

TEST_F(EventFile, TheCurrentRecordIsReadAgainOnlyWhenItWasChanged)
{
    files.Put("a.suc", HeaderBytes() + Three());
    ASSERT_TRUE(Open() && file.GoRecord(1));
    file.SetEventValue(77);
    EXPECT_TRUE(file.IsDirty());
    EXPECT_EQ(file.EventValue(), 77);
    EXPECT_TRUE(file.GoRecord(1));
    EXPECT_FALSE(file.IsDirty());
    EXPECT_EQ(file.EventValue(), 1) << "the change is dropped";
    file.SetEventValue(78);
    EXPECT_TRUE(file.GoRecord(2));
    EXPECT_FALSE(file.IsDirty());
    EXPECT_EQ(Records(), HeaderBytes() + Three());
}

TEST_F(EventFile, EverySetterMakesItDirty)
{
    files.Put("a.suc", HeaderBytes() + Three());
    ASSERT_TRUE(Open(false));
    const std::function<void()> setters[] = {
        [&] { file.SetEventId(TestId(5)); },
        [&] { file.SetEventValue(2); },
        [&] { file.SetEventValue(KTValue()); },
        [&] { file.SetDateValue(Date(2024, 3, 3)); },
        [&] { file.SetEventAnnotation(KTNarrowString("")); },
    };
    for (const auto& set : setters)
    {
        ASSERT_TRUE(file.GoRecord(0) && file.GoLast());
        EXPECT_FALSE(file.IsDirty());
        set();
        EXPECT_TRUE(file.IsDirty());
    }
    ASSERT_TRUE(file.NewRecord());
    EXPECT_FALSE(file.IsDirty());
}

TEST_F(EventFile, ARecordInPlaceIsWrittenAnew)
{
    files.Put("a.suc", HeaderBytes() + Three());
    ASSERT_TRUE(Open(false) && file.GoLast());
    file.SetEventValue(9);
    ASSERT_TRUE(file.Update());
    EXPECT_FALSE(file.IsDirty());
    EXPECT_EQ(file.NRecords(), 3);
    EXPECT_EQ(Records(), HeaderBytes() + Day(1) + Day(2) + RecordBytes(PackedDate(24, 3, 3), TestId(3), 9));
    EXPECT_TRUE(file.GoRecord(0) && file.GoRecord(2));
    EXPECT_EQ(file.EventValue(), 9);
}

TEST_F(EventFile, HistoryOnlyGrowsForward)
{
    files.Put("a.suc", HeaderBytes() + RecordBytes(PackedDate(24, 3, 1, 12, 0, 10), TestId(1), 1));
    ASSERT_TRUE(Open(false));
    EXPECT_FALSE(Append(Date(2024, 3, 1, 12, 0, 9))) << "a second earlier";
    EXPECT_TRUE(file.IsDirty());
    EXPECT_EQ(file.NRecords(), 1);
    EXPECT_EQ(Records().size(), 40U);
    EXPECT_TRUE(Append(Date(2024, 3, 1, 12, 0, 10))) << "the same second";
    EXPECT_TRUE(Append(Date(2024, 3, 2)));
    EXPECT_TRUE(Append(Date(2024, 3, 1, 13))) << "only the last record at the opening counts";
    EXPECT_EQ(file.NRecords(), 4);
    EXPECT_EQ(file.EndTime(), Date(2024, 3, 1, 12, 0, 10)) << "not updated by writing";
    ASSERT_TRUE(Open(false));
    EXPECT_EQ(file.EndTime(), Date(2024, 3, 1, 13));
}

TEST_F(EventFile, ARefusedRecordWritesNoAnnotation)
{
    files.Put("a.suc", HeaderBytes() + Three());
    ASSERT_TRUE(Open(false));
    EXPECT_FALSE(Append(Date(2024, 3, 1), 1, "text"));
    EXPECT_FALSE(files.Exists("a.dat"));
}

TEST_F(EventFile, AReadOnlyFileIsNeverWritten)
{
    files.Put("a.suc", HeaderBytes() + Three());
    ASSERT_TRUE(Open());
    EXPECT_FALSE(file.NewRecord());
    EXPECT_FALSE(Append(Date(2024, 3, 4), 1, "text"));
    EXPECT_TRUE(file.IsDirty());
    file.Flush();
    file.Close();
    EXPECT_EQ(Records(), HeaderBytes() + Three());
    EXPECT_EQ(files.Paths(), Strings{"a.suc"});
}

TEST_F(EventFile, NothingChangedIsNothingToWrite)
{
    files.Put("a.suc", HeaderBytes() + Three());
    ASSERT_TRUE(Open(false));
    files.Trace();
    EXPECT_TRUE(file.Update());
    ASSERT_TRUE(file.NewRecord());
    EXPECT_TRUE(file.Update());
    EXPECT_EQ(files.Trace(), Strings{"length a.suc"});
}

TEST_F(EventFile, WritesTheTextThenTheRecordThenCommits)
{
    ASSERT_TRUE(Create() && Open(false));
    files.Trace();
    ASSERT_TRUE(Append(Date(2024, 3, 1), 1, "abc"));
    EXPECT_EQ(files.Trace(), (Strings{"length a.suc", "open a.dat", "create new a.dat", "write a.dat 0+16",
                                      "length a.dat", "write a.dat 16+6", "write a.suc 14+26", "commit a.suc"}));
    ASSERT_TRUE(Append(Date(2024, 3, 2), 1, "d"));
    EXPECT_EQ(files.Trace(),
              (Strings{"length a.suc", "length a.dat", "write a.dat 22+4", "write a.suc 40+26", "commit a.suc"}));
    file.Close();
    EXPECT_EQ(files.Trace(), (Strings{"close a.dat", "close a.suc"}));
}

TEST_F(EventFile, OpeningAWriterAndAppendingAsksTheSystemAHandfulOfTimes)
{
    files.Put("a.suc", HeaderBytes() + Three());
    files.Trace();
    ASSERT_TRUE(Open(false) && Append(Date(2024, 3, 4)));
    file.Close();
    EXPECT_EQ(files.Trace(), (Strings{"open a.suc", "read a.suc", "length a.suc", "length a.suc", "write a.suc 92+26",
                                      "commit a.suc", "close a.suc"}));
}

TEST_F(EventFile, AFailedUpdateCanBeTriedAgain)
{
    ASSERT_TRUE(Create() && Open(false));
    const auto failed = [&]
    {
        EXPECT_FALSE(Append(Date(2024, 3, 1), 1, "abc"));
        EXPECT_TRUE(file.IsDirty());
        EXPECT_EQ(file.NRecords(), 0);
    };
    for (const std::ptrdiff_t kept : {-1, 0, 25})
    {
        files.Put("a.dat", annotationHeader);
        files.FailWrite(2, kept);
        failed();
        EXPECT_TRUE(file.Update());
        EXPECT_EQ(Records(), HeaderBytes() + RecordBytes(PackedDate(24, 3, 1), TestId(1), 1, 16));
        EXPECT_EQ(Side(), annotationHeader + EntryBytes("abc")) << "the text is written once";
        files.Put("a.suc", HeaderBytes());
        ASSERT_TRUE(Open(false));
    }
    files.FailCommit(1);
    failed();
    EXPECT_TRUE(file.Update());
    EXPECT_EQ(file.NRecords(), 1);
    EXPECT_EQ(Records().size(), 40U);
}

TEST_F(EventFile, NewRecordFailsWhereTheLengthIsUnknownOrTheHeaderIsGone)
{
    files.Put("a.suc", HeaderBytes() + Three());
    ASSERT_TRUE(Open(false));
    files.FailLength(1);
    EXPECT_FALSE(Append(Date(2024, 3, 4)));
    EXPECT_EQ(Records(), HeaderBytes() + Three()) << "whoever doesn't look at the result changes no other record";
    // Another program begins the file anew.
    ASSERT_GE(files.Open(L"a.suc", KTFiles::Mode::create), 0);
    EXPECT_FALSE(Append(Date(2024, 3, 4)));
    EXPECT_EQ(Records(), "");
}

TEST_F(EventFile, ARecordThatAnotherAppendedIsNotWrittenOver)
{
    ASSERT_TRUE(Create() && Open(false));
    KTEventFile other(true);
    ASSERT_TRUE(other.Open(L"a.suc", false) && other.NewRecord());
    other.SetDateValue(Date(2024, 3, 1));
    ASSERT_TRUE(other.Update());
    ASSERT_TRUE(Append(Date(2024, 3, 2)));
    EXPECT_EQ(Records().size(), 14U + 2 * 26);
    EXPECT_EQ(file.NRecords(), 0) << "the count is that of its own opening";
}

TEST_F(EventFile, FlushCommitsAndOpensAgain)
{
    ASSERT_TRUE(Create() && Open(false) && Append(Date(2024, 3, 1), 1, "abc"));
    files.Trace();
    file.Flush();
    EXPECT_EQ(files.Trace(),
              (Strings{"commit a.dat", "close a.dat", "open a.dat", "commit a.suc", "close a.suc", "open a.suc"}));
    EXPECT_TRUE(file.IsOpen());
    ASSERT_TRUE(Append(Date(2024, 3, 2), 1, "d"));
    EXPECT_EQ(file.NRecords(), 2);
    files.FailOpen(2);
    file.Flush();
    EXPECT_FALSE(file.IsOpen());
    EXPECT_FALSE(Append(Date(2024, 3, 3)));
}

TEST_F(EventFile, CopiesShareTheOpenFile)
{
    files.Put("a.suc", HeaderBytes() + Three());
    ASSERT_TRUE(Open() && file.GoRecord(1));
    {
        KTEventFile copy(file);
        EXPECT_EQ(copy.CurrentRecord(), 1);
        EXPECT_EQ(copy.EventId(), TestId(2));
        EXPECT_TRUE(copy.GoLast());
        KTEventFile assigned(false);
        assigned = copy;
        copy.Close();
        EXPECT_TRUE(assigned.GoFirst());
        assigned = *&assigned;
        EXPECT_EQ(assigned.NRecords(), 3);
    }
    EXPECT_TRUE(file.GoRecord(2));
}
}  // namespace
