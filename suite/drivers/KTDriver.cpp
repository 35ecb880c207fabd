#include "host/KTDriver.h"

#include <condition_variable>
#include <mutex>
#include <string>
#include <unordered_map>

namespace
{
struct Registry
{
    std::mutex mutex;
    std::condition_variable released;
    std::list<KTDriver*> drivers;  // in the order of registration
    struct Entry
    {
        std::list<KTDriver*>::iterator place;
        int holds = 0;
    };
    std::unordered_map<std::wstring, Entry> byName;
};

Registry& TheRegistry()
{
    static Registry registry;
    return registry;
}

std::atomic<std::uint32_t>& TheGeneration()
{
    static std::atomic<std::uint32_t> generation{1};
    return generation;
}
}  // namespace

KTDriver* KTDriver::LockDriver(const wchar_t* name)
{
    Registry& registry = TheRegistry();
    const std::lock_guard guard(registry.mutex);
    const auto found = registry.byName.find(name);
    if (found == registry.byName.end()) return nullptr;
    ++found->second.holds;
    return *found->second.place;
}

void KTDriver::UnlockDriver(KTDriver* driver)
{
    Registry& registry = TheRegistry();
    const std::lock_guard guard(registry.mutex);
    const auto found = registry.byName.find(driver->DeviceName().Str());
    if (found == registry.byName.end()) return;
    if (--found->second.holds == 0) registry.released.notify_all();
}

std::list<KTDriver*>::iterator KTDriver::DriversBegin() { return TheRegistry().drivers.begin(); }
std::list<KTDriver*>::iterator KTDriver::DriversEnd() { return TheRegistry().drivers.end(); }

std::vector<KTDriver*> KTDriver::LockDrivers()
{
    Registry& registry = TheRegistry();
    const std::lock_guard guard(registry.mutex);
    std::vector<KTDriver*> held(registry.drivers.begin(), registry.drivers.end());
    for (auto& [name, entry] : registry.byName) ++entry.holds;
    return held;
}

bool KTDriver::Register(KTDriver* driver)
{
    Registry& registry = TheRegistry();
    const std::lock_guard guard(registry.mutex);
    const auto [entry, added] = registry.byName.try_emplace(driver->DeviceName().Str());
    if (!added) return false;
    entry->second.place = registry.drivers.insert(registry.drivers.end(), driver);
    TheGeneration().fetch_add(1, std::memory_order_release);
    return true;
}

void KTDriver::Unregister(KTDriver* driver)
{
    Registry& registry = TheRegistry();
    std::unique_lock lock(registry.mutex);
    const auto found = registry.byName.find(driver->DeviceName().Str());
    if (found == registry.byName.end() || *found->second.place != driver) return;
    // The wait lets others register, which may move the table's nodes in its iterators' eyes but never the entry.
    const Registry::Entry& entry = found->second;
    registry.released.wait(lock, [&] { return entry.holds == 0; });
    registry.drivers.erase(entry.place);
    registry.byName.erase(driver->DeviceName().Str());
    TheGeneration().fetch_add(1, std::memory_order_release);
}

const std::atomic<std::uint32_t>& KTDriver::Generation() { return TheGeneration(); }

void KTVariable::Setup(const wchar_t* fullName) { SplitDriverVariable(fullName, driverName, variableName); }

bool KTDriverVariable::Lock(bool /*exclusive*/)
{
    Unlock();
    KTDriver* const found = KTDriver::LockDriver(driverName.Str());
    if (found == nullptr) return false;
    if (!found->VariableId(variableName.Str(), id))
    {
        KTDriver::UnlockDriver(found);
        return false;
    }
    driver = found;
    return true;
}

void KTDriverVariable::Unlock()
{
    if (driver == nullptr) return;
    driver->ReleaseVariable(id);
    KTDriver::UnlockDriver(driver);
    driver = nullptr;
}

bool KTDriverVariable::ValueInfo(KTDriver::tagSVariableValueInfo& info)
{
    return driver != nullptr && driver->VariableValueInfo(id, info);
}

bool KTDriverVariable::Info(KTDriver::tagSVariableInfo& info)
{
    return driver != nullptr && driver->VariableInfo(id, info);
}

void SplitDriverVariable(const wchar_t* fullName, KTWideString& driver, KTWideString& variable)
{
    const KTWideString name(fullName, false);
    const int dot = name.ReverseFind(L'.');
    KTWideString::SubString(driver, name, 0, dot < 0 ? 0 : dot);
    KTWideString::SubString(variable, name, dot + 1, name.Length());
}

void SplitFilterDriverVariable(const wchar_t* fullName, KTWideString& file, KTWideString& hour, KTWideString& driver,
                               KTWideString& variable)
{
    file.Clear();
    hour.Clear();
    // FILE ends at the first `@` and HOUR at the first `:` behind it; neither may stand in a plain name.
    int at = 0;
    while (fullName[at] != L'\0' && fullName[at] != L'@') ++at;
    int rest = 0;
    if (fullName[at] == L'@')
    {
        int colon = at + 1;
        while (fullName[colon] != L'\0' && fullName[colon] != L':') ++colon;
        file.Assign(fullName, at);
        hour.Assign(fullName + at + 1, colon - at - 1);
        rest = fullName[colon] == L':' ? colon + 1 : colon;
    }
    SplitDriverVariable(fullName + rest, driver, variable);
}

void JoinDriverVariable(const wchar_t* driver, const wchar_t* variable, KTWideString& fullName)
{
    fullName = driver;
    fullName += L'.';
    fullName += variable;
}
