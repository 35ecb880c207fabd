#include "engine/KTEventDriverGroup.h"

bool KTEventDriverGroup::LoadXml(const XmlDocument::XmlNode& node)
{
    id = wtoguid(node.Value(L"id", L"").Str());
    if (id == nullGuid) return false;
    name = node.Value(L"name", L"");
    return name.Length() >= 1;
}
