// A named group of events.
#pragma once

#include "host/KTGuid.h"
#include "host/KTString.h"
#include "host/XmlDocument.h"

/// Name and identity of a group. It holds no link to its events: they refer to it.
///
/// Threads: read under KTEventServer's work mutex or in the scan; has no lock of its own.
class KTEventDriverGroup
{
public:
    /// True when the group is to be kept: it has an identity and a name.
    bool LoadXml(const XmlDocument::XmlNode& node);

    [[nodiscard]] const KTWideString& Name() const { return name; }
    [[nodiscard]] const GUID& Id() const { return id; }

private:
    KTWideString name;
    GUID id;
};
