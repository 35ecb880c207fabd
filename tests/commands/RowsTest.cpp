#include "apps/corvane/Rows.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace corvane;

namespace
{
const std::vector<RowColumn> columns{{"name", "NAME", 6},
                                     {"id", nullptr},
                                     {"note", "NOTE", 0, RowColumn::last},
                                     {"count", "COUNT", 3, RowColumn::right},
                                     {"good", "GOOD"}};

std::string Written(RowFormat format, const std::vector<std::vector<RowCell>>& rows)
{
    std::ostringstream out;
    const auto writer = RowWriter::Make(format, columns, out);
    for (const auto& row : rows) writer->Write(row);
    return out.str();
}

const std::vector<std::vector<RowCell>> rows{
    {{"Pump"}, {"1"}, {"a, \"b\"\nc"}, {std::int64_t{12}, "a dozen"}, {true}},
    {{"Ventilator"}, {"2"}, {""}, {std::int64_t{-3}}, {nullptr}},
    {{"泵"}, {nullptr}, {"é\\"}, {nullptr}, {false, "no"}},
};
}  // namespace

TEST(Rows, AreATableForPeople)
{
    EXPECT_EQ(Written(RowFormat::table, rows),
              "NAME    COUNT  GOOD  NOTE\n"
              "Pump    a dozen  true  a, \"b\" c\n"
              "Ventilator     -3  -\n"
              "泵          -  no    é\\\n");
}

TEST(Rows, AreAnObjectALineForPrograms)
{
    EXPECT_EQ(Written(RowFormat::json, rows),
              "{\"name\":\"Pump\",\"id\":\"1\",\"note\":\"a, \\\"b\\\"\\nc\",\"count\":12,\"good\":true}\n"
              "{\"name\":\"Ventilator\",\"id\":\"2\",\"note\":\"\",\"count\":-3,\"good\":null}\n"
              "{\"name\":\"泵\",\"id\":null,\"note\":\"é\\\\\",\"count\":null,\"good\":false}\n");
}

TEST(Rows, AreCsvWithAHeader)
{
    EXPECT_EQ(Written(RowFormat::csv, rows),
              "name,id,note,count,good\r\n"
              "Pump,1,\"a, \"\"b\"\"\nc\",12,true\r\n"
              "Ventilator,2,,-3,\r\n"
              "泵,,é\\,,false\r\n");
}

TEST(Rows, OfNothingAreNothingButTheHeaderOfCsv)
{
    EXPECT_EQ(Written(RowFormat::table, {}), "");
    EXPECT_EQ(Written(RowFormat::json, {}), "");
    EXPECT_EQ(Written(RowFormat::csv, {}), "name,id,note,count,good\r\n");
}
