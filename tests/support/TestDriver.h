// A device for tests: variables that the test sets.
#pragma once

#include <atomic>
#include <cmath>
#include <deque>
#include <initializer_list>
#include <limits>
#include <utility>
#include <vector>

#include "host/KTDriver.h"

/// A device whose variables are what the test says.
///
///     TestDriver pump(L"PUMP", {L"P", L"ST"});
///     pump.Register();
///     pump.Set(L"P", 12.5);
///
/// Threads: Set, Clear and the reading operations from any; everything else before others know the device.
/// Memory:  unregisters itself at its end.
class TestDriver : public KTDriver
{
public:
    static constexpr double none = std::numeric_limits<double>::quiet_NaN();

    explicit TestDriver(const wchar_t* deviceName, std::initializer_list<const wchar_t*> names = {}) : name(deviceName)
    {
        for (const wchar_t* variable : names) Add(variable);
    }
    ~TestDriver() override { Unregister(); }

    /// A further variable, also while registered; without value.
    int Add(const wchar_t* variable, std::uint32_t flags = flagReadable)
    {
        Variable& added = variables.emplace_back();
        added.name = variable;
        added.flags = flags;
        return static_cast<int>(variables.size()) - 1;
    }

    bool Register() { return registered = KTDriver::Register(this); }
    void Unregister()
    {
        if (std::exchange(registered, false)) KTDriver::Unregister(this);
    }

    void Set(const wchar_t* variable, double value) { Find(variable).value.store(value, std::memory_order_relaxed); }
    void Clear(const wchar_t* variable) { Set(variable, none); }
    [[nodiscard]] double Get(const wchar_t* variable) { return Find(variable).value.load(std::memory_order_relaxed); }

    void SetFlags(const wchar_t* variable, std::uint32_t flags) { Find(variable).flags = flags; }
    void SetLabels(const wchar_t* variable, std::vector<KTNarrowString> labels)
    {
        Find(variable).labels = std::move(labels);
    }

    bool hasCells = true;                        // false: as a device that computes its values at each read
    std::uint32_t state = 0;                     // DeviceState
    KTWideString type;                           // DeviceType
    std::atomic<int> reads{0};                   // calls of ReadVariable
    std::atomic<int> lookUps{0};                 // calls of VariableId
    std::atomic<int> uses{0};                    // of them, those that found something and weren't released
    std::vector<std::pair<int, double>> writes;  // by WriteVariable: id and value

    [[nodiscard]] const KTWideString& DeviceName() const override { return name; }
    [[nodiscard]] std::uint32_t DeviceState() const override { return state; }

    bool VariableId(const wchar_t* variable, int& id) override
    {
        ++lookUps;
        const int found = IdOf(variable);
        if (found < 0) return false;
        ++uses;
        id = found;
        return true;
    }
    void ReleaseVariable(int& /*id*/) override { --uses; }

    bool ReadVariable(int id, KTValue& value) override
    {
        ++reads;
        value.SetNumeric(At(id).value.load(std::memory_order_relaxed));
        return !std::isnan(value.number);
    }
    bool VariableInfo(int id, tagSVariableInfo& info) override
    {
        info.accessFlags = At(id).flags;
        info.name = At(id).name;
        return true;
    }
    [[nodiscard]] const KTWideString& DeviceType() const override { return type; }
    bool VariableValueInfo(int id, tagSVariableValueInfo& info) override
    {
        info.flags = At(id).flags;
        info.labels = At(id).labels;
        return true;
    }
    const std::atomic<double>* ValueCell(int id) override { return hasCells ? &At(id).value : nullptr; }
    [[nodiscard]] int VariableCount() const override { return static_cast<int>(variables.size()); }
    [[nodiscard]] KTDateTime ValueTime(int /*id*/) const override { return {}; }
    [[nodiscard]] const KTWideString& Description() const override { return empty; }
    bool WriteVariable(int id, double value) override
    {
        if ((At(id).flags & flagForcible) == 0) return false;
        writes.emplace_back(id, value);
        At(id).value.store(value, std::memory_order_relaxed);
        return true;
    }
    bool SetValue(int id, double value) override
    {
        At(id).value.store(value, std::memory_order_relaxed);
        return true;
    }

private:
    struct Variable
    {
        KTWideString name;
        std::atomic<double> value{none};
        std::uint32_t flags = flagReadable;
        std::vector<KTNarrowString> labels;
    };

    [[nodiscard]] int IdOf(const wchar_t* variable) const
    {
        for (std::size_t i = 0; i < variables.size(); ++i)
            if (variables[i].name == variable) return static_cast<int>(i);
        return -1;
    }
    Variable& Find(const wchar_t* variable) { return At(IdOf(variable)); }
    Variable& At(int id) { return variables.at(static_cast<std::size_t>(id)); }  // throws for a test's own slip

    KTWideString name;
    KTWideString empty;
    std::deque<Variable> variables;  // never moved: cells keep their places
    bool registered = false;
};
