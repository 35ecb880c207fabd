// The base of classes that can be asked for their run-time class.
#pragma once

/// Names a class and its base; compared by address.
struct CRuntimeClass
{
    const char* name;
    const CRuntimeClass* base;  // null for CObject
};

/// Base with five virtual operations: the class query, the destructor, and three that most classes inherit as they are.
class CObject
{
public:
    CObject() = default;
    CObject(const CObject&) = delete;
    CObject& operator=(const CObject&) = delete;

    [[nodiscard]] virtual const CRuntimeClass* GetRuntimeClass() const { return &classCObject; }
    virtual ~CObject() = default;
    virtual void Serialize(void* /*archive*/) {}
    virtual void AssertValid() const {}
    virtual void Dump(void* /*context*/) const {}

    [[nodiscard]] bool IsKindOf(const CRuntimeClass* runtimeClass) const
    {
        for (const CRuntimeClass* c = GetRuntimeClass(); c != nullptr; c = c->base)
            if (c == runtimeClass) return true;
        return false;
    }

    static constexpr CRuntimeClass classCObject{"CObject", nullptr};
};
