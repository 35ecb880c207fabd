// The examples of docs/expressions.md, each evaluated.

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "host/KTEvaluator.h"
#include "host/KTText.h"
#include "tests/support/TestDriver.h"

namespace
{
KTWideString Wide(const std::string& text)
{
    KTWideString wide;
    Utf8ToUtf16(wide, KTNarrowString(text.c_str()));
    return wide;
}

// The lines between "```WORD" and "```".
std::vector<std::string> Block(const std::string& word)
{
    std::ifstream page(CORVANE_SOURCE_DIRECTORY "/docs/expressions.md");
    std::vector<std::string> lines;
    bool inside = false;
    for (std::string line; std::getline(page, line);)
    {
        if (inside && line == "```") break;
        if (inside) lines.push_back(line);
        if (line == "```" + word) inside = true;
    }
    return lines;
}

struct Plant
{
    Plant()
    {
        for (const std::string& line : Block("values"))
        {
            const std::size_t dot = line.find('.');
            const std::size_t equals = line.find(" = ");
            Device(line.substr(0, dot))
                .Set(AddVariable(line.substr(0, dot), line.substr(dot + 1, equals - dot - 1)).Str(),
                     std::stod(line.substr(equals + 3)));
        }
        AddVariable("PUMP", "T");
    }

    TestDriver& Device(const std::string& name)
    {
        auto& device = devices[name];
        if (!device)
        {
            device = std::make_unique<TestDriver>(Wide(name).Str());
            device->Register();
        }
        return *device;
    }

    KTWideString AddVariable(const std::string& device, const std::string& variable)
    {
        KTWideString name = Wide(variable);
        Device(device).Add(name.Str());
        return name;
    }

    std::map<std::string, std::unique_ptr<TestDriver>> devices;
};

std::string ResultOf(const std::string& text)
{
    KTEvaluator evaluator(Wide(text).Str());
    const int compiled = evaluator.AnalizeExpression();
    double value = 0.0;
    int kind = 0;
    const int code = evaluator.polaca.Evaluate(value, kind);
    std::ostringstream result;
    result << (compiled < 0 ? "error" : (kind == 1 ? "logical" : "numeric")) << ' ' << code;
    if (code == 0) result << ' ' << value;
    return result.str();
}
}  // namespace

TEST(ExpressionExamples, GiveWhatThePageSays)
{
    Plant plant;
    const std::vector<std::string> lines = Block("examples");
    ASSERT_GE(lines.size(), 25U);
    for (const std::string& line : lines)
    {
        const std::size_t arrow = line.find(" -> ");
        ASSERT_NE(arrow, std::string::npos) << line;
        EXPECT_EQ(ResultOf(line.substr(0, arrow)), line.substr(arrow + 4)) << line;
    }
}
