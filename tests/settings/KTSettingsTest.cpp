#include "suite/support/KTSettings.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>

#include "suite/drivers/KTDriverTable.h"

namespace fs = std::filesystem;

namespace
{
constexpr const char* hash =
    "$scrypt$ln=15,r=8,p=3$AAAAAAAAAAAAAAAAAAAAAAAA$AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA";

KTSettings Parsed(const std::string& text, const std::string& file = "/plant/corvane.toml")
{
    KTSettings settings;
    std::string error;
    EXPECT_TRUE(settings.Parse(text, file, error)) << error;
    return settings;
}

std::string ReadText(const fs::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    EXPECT_TRUE(stream) << file;
    return {std::istreambuf_iterator<char>(stream), {}};
}

const fs::path sourceDirectory = CORVANE_SOURCE_DIRECTORY;
}  // namespace

TEST(KTSettings, HasADefaultForEverything)
{
    const KTSettings s = Parsed("");
    EXPECT_EQ(s.programName, "Corvane");
    EXPECT_EQ(s.language, "en");
    EXPECT_EQ(s.cfgPath, "/plant/cfg");
    EXPECT_EQ(s.dataPath, "/plant/data");
    EXPECT_EQ(s.htmlPath, "/plant/html");
    EXPECT_EQ(s.resourcesPath, "");
    EXPECT_EQ(s.dateOrder, "ymd");
    EXPECT_EQ(s.dateSeparator, "-");
    EXPECT_EQ(s.timeSeparator, ":");
    EXPECT_EQ(s.decimal, ".");
    EXPECT_EQ(s.thousands, ",");
    EXPECT_EQ(s.firstDay, "monday");
    EXPECT_EQ(s.listen, "127.0.0.1");
    EXPECT_EQ(s.port, 8080);
    EXPECT_EQ(s.certificate, "");
    EXPECT_EQ(s.key, "");
    EXPECT_TRUE(s.names.empty());
    EXPECT_FALSE(s.open);
    EXPECT_TRUE(s.users.empty());
    EXPECT_FALSE(s.rssActive);
    EXPECT_EQ(s.rssItems, 20);
    EXPECT_EQ(s.rssUrl, "localhost");
    EXPECT_EQ(s.smtpServer, "");
    EXPECT_EQ(s.smtpFrom, "");
    EXPECT_EQ(s.smtpUser, "");
    EXPECT_EQ(s.smtpPassword, "");
    EXPECT_FALSE(s.smtpAuthenticated);
    EXPECT_FALSE(s.parkingEnabled);
    EXPECT_TRUE(s.launchEnabled);
    EXPECT_TRUE(s.launchAllow.empty());
    EXPECT_TRUE(s.screens.empty());
    EXPECT_TRUE(s.reports.empty());
    EXPECT_TRUE(s.devices.empty());
    EXPECT_EQ(s.directory, "/plant");
}

TEST(KTSettings, HasADefaultForEverythingOfADeviceAndAVariable)
{
    const KTSettings s = Parsed("[[device]]\nname = \"M1\"\n[[device.variable]]\nname = \"P\"\n");
    ASSERT_EQ(s.devices.size(), 1u);
    const KTDeviceSettings& d = s.devices[0];
    EXPECT_EQ(d.driver, "modbus-tcp");
    EXPECT_EQ(d.type, "");
    EXPECT_EQ(d.description, "");
    EXPECT_EQ(d.host, "127.0.0.1");
    EXPECT_EQ(d.port, 502);
    EXPECT_EQ(d.unit, 1);
    EXPECT_EQ(d.pollMilliseconds, 1000);
    EXPECT_EQ(d.user, "");
    EXPECT_EQ(d.password, "");
    EXPECT_FALSE(d.tls);
    ASSERT_EQ(d.variables.size(), 1u);
    const KTVariableSettings& v = d.variables[0];
    EXPECT_EQ(v.description, "");
    EXPECT_TRUE(v.labels.empty());
    EXPECT_FALSE(v.writable);
    EXPECT_EQ(v.table, "holding");
    EXPECT_EQ(v.address, 0);
    EXPECT_EQ(v.format, "float32");
    EXPECT_EQ(v.wordOrder, "abcd");
    EXPECT_EQ(v.scale, 1.0);
    EXPECT_EQ(v.signal, "sine");
    EXPECT_EQ(v.low, 0.0);
    EXPECT_EQ(v.high, 100.0);
    EXPECT_EQ(v.periodSeconds, 60.0);
    EXPECT_EQ(v.seed, 1);
    EXPECT_EQ(v.topic, "");
    EXPECT_EQ(v.pointer, "");
    EXPECT_EQ(v.publish, "");
}

