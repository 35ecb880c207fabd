#include "suite/drivers/KTDriverTable.h"

namespace
{
constexpr std::string_view simulatorVariable[] = {"signal", "low", "high", "period_s", "seed"};

constexpr std::string_view modbusDevice[] = {"host", "port", "unit", "poll_ms"};
constexpr std::string_view modbusVariable[] = {"table", "address", "format", "word_order", "scale"};

constexpr std::string_view mqttDevice[] = {"host", "port", "user", "password", "tls"};
constexpr std::string_view mqttVariable[] = {"scale", "topic", "pointer", "publish"};

constexpr KTDriverRow rows[] = {
    {"memory", {}, {}},
    {"simulator", {}, simulatorVariable},
    {"modbus-tcp", modbusDevice, modbusVariable},
    {"mqtt", mqttDevice, mqttVariable},
};
}  // namespace

std::span<const KTDriverRow> KTDriverTable() { return rows; }

const KTDriverRow* FindDriverRow(std::string_view name)
{
    for (const KTDriverRow& row : rows)
        if (row.name == name) return &row;
    return nullptr;
}
