// Time tables of a test's own document.
#pragma once

#include <stdexcept>
#include <string>

#include "engine/KTEventSystem.h"
#include "support/TestConfig.h"
#include "timetable/KTTimeTable.h"

/// A registry with the tables of one document, both alive together.
class TestTables
{
public:
    explicit TestTables(const std::string& days, const std::string& weeks = "", const std::string& calendars = "")
    {
        const std::string text = "<main><days>" + days + "</days><weeks>" + weeks + "</weeks><calendars>" + calendars +
                                 "</calendars></main>";
        if (!document.Parse(text.c_str())) throw std::runtime_error("a table's text is no XML");
        system.LoadTimeTableXml(document);
    }

    KTTimeTable* Find(const std::string& idOrName) { return system.LockTimeTable(Wide(idOrName).Str()); }

    XmlDocument document;
    KTEventSystem system;
};