TEST(KTSettings, ReadsEveryKey)
{
    const KTSettings s = Parsed(std::string(R"(
[program]
name = "Planta 1 – Córdoba"
language = "es"
[paths]
cfg = "/etc/plant"
data = "var/../log/"
html = "../html"
resources = "texts"
[locale]
date_order = "dmy"
date_separator = "/"
time_separator = "."
decimal = ","
thousands = "\u00A0"
first_day = "sunday"
[http]
listen = "::1"
port = 0
certificate = "tls/cert.pem"
key = "/tls/key.pem"
names = ["plant.example", "10.0.0.5", "[fe80::1]"]
open = true
[[http.user]]
name = "ana"
password = ")") + hash + R"("
role = "operator"
[[http.user]]
name = "Jürgen K."
password = ")" + hash + R"("
role = "engineer"
[[http.user]]
name = "v"
password = ")" + hash + R"("
role = "viewer"
[rss]
active = true
items = 0
url = "[::1]"
[smtp]
server = "mail.example:587"
from = "Plant <plant@example.org>"
user = "u"
password = "p\n\t "
authenticated = true
[parking]
enabled = true
[launch]
enabled = false
allow = ["/usr/bin/logger", "beep"]
[[screen]]
name = "Main"
devices = ["M1", "B1"]
[[screen]]
name = "Empty"
[[report]]
name = "Daily"
[[report]]
name = "Monthly"
[[device]]
name = "M1"
driver = "modbus-tcp"
type = "METER"
description = "Meter\nof the hall"
host = "fe80::7"
port = 65535
unit = 255
poll_ms = 1
[[device.variable]]
name = "P a-b/c"
description = "Power, \"active\""
labels = ["", "ON"]
writable = true
table = "holding"
address = 65534
format = "uint32"
word_order = "dcba"
scale = -1e-3
[[device.variable]]
name = "C"
table = "coil"
address = 65535
[[device]]
name = "B1"
driver = "mqtt"
host = "broker"
port = 1883
user = "u"
password = "s"
tls = true
[[device.variable]]
name = "T"
topic = "plant/b1"
pointer = "/a~1b/0"
publish = "plant/b1/set"
scale = 2
[[device]]
driver = "simulator"
name = "S1"
[[device.variable]]
name = "W"
signal = "walk"
low = -5
high = 5.5
period_s = 0.25
seed = -2147483648
[[device.variable]]
name = "K"
signal = "constant"
low = 500
[[device]]
name = "$ R"
driver = "memory"
)");
    EXPECT_EQ(s.programName, "Planta 1 – Córdoba");
    EXPECT_EQ(s.language, "es");
    EXPECT_EQ(s.cfgPath, "/etc/plant");
    EXPECT_EQ(s.dataPath, "/plant/log");
    EXPECT_EQ(s.htmlPath, "/html");
    EXPECT_EQ(s.resourcesPath, "/plant/texts");
    EXPECT_EQ(s.dateOrder, "dmy");
    EXPECT_EQ(s.dateSeparator, "/");
    EXPECT_EQ(s.timeSeparator, ".");
    EXPECT_EQ(s.decimal, ",");
    EXPECT_EQ(s.thousands, "\xC2\xA0");
    EXPECT_EQ(s.firstDay, "sunday");
    EXPECT_EQ(s.listen, "::1");
    EXPECT_EQ(s.port, 0);
    EXPECT_EQ(s.certificate, "/plant/tls/cert.pem");
    EXPECT_EQ(s.key, "/tls/key.pem");
    EXPECT_EQ(s.names, (std::vector<std::string>{"plant.example", "10.0.0.5", "[fe80::1]"}));
    EXPECT_TRUE(s.open);
    ASSERT_EQ(s.users.size(), 3u);
    EXPECT_EQ(s.users[0].name, "ana");
    EXPECT_EQ(s.users[0].password, hash);
    EXPECT_EQ(s.users[0].role, KTUserSettings::Role::operatorRole);
    EXPECT_EQ(s.users[1].role, KTUserSettings::Role::engineer);
    EXPECT_EQ(s.users[2].role, KTUserSettings::Role::viewer);
    EXPECT_TRUE(s.rssActive);
    EXPECT_EQ(s.rssItems, 0);
    EXPECT_EQ(s.rssUrl, "[::1]");
    EXPECT_EQ(s.smtpServer, "mail.example:587");
    EXPECT_EQ(s.smtpFrom, "Plant <plant@example.org>");
    EXPECT_EQ(s.smtpUser, "u");
    EXPECT_EQ(s.smtpPassword, "p\n\t ");
    EXPECT_TRUE(s.smtpAuthenticated);
    EXPECT_TRUE(s.parkingEnabled);
    EXPECT_FALSE(s.launchEnabled);
    EXPECT_EQ(s.launchAllow, (std::vector<std::string>{"/usr/bin/logger", "beep"}));
    ASSERT_EQ(s.screens.size(), 2u);
    EXPECT_EQ(s.screens[0].name, "Main");
    EXPECT_EQ(s.screens[0].devices, (std::vector<std::string>{"M1", "B1"}));
    EXPECT_TRUE(s.screens[1].devices.empty());
    EXPECT_EQ(s.reports, (std::vector<std::string>{"Daily", "Monthly"}));

    ASSERT_EQ(s.devices.size(), 4u);
    const KTDeviceSettings& m = s.devices[0];
    EXPECT_EQ(m.name, "M1");
    EXPECT_EQ(m.type, "METER");
    EXPECT_EQ(m.description, "Meter\nof the hall");
    EXPECT_EQ(m.host, "fe80::7");
    EXPECT_EQ(m.port, 65535);
    EXPECT_EQ(m.unit, 255);
    EXPECT_EQ(m.pollMilliseconds, 1);
    ASSERT_EQ(m.variables.size(), 2u);
    EXPECT_EQ(m.variables[0].name, "P a-b/c");
    EXPECT_EQ(m.variables[0].description, "Power, \"active\"");
    EXPECT_EQ(m.variables[0].labels, (std::vector<std::string>{"", "ON"}));
    EXPECT_TRUE(m.variables[0].writable);
    EXPECT_EQ(m.variables[0].address, 65534);
    EXPECT_EQ(m.variables[0].format, "uint32");
    EXPECT_EQ(m.variables[0].wordOrder, "dcba");
    EXPECT_EQ(m.variables[0].scale, -1e-3);
    EXPECT_EQ(m.variables[1].table, "coil");
    EXPECT_EQ(m.variables[1].format, "bool");  // single bits
    const KTDeviceSettings& b = s.devices[1];
    EXPECT_EQ(b.driver, "mqtt");
    EXPECT_EQ(b.host, "broker");
    EXPECT_EQ(b.port, 1883);
    EXPECT_EQ(b.user, "u");
    EXPECT_EQ(b.password, "s");
    EXPECT_TRUE(b.tls);
    ASSERT_EQ(b.variables.size(), 1u);
    EXPECT_EQ(b.variables[0].topic, "plant/b1");
    EXPECT_EQ(b.variables[0].pointer, "/a~1b/0");
    EXPECT_EQ(b.variables[0].publish, "plant/b1/set");
    EXPECT_EQ(b.variables[0].scale, 2.0);
    const KTDeviceSettings& w = s.devices[2];
    ASSERT_EQ(w.variables.size(), 2u);
    EXPECT_EQ(w.variables[0].signal, "walk");
    EXPECT_EQ(w.variables[0].low, -5.0);
    EXPECT_EQ(w.variables[0].high, 5.5);
    EXPECT_EQ(w.variables[0].periodSeconds, 0.25);
    EXPECT_EQ(w.variables[0].seed, -2147483647 - 1);
    EXPECT_EQ(w.variables[1].low, 500.0);  // a constant looks at low alone
    EXPECT_EQ(s.devices[3].name, "$ R");
    EXPECT_EQ(s.devices[3].driver, "memory");
}

