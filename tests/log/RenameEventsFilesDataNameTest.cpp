#include "log/RenameEventsFilesDataName.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/TestClock.h"
#include "support/TestConfig.h"
#include "support/TestFiles.h"

namespace
{
namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

/// The names of events, in their order; the place is the identity.
class RenameEvents : public testing::Test
{
protected:
    static std::string EventsXml(const Strings& names)
    {
        std::string events;
        unsigned number = 0;
        for (const std::string& name : names)
            if (++number; name != "-") events += Element("event", IdElement(number) + Element("name", name));
        return "<main><events>" + events + "</events></main>";
    }

    /// "-" stands for an event that isn't there.
    bool Rename(const Strings& before, const Strings& after) { return RenameXml(EventsXml(before), EventsXml(after)); }
    bool RenameXml(const std::string& before, const std::string& after)
    {
        XmlDocument oldDocument;
        XmlDocument newDocument;
        EXPECT_TRUE(oldDocument.Parse(before.c_str()));
        EXPECT_TRUE(newDocument.Parse(after.c_str()));
        return RenameEventsFilesDataName(oldDocument.Node(L"events"), newDocument.Node(L"events"));
    }

    void Make(const Strings& names) const
    {
        for (const std::string& name : names)
        {
            fs::create_directories((config.Data() / name).parent_path());
            std::ofstream(config.Data() / name) << name;
        }
    }
    /// All files, those that don't hold their first name marked with it.
    [[nodiscard]] Strings Files() const
    {
        Strings found;
        for (const auto& entry : fs::recursive_directory_iterator(config.Data()))
            if (entry.is_regular_file()) found.push_back(entry.path().lexically_relative(config.Data()).string());
        std::sort(found.begin(), found.end());
        return found;
    }
    [[nodiscard]] std::string Read(const std::string& name) const
    {
        std::ifstream stream(config.Data() / name);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    TestConfig config;
    TestClock clock{Date(2007, 3, 15, 12)};
};

TEST_F(RenameEvents, LeavesAnUnchangedListAlone)
{
    const Strings files{"2007/03/pump 03-2007.dat", "2007/03/pump 03-2007.suc"};
    Make(files);
    EXPECT_TRUE(Rename({"pump", "fan"}, {"pump", "fan"}));
    EXPECT_TRUE(Rename({"pump", "fan"}, {"pump", "fan", "new"}));
    EXPECT_EQ(Files(), files);
}

TEST_F(RenameEvents, TakesNullForNothingToDo)
{
    Make({"2007/03/pump 03-2007.suc"});
    XmlDocument document;
    ASSERT_TRUE(document.Parse(EventsXml({"fan"}).c_str()));
    EXPECT_TRUE(RenameEventsFilesDataName(nullptr, document.Node(L"events")));
    EXPECT_TRUE(RenameEventsFilesDataName(document.Node(L"events"), nullptr));
    EXPECT_TRUE(RenameEventsFilesDataName(nullptr, nullptr));
    EXPECT_EQ(Files(), Strings{"2007/03/pump 03-2007.suc"});
}

TEST_F(RenameEvents, MovesBothFilesOfEachMonthOfTheYearSoFar)
{
    Make({"2006/12/pump 12-2006.suc", "2007/01/pump 01-2007.suc", "2007/01/pump 01-2007.dat",
          "2007/03/pump 03-2007.suc", "2007/04/pump 04-2007.suc"});
    EXPECT_TRUE(Rename({"pump"}, {"Pump north"}));
    EXPECT_EQ(Files(),
              (Strings{"2006/12/pump 12-2006.suc", "2007/01/Pump north 01-2007.dat", "2007/01/Pump north 01-2007.suc",
                       "2007/03/Pump north 03-2007.suc", "2007/04/pump 04-2007.suc"}));
    EXPECT_EQ(Read("2007/01/Pump north 01-2007.dat"), "2007/01/pump 01-2007.dat");
}

TEST_F(RenameEvents, LeavesTheFilesOfADeletedEvent)
{
    Make({"2007/03/pump 03-2007.suc", "2007/03/fan 03-2007.suc"});
    EXPECT_TRUE(Rename({"pump", "fan"}, {"-", "fan"}));
    EXPECT_EQ(Files(), (Strings{"2007/03/fan 03-2007.suc", "2007/03/pump 03-2007.suc"}));
}

TEST_F(RenameEvents, FollowsOnlyTheFirstChangedEvent)
{
    Make({"2007/02/pump 02-2007.suc", "2007/03/fan 03-2007.suc", "2007/03/pump 03-2007.suc"});
    EXPECT_TRUE(Rename({"gone", "same", "pump", "fan"}, {"-", "same", "P", "F"}));
    EXPECT_EQ(Files(), (Strings{"2007/02/P 02-2007.suc", "2007/03/P 03-2007.suc", "2007/03/fan 03-2007.suc"}));
}

TEST_F(RenameEvents, FollowsOnlyTheFirstChangedEventEvenWithoutFiles)
{
    Make({"2007/03/fan 03-2007.suc"});
    EXPECT_TRUE(Rename({"pump", "fan"}, {"P", "F"}));
    EXPECT_EQ(Files(), Strings{"2007/03/fan 03-2007.suc"});
}

// A year without directory takes nothing of the month, so that the first one with a directory is gone through from the
// month of today back.
TEST_F(RenameEvents, PassesOverAYearWithoutDirectoryWithoutTouchingTheMonth)
{
    Make({"2005/03/pump 03-2005.suc", "2006/01/pump 01-2006.suc", "2006/03/pump 03-2006.suc",
          "2006/04/pump 04-2006.suc"});
    EXPECT_TRUE(Rename({"pump"}, {"P"}));
    EXPECT_EQ(Files(), (Strings{"2005/03/pump 03-2005.suc", "2006/01/P 01-2006.suc", "2006/03/P 03-2006.suc",
                                "2006/04/pump 04-2006.suc"}));
}

TEST_F(RenameEvents, TakesAYearForDoneThatHasADirectoryAndNoFiles)
{
    fs::create_directories(config.Data() / "2007");
    Make({"2006/03/pump 03-2006.suc"});
    EXPECT_TRUE(Rename({"pump"}, {"P"}));
    EXPECT_EQ(Files(), Strings{"2006/03/pump 03-2006.suc"});
}

TEST_F(RenameEvents, GoesNoFurtherBackThan2000)
{
    Make({"1999/03/pump 03-1999.suc"});
    EXPECT_TRUE(Rename({"pump"}, {"P"}));
    EXPECT_EQ(Files(), Strings{"1999/03/pump 03-1999.suc"});
    Make({"2000/03/pump 03-2000.suc"});
    EXPECT_TRUE(Rename({"pump"}, {"P"}));
    EXPECT_EQ(Files(), (Strings{"1999/03/pump 03-1999.suc", "2000/03/P 03-2000.suc"}));
}

TEST_F(RenameEvents, CountsTheMonthInUtc)
{
    // Already April in half of the world.
    clock->Advance(std::chrono::hours(16 * 24 + 11));
    ASSERT_EQ(Text(KTDateTime::UTC()).substr(0, 16), "2007-03-31 23:00");
    Make({"2007/03/pump 03-2007.suc", "2007/04/pump 04-2007.suc"});
    EXPECT_TRUE(Rename({"pump"}, {"P"}));
    EXPECT_EQ(Files(), (Strings{"2007/03/P 03-2007.suc", "2007/04/pump 04-2007.suc"}));
}

TEST_F(RenameEvents, LeavesAFileWhoseNewNameIsTakenAndGoesOn)
{
    Make({"2007/03/pump 03-2007.suc", "2007/03/pump 03-2007.dat", "2007/03/P 03-2007.suc", "2007/02/pump 02-2007.suc"});
    EXPECT_FALSE(Rename({"pump"}, {"P"}));
    EXPECT_EQ(Files(), (Strings{"2007/02/P 02-2007.suc", "2007/03/P 03-2007.dat", "2007/03/P 03-2007.suc",
                                "2007/03/pump 03-2007.suc"}));
    EXPECT_EQ(Read("2007/03/P 03-2007.suc"), "2007/03/P 03-2007.suc");
}

TEST_F(RenameEvents, DoesNotMindAFileThatVanished)
{
    class Vanishing : public TestFiles
    {
    public:
        Renaming Rename(const wchar_t* from, const wchar_t* to) override
        {
            Delete(from);
            return TestFiles::Rename(from, to);
        }
    };
    Make({"2007/03/pump 03-2007.suc"});
    const Vanishing files;
    EXPECT_TRUE(Rename({"pump"}, {"P"}));
    EXPECT_EQ(Files(), Strings{});
}

TEST_F(RenameEvents, TakesNamesLiterally)
{
    const Strings others{"2007/03/pump 03-2007.suc", "2007/03/pumpe 03-2007.suc", "2007/03/a pump 03-2007.suc",
                         "2007/03/pu 03-2007.suc", "2007/03/p*p 03-2007.dat"};
    for (const char* name : {"p*", "p???", "[p]ump", "*", ".*", "pum", "pump 03-2007"})
    {
        Make(others);
        Make({"2007/03/" + std::string(name) + " 03-2007.suc"});
        EXPECT_TRUE(Rename({name}, {"NEW"}));
        Strings expected = others;
        expected.push_back("2007/03/NEW 03-2007.suc");
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(Files(), expected) << name;
        fs::remove_all(config.Data() / "2007");
    }
}

TEST_F(RenameEvents, TakesEveryFileOfTheMonthWhateverItsExtension)
{
    Make({"2007/03/pump 03-2007.suc.bak", "2007/03/pump 03-2007.", "2007/03/pump 03-2007", "2007/03/pump 03-2007x.suc",
          "2007/03/pump 02-2007.suc", "2007/03/pump  03-2007.suc"});
    fs::create_directory(config.Data() / "2007/03/pump 03-2007.dir");
    EXPECT_TRUE(Rename({"pump"}, {"P"}));
    EXPECT_EQ(Files(), (Strings{"2007/03/P 03-2007.", "2007/03/P 03-2007.suc.bak", "2007/03/pump  03-2007.suc",
                                "2007/03/pump 02-2007.suc", "2007/03/pump 03-2007", "2007/03/pump 03-2007x.suc"}));
    EXPECT_TRUE(fs::exists(config.Data() / "2007/03/pump 03-2007.dir"));
}

TEST_F(RenameEvents, KeepsTheFilesInTheirDirectoryWhateverTheNames)
{
    Make({"2007/03/.._.._etc 03-2007.suc"});
    EXPECT_TRUE(Rename({"../../etc"}, {"a/b\\c\t"}));
    EXPECT_EQ(Files(), Strings{"2007/03/a_b_c_ 03-2007.suc"});
    // The two names differ only in what no file's name can hold.
    EXPECT_TRUE(Rename({"a/b\\c\t"}, {"a_b_c_"}));
    EXPECT_EQ(Files(), Strings{"2007/03/a_b_c_ 03-2007.suc"});
}

TEST_F(RenameEvents, RenamesBetweenAnyScripts)
{
    Make({"2007/03/Bomba Nº 1 03-2007.suc"});
    EXPECT_TRUE(Rename({"Bomba Nº 1"}, {"泵 😀"}));
    EXPECT_EQ(Files(), Strings{"2007/03/泵 😀 03-2007.suc"});
}

TEST_F(RenameEvents, FailsForANameThatIsTooLongForAFile)
{
    Make({"2007/03/pump 03-2007.suc"});
    EXPECT_FALSE(Rename({"pump"}, {std::string(300, 'x')}));
    EXPECT_EQ(Files(), Strings{"2007/03/pump 03-2007.suc"});
}

TEST_F(RenameEvents, FindsAnEventByItsIdAlone)
{
    Make({"2007/03/pump 03-2007.suc"});
    const std::string before = EventsXml({"pump", "fan"});
    // The order of the new list doesn't matter.
    const std::string after = "<main><events>" + Element("event", IdElement(2) + Element("name", "fan")) +
                              Element("event", IdElement(1) + Element("name", "P")) + "</events></main>";
    EXPECT_TRUE(RenameXml(before, after));
    EXPECT_EQ(Files(), Strings{"2007/03/P 03-2007.suc"});
}
}  // namespace
