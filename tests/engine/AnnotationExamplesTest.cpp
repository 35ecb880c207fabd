// The examples of docs/annotations.md, each expanded.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "engine/KTEventSystem.h"
#include "host/KTNumberFormat.h"
#include "support/TestDriver.h"
#include "support/TestEvent.h"

namespace
{
std::vector<std::string> PageLines()
{
    std::ifstream page(CORVANE_SOURCE_DIRECTORY "/docs/annotations.md");
    std::vector<std::string> lines;
    for (std::string line; std::getline(page, line);) lines.push_back(line);
    return lines;
}

// The lines between "```WORD" and "```".
std::vector<std::string> Block(const std::string& word)
{
    std::vector<std::string> lines;
    bool inside = false;
    for (const std::string& line : PageLines())
    {
        if (inside && line == "```") break;
        if (inside) lines.push_back(line);
        if (line == "```" + word) inside = true;
    }
    return lines;
}

// The cells of a line of a table, without the blanks and backquotes around them.
std::vector<std::string> Cells(const std::string& line)
{
    std::vector<std::string> cells;
    std::istringstream in(line.substr(1));
    for (std::string cell; std::getline(in, cell, '|');)
    {
        const std::size_t first = cell.find_first_not_of(" `");
        const std::size_t last = cell.find_last_not_of(" `");
        cells.push_back(first == std::string::npos ? "" : cell.substr(first, last - first + 1));
    }
    return cells;
}
}  // namespace

TEST(AnnotationExamples, ShowWhatThePageSays)
{
    KTEventSystem system;
    XmlDocument groups;
    ASSERT_TRUE(
        groups.Parse("<main><eventsGroups><eventsGroup><id>{39AD2C25-C4CF-48B9-AC03-9D09582CF551}</id>"
                     "<name>Energy</name></eventsGroup></eventsGroups><events/></main>"));
    system.LoadXml(groups);
    TestDriver supply{L"SUPPLY", {L"P"}};
    TestDriver hall{L"HALL", {L"P"}};
    TestDriver pump{L"PUMP", {L"T"}};
    for (TestDriver* device : {&supply, &hall, &pump}) ASSERT_TRUE(device->Register());
    supply.Set(L"P", 285.56);
    hall.Set(L"P", 38.0);
    std::string element;
    for (const std::string& line : Block("event")) element += line + '\n';
    TestEvent event;
    ASSERT_TRUE(event.LoadText(element));

    const std::vector<std::string> lines = Block("examples");
    ASSERT_GE(lines.size(), 10U);
    for (const std::string& line : lines)
    {
        const std::size_t arrow = line.find(" -> ");
        ASSERT_NE(arrow, std::string::npos) << line;
        KTWideString out;
        EXPECT_TRUE(event.ParseAnnotation(out, Wide(line.substr(0, arrow))));
        EXPECT_EQ(Utf8(out), line.substr(arrow + 4)) << line;
    }
}

TEST(AnnotationExamples, NumbersAreWrittenAsThePageSays)
{
    const KTEventSystem system;
    int rows = 0;
    bool inside = false;
    for (const std::string& line : PageLines())
    {
        if (line.starts_with("| Value |")) inside = true;
        if (line.empty()) inside = false;
        if (!inside || line.starts_with("| Value |") || line.starts_with("|---")) continue;
        const std::vector<std::string> cells = Cells(line);
        ASSERT_EQ(cells.size(), 4U) << line;
        ++rows;
        TestEvent event;
        ASSERT_TRUE(event.LoadText(
            EventXml(1, "e", "TRUE",
                     Element("arguments", Element("argument", Element("value", cells[0]) + Element("format", cells[1]) +
                                                                  Element("thousandSeparator", cells[2]))))));
        KTWideString out;
        EXPECT_TRUE(event.ParseAnnotation(out, KTWideString(L"%a1")));
        EXPECT_EQ(Utf8(out), cells[3]) << line;
    }
    EXPECT_GE(rows, 9);
}
