// Devices and their variables, as the engine, the check and the editors reach them.
#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <vector>

#include "host/KTDateTime.h"
#include "host/KTString.h"
#include "host/KTValue.h"

/// A device: a named source of variables.
///
/// Threads: every operation may be called from any thread. Reading never waits for the device itself: a value is what the
///          device published last.
/// Memory:  registered drivers stay their registrant's; a driver must stay alive until it is unregistered and nobody
///          evaluates, and it may be registered under its name only once.
class KTDriver
{
public:
    static constexpr std::uint32_t stateError = 2;     // DeviceState: can't be reached
    static constexpr std::uint32_t flagReadable = 1;   // a variable's flags
    static constexpr std::uint32_t flagHourTypes = 2;  // selectable per hour type
    static constexpr std::uint32_t flagForcible = 8;   // can be forced

    /// A variable's flags and the labels of its states (UTF-8, XML-escaped).
    struct tagSVariableValueInfo
    {
        std::uint32_t inputMask = 0;  // the caller sets 1
        std::uint32_t flags = 0;
        std::vector<KTNarrowString> labels;
    };

    /// What lists of variables show of one.
    struct tagSVariableInfo
    {
        std::uint32_t accessFlags = 0;
        KTWideString name;
        KTWideString description;
    };

    KTDriver() = default;
    KTDriver(const KTDriver&) = delete;
    KTDriver& operator=(const KTDriver&) = delete;

    [[nodiscard]] virtual const KTWideString& DeviceName() const = 0;
    [[nodiscard]] virtual std::uint32_t DeviceState() const = 0;

    /// The id of a variable; false, with `id` unchanged, when there is none of that name.
    virtual bool VariableId(const wchar_t* variable, int& id) = 0;
    /// Ends the use of VariableId; the id itself stays good.
    virtual void ReleaseVariable(int& id) = 0;
    /// False, with the number NaN, for a variable without value.
    virtual bool ReadVariable(int id, KTValue& value) = 0;
    virtual bool VariableInfo(int id, tagSVariableInfo& info) = 0;
    /// Free text; "QV", "QZ", "QM7RT" and "QLINK_GATE" are the parking kinds.
    [[nodiscard]] virtual const KTWideString& DeviceType() const = 0;

    virtual ~KTDriver() = default;

    virtual bool VariableValueInfo(int id, tagSVariableValueInfo& info) = 0;

    /// Where the variable's number lies, NaN meaning none, for readers that look every second; null when it has to be
    /// computed at each read. Good while the driver is registered.
    virtual const std::atomic<double>* ValueCell(int /*id*/) { return nullptr; }

    /// Ids run from 0 to VariableCount() - 1.
    [[nodiscard]] virtual int VariableCount() const = 0;
    /// UTC; invalid while there never was a value.
    [[nodiscard]] virtual KTDateTime ValueTime(int id) const = 0;
    [[nodiscard]] virtual const KTWideString& Description() const = 0;

    /// Asks for a write and returns at once; the device's own thread does it. False when the variable can't be written.
    virtual bool WriteVariable(int id, double value) = 0;

    /// Sets the value itself, NaN meaning none, writable or not: only devices that are nothing but their values can do it.
    virtual bool SetValue(int /*id*/, double /*value*/) { return false; }

    /// Finds a driver by name, exactly, and holds it until UnlockDriver; null when there is none.
    static KTDriver* LockDriver(const wchar_t* name);
    static void UnlockDriver(KTDriver* driver);

    /// All drivers in the order of registration. Only while nobody registers or unregisters.
    static std::list<KTDriver*>::iterator DriversBegin();
    static std::list<KTDriver*>::iterator DriversEnd();

    /// All drivers in the order of registration, each held until UnlockDriver: a list that stays good whoever registers
    /// or unregisters meanwhile.
    static std::vector<KTDriver*> LockDrivers();

    /// False when a driver of that name is registered already.
    static bool Register(KTDriver* driver);
    /// Waits until nobody holds the driver.
    static void Unregister(KTDriver* driver);

    /// Rises with each change of the registry; what was bound under an older number has to be looked up again.
    static const std::atomic<std::uint32_t>& Generation();
};

/// A parking bay sensor: the device itself watches the limit of the busy time.
class KTDriverDeviceQV : public KTDriver
{
public:
    /// Seconds, handed on as it is.
    virtual bool SetAlarmTime(int seconds) = 0;
};

/// A handle that is bound to a variable's full name.
class KTVariable
{
public:
    void Setup(const wchar_t* fullName);

protected:
    KTWideString driverName;
    KTWideString variableName;
};

/// A handle on a live variable. Threads: one thread at a time. Memory: holds the driver while locked.
class KTDriverVariable : public KTVariable
{
public:
    KTDriverVariable() = default;
    KTDriverVariable(const KTDriverVariable&) = delete;
    KTDriverVariable& operator=(const KTDriverVariable&) = delete;
    ~KTDriverVariable() { Unlock(); }

    /// False when the variable doesn't exist. The argument has no effect here.
    bool Lock(bool exclusive);
    void Unlock();

    /// Both false while not locked.
    bool ValueInfo(KTDriver::tagSVariableValueInfo& info);
    bool Info(KTDriver::tagSVariableInfo& info);

private:
    KTDriver* driver = nullptr;  // held, not owned
    int id = -1;
};

/// "DEVICE.VARIABLE", split at the last `.`; without one, the whole text is the variable.
void SplitDriverVariable(const wchar_t* fullName, KTWideString& driver, KTWideString& variable);

/// "FILE@HOUR:DEVICE.VARIABLE"; the first two are empty for a plain name.
void SplitFilterDriverVariable(const wchar_t* fullName, KTWideString& file, KTWideString& hour, KTWideString& driver,
                               KTWideString& variable);

void JoinDriverVariable(const wchar_t* driver, const wchar_t* variable, KTWideString& fullName);
