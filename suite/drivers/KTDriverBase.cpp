#include "suite/drivers/KTDriverBase.h"

#include <cmath>
#include <limits>

#include "host/KTText.h"

namespace
{
constexpr double none = std::numeric_limits<double>::quiet_NaN();
constexpr std::int64_t noTime = std::numeric_limits<std::int64_t>::min();
constexpr int stateOffText = 607;
constexpr int stateOnText = 608;

KTWideString Wide(const std::string& text)
{
    KTWideString wide;
    Utf8ToUtf16(wide, KTNarrowString(text.c_str(), false));
    return wide;
}

std::string Utf8(const KTWideString& text)
{
    KTNarrowString narrow;
    Utf16ToUtf8(narrow, text);
    return narrow.Str();
}

/// Only a driver that reads these keys has them other than at their defaults.
bool IsTwoState(const KTVariableSettings& variable)
{
    return variable.format == "bool" || variable.table == "coil" || variable.table == "discrete";
}

std::vector<KTWideString> Labels(const KTVariableSettings& variable)
{
    std::vector<KTWideString> labels;
    for (const std::string& label : variable.labels) labels.push_back(Wide(label));
    // The two texts by which the whole system knows a variable with two states; labels of its own come first.
    if (labels.empty() && IsTwoState(variable))
        for (const int id : {stateOffText, stateOnText}) KTLoadString(id, labels.emplace_back());
    return labels;
}
}  // namespace

KTDriverBase::KTDriverBase(const KTDeviceSettings& settings)
    : name(Wide(settings.name)), type(Wide(settings.type)), description(Wide(settings.description))
{
    for (const KTVariableSettings& variable : settings.variables)
        AddVariable(Wide(variable.name).Str(), Wide(variable.description).Str(), Labels(variable), variable.writable);
}

KTDriverBase::KTDriverBase(const wchar_t* deviceName, const wchar_t* deviceType, const wchar_t* deviceDescription)
    : name(deviceName), type(deviceType), description(deviceDescription)
{
}

void KTDriverBase::AddVariable(const wchar_t* variable, const wchar_t* variableDescription,
                               const std::vector<KTWideString>& labels, bool writable)
{
    const int id = static_cast<int>(variables.size());
    tagSVariable& added = variables.emplace_back();
    added.name = variable;
    added.description = variableDescription;
    for (const KTWideString& label : labels)
    {
        KTNarrowString& escaped = added.labels.emplace_back();
        Utf16ToUtf8(escaped, label);
        Text2Xml(escaped, escaped);
    }
    added.flags = flagReadable | flagHourTypes | (writable ? flagForcible : 0);
    added.value.store(none, std::memory_order_relaxed);
    added.time.store(noTime, std::memory_order_relaxed);
    ids.try_emplace(added.name.Str(), id);
}

bool KTDriverBase::VariableId(const wchar_t* variable, int& id)
{
    const auto found = ids.find(std::wstring_view(variable));
    if (found == ids.end()) return false;
    id = found->second;
    return true;
}

bool KTDriverBase::ReadVariable(int id, KTValue& value)
{
    value.Reset();
    value.number = Known(id) ? Value(id) : none;
    if (std::isnan(value.number)) return false;
    value.SetNumeric(value.number);
    return true;
}

bool KTDriverBase::VariableInfo(int id, tagSVariableInfo& info)
{
    if (!Known(id)) return false;
    const tagSVariable& variable = variables[static_cast<std::size_t>(id)];
    info.accessFlags = variable.flags;
    info.name = variable.name;
    info.description = variable.description;
    return true;
}

bool KTDriverBase::VariableValueInfo(int id, tagSVariableValueInfo& info)
{
    if (!Known(id)) return false;
    const tagSVariable& variable = variables[static_cast<std::size_t>(id)];
    info.flags = variable.flags;
    info.labels = variable.labels;
    return true;
}

const std::atomic<double>* KTDriverBase::ValueCell(int id)
{
    return Known(id) ? &variables[static_cast<std::size_t>(id)].value : nullptr;
}

KTDateTime KTDriverBase::ValueTime(int id) const
{
    if (!Known(id)) return {};
    const std::int64_t time = variables[static_cast<std::size_t>(id)].time.load(std::memory_order_relaxed);
    return time != noTime ? KTDateTime::FromCalendarMicroseconds(time) : KTDateTime();
}

bool KTDriverBase::WriteVariable(int id, double value)
{
    if (!Known(id) || !std::isfinite(value)) return false;
    if ((variables[static_cast<std::size_t>(id)].flags & flagForcible) == 0) return false;
    return Write(id, value);
}

bool KTDriverBase::SetAlarmTime(int seconds)
{
    int id = -1;
    return VariableId(L"ALARMTIME", id) && WriteVariable(id, seconds);
}

void KTDriverBase::Publish(int id, double value, const KTDateTime& now)
{
    if (std::isnan(value))
    {
        PublishNone(id);
        return;
    }
    tagSVariable& variable = variables[static_cast<std::size_t>(id)];
    // The time first: who sees the new value then sees its time or a later one, never an older.
    variable.time.store(now.CalendarMicroseconds(), std::memory_order_relaxed);
    variable.value.store(value, std::memory_order_release);
}

void KTDriverBase::PublishNone(int id)
{
    variables[static_cast<std::size_t>(id)].value.store(none, std::memory_order_release);
}

void KTDriverBase::PublishNoValues()
{
    for (int id = 0; id < VariableCount(); ++id) PublishNone(id);
}

void KTDriverBase::Increase(int id, const KTDateTime& now)
{
    tagSVariable& variable = variables[static_cast<std::size_t>(id)];
    variable.time.store(now.CalendarMicroseconds(), std::memory_order_relaxed);
    variable.value.fetch_add(1.0, std::memory_order_release);
}

void KTDriverBase::SetError(bool error)
{
    // The only bit there is.
    state.store(error ? stateError : 0, std::memory_order_release);
}

double KTDriverBase::Value(int id) const
{
    return variables[static_cast<std::size_t>(id)].value.load(std::memory_order_acquire);
}

std::string KTDriverBase::LogName() const { return Utf8(name); }

std::string KTDriverBase::LogName(int id) const
{
    return LogName() + "." + Utf8(variables[static_cast<std::size_t>(id)].name);
}
