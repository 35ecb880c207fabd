#include "log/KTEventLoggerInfo.h"

#include <memory>

KTEventLoggerInfo& KTEventLoggerInfo::operator=(const KTEventLoggerInfo& other)
{
    if (this == &other) return *this;
    DeleteAll();
    CopyFrom(other);
    return *this;
}

void KTEventLoggerInfo::CopyFrom(const KTEventLoggerInfo& other)
{
    for (const KTEventLoggerInfoVar* variable : other.variables)
    {
        auto copy = std::make_unique<KTEventLoggerInfoVar>(*variable);
        variables.push_back(copy.get());
        (void)copy.release();  // the list owns it from here on
    }
    identities = other.identities;
}

void KTEventLoggerInfo::AddVariable(const GUID& id)
{
    if (!identities.insert(id).second) return;
    auto variable = std::make_unique<KTEventLoggerInfoVar>(id);
    variables.push_back(variable.get());
    (void)variable.release();  // the list owns it from here on
}

void KTEventLoggerInfo::DeleteAll()
{
    Unlock();
    for (KTEventLoggerInfoVar* variable : variables) delete variable;
    variables.clear();
    identities.clear();
}

void KTEventLoggerInfo::Lock()
{
    variables.remove_if(
        [this](KTEventLoggerInfoVar* variable)
        {
            if (variable->Lock()) return false;
            identities.erase(variable->Id());
            delete variable;
            return true;
        });
}

void KTEventLoggerInfo::Unlock()
{
    for (KTEventLoggerInfoVar* variable : variables) variable->Unlock();
}
