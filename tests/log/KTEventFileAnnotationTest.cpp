// The side file: what is written to it, when, and what a reader makes of it.

#include <gtest/gtest.h>

#include <string>

#include "log/EventFileFixture.h"

namespace
{
TEST_F(EventFile, TheFirstEntryOfASideFileHasOffsetSixteen)
{
    ASSERT_TRUE(Create() && Open(false));
    ASSERT_TRUE(Append(Date(2024, 3, 1), 1, "one"));
    EXPECT_EQ(file.AnnotationOffset(), 16U);
    ASSERT_TRUE(Append(Date(2024, 3, 1), 1, "second"));
    EXPECT_EQ(file.AnnotationOffset(), 22U);
    EXPECT_EQ(Side(), annotationHeader + EntryBytes("one") + EntryBytes("second"));
    EXPECT_EQ(Annotation(), "second") << "known without reading";
}

TEST_F(EventFile, AnEmptyAnnotationWritesNothing)
{
    ASSERT_TRUE(Create() && Open(false) && Append(Date(2024, 3, 1)));
    EXPECT_EQ(file.AnnotationOffset(), 0U);
    EXPECT_EQ(files.Paths(), Strings{"a.suc"});
}

TEST_F(EventFile, AnnotationsAreReadThroughTheirOffsets)
{
    files.Put("a.suc", HeaderBytes() + Day(1, 16) + Day(2, 22) + Day(3) + Day(4, 16));
    files.Put("a.dat", annotationHeader + EntryBytes("one") + EntryBytes("f\xC3\xBCnf &lt; 6"));
    ASSERT_TRUE(Open());
    EXPECT_EQ(AnnotationOf(1), "f\xC3\xBCnf &lt; 6");
    EXPECT_EQ(AnnotationOf(0), "one");
    EXPECT_EQ(AnnotationOf(3), "one");
}

// The remembered text goes and its offset stays.
TEST_F(EventFile, ALookAtARecordWithoutAnnotationEmptiesTheOneBefore)
{
    files.Put("a.suc", HeaderBytes() + Day(1, 16) + Day(2) + Day(3, 22));
    files.Put("a.dat", annotationHeader + EntryBytes("one") + EntryBytes("three"));
    ASSERT_TRUE(Open());
    EXPECT_EQ(AnnotationOf(0), "one");
    EXPECT_EQ(AnnotationOf(1), "");
    EXPECT_EQ(AnnotationOf(0), "");
    EXPECT_EQ(AnnotationOf(2), "three");
    EXPECT_EQ(AnnotationOf(0), "one");
}

TEST_F(EventFile, AnAnnotationThatCannotBeReadIsEmpty)
{
    const std::string good = annotationHeader + EntryBytes("one");
    const struct
    {
        const char* what;
        std::uint32_t offset;
        std::string side;
        std::string text;
    } rows[] = {
        {"past the end", 22, good, ""},
        {"far past the end", 0xFFFFFFFF, good, ""},
        {"half a size field", 21, good, ""},
        {"a text cut short", 16, good.substr(0, 20), ""},
        {"a size of nothing", 16, annotationHeader + std::string(2, '\0'), ""},
        {"no terminator", 16, annotationHeader + BigEndian(3, 2) + "abcdef", "abc"},
        {"ends at the first zero", 16, annotationHeader + BigEndian(5, 2) + std::string("ab\0cd", 5), "ab"},
        {"a header of another kind", 16, std::string(16, 'x') + EntryBytes("one"), "one"},
        {"inside the header", 2, good + std::string(30000, 'z'), good.substr(4, 11)},
    };
    for (const auto& r : rows)
    {
        files.Put("a.suc", HeaderBytes() + Day(1, r.offset));
        files.Put("a.dat", r.side);
        ASSERT_TRUE(Open());
        EXPECT_EQ(AnnotationOf(0), r.text) << r.what;
    }
}

TEST_F(EventFile, AFailedReadingLeavesTheTextEmptyAndTheRememberedOffset)
{
    files.Put("a.suc", HeaderBytes() + Day(1, 16) + Day(2, 500));
    files.Put("a.dat", annotationHeader + EntryBytes("one"));
    ASSERT_TRUE(Open());
    EXPECT_EQ(AnnotationOf(0), "one");
    EXPECT_EQ(AnnotationOf(1), "");
    EXPECT_EQ(AnnotationOf(0), "") << "its offset is still the remembered one";
}

TEST_F(EventFile, AMissingSideFileGivesEmptyTextsAndIsNotMade)
{
    files.Put("a.suc", HeaderBytes() + Day(1, 16));
    for (const bool readOnly : {true, false})
    {
        ASSERT_TRUE(Open(readOnly));
        EXPECT_EQ(AnnotationOf(0), "");
    }
    EXPECT_EQ(files.Paths(), Strings{"a.suc"});
}

TEST_F(EventFile, TheSideFileIsOpenedAsTheRecordFileIs)
{
    files.Put("a.suc", HeaderBytes() + Day(1, 16));
    files.Put("a.dat", annotationHeader + EntryBytes("one"));
    for (const bool readOnly : {true, false})
    {
        ASSERT_TRUE(Open(readOnly) && file.GoFirst());
        files.Trace();
        EXPECT_EQ(Annotation(), "one");
        EXPECT_EQ(files.Trace().front(), readOnly ? "read a.dat" : "open a.dat");
    }
}

TEST_F(EventFile, AnotherFileHasOtherAnnotations)
{
    files.Put("a.suc", HeaderBytes() + Day(1, 16));
    files.Put("a.dat", annotationHeader + EntryBytes("one"));
    files.Put("b.suc", HeaderBytes() + Day(1, 16));
    files.Put("b.dat", annotationHeader + EntryBytes("other"));
    ASSERT_TRUE(Open());
    EXPECT_EQ(AnnotationOf(0), "one");
    ASSERT_TRUE(file.Open(L"b.suc", true));
    EXPECT_EQ(AnnotationOf(0), "other");
}

TEST_F(EventFile, TheSideFilesNameEndsBehindTheLastPoint)
{
    const struct
    {
        const wchar_t* path;
        const char* side;
    } rows[] = {
        {L"e 03-2024.suc", "e 03-2024.dat"},
        {L"a.b.suc", "a.b.dat"},
        {L"plain", "plaindat"},
        {L"ends.", "ends.dat"},
        {L"d.x/plain", "d.dat"},
    };
    files.Put("d.x/plain", "");
    for (const auto& r : rows)
    {
        ASSERT_TRUE(KTEventFile::Create(r.path, current) && file.Open(r.path, false) &&
                    Append(Date(2024, 3, 1), 1, "t"));
        EXPECT_EQ(files.Content(r.side), annotationHeader + EntryBytes("t"));
    }
}

TEST_F(EventFile, AHalfWrittenEntryIsLeftBehind)
{
    ASSERT_TRUE(Create() && Open(false));
    files.Put("a.dat", annotationHeader + std::string("\0\x09half", 6));
    ASSERT_TRUE(Append(Date(2024, 3, 1), 1, "whole"));
    EXPECT_EQ(file.AnnotationOffset(), 22U);
    ASSERT_TRUE(Open());
    EXPECT_EQ(AnnotationOf(0), "whole");
}

TEST_F(EventFile, AnAnnotationThatCannotBeWrittenLeavesTheRecord)
{
    ASSERT_TRUE(Create());
    // No side file can be made.
    ASSERT_TRUE(Open(false));
    files.FailOpen(2);  // behind the one that finds none
    files.FailDirectories(true);
    files.Trace();
    EXPECT_TRUE(Append(Date(2024, 3, 1), 1, "abc"));
    EXPECT_EQ(file.AnnotationOffset(), 16U) << "made by the second try";
    EXPECT_EQ(files.Trace(),
              (Strings{"length a.suc", "open a.dat", "create new a.dat", "directories a.dat", "create new a.dat",
                       "write a.dat 0+16", "length a.dat", "write a.dat 16+6", "write a.suc 14+26", "commit a.suc"}));
    // Its header can't be written: it goes again.
    ASSERT_TRUE(files.Delete(L"a.dat"));
    ASSERT_TRUE(Open(false));
    files.FailWrite(1, 15);
    EXPECT_TRUE(Append(Date(2024, 3, 2), 1, "abc"));
    EXPECT_EQ(file.AnnotationOffset(), 0U);
    EXPECT_FALSE(files.Exists("a.dat"));
    // The next record tries anew, with its own text alone.
    EXPECT_TRUE(Append(Date(2024, 3, 3)));
    EXPECT_FALSE(files.Exists("a.dat"));
    EXPECT_TRUE(Append(Date(2024, 3, 4), 1, "def"));
    EXPECT_EQ(Side(), annotationHeader + EntryBytes("def"));
    EXPECT_EQ(file.NRecords(), 4);
}

TEST_F(EventFile, AnEntryCutShortByAFullDiskStillHasItsRecord)
{
    ASSERT_TRUE(Create() && Open(false));
    files.Put("a.dat", annotationHeader);
    files.FailWrite(1, 3);
    EXPECT_TRUE(Append(Date(2024, 3, 1), 1, "abc"));
    EXPECT_EQ(file.AnnotationOffset(), 16U);
    ASSERT_TRUE(Open());
    EXPECT_EQ(AnnotationOf(0), "");
}

// A side file that can't be opened for the moment holds the texts of a month.
TEST_F(EventFile, ASideFileIsNeverEmptied)
{
    ASSERT_TRUE(Create() && Open(false));
    files.Put("a.dat", annotationHeader + EntryBytes("old"));
    files.FailOpen(1);
    EXPECT_TRUE(Append(Date(2024, 3, 1), 1, "new"));
    EXPECT_EQ(file.AnnotationOffset(), 0U);
    EXPECT_EQ(Side(), annotationHeader + EntryBytes("old"));
}

// What a power cut can leave of a new file: its name. An entry at offset 0 would be one that no record can name.
TEST_F(EventFile, AnEmptySideFileGetsItsHeaderFirst)
{
    ASSERT_TRUE(Create() && Open(false));
    files.Put("a.dat", "");
    EXPECT_TRUE(Append(Date(2024, 3, 1), 1, "abc"));
    EXPECT_EQ(file.AnnotationOffset(), 16U);
    EXPECT_EQ(Side(), annotationHeader + EntryBytes("abc"));
}

TEST_F(EventFile, TheSizeOfALongTextIsTakenModulo65536)
{
    for (const int length : {65534, 65535, 65536, 70000})
    {
        files.Put("a.suc", HeaderBytes());
        files.Put("a.dat", annotationHeader);
        const std::string text(static_cast<std::size_t>(length), 'x');
        ASSERT_TRUE(Open(false) && Append(Date(2024, 3, 1), 1, text) && Append(Date(2024, 3, 2), 1, "next"));
        const std::string size = BigEndian(static_cast<std::uint32_t>(length + 1) % 65536, 2);
        EXPECT_EQ(Side(), annotationHeader + size + text + '\0' + EntryBytes("next")) << length;
        ASSERT_TRUE(Open());
        const std::size_t kept = length < 65535 ? text.size() : (text.size() + 1) % 65536;
        EXPECT_EQ(AnnotationOf(0), text.substr(0, kept));
        EXPECT_EQ(AnnotationOf(1), "next");
    }
}

TEST_F(EventFile, ASecondUpdateWritesTheTextNoSecondTime)
{
    ASSERT_TRUE(Create() && Open(false) && Append(Date(2024, 3, 1), 1, "abc"));
    file.SetEventValue(5);
    ASSERT_TRUE(file.Update());
    EXPECT_EQ(Side(), annotationHeader + EntryBytes("abc"));
    EXPECT_EQ(file.AnnotationOffset(), 16U);
}

TEST_F(EventFile, AnnotationsSetButNotWrittenGoWithTheNewRecord)
{
    ASSERT_TRUE(Create() && Open(false) && file.NewRecord());
    file.SetEventAnnotation(KTNarrowString("dropped"));
    EXPECT_EQ(Annotation(), "dropped") << "as long as the record has none in the file";
    ASSERT_TRUE(file.NewRecord());
    EXPECT_EQ(Annotation(), "");
    file.SetDateValue(Date(2024, 3, 1));
    ASSERT_TRUE(file.Update());
    EXPECT_EQ(files.Paths(), Strings{"a.suc"});
}

TEST_F(EventFile, AnEmptyTextLeavesAnOldRecordsAnnotation)
{
    files.Put("a.suc", HeaderBytes() + Day(1, 16));
    files.Put("a.dat", annotationHeader + EntryBytes("one"));
    ASSERT_TRUE(Open(false) && file.GoFirst());
    file.SetEventAnnotation(KTNarrowString(""));
    ASSERT_TRUE(file.Update());
    EXPECT_EQ(file.AnnotationOffset(), 16U);
    EXPECT_EQ(Side(), annotationHeader + EntryBytes("one"));
}
}  // namespace
