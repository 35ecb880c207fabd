#include "apps/corvane/Arguments.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "apps/corvane/Commands.h"
#include "settings/TemporaryDirectory.h"

namespace
{
using Words = std::vector<std::string>;

class Arguments : public testing::Test
{
protected:
    Arguments()
    {
        std::ofstream(setup()) << "[[device]]\nname = \"S\"\ndriver = \"simulator\"\n"
                                  "[[device.variable]]\nname = \"C\"\nsignal = \"constant\"\nlow = 7.5\n";
    }

    [[nodiscard]] std::string setup() const { return (directory.Path() / "corvane.toml").string(); }

    // The exit code and what was printed.
    static std::string Run(const Words& words)
    {
        std::vector<const char*> argv{"corvane"};
        for (const std::string& word : words) argv.push_back(word.c_str());
        std::istringstream in;
        std::ostringstream out;
        std::ostringstream err;
        const int code = corvane::Main(static_cast<int>(argv.size()), argv.data(), {in, out, err});
        return std::to_string(code) + ' ' + out.str();
    }

    TemporaryDirectory directory;
};

TEST_F(Arguments, AnExpressionMayBeginWithASign)
{
    const struct
    {
        Words words;
        const char* printed;
    } rows[] = {
        {{"eval", "--setup", setup(), "-[S.C]"}, "0 numeric 0 -7.5\n"},
        {{"eval", "-[S.C]", "--setup", setup()}, "0 numeric 0 -7.5\n"},
        {{"eval", "--setup=" + setup(), "-(1 + 2)", "--json"},
         R"(0 {"kind":"numeric","code":0,"value":-3.0})"
         "\n"},
        {{"eval", "--setup", setup(), "-.5"}, "0 numeric 0 -0.5\n"},
        {{"eval", "--setup", setup(), "-TRUE"}, "0 numeric 0 -1\n"},
        {{"eval", "--setup", setup(), "--5"}, "0 numeric 0 5\n"},
        {{"eval", "--setup", setup(), "--[S.C]"}, "0 numeric 0 7.5\n"},
        {{"eval", "--setup", setup(), "-5+3"}, "0 numeric 0 -2\n"},
        {{"eval", "--setup", setup(), "--", "-TRUE"}, "0 numeric 0 -1\n"},
        {{"eval", "--setup", setup(), "-"}, "1 error 40 NaN\n"},
    };
    for (const auto& r : rows) EXPECT_EQ(Run(r.words), r.printed) << r.words.back();
}

TEST_F(Arguments, AMistakenOptionIsWrongUsageAndNoExpression)
{
    const Words rows[] = {
        {"eval", "--setup", setup(), "--jsn"},
        {"eval", "--setup", setup(), "--jsn", "1"},
        {"eval", "--setup", setup(), "-1", "-2"},
        {"eval", "-1", "--setup"},
        {"eval", "--setup", setup(), "--json"},
        {"serve", "--setup", setup(), "-5"},
        {"-5"},
    };
    for (const Words& words : rows) EXPECT_EQ(Run(words), "2 ") << words.back();
}

TEST_F(Arguments, OnlyTheExpressionMovesBehindTheOptions)
{
    const struct
    {
        Words words;
        Words moved;
    } rows[] = {
        {{"eval", "-a", "--json"}, {"eval", "--json", "--", "-a"}},
        {{"eval", "--setup", "-a", "--json", "1"}, {"eval", "--setup", "-a", "--json", "1"}},
        {{"eval", "-h"}, {"eval", "-h"}},
        {{"eval", "--", "-a"}, {"eval", "--", "-a"}},
        {{"serve", "-a"}, {"serve", "-a"}},
        {{}, {}},
    };
    for (const auto& r : rows) EXPECT_EQ(corvane::WithExpressionLast(r.words), r.moved);
}
}  // namespace
