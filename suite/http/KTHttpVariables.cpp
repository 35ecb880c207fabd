#include "suite/http/KTHttpVariables.h"

#include <locale.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <nlohmann/json.hpp>

#include "host/KTDriver.h"
#include "host/KTText.h"
#include "suite/tools/KTIsoTime.h"

namespace
{
using Json = nlohmann::ordered_json;

std::string Utf8(const KTWideString& text)
{
    KTNarrowString out;
    Utf16ToUtf8(out, text);
    return {out.Str(), static_cast<std::size_t>(out.Length())};
}

Json TimeJson(const KTDateTime& time)
{
    if (!time.Valid()) return nullptr;
    return kt::IsoTime(time);
}

Json ValueJson(KTDriver& driver, int id)
{
    KTValue value;
    if (!driver.ReadVariable(id, value) || !std::isfinite(value.number)) return nullptr;
    return value.number;
}

Json VariableJson(KTDriver& driver, int id)
{
    KTDriver::tagSVariableInfo info;
    KTDriver::tagSVariableValueInfo values;
    values.inputMask = 1;
    (void)driver.VariableInfo(id, info);  // what it doesn't know stays empty
    (void)driver.VariableValueInfo(id, values);
    Json labels = Json::array();
    KTWideString label;
    for (const KTNarrowString& escaped : values.labels) labels.push_back(Utf8(ParseXMLText(escaped, label)));
    return {{"name", Utf8(info.name)},        {"description", Utf8(info.description)},
            {"value", ValueJson(driver, id)}, {"time", TimeJson(driver.ValueTime(id))},
            {"flags", values.flags},          {"labels", std::move(labels)}};
}

Json DeviceJson(KTDriver& driver)
{
    Json variables = Json::array();
    const int count = driver.VariableCount();
    for (int id = 0; id < count; ++id) variables.push_back(VariableJson(driver, id));
    return {{"name", Utf8(driver.DeviceName())},
            {"type", Utf8(driver.DeviceType())},
            {"description", Utf8(driver.Description())},
            {"state", driver.DeviceState()},
            {"variables", std::move(variables)}};
}

/// A driver held for as long as this lives.
class HeldDriver
{
public:
    explicit HeldDriver(KTDriver* found) : driver(found) {}
    HeldDriver(const HeldDriver&) = delete;
    HeldDriver& operator=(const HeldDriver&) = delete;
    ~HeldDriver()
    {
        if (driver != nullptr) KTDriver::UnlockDriver(driver);
    }

    KTDriver* const driver;
};

/// All drivers held for as long as this lives.
class HeldDrivers
{
public:
    HeldDrivers() : drivers(KTDriver::LockDrivers()) {}
    HeldDrivers(const HeldDrivers&) = delete;
    HeldDrivers& operator=(const HeldDrivers&) = delete;
    ~HeldDrivers()
    {
        for (KTDriver* driver : drivers) KTDriver::UnlockDriver(driver);
    }

    const std::vector<KTDriver*> drivers;
};

std::size_t CountDigits(std::string_view& text)
{
    std::size_t count = 0;
    while (!text.empty() && text.front() >= '0' && text.front() <= '9')
    {
        text.remove_prefix(1);
        ++count;
    }
    return count;
}

void SkipSign(std::string_view& text)
{
    if (text.starts_with('+') || text.starts_with('-')) text.remove_prefix(1);
}

bool IsDecimal(std::string_view text)
{
    SkipSign(text);
    std::size_t digits = CountDigits(text);
    if (text.starts_with('.'))
    {
        text.remove_prefix(1);
        digits += CountDigits(text);
    }
    if (digits == 0) return false;
    if (!text.starts_with('e') && !text.starts_with('E')) return text.empty();
    text.remove_prefix(1);
    SkipSign(text);
    return CountDigits(text) > 0 && text.empty();
}

void SetNumber(KTDriver& driver, int id, double number, KTHttpAnswer& answer)
{
    if (driver.SetValue(id, number) || driver.WriteVariable(id, number))
        answer.Empty(204);
    else
        answer.Text(409, "This variable can't be written.");
}

void TakeValueAway(KTDriver& driver, int id, KTHttpAnswer& answer)
{
    if (driver.SetValue(id, std::numeric_limits<double>::quiet_NaN()))
        answer.Empty(204);
    else
        answer.Text(400, "The body has to be a number: the value of this variable can't be taken away.");
}
}  // namespace

std::string VariablesJson()
{
    const HeldDrivers held;
    Json devices = Json::array();
    for (KTDriver* driver : held.drivers) devices.push_back(DeviceJson(*driver));
    return Json{{"devices", std::move(devices)}}.dump(-1, ' ', false, Json::error_handler_t::replace);
}

bool ParseNumber(std::string_view text, double& number)
{
    const std::string trimmed(TrimBlanks(text));
    if (!IsDecimal(trimmed)) return false;
    // The process's locale may have another decimal separator.
    static const locale_t plain = ::newlocale(LC_ALL_MASK, "C", nullptr);
    number = ::strtod_l(trimmed.c_str(), nullptr, plain);
    return std::isfinite(number);
}

void PutVariable(KTHttpCall& call, KTHttpAnswer& answer)
{
    KTWideString fullName;
    KTWideString deviceName;
    KTWideString variable;
    Utf8ToUtf16(fullName, KTNarrowString(call.rest.c_str()));
    SplitDriverVariable(fullName.Str(), deviceName, variable);
    const HeldDriver device(KTDriver::LockDriver(deviceName.Str()));
    int id = -1;
    if (device.driver == nullptr || !device.driver->VariableId(variable.Str(), id))
        return answer.Text(404, "There is no such variable.");

    double number = 0.0;
    if (TrimBlanks(call.body).empty())
        TakeValueAway(*device.driver, id, answer);
    else if (!ParseNumber(call.body, number))
        answer.Text(400, "The body has to be one number, with a point before its decimals.");
    else
        SetNumber(*device.driver, id, number, answer);
    device.driver->ReleaseVariable(id);
}
