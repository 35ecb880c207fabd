// One event over a device of a test, with the clock in hand.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/KTEventSystem.h"
#include "support/TestClock.h"
#include "support/TestDriver.h"
#include "support/TestEvent.h"
#include "support/TestObserver.h"
#include "timetable/KTTimeTable.h"

/// A table that a test opens and closes.
class TestTable : public KTTimeTable
{
public:
    bool NeedCheck(const KTDateTime& when) override
    {
        asked.push_back(when);
        return open;
    }

    bool open = true;
    std::vector<KTDateTime> asked;
};

using Strings = std::vector<std::string>;

/// The condition is [T.C]=1; [T.S] serves stop conditions. `happened` lists actions and changes of status in their order.
class DriverFixture : public testing::Test
{
protected:
    static constexpr double noValue = TestDriver::none;

    DriverFixture()
    {
        plant.Set(L"C", 0.0);
        plant.Set(L"S", 0.0);
        plant.Register();
    }

    void Load(const std::string& more = "")
    {
        ASSERT_TRUE(event.LoadText(EventXml(1, "e", "[T.C]=1", more)));
        event.timeTable = &table;
    }

    /// Notes each action as "phase N", in all four lists.
    void NoteActions()
    {
        for (int phase = 0; phase < KTEventAction::phases; ++phase) event.Add(phase, Note("phase "));
    }
    TestAction::Deed Note(const std::string& what)
    {
        return [this, what](int phase)
        {
            happened.push_back(what + std::to_string(phase));
            return true;
        };
    }

    void Scan() { EXPECT_TRUE(event.Work(KTDateTime::LTC())); }
    void ScanWith(double condition)
    {
        plant.Set(L"C", condition);
        Scan();
    }
    void Pass(int milliseconds) { clock->Advance(std::chrono::milliseconds(milliseconds)); }

    [[nodiscard]] bool Acknowledge(const GUID& id) { return event.ProcessHttpServiceAck(id); }
    std::vector<int> Statuses()
    {
        std::vector<int> all;
        for (const auto* occurrence : event.Occurrences()) all.push_back(occurrence->status);
        return all;
    }
    /// What happened since the last call.
    Strings Happened() { return std::exchange(happened, {}); }

    TestClock clock;
    KTEventSystem system;
    TestDriver plant{L"T", {L"C", L"S", L"none"}};
    TestTable table;
    TestEvent event;
    Strings happened;
    TestObserver observer{[this](const KTEventDriver&, const KTEventDriver::tagSEventRT& occurrence, int status) {
        happened.push_back("status " + std::to_string(status) + " gives " + std::to_string(occurrence.status));
    }};
};
