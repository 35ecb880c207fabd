#include "engine/KTEventDriverParking.h"

#include <gtest/gtest.h>

#include <deque>
#include <memory>

#include "engine/KTEventSystem.h"
#include "support/TestBay.h"
#include "support/TestClock.h"
#include "support/TestConfig.h"
#include "support/TestDriver.h"

namespace
{
// A parking event with its insides open, and the document that it was loaded from.
class ParkingEvent : public KTEventDriverParking
{
public:
    using KTEventDriver::annotationTemplate;
    using KTEventDriver::annotationText;
    using KTEventDriver::arguments;
    using KTEventDriver::conditionEvaluator;
    using KTEventDriver::delayToActivate;
    using KTEventDriver::delayToDeactivate;
    using KTEventDriver::occurrences;
    using KTEventDriver::timeTable;
    using KTEventDriverParking::ParseAnnotation;

    bool LoadText(const std::string& element) { return document.Parse(element.c_str()) && LoadXml(document.Root()); }
    bool Load(const std::string& tag, const std::string& more = "")
    {
        return LoadText(Element(tag, IdElement(1) + Element("name", "p") + more));
    }

private:
    XmlDocument document;
};

const KTDateTime anyTime = Date(2024, 1, 1);

class KTEventDriverParkingTest : public testing::Test
{
protected:
    TestDriver& Device(const wchar_t* name, const wchar_t* type)
    {
        TestDriver& device = devices.emplace_back(name);
        device.type = type;
        device.Register();
        return device;
    }

    TestClock clock;
    TestConfig config;
    KTEventSystem system;
    std::deque<TestDriver> devices;
    ParkingEvent event;
};
}  // namespace

TEST_F(KTEventDriverParkingTest, ReadsItsFewValues)
{
    ASSERT_TRUE(event.LoadText("<eventTime>" + IdElement(5) +
                               "<name>Bays</name><description>d</description><delayToActivate>3</delayToActivate>"
                               "<time>60</time><notify>T</notify><record>T</record></eventTime>"));
    EXPECT_EQ(event.Id(), TestId(5));
    EXPECT_EQ(event.Name(), L"Bays");
    EXPECT_EQ(event.Description(), L"d");
    EXPECT_EQ(event.delayToActivate, 3000U);
    EXPECT_TRUE(event.Notify());
    EXPECT_TRUE(event.Record());
}

TEST_F(KTEventDriverParkingTest, HasNothingElseWhateverTheDocumentHolds)
{
    ASSERT_TRUE(
        event.Load("eventError",
                   "<condition>TRUE</condition><timeTable>t</timeTable><annotation>a</annotation>"
                   "<delayToDeactivate>5</delayToDeactivate><rssActivate>T</rssActivate><arguments><a/></arguments>"
                   "<eventsGroups><eventsGroup/></eventsGroups><notify>t</notify>"));
    EXPECT_EQ(event.conditionEvaluator, nullptr);
    EXPECT_EQ(event.timeTable, nullptr);
    EXPECT_TRUE(event.annotationTemplate.Empty());
    EXPECT_EQ(event.delayToDeactivate, 0U);
    EXPECT_FALSE(event.RssActivate());
    EXPECT_FALSE(event.Notify());
    EXPECT_TRUE(event.arguments.empty());
    EXPECT_TRUE(event.Groups().empty());
}

TEST_F(KTEventDriverParkingTest, IsRefusedWithoutIdentityAndLeavesTheDevicesAlone)
{
    TestBay bay(L"B1");
    for (const char* id : {"", "<id/>", "<id>nonsense</id>"})
    {
        ParkingEvent fresh;
        EXPECT_FALSE(fresh.LoadText(Element("eventTime", std::string(id) + "<name>p</name><time>9</time>"))) << id;
    }
    EXPECT_TRUE(bay.calls.empty());
}

