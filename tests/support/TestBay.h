// A sensor of a parking bay whose busy time a test sets.
#pragma once

#include <limits>
#include <string>
#include <vector>

#include "host/KTDriver.h"

/// Registered while it lives. It has the one variable BUSYTIME and lists what is asked of it.
class TestBay : public KTDriverDeviceQV
{
public:
    static constexpr int busyTimeId = 17;

    explicit TestBay(const wchar_t* itsName, const wchar_t* itsType = L"QV") : name(itsName), type(itsType)
    {
        Register(this);
    }
    ~TestBay() override { Unregister(this); }

    bool SetAlarmTime(int seconds) override
    {
        calls.push_back("alarm " + std::to_string(seconds));
        return true;
    }
    [[nodiscard]] const KTWideString& DeviceName() const override { return name; }
    [[nodiscard]] std::uint32_t DeviceState() const override { return state; }
    bool VariableId(const wchar_t* variable, int& id) override
    {
        if (KTWideChar::Compare(variable, L"BUSYTIME") != 0) return false;
        calls.emplace_back("id");
        id = busyTimeId;
        return true;
    }
    void ReleaseVariable(int& id) override { calls.push_back("release " + std::to_string(id)); }
    bool ReadVariable(int id, KTValue& value) override
    {
        read = id;
        if (answers) value.SetNumeric(busyTime);
        return answers;
    }
    bool VariableInfo(int /*id*/, tagSVariableInfo& /*info*/) override { return false; }
    [[nodiscard]] const KTWideString& DeviceType() const override { return type; }
    bool VariableValueInfo(int /*id*/, tagSVariableValueInfo& /*info*/) override { return false; }
    [[nodiscard]] int VariableCount() const override { return 1; }
    [[nodiscard]] KTDateTime ValueTime(int /*id*/) const override { return {}; }
    [[nodiscard]] const KTWideString& Description() const override { return none; }
    bool WriteVariable(int /*id*/, double /*value*/) override { return false; }

    double busyTime = std::numeric_limits<double>::quiet_NaN();
    bool answers = true;  // false: reads fail and leave the value alone
    std::uint32_t state = 0;
    int read = -1;                   // the id of the last read
    std::vector<std::string> calls;  // in their order

private:
    const KTWideString name;
    const KTWideString type;
    const KTWideString none;
};
