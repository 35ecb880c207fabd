// A registry of events that need nothing but a name.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/KTEventDriver.h"
#include "engine/KTEventSystem.h"
#include "support/TestConfig.h"

/// Events with the identifiers TestId(1), TestId(2), … and the given names, and a data directory of their own.
///
/// The registry stands from Load on; each further call makes another in its place.
class TestRegistry
{
public:
    TestRegistry() = default;
    explicit TestRegistry(const std::vector<std::string>& names, const std::string& more = "") { Load(names, more); }

    /// `more` goes into each event as it stands.
    void Load(const std::vector<std::string>& names, const std::string& more = "")
    {
        system.Reset();
        std::string events;
        unsigned number = 0;
        for (const std::string& name : names) events += EventXml(++number, name, "1=1", more);
        const std::string text = "<main><eventsGroups/><events>" + events + "</events></main>";
        ASSERT_TRUE(document.Parse(text.c_str()));
        system.LoadXml(document);
        ASSERT_EQ(system.EventsSize(), static_cast<int>(names.size()));
    }

    KTEventDriver& Event(unsigned number) { return *system.LockEvent(TestId(number)); }

    TestConfig config;
    KTEventSystem system;

private:
    XmlDocument document;
};
