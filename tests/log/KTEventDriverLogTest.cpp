// The recording of state changes: where a record goes, what it holds, and in which order things happen.

#include <algorithm>
#include <string>

#include "log/EventLogFixture.h"
#include "support/TestObserver.h"
#include "support/TestZone.h"

namespace
{
TEST_F(EventLog, APathHasYearAndMonthAndTheEventsName)
{
    EXPECT_EQ(Path(Date(2024, 3, 10)), march);
    EXPECT_EQ(Path(Date(2024, 3, 10), 1), marchSide);
    EXPECT_EQ(Path(Date(2024, 3, 10), 2), march) << "any kind but 1";
    EXPECT_EQ(Path(Date(1987, 12, 31)), "/data/1987/12/pump 12-1987.suc");
    EXPECT_EQ(Path(KTDateTime()), "");
}

TEST_F(EventLog, NoNameLeavesItsDirectory)
{
    const struct
    {
        const wchar_t* name;
        const char* file;
    } rows[] = {
        {L"../../etc/passwd", ".._.._etc_passwd"},
        {L"..", ".."},
        {L"a\\b", "a_b"},
        {L"tab\there\x1F\x01", "tab_here__"},
        {L"100% * ? : \"x\"", "100% * ? : \"x\""},
        {L"%s%n", "%s%n"},
        {L" blank ", " blank "},
        {L"", ""},
        {L"Z\u00E4hler \u0416 \xD83D\xDE00", "Z\xC3\xA4hler \xD0\x96 \xF0\x9F\x98\x80"},
    };
    for (const auto& r : rows)
    {
        event.name = r.name;
        EXPECT_EQ(Path(Date(2024, 3, 10)), std::string("/data/2024/03/") + r.file + " 03-2024.suc");
    }
}

// A path has at most 259 characters and a terminator; whatever the names are, nothing is written behind the buffer.
TEST_F(EventLog, APathThatDoesNotFitIsEmpty)
{
    const auto pathOf = [&](std::size_t root, std::size_t name)
    {
        const DataPath longData("/" + std::string(root - 2, 'd') + "/");
        event.name = Wide(std::string(name, 'n'));
        wchar_t path[KTEventDriver::pathSize + 8];
        std::fill(std::begin(path), std::end(path), L'#');
        event.EventFileName(path, Date(2024, 3, 10), 0);
        EXPECT_EQ(std::count(std::begin(path) + KTEventDriver::pathSize, std::end(path), L'#'), 8);
        return KTWideChar::Length(path);
    };
    EXPECT_EQ(pathOf(6, 233), 259);
    EXPECT_EQ(pathOf(6, 234), 0);
    EXPECT_EQ(pathOf(139, 100), 259);
    EXPECT_EQ(pathOf(140, 100), 0);
    EXPECT_EQ(pathOf(240, 0), 0);
    EXPECT_EQ(pathOf(239, 0), 259);
    EXPECT_EQ(pathOf(5000, 10), 0);
    EXPECT_EQ(pathOf(6, 100'000), 0);
}

TEST_F(EventLog, AFileNameHasAtMost255Bytes)
{
    const struct
    {
        const char* letter;
        int count;
        bool fits;
    } rows[] = {
        {"n", 233, true},
        {"\xC3\xA4", 121, true},  // 242 and 12 bytes
        {"\xC3\xA4", 122, false},
        {"\xE2\x82\xAC", 81, true},  // 243 and 12 bytes
        {"\xE2\x82\xAC", 82, false},
        {"\xF0\x9F\x98\x80", 60, true},  // two elements each
        {"\xF0\x9F\x98\x80", 61, false},
    };
    for (const auto& r : rows)
    {
        std::string name;
        for (int i = 0; i < r.count; ++i) name += r.letter;
        event.name = Wide(name);
        EXPECT_EQ(!Path(Date(2024, 3, 10)).empty(), r.fits) << r.count << r.letter;
        EXPECT_EQ(Save(1), r.fits);
        EXPECT_EQ(files.Exists("/data/2024/03/" + name + " 03-2024.suc"), r.fits);
    }
}

TEST_F(EventLog, TheFirstActivationOfAMonthMakesDirectoriesAndAFileOfFortyBytes)
{
    ScanWith(1);
    EXPECT_TRUE(files.IsDirectory("/data/2024/03"));
    EXPECT_EQ(files.Paths(), (Strings{march, "/data/lock"}));
    EXPECT_EQ(files.Content(march).size(), 40U);
    EXPECT_EQ(files.Content(march),
              HeaderBytes() + RecordBytes(PackedDate(24, 3, 10, 8), event.Occurrences().front()->id, 1));
}

TEST_F(EventLog, AnEventThatIsNotRecordedWritesNothing)
{
    Load(Element("notify", "T"));
    ScanWith(1);
    EXPECT_TRUE(event.ProcessHttpServiceAck(event.Occurrences().front()->id));
    ScanWith(0);
    for (const int status : {1, 2, 4}) EXPECT_FALSE(Save(1, "text", status));
    EXPECT_EQ(files.Paths(), Strings{"/data/lock"});
}

TEST_F(EventLog, EachStatusIsRecordedUnderItsOwnDate)
{
    KTEventDriver::tagSEventRT occurrence;
    occurrence.id = TestId(7);
    occurrence.activationDate = Date(2024, 3, 10, 1);
    occurrence.acknowledgeDate = Date(2024, 3, 11, 2);
    occurrence.deactivationDate = Date(2024, 3, 12, 3);
    for (const int status : {1, 4, 2}) EXPECT_TRUE(event.SaveEvent(&occurrence, status));
    for (const int status : {0, 3, 5, 7, 8, -1}) EXPECT_FALSE(event.SaveEvent(&occurrence, status));
    EXPECT_EQ(files.Content(march), HeaderBytes() + RecordBytes(PackedDate(24, 3, 10, 1), TestId(7), 1) +
                                        RecordBytes(PackedDate(24, 3, 11, 2), TestId(7), 4) +
                                        RecordBytes(PackedDate(24, 3, 12, 3), TestId(7), 2));
    occurrence.acknowledgeDate.Invalidate();
    EXPECT_FALSE(event.SaveEvent(&occurrence, 4));
}

TEST_F(EventLog, EveryRecordOfAnOccurrenceHasItsOwnCopyOfTheAnnotation)
{
    Load(Element("record", "T") + Element("notify", "T") + Element("annotation", "5 &lt; 6"));
    ScanWith(1);
    EXPECT_TRUE(event.ProcessHttpServiceAck(event.Occurrences().front()->id));
    ScanWith(0);
    const std::string text = event.Occurrences().empty() ? "" : "left";
    EXPECT_EQ(text, "");
    const std::string entry = EntryBytes("5 &lt; 6");
    EXPECT_EQ(files.Content(marchSide), annotationHeader + entry + entry + entry);
    KTEventFile file(true);
    ASSERT_TRUE(file.Open(Wide(march).Str(), true));
    ASSERT_EQ(file.NRecords(), 3);
    const double values[] = {1, 4, 2};
    for (int i = 0; i < 3; ++i)
    {
        ASSERT_TRUE(file.GoRecord(i));
        EXPECT_EQ(file.EventValue(), values[i]);
        EXPECT_EQ(file.AnnotationOffset(), 16U + static_cast<std::uint32_t>(i) * entry.size());
    }
}

TEST_F(EventLog, AnOccurrenceWithoutAnnotationLeavesNoSideFile)
{
    EXPECT_TRUE(Save(1) && Save(1, "", 2));
    EXPECT_EQ(files.Paths(), (Strings{march, "/data/lock"}));
}

TEST_F(EventLog, AnOccurrenceOverTheEndOfAMonthLiesInBothFiles)
{
    clock->SetUtc(Date(2024, 1, 31, 23, 59, 50));
    ScanWith(1);
    const GUID id = event.Occurrences().front()->id;
    EXPECT_NE(id, nullGuid);
    clock->Advance(std::chrono::seconds(20));
    ScanWith(0);
    EXPECT_EQ(files.Content("/data/2024/01/pump 01-2024.suc"),
              HeaderBytes() + RecordBytes(PackedDate(24, 1, 31, 23, 59, 50), id, 1));
    EXPECT_EQ(files.Content("/data/2024/02/pump 02-2024.suc"),
              HeaderBytes() + RecordBytes(PackedDate(24, 2, 1, 0, 0, 10), id, 2));
}

TEST_F(EventLog, TheMonthIsThatOfUtc)
{
    const TestZone zone("Europe/Madrid");
    clock->SetUtc(Date(2024, 3, 31, 23, 30));  // already April there
    ScanWith(1);
    EXPECT_EQ(files.Paths(), (Strings{march, "/data/lock"}));
}

// The date of the record is rounded to the second, the month is that of the date as it is.
TEST_F(EventLog, TheLastHalfSecondOfAMonthStaysInItsFile)
{
    clock->SetUtc({2024, 3, 31, 23, 59, 59, 600, 0});
    ScanWith(1);
    EXPECT_EQ(files.Content(march).substr(14, 4), BigEndian(PackedDate(24, 4, 1), 4));
}

TEST_F(EventLog, EventsOfOneNameShareTheirFiles)
{
    TestEvent other;
    ASSERT_TRUE(other.LoadText(EventXml(2, "pump", "[T.C]=1", Element("record", "T"))));
    EXPECT_TRUE(Save(1));
    auto occurrence = Occurrence(2);
    EXPECT_TRUE(other.SaveEvent(&occurrence, 1));
    const std::uint32_t date = PackedDate(24, 3, 10, 8);
    EXPECT_EQ(files.Content(march), HeaderBytes() + RecordBytes(date, TestId(1), 1) + RecordBytes(date, TestId(2), 1));
}

TEST_F(EventLog, ARecordIsMadeStepByStep)
{
    files.Trace();
    EXPECT_TRUE(Save(1, "text"));
    EXPECT_EQ(
        files.Trace(),
        (Strings{"open pump 03-2024.suc", "create pump 03-2024.suc", "directories pump 03-2024.suc",
                 "create pump 03-2024.suc", "write pump 03-2024.suc 0+14", "close pump 03-2024.suc",
                 "open pump 03-2024.suc", "read pump 03-2024.suc", "length pump 03-2024.suc", "length pump 03-2024.suc",
                 "open pump 03-2024.dat", "create new pump 03-2024.dat", "write pump 03-2024.dat 0+16",
                 "length pump 03-2024.dat", "write pump 03-2024.dat 16+7", "write pump 03-2024.suc 14+26",
                 "commit pump 03-2024.suc", "close pump 03-2024.dat", "close pump 03-2024.suc"}));
    EXPECT_TRUE(Save(1, "text"));
    EXPECT_EQ(files.Trace(), (Strings{"open pump 03-2024.suc", "read pump 03-2024.suc", "length pump 03-2024.suc",
                                      "length pump 03-2024.suc", "open pump 03-2024.dat", "length pump 03-2024.dat",
                                      "write pump 03-2024.dat 23+7", "write pump 03-2024.suc 40+26",
                                      "commit pump 03-2024.suc", "close pump 03-2024.dat", "close pump 03-2024.suc"}));
}

TEST_F(EventLog, AClockSetBackLosesRecordsUntilItHasPassedTheLastDate)
{
    EXPECT_TRUE(Save(1));
    clock->SetUtc(Date(2024, 3, 10, 7, 59, 59));
    EXPECT_FALSE(Save(2, "lost"));
    EXPECT_EQ(files.Content(march).size(), 40U);
    EXPECT_FALSE(files.Exists(marchSide));
    clock->SetUtc(Date(2024, 3, 10, 8));
    EXPECT_TRUE(Save(3)) << "the same second";
    clock->SetUtc(Date(2024, 2, 10));
    EXPECT_TRUE(Save(4)) << "another month";
    EXPECT_EQ(files.Content(march).size(), 66U);
}

TEST_F(EventLog, AFileWithADamagedHeaderBeginsAnew)
{
    ASSERT_TRUE(Save(1, "old text"));
    const std::string side = files.Content(marchSide);
    const std::string good = files.Content(march);
    for (const std::string& damaged : {Damaged(good, 3), good.substr(0, 13), std::string(), std::string(100, 'x')})
    {
        files.Put(march, damaged);
        files.Put(marchSide, side);
        EXPECT_TRUE(Save(2, "new"));
        EXPECT_EQ(files.Content(march), HeaderBytes() + RecordBytes(PackedDate(24, 3, 10, 8), TestId(2), 1,
                                                                    static_cast<std::uint32_t>(side.size())));
        EXPECT_EQ(files.Content(marchSide), side + EntryBytes("new")) << "it goes on growing";
    }
}

TEST_F(EventLog, ATornTailIsWrittenOver)
{
    ASSERT_TRUE(Save(1));
    const std::string good = files.Content(march);
    for (std::size_t torn = 0; torn < 26; ++torn)
    {
        files.Put(march, good + std::string(torn, '\xFF'));
        EXPECT_TRUE(Save(2));
        EXPECT_EQ(files.Content(march), good + RecordBytes(PackedDate(24, 3, 10, 8), TestId(2), 1)) << torn;
    }
}

TEST_F(EventLog, AFailedRecordChangesNoStateOfTheEvent)
{
    Strings told;
    const TestObserver observer{[&](const KTEventDriver&, const KTEventDriver::tagSEventRT& occurrence, int status) {
        told.push_back(std::to_string(status) + " gives " + std::to_string(occurrence.status));
    }};
    Load(Element("record", "T") + Element("notify", "T"));
    files.FailDirectories(true);
    ScanWith(1);
    EXPECT_EQ(files.Paths(), Strings{"/data/lock"});
    EXPECT_TRUE(event.IsEnabled());
    ASSERT_EQ(event.Occurrences().size(), 1U);
    EXPECT_EQ(event.Occurrences().front()->status, 1);
    files.FailDirectories(false);
    const GUID id = event.Occurrences().front()->id;
    EXPECT_TRUE(event.ProcessHttpServiceAck(id));
    files.FailCommit(1);
    ScanWith(0);
    EXPECT_TRUE(event.Occurrences().empty());
    EXPECT_EQ(told, (Strings{"1 gives 1", "4 gives 5", "2 gives 7"}));
    EXPECT_EQ(files.Content(march).substr(0, 40), HeaderBytes() + RecordBytes(PackedDate(24, 3, 10, 8), id, 4));
}

TEST_F(EventLog, EveryFailureOfTheDiskIsToldAndTheNextRecordGoesOn)
{
    ASSERT_TRUE(Save(1));
    const std::string before = files.Content(march);
    const std::string next = RecordBytes(PackedDate(24, 3, 10, 8), TestId(3), 1);
    for (const std::ptrdiff_t kept : {-1, 0, 1, 25})
    {
        files.Put(march, before);
        files.FailWrite(1, kept);
        EXPECT_FALSE(Save(2)) << kept;
        EXPECT_TRUE(Save(3));
        EXPECT_EQ(files.Content(march), before + next) << kept;
    }
    files.Put(march, before);
    files.FailLength(2);
    EXPECT_FALSE(Save(2));
    EXPECT_EQ(files.Content(march), before);
    // What can't be opened for the moment begins anew, whatever it held.
    files.FailOpen(1);
    EXPECT_TRUE(Save(3));
    EXPECT_EQ(files.Content(march), HeaderBytes() + next);
    // A new file that can't be opened again keeps its header.
    ASSERT_TRUE(files.Delete(Wide(march).Str()));
    files.FailOpen(3);
    EXPECT_FALSE(Save(2));
    EXPECT_EQ(files.Content(march), HeaderBytes());
    // One whose header can't be written goes again.
    ASSERT_TRUE(files.Delete(Wide(march).Str()));
    files.FailWrite(1, 13);
    EXPECT_FALSE(Save(2));
    EXPECT_FALSE(files.Exists(march));
    EXPECT_TRUE(Save(3));
}
}  // namespace