TEST_F(KTEventDriverParkingTest, WhatIsCheckedDependsOnTheKindsOfDevices)
{
    const struct
    {
        const wchar_t* type;
        bool error;
        bool time;
    } rows[] = {
        {nullptr, false, false}, {L"QV", true, true},          {L"QZ", true, false},
        {L"QM7RT", true, false}, {L"QLINK_GATE", true, false}, {L"qv", false, false},
        {L"QVX", false, false},  {L"", false, false},          {L"QLINK", false, false},
    };
    for (const auto& row : rows)
    {
        devices.clear();
        if (row.type != nullptr) Device(L"D", row.type);
        ParkingEvent error;
        ParkingEvent time;
        ASSERT_TRUE(error.Load("eventError"));
        ASSERT_TRUE(time.Load("eventTime"));
        const std::string what = row.type == nullptr ? "no device" : Utf8(KTWideString(row.type));
        EXPECT_EQ(error.NeedCheck(anyTime), row.error) << what;
        EXPECT_EQ(time.NeedCheck(anyTime), row.time) << what;
        EXPECT_FALSE(error.CheckEvent()) << what;
    }
}

TEST_F(KTEventDriverParkingTest, AnyOtherTagIsCheckedAndNeverHolds)
{
    Device(L"D", L"QZ").state = KTDriver::stateError;
    ASSERT_TRUE(event.Load("eventerror"));
    EXPECT_TRUE(event.NeedCheck(anyTime));
    EXPECT_FALSE(event.CheckEvent());
}

TEST_F(KTEventDriverParkingTest, OnlyTheTimeEventTellsTheSensorsTheirLimit)
{
    TestBay first(L"B1");
    TestBay other(L"B2", L"QZ");
    TestBay second(L"B3");
    ASSERT_TRUE(event.Load("eventError", "<time>60</time>"));
    EXPECT_EQ(first.calls, (std::vector<std::string>{"id", "release 17"}));
    first.calls.clear();
    second.calls.clear();
    ParkingEvent time;
    ASSERT_TRUE(time.Load("eventTime", "<time>60</time>"));
    EXPECT_EQ(first.calls, (std::vector<std::string>{"id", "release 17", "alarm 60"}));
    EXPECT_EQ(second.calls, first.calls);
    EXPECT_TRUE(other.calls.empty()) << "not a sensor by its type";
}

TEST_F(KTEventDriverParkingTest, ANegativeTimeIsHandedOnAsItIs)
{
    TestBay bay(L"B1");
    ASSERT_TRUE(event.Load("eventTime", "<time>-5</time>"));
    EXPECT_EQ(bay.calls.back(), "alarm -5");
    bay.busyTime = 1e9;
    EXPECT_FALSE(event.CheckEvent()) << "taken as a very large number, which no sensor reaches";
    bay.busyTime = 4'294'967'291.0;  // 2^32 - 5
    EXPECT_TRUE(event.CheckEvent());
}

TEST_F(KTEventDriverParkingTest, ADeviceOfTheSensorsTypeNeedsNoAlarm)
{
    TestDriver& device = Device(L"D", L"QV");
    device.Add(L"BUSYTIME");
    ASSERT_TRUE(event.Load("eventTime", "<time>10</time>"));
    EXPECT_TRUE(event.NeedCheck(anyTime));
    EXPECT_FALSE(event.CheckEvent());
    device.Set(L"BUSYTIME", 10.0);
    EXPECT_TRUE(event.CheckEvent());
}

