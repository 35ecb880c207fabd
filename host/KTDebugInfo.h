// The list of warnings that the configuration check fills.
#pragma once

#include <list>

#include "host/KTString.h"

/// Threads: used by the checking thread alone while a check runs.
class KTDebugInfo
{
public:
    struct tagWarning
    {
        int code = 0;
        KTWideString name;
        KTWideString id;
        KTWideString text;
    };

    static KTDebugInfo* instance;

    void AddWarning(int code, const wchar_t* name, const wchar_t* id, const wchar_t* text);

    [[nodiscard]] const std::list<tagWarning>& Warnings() const { return warnings; }
    void Clear() { warnings.clear(); }

private:
    std::list<tagWarning> warnings;  // in the order in which they were found
};
