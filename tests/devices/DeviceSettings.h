// Settings of devices, as the tests write them.
#pragma once

#include <cmath>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "host/KTDriver.h"
#include "suite/support/KTSettings.h"

inline KTVariableSettings Variable(std::string name, bool writable = false)
{
    KTVariableSettings variable;
    variable.name = std::move(name);
    variable.writable = writable;
    return variable;
}

inline KTVariableSettings Register(std::string name, int address, std::string format, std::string order = "abcd",
                                   std::string table = "holding")
{
    KTVariableSettings variable = Variable(std::move(name), table == "holding" || table == "coil");
    variable.address = address;
    variable.format = std::move(format);
    variable.wordOrder = std::move(order);
    variable.table = std::move(table);
    return variable;
}

inline KTDeviceSettings Device(std::string name, std::string driver, std::vector<KTVariableSettings> variables = {})
{
    KTDeviceSettings device;
    device.name = std::move(name);
    device.driver = std::move(driver);
    device.variables = std::move(variables);
    return device;
}

inline KTDeviceSettings ModbusDevice(int port, std::vector<KTVariableSettings> variables)
{
    KTDeviceSettings device = Device("M1", "modbus-tcp", std::move(variables));
    device.port = port;
    device.pollMilliseconds = 20;
    return device;
}

/// The value as everybody reads it, NaN for none.
inline double Read(KTDriver& driver, int id)
{
    KTValue value;
    const bool has = driver.ReadVariable(id, value);
    return has == !std::isnan(value.number) ? value.number : std::numeric_limits<double>::infinity();
}

inline bool HasValue(KTDriver& driver, int id) { return !std::isnan(Read(driver, id)); }
inline bool InError(const KTDriver& driver) { return (driver.DeviceState() & KTDriver::stateError) != 0; }