TEST_F(KTEventDriverParkingTest, ASensorIsOverdueFromItsLimitOn)
{
    const struct
    {
        const char* time;
        double busy;
        bool overdue;
    } rows[] = {
        {"3600", 3599, false},
        {"3600", 3600, true},
        {"3600", 3601, true},
        {"3600", 3599.999, false},
        {"", 0, true},
        {"", 5, true},
        {"", -1, false},
        {"0", 0, true},
        {"abc", 0, true},
        {"10", TestDriver::none, false},
        {"", TestDriver::none, false},
        {"-1", 4294967294.0, false},
        {"-1", 4294967295.0, true},
    };
    for (const auto& row : rows)
    {
        TestBay bay(L"B1");
        bay.busyTime = row.busy;
        ParkingEvent fresh;
        ASSERT_TRUE(fresh.Load("eventTime", Element("time", row.time)));
        EXPECT_EQ(fresh.CheckEvent(), row.overdue) << row.time << " and " << row.busy;
        EXPECT_EQ(bay.read, TestBay::busyTimeId);
    }
}

TEST_F(KTEventDriverParkingTest, OneValueServesAllSensors)
{
    // A read that fails and writes nothing leaves the number of the sensor before.
    TestBay first(L"B1");
    TestBay second(L"B2");
    first.busyTime = 100;
    second.answers = false;
    ASSERT_TRUE(event.Load("eventTime", "<time>50</time>"));
    EXPECT_TRUE(event.CheckEvent());
    event.ParseAnnotation();
    EXPECT_EQ(event.annotationText, L"B1, B2");
    first.busyTime = 10;
    EXPECT_FALSE(event.CheckEvent());
}

TEST_F(KTEventDriverParkingTest, AnErrorIsBitValueTwoOfAnyDeviceOfTheInstallation)
{
    TestBay bay(L"B");
    TestDriver& panel = Device(L"Z", L"QZ");
    TestDriver& unit = Device(L"M", L"QM7RT");
    TestDriver& link = Device(L"L", L"QLINK_GATE");
    TestDriver& foreign = Device(L"X", L"meter");
    ASSERT_TRUE(event.Load("eventError", "<time>1</time>"));
    foreign.state = 2;
    EXPECT_FALSE(event.CheckEvent());
    std::uint32_t* const states[] = {&bay.state, &panel.state, &unit.state, &link.state};
    const struct
    {
        std::uint32_t state;
        bool error;
    } rows[] = {{0, false}, {1, false}, {2, true}, {3, true}, {4, false}, {0xFFFFFFFD, false}, {0xFFFFFFFF, true}};
    for (std::uint32_t* state : states)
        for (const auto& row : rows)
        {
            *state = row.state;
            EXPECT_EQ(event.CheckEvent(), row.error) << row.state;
            *state = 0;
            EXPECT_FALSE(event.CheckEvent()) << "there is no memory between two checks";
        }
    bay.busyTime = 1000;
    EXPECT_FALSE(event.CheckEvent()) << "the time of an error event does nothing";
}

TEST_F(KTEventDriverParkingTest, ListsFaultyDevicesByKind)
{
    // Registered in the opposite order of the kinds.
    Device(L"L", L"QLINK_GATE").state = 2;
    Device(L"M", L"QM7RT").state = 2;
    Device(L"Z2", L"QZ").state = 2;
    Device(L"Z1", L"QZ").state = 2;
    TestBay bay(L"B");
    bay.state = 2;
    ASSERT_TRUE(event.Load("eventError"));
    EXPECT_TRUE(event.CheckEvent());
    event.annotationText = L"before";
    EXPECT_TRUE(event.ParseAnnotation());
    EXPECT_EQ(event.annotationText, L"B, Z2, Z1, M, L");
}

TEST_F(KTEventDriverParkingTest, TheListOfNamesEndsInDotsFromElevenOn)
{
    const struct
    {
        int devices;
        const wchar_t* text;
    } rows[] = {
        {0, L""},
        {1, L"A"},
        {2, L"A, B"},
        {10, L"A, B, C, D, E, F, G, H, I, J"},
        {11, L"A, B, C, D, E, F, G, H, I, J, K..."},
        {12, L"A, B, C, D, E, F, G, H, I, J, K..."},
        {20, L"A, B, C, D, E, F, G, H, I, J, K..."},
    };
    for (const auto& row : rows)
    {
        devices.clear();
        for (int i = 0; i < row.devices; ++i)
        {
            const wchar_t name[] = {static_cast<wchar_t>(L'A' + i), L'\0'};
            Device(name, L"QZ").state = 2;
        }
        ParkingEvent fresh;
        ASSERT_TRUE(fresh.Load("eventError"));
        EXPECT_EQ(fresh.CheckEvent(), row.devices > 0);
        fresh.annotationText = L"before";
        EXPECT_TRUE(fresh.ParseAnnotation());
        EXPECT_EQ(fresh.annotationText, row.text) << row.devices;
    }
}

