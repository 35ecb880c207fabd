// Writers that are killed in the middle of their work, on the file system of the machine.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <random>
#include <set>
#include <string>

#include "log/EventLogFixture.h"
#include "settings/TemporaryDirectory.h"
#include "suite/tools/KTSystemFiles.h"

namespace
{
namespace fs = std::filesystem;

// Change number n, whoever writes it: so the reader knows what each record has to say.
KTDateTime DateOf(std::uint32_t number)
{
    KTDateTimeSpan span;
    span.SetDateTimeSpan(0, 0, 0, static_cast<int>(number) * 600, 0, 0);
    return Date(2024, 3, 1) + span;
}

std::string TextOf(std::uint32_t number)
{
    if (number % 3 == 0) return "";
    return "change " + std::to_string(number) + std::string(number % 97 == 1 ? 9000 : number % 50, '.');
}

class EventLogKill : public testing::Test
{
protected:
    EventLogKill()
    {
        event.name = L"pump";
        event.record = true;
    }

    bool Save(std::uint32_t number)
    {
        KTEventDriver::tagSEventRT occurrence;
        occurrence.id = TestId(number + 1);
        occurrence.activationDate = DateOf(number);
        occurrence.annotation = TextOf(number).c_str();
        return event.SaveEvent(&occurrence, 1);
    }

    // Writes changes from `first` on and tells the number of each one that SaveEvent reported, until it is killed.
    [[noreturn]] void Write(std::uint32_t first, int pipe)
    {
        for (std::uint32_t number = first;; ++number)
        {
            if (!Save(number)) _exit(3);
            if (write(pipe, &number, sizeof number) != sizeof number) _exit(4);
        }
    }

    // A writer's life; returns how many changes were reported when it was killed. Without commits, which take most of the
    // time and don't matter to a process that dies, the kill meets all the other steps.
    std::uint32_t KillOne(std::uint32_t first, unsigned microseconds, KTSystemFiles::Commits commits)
    {
        KTSystemFiles systemFiles(commits);
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        const pid_t child = fork();
        if (child == 0)
        {
            close(ends[0]);
            KTFiles::Install(&systemFiles);
            Write(first, ends[1]);
        }
        close(ends[1]);
        usleep(microseconds);
        kill(child, SIGKILL);
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFSIGNALED(status)) << "the writer ended by itself: " << status;
        std::uint32_t reported = first;
        for (std::uint32_t number = 0; read(ends[0], &number, sizeof number) == sizeof number;) reported = number + 1;
        close(ends[0]);
        return reported;
    }

    // Whether the change stands in the log as the last of its file, reported or not.
    bool IsWritten(std::uint32_t number)
    {
        wchar_t path[KTEventDriver::pathSize];
        event.EventFileName(path, DateOf(number), 0);
        KTEventFile file(true);
        return file.Open(path, true) && file.GoLast() && file.EventId() == TestId(number + 1);
    }

    // Looks through the whole log. Each record is what its number says, none of the first `reported` is missing, and what
    // isn't good is at the end of a file.
    void Check(std::uint32_t reported, std::uint32_t& written)
    {
        std::set<std::uint32_t> numbers;
        int torn = 0;
        for (const auto& entry : fs::recursive_directory_iterator(directory.Path()))
        {
            if (entry.path().extension() != ".suc") continue;
            KTEventFile file(true);
            if (entry.file_size() == 0) continue;  // made, and killed before the header: the next writer begins anew
            ASSERT_TRUE(file.Open(Wide(entry.path().string()).Str(), true)) << entry.path();
            torn += (entry.file_size() - KTEventFile::headerSize) % KTEventFile::recordSize != 0 ? 1 : 0;
            for (int i = 0; i < file.NRecords(); ++i)
            {
                if (!file.GoRecord(i))
                {
                    ++torn;
                    ASSERT_EQ(i, file.NRecords() - 1) << "damage inside";
                    continue;
                }
                const std::uint32_t number = file.EventId().Data1 - 1;
                KTDateTime date;
                file.DateValue(date);
                ASSERT_EQ(date, DateOf(number));
                KTNarrowString text;
                file.EventAnnotation(text);
                ASSERT_EQ(text.Str(), TextOf(number)) << "the text goes out before the record";
                ASSERT_TRUE(numbers.insert(number).second);
            }
        }
        ASSERT_LE(torn, 1);
        for (std::uint32_t number = 0; number < reported; ++number) ASSERT_TRUE(numbers.contains(number)) << number;
        written = numbers.empty() ? 0 : *numbers.rbegin() + 1;
        ASSERT_LE(written, reported + 1);
    }

    TemporaryDirectory directory;
    DataPath data{directory.Path().string() + "/"};
    KTEventSystem system;
    TestEvent event;
    std::mt19937 random{1};
};

TEST_F(EventLogKill, NoReportedRecordIsLostWhenTheWriterIsKilled)
{
    constexpr int kills = 1000;
    std::uint32_t written = 0;
    for (int i = 0; i < kills; ++i)
    {
        SCOPED_TRACE("kill " + std::to_string(i));
        const bool commits = i % 2 == 0;
        const std::uint32_t reported =
            KillOne(written, static_cast<unsigned>(random() % (commits ? 6'000 : 2'000)),
                    commits ? KTSystemFiles::Commits::made : KTSystemFiles::Commits::leftOut);
        // The whole history each time would cost a square.
        if (i % 25 == 0 || i > kills - 5)
            Check(reported, written);
        else
            written = reported + (IsWritten(reported) ? 1 : 0);
        if (HasFailure()) return;
    }
    EXPECT_GT(written, 1000U) << "the writers were killed before they wrote";
}
}  // namespace
