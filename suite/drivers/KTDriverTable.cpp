#include "suite/drivers/KTDriverTable.h"

#include "suite/drivers/KTDriverMemory.h"
#include "suite/drivers/KTDriverModbus.h"
#include "suite/drivers/KTDriverSimulator.h"

namespace
{
constexpr std::string_view simulatorVariable[] = {"signal", "low", "high", "period_s", "seed"};

constexpr std::string_view modbusDevice[] = {"host", "port", "unit", "poll_ms"};
constexpr std::string_view modbusVariable[] = {"table", "address", "format", "word_order", "scale"};

constexpr std::string_view mqttDevice[] = {"host", "port", "user", "password", "tls"};
constexpr std::string_view mqttVariable[] = {"scale", "topic", "pointer", "publish"};

template <class Driver>
std::unique_ptr<KTDriverBase> Make(const KTDeviceSettings& device)
{
    return std::make_unique<Driver>(device);
}

constexpr KTDriverRow rows[] = {
    {"memory", {}, {}, Make<KTDriverMemory>},
    {"simulator", {}, simulatorVariable, Make<KTDriverSimulator>},
    {"modbus-tcp", modbusDevice, modbusVariable, Make<KTDriverModbus>},
    {"mqtt", mqttDevice, mqttVariable, nullptr},
};
}  // namespace

std::span<const KTDriverRow> KTDriverTable() { return rows; }

const KTDriverRow* FindDriverRow(std::string_view name)
{
    for (const KTDriverRow& row : rows)
        if (row.name == name) return &row;
    return nullptr;
}
