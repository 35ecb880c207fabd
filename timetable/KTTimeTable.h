// The base of the tables that say at which minutes an event isn't looked at.
#pragma once

#include "host/KTDateTime.h"
#include "host/KTString.h"
#include "host/XmlDocument.h"

/// A named table. Inside a slot NeedCheck is false and events that use the table sleep, however odd that sounds for a time
/// table; outside all slots it is true.
///
/// Threads: NeedCheck runs on the scan thread alone, under KTEventServer's work mutex: weeks and calendars keep a cache.
/// Memory:  keeps pointers into the document that it was loaded from, which must outlive it.
class KTTimeTable
{
public:
    KTTimeTable() = default;
    KTTimeTable(const KTTimeTable&) = delete;
    KTTimeTable& operator=(const KTTimeTable&) = delete;
    virtual ~KTTimeTable() = default;

    /// True when the table is to be kept: it has an id and a name.
    virtual bool LoadXml(const XmlDocument::XmlNode* node);

    /// Whether events are to be evaluated at the local time `when`.
    virtual bool NeedCheck(const KTDateTime& when);

    KTWideString id;  // as it stands in the document, not converted to a GUID
    KTWideString name;

protected:
    /// False for a table that decides by itself. True for one that hands the decision on: `table` is then the table in
    /// force at `when`, or null.
    virtual bool HandsOn(const KTDateTime& when, KTTimeTable*& table);

    /// Follows the tables in force at `when` from this one on until one decides. Nobody deciding means true; so does a
    /// road that leads back to itself, which counts as no table.
    bool FollowAndCheck(const KTDateTime& when);
};
