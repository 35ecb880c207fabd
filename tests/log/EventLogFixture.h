// One recorded event whose log lies in memory, below /data.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/KTEventSystem.h"
#include "host/KTCorvaneSetup.h"
#include "log/KTEventFile.h"
#include "log/LogBytes.h"
#include "support/FaultyFiles.h"
#include "support/TestClock.h"
#include "support/TestDriver.h"
#include "support/TestEvent.h"

using Strings = std::vector<std::string>;

/// The settings' data path, as long as this lives.
class DataPath
{
public:
    explicit DataPath(const std::string& path)
    {
        KTSetupData setup;
        setup.dataPath = Wide(path);
        KTCorvaneSetup::Get().Configure(setup);
    }
    DataPath(const DataPath&) = delete;
    DataPath& operator=(const DataPath&) = delete;
    ~DataPath() { KTCorvaneSetup::Get().Configure({}); }
};

/// The event is called "pump" and holds while [T.C] is 1. It is 10 March 2024, 08:00:00 UTC.
class EventLog : public testing::Test
{
protected:
    static constexpr const char* march = "/data/2024/03/pump 03-2024.suc";
    static constexpr const char* marchSide = "/data/2024/03/pump 03-2024.dat";

    EventLog()
    {
        plant.Set(L"C", 0.0);
        plant.Register();
        Load(Element("record", "T"));
        files.Put("/data/lock", "");
    }

    void Load(const std::string& more) { ASSERT_TRUE(event.LoadText(EventXml(1, "pump", "[T.C]=1", more))); }
    void ScanWith(double condition)
    {
        plant.Set(L"C", condition);
        EXPECT_TRUE(event.Work(KTDateTime::LTC()));
    }
    /// An occurrence with all dates at the moment.
    KTEventDriver::tagSEventRT Occurrence(unsigned id, const std::string& annotation = "")
    {
        KTEventDriver::tagSEventRT occurrence;
        occurrence.id = TestId(id);
        occurrence.activationDate = occurrence.deactivationDate = occurrence.acknowledgeDate = KTDateTime::UTC();
        occurrence.annotation = annotation.c_str();
        return occurrence;
    }
    bool Save(unsigned id, const std::string& annotation = "", int status = 1)
    {
        KTEventDriver::tagSEventRT occurrence = Occurrence(id, annotation);
        return event.SaveEvent(&occurrence, status);
    }
    [[nodiscard]] std::string Path(const KTDateTime& date, int kind = 0) const
    {
        wchar_t path[KTEventDriver::pathSize];
        event.EventFileName(path, date, kind);
        return Utf8(KTWideString(path));
    }

    DataPath data{"/data/"};
    FaultyFiles files;
    TestClock clock;
    KTEventSystem system;
    TestDriver plant{L"T", {L"C"}};
    TestEvent event;
};
