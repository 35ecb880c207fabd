#include "host/KTDebugInfo.h"

namespace
{
KTDebugInfo& TheOne()
{
    static KTDebugInfo info;
    return info;
}
}  // namespace

KTDebugInfo* KTDebugInfo::instance = &TheOne();

void KTDebugInfo::AddWarning(int code, const wchar_t* name, const wchar_t* id, const wchar_t* text)
{
    tagWarning& warning = warnings.emplace_back();
    warning.code = code;
    warning.name = name;
    warning.id = id;
    warning.text = text;
}
