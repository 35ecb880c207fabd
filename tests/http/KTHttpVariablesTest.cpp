#include "suite/http/KTHttpVariables.h"

#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <nlohmann/json.hpp>
#include <thread>

#include "http/TestServer.h"
#include "support/TestDriver.h"

namespace
{
/// A device that isn't only its values: they can be forced, or not, but not taken away.
class MeterDriver : public TestDriver
{
public:
    using TestDriver::TestDriver;
    bool SetValue(int /*id*/, double /*value*/) override { return false; }
    [[nodiscard]] KTDateTime ValueTime(int id) const override
    {
        return id == 0 ? KTDateTime(2024, 3, 10, 8, 0, 59, 999, 0) : KTDateTime();
    }
    [[nodiscard]] const KTWideString& Description() const override { return text; }
    bool VariableInfo(int id, tagSVariableInfo& info) override
    {
        info.description = text;
        return TestDriver::VariableInfo(id, info);
    }

    KTWideString text{L"Zähler \"1\""};
};
}  // namespace

TEST(KTHttpVariables, ListsAllDevicesWithTheirVariables)
{
    MeterDriver meter(L"M1", {L"P", L"ÜBER"});
    meter.type = L"METER";
    meter.state = KTDriver::stateError;
    meter.SetFlags(L"P", KTDriver::flagReadable | KTDriver::flagForcible);
    meter.SetLabels(L"ÜBER", {KTNarrowString("OFF &amp; out"), KTNarrowString("ON")});
    meter.Set(L"P", 12.5);
    TestDriver panel(L"PANEL");
    ASSERT_TRUE(meter.Register());
    ASSERT_TRUE(panel.Register());
    EXPECT_EQ(
        VariablesJson(),
        R"({"devices":[{"name":"M1","type":"METER","description":"Zähler \"1\"","state":2,"variables":[)"
        R"({"name":"P","description":"Zähler \"1\"","value":12.5,"time":"2024-03-10T08:00:59Z","flags":9,"labels":[]},)"
        R"({"name":"ÜBER","description":"Zähler \"1\"","value":null,"time":null,"flags":1,"labels":["OFF & out","ON"]}]},)"
        R"({"name":"PANEL","type":"","description":"","state":0,"variables":[]}]})");
}

TEST(KTHttpVariables, WritesNumbersThatReadBackExactly)
{
    TestDriver panel(L"PANEL", {L"V"});
    ASSERT_TRUE(panel.Register());
    for (const double value : {0.0, 0.1, -1.0 / 3, 1e300, 5e-324, 123456789012345678.0})
    {
        panel.Set(L"V", value);
        EXPECT_EQ(nlohmann::json::parse(VariablesJson())["devices"][0]["variables"][0]["value"].get<double>(), value);
    }
    for (const double none : {std::numeric_limits<double>::infinity(), TestDriver::none})
    {
        panel.Set(L"V", none);
        EXPECT_TRUE(nlohmann::json::parse(VariablesJson())["devices"][0]["variables"][0]["value"].is_null());
    }
}

TEST(KTHttpVariables, ReadsFiniteDecimalNumbersAndNothingElse)
{
    const struct
    {
        const char* text;
        bool good;
        double number;
    } rows[] = {
        {"0", true, 0},        {"-12.5", true, -12.5}, {"+3", true, 3},       {".5", true, 0.5},  {"5.", true, 5},
        {" \t7\r\n", true, 7}, {"1e3", true, 1000},    {"1E-3", true, 0.001}, {"0010", true, 10}, {"1e-400", true, 0},
        {"1e400", false, 0},   {"", false, 0},         {" ", false, 0},       {".", false, 0},    {"-", false, 0},
        {"e5", false, 0},      {"1e", false, 0},       {"1e+", false, 0},     {"1,5", false, 0},  {"1 2", false, 0},
        {"--1", false, 0},     {"0x10", false, 0},     {"nan", false, 0},     {"inf", false, 0},  {"1.2.3", false, 0},
        {"12a", false, 0},     {"true", false, 0},     {"\"1\"", false, 0},
    };
    for (const auto& r : rows)
    {
        double number = -1;
        EXPECT_EQ(ParseNumber(r.text, number), r.good) << '"' << r.text << '"';
        EXPECT_EQ(r.good ? number : 0, r.number) << r.text;
    }
    double number = -1;
    EXPECT_FALSE(ParseNumber(std::string_view("1\0", 2), number));
}

