#include "suite/tools/KTSystemFiles.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "settings/TemporaryDirectory.h"
#include "support/TestText.h"

namespace
{
namespace fs = std::filesystem;
using Strings = std::vector<std::string>;
using Mode = KTFiles::Mode;
using Renaming = KTFiles::Renaming;

// What was committed, by path: these two stand in for the C library's in this program.
std::mutex committedMutex;
Strings committed;

int NoteCommit(int descriptor, long call)
{
    std::error_code ignored;
    const fs::path path = fs::read_symlink("/proc/self/fd/" + std::to_string(descriptor), ignored);
    const std::lock_guard guard(committedMutex);
    committed.push_back(path.string());
    return static_cast<int>(syscall(call, descriptor));
}
}  // namespace

extern "C" int fsync(int descriptor) { return NoteCommit(descriptor, SYS_fsync); }
extern "C" int fdatasync(int descriptor) { return NoteCommit(descriptor, SYS_fdatasync); }

namespace
{
class SystemFiles : public testing::Test
{
protected:
    void SetUp() override { Committed(); }

    [[nodiscard]] std::string At(const std::string& name) const { return (directory.Path() / name).string(); }
    int Open(const std::string& name, Mode mode) { return files.Open(Wide(At(name)).Str(), mode); }
    bool CreateDirectories(const std::string& name) { return files.CreateDirectories(Wide(At(name)).Str()); }
    Renaming Rename(const std::string& from, const std::string& to)
    {
        return files.Rename(Wide(At(from)).Str(), Wide(At(to)).Str());
    }
    void Write(const std::string& name, const std::string& text) const
    {
        std::ofstream(At(name), std::ios::binary) << text;
    }
    [[nodiscard]] std::string Read(const std::string& name) const
    {
        std::ifstream file(At(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    [[nodiscard]] unsigned ModeOf(const std::string& name) const
    {
        struct stat status
        {
        };
        return stat(At(name).c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
    }
    // What was committed since the last call, without the directory of the test.
    Strings Committed()
    {
        const std::lock_guard guard(committedMutex);
        Strings names;
        for (const std::string& path : committed)
        {
            const std::string name = fs::path(path).lexically_relative(directory.Path()).string();
            names.push_back(name);
        }
        committed.clear();
        return names;
    }

    TemporaryDirectory directory;
    KTSystemFiles files;
};

TEST_F(SystemFiles, AFileIsReadAndWrittenAtAnyPlace)
{
    const int file = Open("a", Mode::create);
    ASSERT_GE(file, 0);
    EXPECT_EQ(files.Length(file), 0);
    EXPECT_EQ(files.WriteAt(file, 3, "defg", 4), 4);
    EXPECT_EQ(files.WriteAt(file, 0, "abc", 3), 3);
    EXPECT_EQ(files.Length(file), 7);
    char text[8] = {};
    EXPECT_EQ(files.ReadAt(file, 2, text, 4), 4);
    EXPECT_STREQ(text, "cdef");
    EXPECT_EQ(files.ReadAt(file, 5, text, 8), 2) << "the end of the file cuts a read short";
    EXPECT_EQ(files.ReadAt(file, 7, text, 1), 0);
    EXPECT_EQ(files.ReadAt(file, 0, text, 0), 0);
    EXPECT_EQ(files.ReadAt(file, -1, text, 1), -1);
    EXPECT_EQ(files.WriteAt(file, -12, text, 1), -1);
    EXPECT_TRUE(files.Commit(file));
    files.Close(file);
    EXPECT_EQ(Read("a"), "abcdefg");
}

TEST_F(SystemFiles, TheModeOfOpeningSaysWhatIsMadeAndWhatIsLost)
{
    EXPECT_EQ(Open("a", Mode::read), KTFiles::none);
    EXPECT_EQ(Open("a", Mode::readWrite), KTFiles::none);
    EXPECT_FALSE(fs::exists(At("a")));
    int file = Open("a", Mode::createNew);
    ASSERT_GE(file, 0);
    EXPECT_EQ(files.WriteAt(file, 0, "text", 4), 4);
    files.Close(file);
    EXPECT_EQ(Open("a", Mode::createNew), KTFiles::none);
    file = Open("a", Mode::read);
    ASSERT_GE(file, 0);
    EXPECT_EQ(files.WriteAt(file, 0, "x", 1), -1);
    files.Close(file);
    file = Open("a", Mode::readWrite);
    EXPECT_EQ(files.WriteAt(file, 0, "n", 1), 1);
    files.Close(file);
    EXPECT_EQ(Read("a"), "next");
    file = Open("a", Mode::create);
    EXPECT_EQ(files.Length(file), 0);
    files.Close(file);
    EXPECT_EQ(Open("missing/a", Mode::create), KTFiles::none);
    EXPECT_EQ(Open("", Mode::create), KTFiles::none);
    EXPECT_EQ(files.Open(L"", Mode::create), KTFiles::none);
    EXPECT_EQ(files.Length(-1), -1);
    EXPECT_FALSE(files.Commit(-1));
    files.Close(-1);
}

TEST_F(SystemFiles, OnlyRegularFilesOpenAndNobodyWaits)
{
    fs::create_directory(At("directory"));
    ASSERT_EQ(mkfifo(At("pipe").c_str(), 0600), 0);
    for (const Mode mode : {Mode::read, Mode::readWrite, Mode::create, Mode::createNew})
    {
        EXPECT_EQ(Open("directory", mode), KTFiles::none);
        EXPECT_EQ(Open("pipe", mode), KTFiles::none);
        EXPECT_EQ(files.Open(L"/dev/null", mode), KTFiles::none);
    }
    Write("a", "text");
    fs::create_symlink("a", At("link"));
    const int file = Open("link", Mode::read);
    EXPECT_EQ(files.Length(file), 4) << "a link leads to its file";
    files.Close(file);
}

TEST_F(SystemFiles, FilesAndDirectoriesAreMadeForTheOwnerAndItsGroup)
{
    const mode_t before = umask(0);
    EXPECT_TRUE(CreateDirectories("2024/03/a.suc"));
    files.Close(Open("2024/03/a.suc", Mode::create));
    files.Close(Open("b", Mode::createNew));
    umask(before);
    EXPECT_EQ(ModeOf("2024"), 0750U);
    EXPECT_EQ(ModeOf("2024/03"), 0750U);
    EXPECT_EQ(ModeOf("2024/03/a.suc"), 0640U);
    EXPECT_EQ(ModeOf("b"), 0640U);
}

TEST_F(SystemFiles, NoChildInheritsAFile)
{
    const int file = Open("a", Mode::create);
    EXPECT_NE(fcntl(file, F_GETFD) & FD_CLOEXEC, 0);
    files.Close(file);
    const int replacement = files.OpenReplacement(Wide(At("a")).Str());
    EXPECT_NE(fcntl(replacement, F_GETFD) & FD_CLOEXEC, 0);
    files.Close(replacement);
}

TEST_F(SystemFiles, MakesTheDirectoriesOfAPathAndNotItsFile)
{
    EXPECT_TRUE(CreateDirectories("x/y/z"));
    EXPECT_TRUE(fs::is_directory(At("x/y")));
    EXPECT_FALSE(fs::exists(At("x/y/z")));
    EXPECT_TRUE(CreateDirectories("x/y/z")) << "they are there";
    EXPECT_TRUE(CreateDirectories("x//w//z"));
    EXPECT_TRUE(fs::is_directory(At("x/w")));
    EXPECT_TRUE(CreateDirectories("d/"));
    EXPECT_TRUE(fs::is_directory(At("d")));
    EXPECT_FALSE(files.CreateDirectories(L""));
    EXPECT_TRUE(files.CreateDirectories(L"/file"));
    Write("plain", "");
    EXPECT_FALSE(CreateDirectories("plain/a/b"));
    EXPECT_FALSE(CreateDirectories("plain/a"));
}

// A name lasts only when the directory that holds it is committed.
TEST_F(SystemFiles, TheFirstCommitOfAMadeFileCommitsTheDirectoriesThatWereMadeForIt)
{
    ASSERT_TRUE(CreateDirectories("2024/03/a"));
    files.Close(Open("2024/03/a", Mode::create));
    EXPECT_EQ(Committed(), Strings{}) << "nobody has asked yet";
    const int file = Open("2024/03/a", Mode::readWrite);
    EXPECT_TRUE(files.Commit(file));
    EXPECT_EQ(Committed(), (Strings{"2024/03/a", "2024/03", "2024", "."}));
    EXPECT_TRUE(files.Commit(file));
    EXPECT_EQ(Committed(), Strings{"2024/03/a"}) << "once is enough";
    files.Close(file);
    const int again = Open("2024/03/a", Mode::create);
    EXPECT_TRUE(files.Commit(again));
    EXPECT_EQ(Committed(), Strings{"2024/03/a"}) << "a file that was there isn't made";
    files.Close(again);
}

TEST_F(SystemFiles, AFileInAPresentDirectoryCommitsThatOne)
{
    const int file = Open("a", Mode::createNew);
    EXPECT_TRUE(files.Commit(file));
    EXPECT_EQ(Committed(), (Strings{"a", "."}));
    files.Close(file);
    Write("b", "");
    const int foreign = Open("b", Mode::readWrite);
    EXPECT_TRUE(files.Commit(foreign));
    EXPECT_EQ(Committed(), Strings{"b"});
    files.Close(foreign);
}

TEST_F(SystemFiles, AReplayLeavesCommitsOut)
{
    KTSystemFiles quick(KTSystemFiles::Commits::leftOut);
    ASSERT_TRUE(quick.CreateDirectories(Wide(At("d/a")).Str()));
    const int file = quick.Open(Wide(At("d/a")).Str(), Mode::create);
    EXPECT_TRUE(quick.Commit(file));
    quick.Close(file);
    const int replacement = quick.OpenReplacement(Wide(At("d/a")).Str());
    EXPECT_EQ(quick.WriteAt(replacement, 0, "x", 1), 1);
    EXPECT_TRUE(quick.Replace(replacement));
    EXPECT_EQ(quick.Rename(Wide(At("d/a")).Str(), Wide(At("d/b")).Str()), Renaming::done);
    Write("d/c", "");
    EXPECT_TRUE(quick.Delete(Wide(At("d/c")).Str()));
    EXPECT_EQ(Committed(), Strings{});
    EXPECT_EQ(Read("d/b"), "x");
}

TEST_F(SystemFiles, DeletesFiles)
{
    Write("a", "");
    EXPECT_TRUE(files.Delete(Wide(At("a")).Str()));
    EXPECT_EQ(Committed(), Strings{"."}) << "it doesn't come back";
    EXPECT_FALSE(fs::exists(At("a")));
    EXPECT_FALSE(files.Delete(Wide(At("a")).Str()));
    fs::create_directory(At("d"));
    EXPECT_FALSE(files.Delete(Wide(At("d")).Str()));
}

TEST_F(SystemFiles, RenamesAndNeverReplaces)
{
    Write("a", "1");
    Write("b", "2");
    EXPECT_EQ(Rename("a", "b"), Renaming::failed);
    EXPECT_EQ(Rename("a", "a"), Renaming::failed);
    EXPECT_EQ(Read("a") + Read("b"), "12");
    EXPECT_EQ(Rename("a", "c"), Renaming::done);
    EXPECT_EQ(Committed(), Strings{"."}) << "the new name lasts";
    EXPECT_EQ(Read("c"), "1");
    EXPECT_FALSE(fs::exists(At("a")));
    EXPECT_EQ(Rename("a", "d"), Renaming::missing);
    EXPECT_EQ(Rename("c", "c/d"), Renaming::failed);
}

TEST_F(SystemFiles, FindsTheEntriesOfADirectoryInOrder)
{
    for (const char* name : {"b", "a", "\xC3\xA9", ".hidden", "*", "bad\xFFname"}) Write(name, "");
    fs::create_directory(At("d"));
    fs::create_directory_symlink("d", At("link"));
    std::vector<KTFoundFile> found;
    ASSERT_TRUE(files.Search(Wide(directory.Path().string()).Str(), found));
    std::string names;
    for (const KTFoundFile& file : found) names += Utf8(file.name) + (file.directory ? "/ " : " ");
    EXPECT_EQ(names, "* .hidden a b d/ link/ \xC3\xA9 ");
    EXPECT_FALSE(files.Search(Wide(At("missing")).Str(), found));
    EXPECT_TRUE(found.empty());
    EXPECT_FALSE(files.Search(Wide(At("a")).Str(), found));
}

TEST_F(SystemFiles, AReplacementTakesTheFilesPlaceWhenItIsWhole)
{
    Write("a", "old");
    ASSERT_EQ(chmod(At("a").c_str(), 0604), 0);
    const int file = files.OpenReplacement(Wide(At("a")).Str());
    ASSERT_GE(file, 0);
    EXPECT_EQ(files.WriteAt(file, 0, "new", 3), 3);
    EXPECT_EQ(Read("a"), "old");
    EXPECT_TRUE(files.Replace(file));
    EXPECT_EQ(Read("a"), "new");
    EXPECT_EQ(ModeOf("a"), 0604U);
    const Strings order = Committed();
    ASSERT_EQ(order.size(), 2U);
    EXPECT_EQ(order[0].substr(0, 2), "a.") << "the content before it is seen under the name";
    EXPECT_EQ(order[1], ".");
    EXPECT_FALSE(files.Replace(file)) << "it is closed";
    EXPECT_EQ(std::distance(fs::directory_iterator(directory.Path()), fs::directory_iterator()), 1);
}

TEST_F(SystemFiles, AReplacementThatIsGivenUpLeavesNothing)
{
    Write("a", "old");
    const int file = files.OpenReplacement(Wide(At("a")).Str());
    EXPECT_EQ(files.WriteAt(file, 0, "new", 3), 3);
    files.Close(file);
    EXPECT_EQ(Read("a"), "old");
    EXPECT_EQ(std::distance(fs::directory_iterator(directory.Path()), fs::directory_iterator()), 1);
    EXPECT_EQ(files.OpenReplacement(Wide(At("missing/a")).Str()), KTFiles::none);
}

TEST_F(SystemFiles, AFullDiskCutsAWriteShort)
{
    const int file = Open("a", Mode::create);
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit small{100, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const std::string text(60, 'x');
    EXPECT_EQ(files.WriteAt(file, 0, text.data(), 60), 60);
    EXPECT_EQ(files.WriteAt(file, 60, text.data(), 60), 40);
    EXPECT_EQ(files.WriteAt(file, 100, text.data(), 60), -1);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(files.Length(file), 100);
    files.Close(file);
}

// Two threads make files in one new directory: each commit that returns has its file's name on the disk.
TEST_F(SystemFiles, ThreadsThatMakeAndCommitFilesDoNotDisturbEachOther)
{
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back(
            [&, t]
            {
                for (int i = 0; i < 50; ++i)
                {
                    const std::string name =
                        "d" + std::to_string(i % 5) + "/" + std::to_string(t) + "-" + std::to_string(i);
                    EXPECT_TRUE(CreateDirectories(name));
                    const int file = Open(name, Mode::create);
                    EXPECT_EQ(files.WriteAt(file, 0, &i, sizeof i), static_cast<std::ptrdiff_t>(sizeof i));
                    EXPECT_TRUE(files.Commit(file));
                    files.Close(file);
                }
            });
    for (std::thread& thread : threads) thread.join();
    Committed();
    const int file = Open("d0/0-0", Mode::readWrite);
    EXPECT_TRUE(files.Commit(file));
    EXPECT_EQ(Committed(), Strings{"d0/0-0"}) << "nothing is left to be committed";
    files.Close(file);
}

TEST_F(SystemFiles, OneObjectIsInstalledAtATime)
{
    KTFiles& system = KTFiles::Get();
    EXPECT_EQ(KTFiles::Install(&files), nullptr);
    EXPECT_EQ(&KTFiles::Get(), &files);
    EXPECT_TRUE(CreateDirectoryW(Wide(At("n/a")).Str()));
    EXPECT_TRUE(fs::is_directory(At("n")));
    EXPECT_EQ(KTFiles::Install(nullptr), &files);
    EXPECT_EQ(&KTFiles::Get(), &system);
}
}  // namespace