TEST(KTSettings, KeepsDevicesAndVariablesInTheOrderOfTheFile)
{
    const KTSettings s = Parsed(
        "[[device]]\nname = \"Z\"\ndriver = \"memory\"\n[[device.variable]]\nname = \"z\"\n[[device.variable]]\nname = "
        "\"a\"\n[[device]]\nname = \"A\"\n");
    ASSERT_EQ(s.devices.size(), 2u);
    EXPECT_EQ(s.devices[0].name, "Z");
    ASSERT_EQ(s.devices[0].variables.size(), 2u);
    EXPECT_EQ(s.devices[0].variables[0].name, "z");
    EXPECT_EQ(s.devices[1].name, "A");
}

TEST(KTSettings, LetsTwoDevicesHaveVariablesOfOneName)
{
    const KTSettings s = Parsed(
        "[[device]]\nname = \"A\"\n[[device.variable]]\nname = \"V\"\n[[device]]\nname = "
        "\"a\"\n[[device.variable]]\nname = "
        "\"V\"\n[[device.variable]]\nname = \"v\"\n");
    EXPECT_EQ(s.devices.size(), 2u);  // names are told apart by case
}

TEST(KTSettings, TakesEveryKeyInEveryWayThatTheFormatHas)
{
    const KTSettings s = Parsed(
        "\xEF\xBB\xBFhttp.port = 1\r\nprogram = { name = \"x\" }\r\nscreen = []\r\n"
        "device = [ { name = \"D\", driver = \"memory\", variable = [ { name = \"V\" } ] } ]\r\n");
    EXPECT_EQ(s.port, 1);
    EXPECT_EQ(s.programName, "x");
    ASSERT_EQ(s.devices.size(), 1u);
    EXPECT_EQ(s.devices[0].variables.size(), 1u);
}

