// One event file in memory.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "log/KTEventFile.h"
#include "log/LogBytes.h"
#include "support/FaultyFiles.h"
#include "support/TestText.h"

using Strings = std::vector<std::string>;

/// The files are "a.suc" and "a.dat".
class EventFile : public testing::Test
{
protected:
    bool Create() const { return KTEventFile::Create(L"a.suc", current); }
    bool Open(bool readOnly = true) { return file.Open(L"a.suc", readOnly); }
    [[nodiscard]] std::string Records() const { return files.Content("a.suc"); }
    [[nodiscard]] std::string Side() const { return files.Content("a.dat"); }

    bool Append(const KTDateTime& date, int value = 1, const std::string& annotation = "", unsigned id = 1)
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
        KTNarrowString text("stale");
        file.EventAnnotation(text);
        return text.Str();
    }
    /// The annotation of a record that must be good.
    std::string AnnotationOf(int index)
    {
        EXPECT_TRUE(file.GoRecord(index));
        return Annotation();
    }
    /// The day of the current record.
    int Day() const
    {
        KTDateTime date;
        file.DateValue(date);
        return date.Day();
    }
    /// A record of that day of March 2024, whose id has that number.
    static std::string Day(unsigned day, std::uint32_t annotation = 0)
    {
        return RecordBytes(PackedDate(24, 3, day), TestId(day), 1, annotation);
    }
    static std::string Three() { return Day(1) + Day(2) + Day(3); }

    const KTEventFile::CNewFileTemplate current{"EVENTv2.70", 2000};
    FaultyFiles files;
    KTEventFile file{true};
};