TEST_F(KTEventDriverParkingTest, RunsThroughTheStateMachineWithItsDelayAndAnEmptyAnnotation)
{
    TestDriver& first = Device(L"Z1", L"QZ");
    TestDriver& second = Device(L"Z2", L"QZ");
    ASSERT_TRUE(event.Load("eventError", "<delayToActivate>2</delayToActivate><notify>T</notify>"));
    const auto scan = [&] { EXPECT_TRUE(event.Work(KTDateTime::LTC())); };
    first.state = 2;
    scan();
    EXPECT_FALSE(event.IsEnabled());
    clock->Advance(std::chrono::seconds(2));
    scan();
    EXPECT_TRUE(event.IsEnabled());
    ASSERT_EQ(event.occurrences.size(), 1U);
    EXPECT_TRUE(event.occurrences.front()->annotation.Empty());
    EXPECT_TRUE(event.Annotation().Empty());
    // A second device that fails doesn't start a new occurrence, nor does the first one's recovery end it.
    second.state = 2;
    scan();
    first.state = 0;
    scan();
    EXPECT_TRUE(event.IsEnabled());
    EXPECT_EQ(event.occurrences.size(), 1U);
    second.state = 0;
    scan();
    EXPECT_FALSE(event.IsEnabled()) << "there is no delay to deactivate";
    EXPECT_EQ(event.occurrences.front()->status, 3);
}

TEST_F(KTEventDriverParkingTest, ADeviceThatIsAddedLaterIsNotSeen)
{
    ASSERT_TRUE(event.Load("eventError"));
    Device(L"Z", L"QZ").state = 2;
    EXPECT_FALSE(event.NeedCheck(anyTime));
    EXPECT_FALSE(event.CheckEvent());
}

TEST_F(KTEventDriverParkingTest, TheRegistryMakesAtMostOneEventOfEachKind)
{
    const struct
    {
        const char* what;
        std::string events;
        std::vector<std::string> names;
    } rows[] = {
        {"empty", "", {}},
        {"only the time", Element("eventTime", IdElement(1) + "<name>t</name>"), {"t"}},
        {"only the error", Element("eventError", IdElement(1) + "<name>e</name>"), {"e"}},
        {"one refused",
         Element("eventError", "<name>e</name>") + Element("eventTime", IdElement(1) + "<name>t</name>"),
         {"t"}},
        {"two of a kind",
         Element("eventError", IdElement(1) + "<name>e</name>") +
             Element("eventError", IdElement(2) + "<name>f</name>"),
         {"e"}},
        {"others", Element("event", IdElement(1) + "<name>x</name><condition>TRUE</condition>"), {}},
    };
    for (const auto& row : rows)
    {
        XmlDocument document;
        ASSERT_TRUE(document.Parse(("<zenpark><events>" + row.events + "</events></zenpark>").c_str()));
        config.SetParking(true);
        EXPECT_TRUE(system.LoadParkingXml(document));
        std::vector<std::string> names;
        for (auto place = system.EventsBegin(); place != system.EventsEnd(); ++place)
            names.push_back(Utf8((*place)->Name()));
        EXPECT_EQ(names, row.names) << row.what;
        system.Reset();
        config.SetParking(false);
        EXPECT_TRUE(system.LoadParkingXml(document));
        EXPECT_EQ(system.EventsSize(), 0) << row.what;
    }
}
