#include "suite/drivers/KTModbusPlan.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <map>
#include <string>

namespace
{
using Table = KTModbusPlan::Table;
using Point = KTModbusPlan::Point;
using Block = KTModbusPlan::Block;

std::string Text(const std::vector<Block>& blocks)
{
    std::string text;
    for (const Block& block : blocks)
    {
        text += "cdih"[static_cast<int>(block.table)] + std::to_string(block.address) + "+" +
                std::to_string(block.count) + ":";
        for (const Point& point : block.points) text += " " + std::to_string(point.id);
        text += "; ";
    }
    return text;
}
}  // namespace

TEST(KTModbusPlan, JoinsWhatLiesSideBySideInOneTable)
{
    const struct
    {
        const char* about;
        std::vector<Point> points;
        const char* blocks;
    } rows[] = {
        {"nothing", {}, ""},
        {"one", {{0, Table::holding, 7, 2}}, "h7+2: 0; "},
        {"two side by side", {{0, Table::holding, 0, 2}, {1, Table::holding, 2, 1}}, "h0+3: 0 1; "},
        {"in any order", {{0, Table::holding, 2, 1}, {1, Table::holding, 0, 2}}, "h0+3: 1 0; "},
        {"a gap of one", {{0, Table::holding, 0, 2}, {1, Table::holding, 3, 1}}, "h0+2: 0; h3+1: 1; "},
        {"the same register twice", {{0, Table::input, 4, 1}, {1, Table::input, 4, 1}}, "i4+1: 0 1; "},
        {"one inside another",
         {{0, Table::input, 4, 4}, {1, Table::input, 5, 1}, {2, Table::input, 8, 1}},
         "i4+5: 0 1 2; "},
        {"other tables",
         {{0, Table::holding, 0, 1}, {1, Table::input, 1, 1}, {2, Table::coil, 2, 1}},
         "c2+1: 2; i1+1: 1; h0+1: 0; "},
        {"the last register", {{0, Table::holding, 65535, 1}, {1, Table::holding, 65531, 4}}, "h65531+5: 1 0; "},
    };
    for (const auto& row : rows) EXPECT_EQ(Text(KTModbusPlan::Make(row.points)), row.blocks) << row.about;
}

TEST(KTModbusPlan, KeepsToTheLimitsOfTheProtocolAndSplitsNoValue)
{
    std::vector<Point> doubles;
    for (int i = 0; i < 32; ++i) doubles.push_back({i, Table::holding, i * 4, 4});  // 128 registers
    const std::vector<Block> blocks = KTModbusPlan::Make(doubles);
    ASSERT_EQ(blocks.size(), 2U);
    EXPECT_EQ(blocks[0].count, 124);
    EXPECT_EQ(blocks[1].address, 124);
    EXPECT_EQ(blocks[1].count, 4);

    std::vector<Point> bits;
    for (int i = 0; i < 2001; ++i) bits.push_back({i, Table::discrete, i, 1});
    const std::vector<Block> bitBlocks = KTModbusPlan::Make(bits);
    ASSERT_EQ(bitBlocks.size(), 2U);
    EXPECT_EQ(bitBlocks[0].count, 2000);
    EXPECT_EQ(bitBlocks[1].count, 1);

    std::vector<Point> words;
    for (int i = 0; i < 125; ++i) words.push_back({i, Table::input, i, 1});
    EXPECT_EQ(KTModbusPlan::Make(words).size(), 1U);
}

TEST(KTModbusPlan, HalvesABlockByItsVariables)
{
    const Block block =
        KTModbusPlan::Make({{0, Table::holding, 0, 2}, {1, Table::holding, 2, 1}, {2, Table::holding, 3, 4}})[0];
    Block first;
    Block second;
    KTModbusPlan::Halve(block, first, second);
    EXPECT_EQ(Text({first, second}), "h0+2: 0; h2+5: 1 2; ");
    const Block two = second;
    KTModbusPlan::Halve(two, first, second);
    EXPECT_EQ(Text({first, second}), "h2+1: 1; h3+4: 2; ");
}

TEST(KTModbusPlan, KnowsTheTablesByTheirNames)
{
    const struct
    {
        const char* name;
        Table table;
        bool bits;
        bool writable;
    } rows[] = {{"coil", Table::coil, true, true},
                {"discrete", Table::discrete, true, false},
                {"input", Table::input, false, false},
                {"holding", Table::holding, false, true}};
    for (const auto& row : rows)
    {
        Table table{};
        EXPECT_TRUE(KTModbusPlan::FindTable(row.name, table));
        EXPECT_EQ(table, row.table);
        EXPECT_EQ(KTModbusPlan::HoldsBits(table), row.bits);
        EXPECT_EQ(KTModbusPlan::Writable(table), row.writable);
    }
    Table table = Table::input;
    EXPECT_FALSE(KTModbusPlan::FindTable("coils", table));
    EXPECT_EQ(table, Table::input);
}

RC_GTEST_PROP(KTModbusPlan, ReadsEachVariableOnceAndNoRegisterThatNoneHas, ())
{
    std::vector<Point> points;
    const int count = *rc::gen::inRange(0, 200);
    std::map<std::pair<Table, int>, bool> asked;
    for (int id = 0; id < count; ++id)
    {
        const auto table = static_cast<Table>(*rc::gen::inRange(0, 4));
        const int size = KTModbusPlan::HoldsBits(table) ? 1 : *rc::gen::element(1, 2, 4);
        points.push_back({id, table, *rc::gen::inRange(0, 300), size});
        for (int i = 0; i < size; ++i) asked[{table, points.back().address + i}] = true;
    }
    std::vector<int> seen(points.size(), 0);
    for (const Block& block : KTModbusPlan::Make(points))
    {
        RC_ASSERT(block.count <= (KTModbusPlan::HoldsBits(block.table) ? 2000 : 125));
        for (int i = 0; i < block.count; ++i) RC_ASSERT((asked.count({block.table, block.address + i}) == 1));
        for (const Point& point : block.points)
        {
            ++seen[static_cast<std::size_t>(point.id)];
            RC_ASSERT(point.table == block.table);
            RC_ASSERT(point.address >= block.address);
            RC_ASSERT(point.address + point.count <= block.address + block.count);
        }
    }
    for (const int times : seen) RC_ASSERT(times == 1);
}