TEST(KTHttpVariables, SetsAVariable)
{
    TestDriver panel(L"PANEL", {L"DOOR", L"Größe"});  // nothing but its values, so writable or not
    MeterDriver meter(L"M1", {L"P", L"SET"});
    meter.SetFlags(L"SET", KTDriver::flagReadable | KTDriver::flagForcible);
    ASSERT_TRUE(panel.Register());
    ASSERT_TRUE(meter.Register());
    TestServer server;
    server.Start();
    const struct
    {
        const char* name;
        const char* body;
        int status;
    } rows[] = {
        {"PANEL.DOOR", "1.5", 204},
        {"PANEL.DOOR", " 1.5\r\n", 204},
        {"PANEL.DOOR", "open", 400},
        {"PANEL.DOOR", "1,5", 400},
        {"PANEL.DOOR", "nan", 400},
        {"PANEL%2EDOOR", "1.5", 204},
        {"PANEL.Gr%C3%B6%C3%9Fe", "3", 204},
        {"PANEL.Gr\xC3\xB6\xC3\x9F"
         "e",
         "3", 204},
        {"M1.SET", "7", 204},
        {"M1.SET", "", 400},  // only a device that is nothing but its values can have none
        {"M1.SET", "x", 400},
        {"M1.P", "7", 409},
        {"M1.P", "x", 400},
        {"M1.NONE", "7", 404},
        {"M1.NONE", "x", 404},
        {"NONE.P", "7", 404},
        {"m1.P", "7", 404},
        {"P", "7", 404},
        {"M1.", "7", 404},
        {".P", "7", 404},
        {"", "7", 404},
        {"M1/P", "7", 404},
        {"PANEL.%FF", "7", 404},
        {"PANEL.DOOR%00", "7", 400},
    };
    for (const auto& r : rows)
    {
        const RawReply reply = server.Ask("PUT", std::string("/services/variables/") + r.name, "", r.body);
        EXPECT_EQ(reply.status, r.status) << r.name << " = " << r.body;
        EXPECT_EQ(reply.body.empty(), r.status == 204) << r.name << " = " << r.body;
    }
    EXPECT_EQ(panel.Get(L"DOOR"), 1.5);
    EXPECT_EQ(panel.Get(L"Größe"), 3);
    EXPECT_EQ(meter.Get(L"SET"), 7);
    ASSERT_EQ(meter.writes.size(), 1u);
    EXPECT_EQ(meter.uses, 0);

    EXPECT_EQ(server.Ask("PUT", "/services/variables/PANEL.DOOR", "", "").status, 204);
    EXPECT_TRUE(std::isnan(panel.Get(L"DOOR")));
    panel.Set(L"DOOR", 1);
    EXPECT_EQ(server.Ask("PUT", "/services/variables/PANEL.DOOR", "", " \n").status, 204);
    EXPECT_TRUE(std::isnan(panel.Get(L"DOOR")));
    EXPECT_EQ(server.Ask("PUT", "/services/variables/PANEL.DOOR", "", std::string(9000, '1')).status, 413);
}

TEST(KTHttpVariables, FindsTheDeviceBeforeTheLastPoint)
{
    TestDriver odd(L"A.B", {L"C"});
    ASSERT_TRUE(odd.Register());
    TestServer server;
    server.Start();
    EXPECT_EQ(server.Ask("PUT", "/services/variables/A.B.C", "", "2").status, 204);
    EXPECT_EQ(odd.Get(L"C"), 2);
}

// Devices come and go while lists are made.
TEST(KTHttpVariables, ListsDevicesWhileOthersAreRegistered)
{
    TestDriver steady(L"STEADY", {L"V"});
    ASSERT_TRUE(steady.Register());
    std::atomic<bool> stop{false};
    std::jthread changes(
        [&]
        {
            while (!stop)
            {
                TestDriver passing(L"PASSING", {L"V"});
                passing.Register();
            }
        });
    for (int i = 0; i < 300; ++i)
    {
        const auto list = nlohmann::json::parse(VariablesJson())["devices"];
        ASSERT_GE(list.size(), 1u);
        ASSERT_EQ(list[0]["name"], "STEADY");
    }
    stop = true;
}
