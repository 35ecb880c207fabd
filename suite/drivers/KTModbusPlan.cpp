#include "suite/drivers/KTModbusPlan.h"

#include <algorithm>
#include <tuple>

namespace
{
using Block = KTModbusPlan::Block;
using Point = KTModbusPlan::Point;

int MaxCount(KTModbusPlan::Table table)
{
    return KTModbusPlan::HoldsBits(table) ? KTModbusPlan::maxBits : KTModbusPlan::maxRegisters;
}

int EndWith(const Block& block, const Point& point)
{
    return std::max(block.address + block.count, point.address + point.count);
}

bool Joins(const Block& block, const Point& point)
{
    return block.table == point.table && point.address <= block.address + block.count &&
           EndWith(block, point) - block.address <= MaxCount(block.table);
}

void Append(Block& block, const Point& point)
{
    if (block.points.empty())
    {
        block.table = point.table;
        block.address = point.address;
    }
    block.count = EndWith(block, point) - block.address;
    block.points.push_back(point);
}
}  // namespace

bool KTModbusPlan::FindTable(std::string_view name, Table& out)
{
    constexpr std::string_view names[] = {"coil", "discrete", "input", "holding"};  // in the order of Table
    const auto* found = std::find(std::begin(names), std::end(names), name);
    if (found == std::end(names)) return false;
    out = static_cast<Table>(found - std::begin(names));
    return true;
}

std::vector<KTModbusPlan::Block> KTModbusPlan::Make(std::vector<Point> points)
{
    std::stable_sort(points.begin(), points.end(),
                     [](const Point& a, const Point& b)
                     { return std::tuple(a.table, a.address) < std::tuple(b.table, b.address); });
    std::vector<Block> blocks;
    for (const Point& point : points)
    {
        if (blocks.empty() || !Joins(blocks.back(), point)) blocks.emplace_back();
        Append(blocks.back(), point);
    }
    return blocks;
}

void KTModbusPlan::Halve(const Block& block, Block& first, Block& second)
{
    first = Block();
    second = Block();
    const std::size_t half = block.points.size() / 2;
    for (std::size_t i = 0; i < block.points.size(); ++i) Append(i < half ? first : second, block.points[i]);
}