TEST(KTSettings, StartsRelativePathsAtTheDirectoryOfTheFile)
{
    EXPECT_EQ(Parsed("", "plant/../corvane.toml").cfgPath, (fs::current_path() / "cfg").string());
    EXPECT_EQ(Parsed("", "corvane.toml").directory, fs::current_path().string());
    EXPECT_EQ(Parsed("", "/corvane.toml").dataPath, "/data");
    EXPECT_EQ(Parsed("[paths]\ndata = \"/\"\n", "/corvane.toml").dataPath, "/");
    EXPECT_EQ(Parsed("[paths]\ncfg = \".\"\n").cfgPath, "/plant");
}

TEST(KTSettings, SaysWhyAFileCantBeRead)
{
    KTSettings settings;
    std::string error;
    EXPECT_FALSE(settings.Load("/does/not/exist.toml", error));
    EXPECT_EQ(error, "/does/not/exist.toml: can't be read: No such file or directory");
    EXPECT_FALSE(settings.Load("/", error));
    EXPECT_EQ(error, "/: can't be read: Is a directory");
}

TEST(KTSettings, LeavesTheDefaultsAfterAMistake)
{
    KTSettings settings;
    std::string error;
    ASSERT_TRUE(settings.Parse("[program]\nname = \"x\"\n", "f", error));
    ASSERT_FALSE(settings.Parse("[program]\nname = \"y\"\n[http]\nport = -1\n", "f", error));
    EXPECT_EQ(settings.programName, "Corvane");
    EXPECT_EQ(settings.port, 8080);
}

TEST(KTSettings, ReadsTheDemo)
{
    KTSettings settings;
    std::string error;
    ASSERT_TRUE(settings.Load((sourceDirectory / "demo/corvane.toml").string(), error)) << error;
    EXPECT_GE(settings.devices.size(), 5u);
    EXPECT_EQ(settings.cfgPath, (sourceDirectory / "demo/cfg").string());
}

TEST(KTSettings, HasARowForEveryKeyThatADriverUses)
{
    const std::vector<std::string> keys = KTSettings::Keys();
    const std::set<std::string> known(keys.begin(), keys.end());
    EXPECT_EQ(known.size(), keys.size());
    for (const KTDriverRow& driver : KTDriverTable())
    {
        for (const std::string_view key : driver.deviceKeys)
            EXPECT_TRUE(known.count("device." + std::string(key))) << key;
        for (const std::string_view key : driver.variableKeys)
            EXPECT_TRUE(known.count("device.variable." + std::string(key))) << key;
    }
}

