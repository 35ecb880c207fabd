// What all devices of this host share: names, variables, and the cells that hold the last values.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/KTDriver.h"
#include "suite/support/KTSettings.h"

/// A device whose variables are cells: what talks to the outside publishes into them, and readers only ever look there.
///
/// Every device can be a bay sensor, since the type is free text in the settings: "QV" makes it one.
///
/// Units:   a value is a double, NaN meaning none. The time of a value is UTC.
/// Threads: as KTDriver says. A value is never torn and reading one never waits. Value and time are two cells: a reader
///          may see the time of a value next to its neighbour, which is good enough to show and for nothing else.
///          Variables are added by the constructors alone.
/// Memory:  owns its variables.
class KTDriverBase : public KTDriverDeviceQV
{
public:
    [[nodiscard]] const KTWideString& DeviceName() const override { return name; }
    [[nodiscard]] const KTWideString& DeviceType() const override { return type; }
    [[nodiscard]] const KTWideString& Description() const override { return description; }
    [[nodiscard]] std::uint32_t DeviceState() const override { return state.load(std::memory_order_acquire); }

    bool VariableId(const wchar_t* variable, int& id) override;
    void ReleaseVariable(int& /*id*/) override {}
    bool ReadVariable(int id, KTValue& value) override;
    bool VariableInfo(int id, tagSVariableInfo& info) override;
    bool VariableValueInfo(int id, tagSVariableValueInfo& info) override;
    const std::atomic<double>* ValueCell(int id) override;
    [[nodiscard]] int VariableCount() const override { return static_cast<int>(variables.size()); }
    [[nodiscard]] KTDateTime ValueTime(int id) const override;

    /// False also for a value that isn't finite, and as the device's kind has it.
    bool WriteVariable(int id, double value) final;

    /// Writes the limit to the device's variable ALARMTIME; false when there is none or it can't be written.
    bool SetAlarmTime(int seconds) override;

    /// Starts what keeps the values alive; false when the system gives no thread. Only once.
    [[nodiscard]] virtual bool Start() { return true; }
    /// Asks the device's thread to end, and returns at once.
    virtual void RequestStop() {}
    /// Waits for that end, which is at most about a second away.
    virtual void Join() {}

    /// Whether the device has answered since the start, so that what has no value now has none for a reason of its own.
    [[nodiscard]] virtual bool Answered() const { return true; }

    /// The device's name as messages tell it (UTF-8).
    [[nodiscard]] std::string LogName() const;

protected:
    /// Name, type, description and all variables of these settings.
    explicit KTDriverBase(const KTDeviceSettings& settings);
    /// A device without variables; the derived class adds them.
    KTDriverBase(const wchar_t* deviceName, const wchar_t* deviceType, const wchar_t* deviceDescription);

    /// `labels` are plain text. The id is the number of variables so far; a second variable of a name can't be found.
    void AddVariable(const wchar_t* variable, const wchar_t* variableDescription,
                     const std::vector<KTWideString>& labels, bool writable);

    /// NaN takes the value away and leaves the time of the last one.
    void Publish(int id, double value, const KTDateTime& now);
    void PublishNone(int id);
    void PublishNoValues();
    void SetError(bool error);

    /// Counts up a value that counts something.
    void Increase(int id, const KTDateTime& now);

    /// The write itself: of a forcible variable, and a finite value. Called from any thread; mustn't wait for the device.
    virtual bool Write(int id, double value) = 0;

    [[nodiscard]] bool Known(int id) const { return id >= 0 && id < VariableCount(); }
    [[nodiscard]] double Value(int id) const;

    /// A variable's full name, as messages tell it (UTF-8).
    [[nodiscard]] std::string LogName(int id) const;

private:
    struct tagSVariable
    {
        KTWideString name;
        KTWideString description;
        std::vector<KTNarrowString> labels;  // XML-escaped
        std::uint32_t flags = 0;
        std::atomic<double> value;
        std::atomic<std::int64_t> time;  // KTDateTime::CalendarMicroseconds, or noTime
    };
    struct tagSNameHash
    {
        using is_transparent = void;
        std::size_t operator()(std::wstring_view text) const { return std::hash<std::wstring_view>()(text); }
    };

    KTWideString name;
    KTWideString type;
    KTWideString description;
    std::atomic<std::uint32_t> state{0};
    std::deque<tagSVariable> variables;  // by id; a deque, since its elements never move
    std::unordered_map<std::wstring, int, tagSNameHash, std::equal_to<>> ids;
};
