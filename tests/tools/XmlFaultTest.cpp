#include "suite/tools/XmlFault.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <string>

#include "settings/TemporaryDirectory.h"

namespace
{
std::string FaultOf(const std::string& content)
{
    const TemporaryDirectory directory;
    const std::string path = (directory.Path() / "document.xml").string();
    std::ofstream(path) << content;
    return kt::XmlFaultOf(path);
}
}  // namespace

TEST(XmlFault, IsNothingForADocument) { EXPECT_EQ(FaultOf("<main><events/></main>"), ""); }

TEST(XmlFault, TellsLineAndReason)
{
    EXPECT_EQ(FaultOf("<main>\n<events>\n</main>\n"), "line 3: mismatched tag");
    EXPECT_EQ(FaultOf("<main>\n\n<events>"), "line 3: no element found");
    EXPECT_EQ(FaultOf(""), "line 1: no element found");
    EXPECT_EQ(FaultOf("<main>\n&outer;</main>"), "line 2: undefined entity");
}

TEST(XmlFault, TellsWhyAFileCantBeOpened)
{
    const TemporaryDirectory directory;
    EXPECT_EQ(kt::XmlFaultOf((directory.Path() / "nothing.xml").string()), "No such file or directory");
    EXPECT_EQ(kt::XmlFaultOf(directory.Path().string()), "not a regular file");
    const std::string pipe = (directory.Path() / "pipe").string();
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(kt::XmlFaultOf(pipe), "not a regular file");
}
