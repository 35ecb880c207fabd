// What a real disk does to the log when it is full, closed to us or holds something else in the place of a file.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>

#include "log/EventLogFixture.h"
#include "settings/TemporaryDirectory.h"

namespace
{
namespace fs = std::filesystem;

constexpr int skipped = 77;  // exit code of a child that may not do what the test needs
constexpr uid_t nobody = 65534;

bool WriteText(const char* path, const std::string& text)
{
    std::ofstream file(path);
    file << text;
    return static_cast<bool>(file.flush());
}

// A name space of mounts of our own; where only root may have one, as the root of a name space of users.
bool OwnMounts()
{
    const std::string user = "0 " + std::to_string(getuid()) + " 1";
    const std::string group = "0 " + std::to_string(getgid()) + " 1";
    if (unshare(CLONE_NEWNS) != 0)
    {
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
        WriteText("/proc/self/setgroups", "deny");
        if (!WriteText("/proc/self/uid_map", user) || !WriteText("/proc/self/gid_map", group)) return false;
    }
    return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

class EventLogDisk : public testing::Test
{
protected:
    EventLogDisk()
    {
        plant.Set(L"C", 0.0);
        plant.Register();
        EXPECT_TRUE(event.LoadText(EventXml(1, "pump", "[T.C]=1", Element("record", "T") + Element("notify", "T"))));
    }

    [[nodiscard]] fs::path At(const std::string& name) const { return directory.Path() / name; }
    [[nodiscard]] static std::string Read(const fs::path& path)
    {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    bool Save(unsigned id, const std::string& annotation = "")
    {
        KTEventDriver::tagSEventRT occurrence;
        occurrence.id = TestId(id);
        occurrence.activationDate = KTDateTime::UTC();
        occurrence.annotation = annotation.c_str();
        return event.SaveEvent(&occurrence, 1);
    }
    // A whole life of an event, which nothing that the disk does may stop.
    void Live()
    {
        for (const double condition : {1.0, 1.0, 0.0})
        {
            plant.Set(L"C", condition);
            EXPECT_TRUE(event.Work(KTDateTime::LTC()));
            EXPECT_EQ(event.IsEnabled(), condition == 1.0);
        }
        ASSERT_FALSE(event.Occurrences().empty());
        EXPECT_EQ(event.Occurrences().back()->status, 3);
        EXPECT_TRUE(event.ProcessHttpServiceAck(event.Occurrences().back()->id));
        EXPECT_EQ(event.Occurrences().back()->status, 7);
    }

    // In a process of its own, since rights, limits and mounts can't be taken back.
    static void InChild(const std::function<void()>& work)
    {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0)
        {
            work();
            std::fflush(stdout);
            _exit(HasFailure() ? 1 : 0);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status)) << "killed by signal " << WTERMSIG(status);
        if (WEXITSTATUS(status) == skipped)
            GTEST_SKIP() << "not tested: this process may not mount a small file system";
        EXPECT_EQ(WEXITSTATUS(status), 0) << "its failures stand above";
    }

    TemporaryDirectory directory;
    DataPath data{directory.Path().string() + "/"};
    TestClock clock;
    KTEventSystem system;
    TestDriver plant{L"T", {L"C"}};
    TestEvent event;
};

// A file system of 16 pages. A page that a file has already can be written; the next one can't be had.
TEST_F(EventLogDisk, AFullDiskLosesOneRecordAtATimeAndNothingElse)
{
    InChild(
        [&]
        {
            if (!OwnMounts() || mount("log", directory.Path().c_str(), "tmpfs", 0, "size=64k") != 0) _exit(skipped);
            const fs::path records = At("2024/03/pump 03-2024.suc");
            for (unsigned i = 1; i <= 200; ++i) ASSERT_TRUE(Save(i));
            const int ballast = open(At("ballast").c_str(), O_WRONLY | O_CREAT, 0600);
            const std::string page(4096, 'b');
            while (write(ballast, page.data(), page.size()) > 0)
            {
            }

            // A side file can be made and gets no header: the record stands without its text.
            EXPECT_TRUE(Save(201, "text"));
            EXPECT_FALSE(fs::exists(At("2024/03/pump 03-2024.dat")));
            EXPECT_EQ(Read(records).substr(14 + 200 * 26), RecordBytes(PackedDate(24, 3, 10, 8), TestId(201), 1));

            // The second page ends within a record.
            unsigned next = 202;
            while (next < 400 && Save(next)) ++next;
            EXPECT_EQ(next, 315U);
            EXPECT_EQ(fs::file_size(records), 8192U);
            for (int i = 0; i < 3; ++i) EXPECT_FALSE(Save(next));
            EXPECT_EQ(fs::file_size(records), 8192U);

            // Another month finds no room for its header: no file is left behind, and the event lives on.
            clock->SetUtc(Date(2024, 4, 1));
            EXPECT_FALSE(Save(next));
            EXPECT_FALSE(fs::exists(At("2024/04/pump 04-2024.suc")));
            Live();
            EXPECT_FALSE(fs::exists(At("2024/04/pump 04-2024.suc")));

            // Room again: the torn tail is written over, the month is made.
            ASSERT_EQ(ftruncate(ballast, 0), 0);
            EXPECT_TRUE(Save(1));
            EXPECT_EQ(fs::file_size(At("2024/04/pump 04-2024.suc")), 40U);
            clock->SetUtc(Date(2024, 3, 10, 8));
            EXPECT_TRUE(Save(next, "text"));
            KTEventFile file(true);
            ASSERT_TRUE(file.Open(Wide(records.string()).Str(), true));
            EXPECT_EQ(file.NRecords(), 315);
            for (int i = 0; i < file.NRecords(); ++i)
            {
                EXPECT_TRUE(file.GoRecord(i)) << i;
                EXPECT_EQ(file.EventId(), TestId(static_cast<unsigned>(i) + 1));
            }
            KTNarrowString text;
            file.EventAnnotation(text);
            EXPECT_STREQ(text.Str(), "text");
        });
}

TEST_F(EventLogDisk, ALimitOnTheSizeOfFilesIsAFullDisk)
{
    InChild(
        [&]
        {
            std::signal(SIGXFSZ, SIG_IGN);
            ASSERT_TRUE(Save(1));
            const rlimit limit{14 + 26 + 10, 14 + 26 + 10};
            ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
            EXPECT_FALSE(Save(2));
            EXPECT_EQ(fs::file_size(At("2024/03/pump 03-2024.suc")), 50U);
            KTEventFile file(true);
            EXPECT_TRUE(file.Open(Wide(At("2024/03/pump 03-2024.suc").string()).Str(), true));
            EXPECT_EQ(file.NRecords(), 1);
            Live();
        });
}

// Root may write everywhere, so the rights are tried as somebody else.
TEST_F(EventLogDisk, WithoutRightsNothingIsWrittenAndNothingIsLost)
{
    InChild(
        [&]
        {
            if (getuid() == 0)
            {
                ASSERT_EQ(chown(directory.Path().c_str(), nobody, nobody), 0);
                ASSERT_TRUE(setresgid(nobody, nobody, nobody) == 0 && setresuid(nobody, nobody, nobody) == 0);
            }
            const fs::path month = At("2024/03");
            const fs::path records = month / "pump 03-2024.suc";

            // A directory that may only be read: no file, no directory.
            ASSERT_EQ(chmod(directory.Path().c_str(), 0500), 0);
            EXPECT_FALSE(Save(1));
            Live();
            EXPECT_TRUE(fs::is_empty(directory.Path()));
            ASSERT_EQ(chmod(directory.Path().c_str(), 0700), 0);
            EXPECT_TRUE(Save(1));

            // The file is there and may be written, a side file can't be made: the record without its text.
            ASSERT_EQ(chmod(month.c_str(), 0500), 0);
            EXPECT_TRUE(Save(2, "text"));
            EXPECT_EQ(fs::file_size(records), 66U);
            EXPECT_EQ(Read(records).substr(14 + 26 + 21, 4), std::string(4, '\0'));

            // A file that may only be read keeps what it holds.
            ASSERT_EQ(chmod(records.c_str(), 0440), 0);
            EXPECT_FALSE(Save(3));
            Live();
            EXPECT_EQ(fs::file_size(records), 66U);
            ASSERT_EQ(chmod(records.c_str(), 0640), 0);
            EXPECT_TRUE(Save(3));
            EXPECT_EQ(fs::file_size(records), 92U);
            ASSERT_EQ(chmod(month.c_str(), 0700), 0);
        });
}

TEST_F(EventLogDisk, SomethingElseInTheFilesPlaceIsLeftAlone)
{
    fs::create_directories(At("2024/03/pump 03-2024.suc/inside"));
    EXPECT_FALSE(Save(1));
    Live();
    EXPECT_TRUE(fs::is_directory(At("2024/03/pump 03-2024.suc/inside")));

    fs::create_directories(At("2024/04"));
    ASSERT_EQ(mkfifo(At("2024/04/pump 04-2024.suc").c_str(), 0600), 0);
    clock->SetUtc(Date(2024, 4, 1));
    EXPECT_FALSE(Save(1)) << "and nobody waits for the pipe's other end";
    Live();
    EXPECT_TRUE(fs::is_fifo(At("2024/04/pump 04-2024.suc")));

    WriteText(At("2024/05").c_str(), "a file where the month should be");
    clock->SetUtc(Date(2024, 5, 1));
    EXPECT_FALSE(Save(1));
    Live();
    EXPECT_TRUE(fs::is_regular_file(At("2024/05")));

    // The side file alone: the record stands without its text.
    fs::create_directories(At("2024/06/pump 06-2024.dat"));
    clock->SetUtc(Date(2024, 6, 1));
    EXPECT_TRUE(Save(1, "text"));
    EXPECT_EQ(Read(At("2024/06/pump 06-2024.suc")), HeaderBytes() + RecordBytes(PackedDate(24, 6, 1), TestId(1), 1));
}

TEST_F(EventLogDisk, AGarbageHeaderBeginsTheMonthAnew)
{
    fs::create_directories(At("2024/03"));
    WriteText(At("2024/03/pump 03-2024.suc").c_str(), std::string(5000, 'g'));
    EXPECT_TRUE(Save(1));
    EXPECT_EQ(Read(At("2024/03/pump 03-2024.suc")),
              HeaderBytes() + RecordBytes(PackedDate(24, 3, 10, 8), TestId(1), 1));
}

TEST_F(EventLogDisk, FilesAndDirectoriesAreMadeForTheOwnerAndItsGroup)
{
    const mode_t before = umask(0);
    EXPECT_TRUE(Save(1, "text"));
    umask(before);
    const auto modeOf = [&](const char* name) { return static_cast<unsigned>(fs::status(At(name)).permissions()); };
    EXPECT_EQ(modeOf("2024"), 0750U);
    EXPECT_EQ(modeOf("2024/03"), 0750U);
    EXPECT_EQ(modeOf("2024/03/pump 03-2024.suc"), 0640U);
    EXPECT_EQ(modeOf("2024/03/pump 03-2024.dat"), 0640U);
}
}  // namespace
