// Which requests read the variables of a Modbus device.
#pragma once

#include <string_view>
#include <vector>

/// The plan of one poll: variables that lie side by side in one table are read by one request.
///
/// Registers between variables are never read, since a device may refuse a request that touches one it doesn't have.
///
/// Units:   addresses and counts are registers, or bits in the tables of bits.
/// Threads: a plain value.
class KTModbusPlan
{
public:
    enum class Table
    {
        coil,
        discrete,
        input,
        holding
    };
    static constexpr int maxRegisters = 125;  // of one request, by the protocol
    static constexpr int maxBits = 2000;

    /// Where one variable lies.
    struct Point
    {
        int id = -1;
        Table table = Table::holding;
        int address = 0;
        int count = 1;
    };

    /// What one request reads.
    struct Block
    {
        Table table = Table::holding;
        int address = 0;
        int count = 0;
        std::vector<Point> points;  // by address; two may share registers
    };

    static bool FindTable(std::string_view name, Table& out);
    [[nodiscard]] static bool HoldsBits(Table table) { return table == Table::coil || table == Table::discrete; }
    [[nodiscard]] static bool Writable(Table table) { return table == Table::coil || table == Table::holding; }

    [[nodiscard]] static std::vector<Block> Make(std::vector<Point> points);

    /// The block's points in two blocks of about equal size. Only for a block of at least two points.
    static void Halve(const Block& block, Block& first, Block& second);
};