// Every key that the code reads stands in the manual, under the heading of its table, and the other way round.
TEST(KTSettings, IsDescribedInTheManual)
{
    std::multiset<std::string> described;
    std::string table;
    std::ifstream manual(sourceDirectory / "docs/settings.md");
    ASSERT_TRUE(manual);
    for (std::string line; std::getline(manual, line);)
    {
        if (line.starts_with("## `["))
        {
            table.clear();
            std::copy_if(line.begin() + 4, line.end(), std::back_inserter(table),
                         [](char c) { return c != '[' && c != ']' && c != '`'; });
        }
        if (line.starts_with("| `")) described.insert(table + '.' + line.substr(3, line.find('`', 3) - 3));
    }
    const std::vector<std::string> keys = KTSettings::Keys();
    EXPECT_EQ(described, std::multiset<std::string>(keys.begin(), keys.end()));
}

// What the manual gives as a default is what an empty file means.
TEST(KTSettings, HasTheDefaultsOfTheManual)
{
    const std::string manual = ReadText(sourceDirectory / "docs/settings.md");
    const struct
    {
        const char* key;
        const char* value;
    } rows[] = {{"name", "\"Corvane\""},
                {"language", "\"en\""},
                {"cfg", "\"cfg\""},
                {"data", "\"data\""},
                {"html", "\"html\""},
                {"date_order", "\"ymd\""},
                {"decimal", "\".\""},
                {"thousands", "\",\""},
                {"first_day", "\"monday\""},
                {"port", "8080"},
                {"listen", "\"127.0.0.1\""},
                {"items", "20"},
                {"url", "\"localhost\""},
                {"poll_ms", "1000"},
                {"unit", "1"},
                {"period_s", "60.0"},
                {"high", "100.0"},
                {"low", "0.0"},
                {"seed", "1"},
                {"role", "\"viewer\""}};
    for (const auto& row : rows)
    {
        const std::string key = std::string("| `") + row.key + "` |";
        const std::string value = std::string("| `") + row.value + "` |";
        bool found = false;
        for (std::size_t at = manual.find(key); at != std::string::npos; at = manual.find(key, at + 1))
        {
            const std::string line = manual.substr(at, manual.find('\n', at) - at);
            found = found || line.find(value) != std::string::npos;
        }
        EXPECT_TRUE(found) << row.key << " " << row.value;
    }
}

TEST(KTSettings, ListensOffTheLoopbackOnlyWithUsersAndTlsOrWhenToldSo)
{
    const std::string user = std::string("[[http.user]]\nname = \"a\"\npassword = \"") + hash + "\"\n";
    const std::string tls = "certificate = \"c\"\nkey = \"k\"\n";
    const struct
    {
        std::string text;
        bool allowed;
        const char* lacking;
    } rows[] = {
        {"[http]\n", true, ""},
        {"[http]\nlisten = \"127.9.9.9\"\n", true, ""},
        {"[http]\nlisten = \"::1\"\n", true, ""},
        {"[http]\nlisten = \"::ffff:127.0.0.1\"\n", true, ""},
        {"[http]\nlisten = \"localhost\"\n", true, ""},
        {"[http]\nlisten = \"0.0.0.0\"\n", false, "[[http.user]]"},
        {"[http]\nlisten = \"::\"\n", false, "[[http.user]]"},
        {"[http]\nlisten = \"10.0.0.1\"\n" + tls, false, "[[http.user]]"},
        {"[http]\nlisten = \"10.0.0.1\"\n" + user, false, "TLS"},
        {"[http]\nlisten = \"10.0.0.1\"\n" + tls + user, true, ""},
        {"[http]\nlisten = \"10.0.0.1\"\nopen = true\n", true, ""},
        {"[http]\nlisten = \"::ffff:10.0.0.1\"\n", false, "[[http.user]]"},
    };
    for (const auto& row : rows)
    {
        const KTSettings settings = Parsed(row.text, "/plant/c.toml");
        std::string error;
        EXPECT_EQ(settings.MayListen(error), row.allowed) << row.text;
        if (row.allowed) continue;
        EXPECT_TRUE(error.starts_with("/plant/c.toml:2: http.listen must be a loopback address")) << error;
        EXPECT_NE(error.find(row.lacking), std::string::npos) << error;
    }
}
