// A configuration directory for one test, and short ways to write its documents.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>

#include "host/KTCorvaneSetup.h"
#include "settings/TemporaryDirectory.h"
#include "support/TestText.h"

/// The directories and settings of an installation. While it lives, KTCorvaneSetup answers with its paths.
class TestConfig
{
public:
    TestConfig()
    {
        for (const char* folder : {"cfg", "data", "html", "bin"})
            std::filesystem::create_directory(directory.Path() / folder);
        setup.cfgPath = Folder("cfg");
        setup.dataPath = Folder("data");
        setup.appPath = Folder("bin");
        setup.programName = L"Test";
        setup.currentLanguage = L"en";
        Apply();
    }
    TestConfig(const TestConfig&) = delete;
    TestConfig& operator=(const TestConfig&) = delete;
    ~TestConfig() { KTCorvaneSetup::Get().Configure({}); }

    /// Hands `setup` on, after a test has changed it.
    void Apply() { KTCorvaneSetup::Get().Configure(setup); }

    void SetParking(bool present)
    {
        setup.hasParking = present;
        Apply();
    }

    [[nodiscard]] std::filesystem::path File(const std::string& name) const { return directory.Path() / "cfg" / name; }
    [[nodiscard]] std::filesystem::path Data() const { return directory.Path() / "data"; }

    void Write(const std::string& name, const std::string& content) const
    {
        std::ofstream(File(name), std::ios::binary) << content;
    }
    void WriteEvents(const std::string& events, const std::string& groups = "") const
    {
        Write("default.xeve",
              "<main><eventsGroups>" + groups + "</eventsGroups><events>" + events + "</events></main>");
    }
    void WriteTimeTables(const std::string& days, const std::string& weeks = "",
                         const std::string& calendars = "") const
    {
        Write("default.xtmt", "<main><days>" + days + "</days><weeks>" + weeks + "</weeks><calendars>" + calendars +
                                  "</calendars></main>");
    }
    void WriteParking(const std::string& events) const
    {
        Write("default.xpark", "<zenpark><events>" + events + "</events></zenpark>");
    }

    KTSetupData setup;

private:
    [[nodiscard]] KTWideString Folder(const char* name) const { return Wide((directory.Path() / name).string() + "/"); }

    TemporaryDirectory directory;
};

inline std::string Element(const std::string& tag, const std::string& content)
{
    return "<" + tag + ">" + content + "</" + tag + ">";
}

inline std::string IdElement(unsigned number) { return Element("id", Text(TestId(number))); }

/// An `event` element; `more` goes in as it stands.
inline std::string EventXml(unsigned number, const std::string& name, const std::string& condition,
                            const std::string& more = "")
{
    return Element("event", IdElement(number) + Element("name", name) + Element("condition", condition) + more);
}

inline std::string GroupXml(unsigned number, const std::string& name)
{
    return Element("eventsGroup", IdElement(number) + Element("name", name));
}

/// A `day`, `week` or `calendar` element.
inline std::string TableXml(const std::string& kind, const std::string& id, const std::string& name,
                            const std::string& more = "")
{
    return Element(kind, Element("id", id) + Element("name", name) + more);
}

inline std::string SlotXml(const std::string& from, const std::string& to)
{
    return Element("slot", Element("from", from) + Element("to", to));
}
