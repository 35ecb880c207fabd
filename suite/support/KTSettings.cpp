#include "suite/support/KTSettings.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <unordered_set>

#include "suite/drivers/KTDriverTable.h"
#include "suite/support/KTSettingsRules.h"

namespace rules = kt::rules;
using Value = KTSettingsValue;
template <class T>
using Row = KTSettingsRow<T>;

namespace
{
constexpr std::string_view dateOrders[] = {"mdy", "dmy", "ymd"};
constexpr std::string_view weekdays[] = {"monday", "tuesday", "wednesday", "thursday", "friday", "saturday", "sunday"};
constexpr std::string_view roles[] = {"viewer", "operator", "engineer"};
constexpr std::string_view tables[] = {"coil", "discrete", "input", "holding"};
constexpr std::string_view formats[] = {"bool", "int16", "uint16", "int32", "uint32", "float32", "float64"};
constexpr std::string_view wordOrders[] = {"abcd", "cdab", "badc", "dcba"};
constexpr std::string_view signals[] = {"constant", "sine", "square", "ramp", "walk", "daily"};

constexpr int lastPort = 65535;
constexpr int lastRegister = 65535;
constexpr int lastUnit = 247;
constexpr int tcpUnit = 255;                   // a device that needs no unit behind its address
constexpr int mostFeedItems = 10000;           // each item rewrites the whole feed
constexpr int longestPoll = 24 * 3600 * 1000;  // milliseconds
constexpr double longestPeriod = 1e9;          // seconds; thirty years

bool AnyNumber(double) { return true; }
bool NotZero(double number) { return number != 0.0; }
bool IsPeriod(double seconds) { return seconds > 0.0 && seconds <= longestPeriod; }

constexpr Row<KTSettings> programRows[] = {
    {"name", [](const Value& v, KTSettings& s) { v.Text(s.programName, rules::name); }},
    {"language",
     [](const Value& v, KTSettings& s)
     {
         v.Text(s.language, rules::language);
         s.languageLine = v.Node().source().begin.line;
     }},
};

constexpr Row<KTSettings> pathRows[] = {
    {"cfg", [](const Value& v, KTSettings& s) { v.Text(s.cfgPath, rules::path); }},
    {"data", [](const Value& v, KTSettings& s) { v.Text(s.dataPath, rules::path); }},
    {"html", [](const Value& v, KTSettings& s) { v.Text(s.htmlPath, rules::path); }},
    {"resources",
     [](const Value& v, KTSettings& s)
     {
         v.Text(s.resourcesPath, rules::anyText);
         s.resourcesLine = v.Node().source().begin.line;
     }},
};

constexpr Row<KTSettings> localeRows[] = {
    {"date_order", [](const Value& v, KTSettings& s) { v.Word(s.dateOrder, dateOrders); }},
    {"date_separator", [](const Value& v, KTSettings& s) { v.Text(s.dateSeparator, rules::separator); }},
    {"time_separator", [](const Value& v, KTSettings& s) { v.Text(s.timeSeparator, rules::separator); }},
    {"decimal", [](const Value& v, KTSettings& s) { v.Text(s.decimal, rules::numberSeparator); }},
    {"thousands", [](const Value& v, KTSettings& s) { v.Text(s.thousands, rules::numberSeparator); }},
    {"first_day", [](const Value& v, KTSettings& s) { v.Word(s.firstDay, weekdays); }},
};

constexpr Row<KTUserSettings> userRows[] = {
    {"name", [](const Value& v, KTUserSettings& u) { v.Text(u.name, rules::userName); }},
    {"password", [](const Value& v, KTUserSettings& u) { v.Text(u.password, rules::passwordHash); }},
    {"role",
     [](const Value& v, KTUserSettings& u)
     {
         std::string word;
         v.Word(word, roles);
         if (word == "operator") u.role = KTUserSettings::Role::operatorRole;
         if (word == "engineer") u.role = KTUserSettings::Role::engineer;
     }},
};

void Require(const toml::table& table, const Value& value, std::string_view key)
{
    if (!table.contains(key)) value.Fail(value.Path() + '.' + std::string(key) + " is missing");
}

// Reads the tables of an array, each of which needs a name of its own.
template <class T, class Read>
void ReadNamed(const Value& value, std::vector<T>& out, const Read& read)
{
    std::unordered_set<std::string> seen;
    value.Tables(
        [&](const toml::table& table, const Value& element)
        {
            T item;
            read(table, element, item);
            Require(table, element, "name");
            const toml::node* const name = table.get("name");
            if (name != nullptr && !item.name.empty() && !seen.insert(item.name).second)
                value.FailAt(*name, value.Path() + ".name " + Value::Quoted(item.name) +
                                        " is given twice; each needs a name of its own");
            out.push_back(std::move(item));
        });
}

void ReadUsers(const Value& value, KTSettings& settings)
{
    ReadNamed(value, settings.users,
              [](const toml::table& table, const Value& element, KTUserSettings& user)
              {
                  element.Table<KTUserSettings>(userRows, user);
                  Require(table, element, "password");
              });
}

constexpr Row<KTSettings> httpRows[] = {
    {"listen",
     [](const Value& v, KTSettings& s)
     {
         v.Text(s.listen, rules::address);
         s.listenLine = v.Node().source().begin.line;
     }},
    {"port", [](const Value& v, KTSettings& s) { v.Whole(s.port, 0, lastPort); }},  // 0: the system chooses
    {"certificate", [](const Value& v, KTSettings& s) { v.Text(s.certificate, rules::anyText); }},
    {"key", [](const Value& v, KTSettings& s) { v.Text(s.key, rules::anyText); }},
    {"names", [](const Value& v, KTSettings& s) { v.Texts(s.names, rules::host); }},
    {"open", [](const Value& v, KTSettings& s) { v.Flag(s.open); }},
    {"user", ReadUsers},
};

constexpr Row<KTSettings> rssRows[] = {
    {"active", [](const Value& v, KTSettings& s) { v.Flag(s.rssActive); }},
    {"items", [](const Value& v, KTSettings& s) { v.Whole(s.rssItems, 0, mostFeedItems); }},
    {"url", [](const Value& v, KTSettings& s) { v.Text(s.rssUrl, rules::host); }},
};

constexpr Row<KTSettings> smtpRows[] = {
    {"server", [](const Value& v, KTSettings& s) { v.Text(s.smtpServer, rules::hostAndPort); }},
    {"from", [](const Value& v, KTSettings& s) { v.Text(s.smtpFrom, rules::line); }},
    {"user", [](const Value& v, KTSettings& s) { v.Text(s.smtpUser, rules::line); }},
    {"password", [](const Value& v, KTSettings& s) { v.Text(s.smtpPassword, rules::secret); }},
    {"authenticated", [](const Value& v, KTSettings& s) { v.Flag(s.smtpAuthenticated); }},
};

constexpr Row<KTSettings> parkingRows[] = {
    {"enabled", [](const Value& v, KTSettings& s) { v.Flag(s.parkingEnabled); }},
};

constexpr Row<KTSettings> launchRows[] = {
    {"enabled", [](const Value& v, KTSettings& s) { v.Flag(s.launchEnabled); }},
    {"allow", [](const Value& v, KTSettings& s) { v.Texts(s.launchAllow, rules::name); }},
};

constexpr Row<KTScreenSettings> screenRows[] = {
    {"name", [](const Value& v, KTScreenSettings& s) { v.Text(s.name, rules::name); }},
    {"devices", [](const Value& v, KTScreenSettings& s) { v.Texts(s.devices, rules::anyText); }},
};

struct ReportSettings
{
    std::string name;
};
constexpr Row<ReportSettings> reportRows[] = {
    {"name", [](const Value& v, ReportSettings& r) { v.Text(r.name, rules::name); }},
};

constexpr Row<KTVariableSettings> variableRows[] = {
    {"name", [](const Value& v, KTVariableSettings& s) { v.Text(s.name, rules::entityName); }},
    {"description", [](const Value& v, KTVariableSettings& s) { v.Text(s.description, rules::anyText); }},
    {"labels", [](const Value& v, KTVariableSettings& s) { v.Texts(s.labels, rules::anyText); }},
    {"writable", [](const Value& v, KTVariableSettings& s) { v.Flag(s.writable); }},
    {"table", [](const Value& v, KTVariableSettings& s) { v.Word(s.table, tables); }},
    {"address", [](const Value& v, KTVariableSettings& s) { v.Whole(s.address, 0, lastRegister); }},
    {"format", [](const Value& v, KTVariableSettings& s) { v.Word(s.format, formats); }},
    {"word_order", [](const Value& v, KTVariableSettings& s) { v.Word(s.wordOrder, wordOrders); }},
    {"scale",
     [](const Value& v, KTVariableSettings& s) { v.Number(s.scale, NotZero, "a finite number other than 0"); }},
    {"signal", [](const Value& v, KTVariableSettings& s) { v.Word(s.signal, signals); }},
    {"low", [](const Value& v, KTVariableSettings& s) { v.Number(s.low, AnyNumber, "a finite number"); }},
    {"high", [](const Value& v, KTVariableSettings& s) { v.Number(s.high, AnyNumber, "a finite number"); }},
    {"period_s", [](const Value& v, KTVariableSettings& s)
     { v.Number(s.periodSeconds, IsPeriod, "a number of seconds above 0, at most 1000000000"); }},
    {"seed", [](const Value& v, KTVariableSettings& s) { v.Whole(s.seed, INT32_MIN, INT32_MAX); }},
    {"topic", [](const Value& v, KTVariableSettings& s) { v.Text(s.topic, rules::topic); }},
    {"pointer", [](const Value& v, KTVariableSettings& s) { v.Text(s.pointer, rules::pointer); }},
    {"publish", [](const Value& v, KTVariableSettings& s) { v.Text(s.publish, rules::topic); }},
};

// Registers that a value of the format takes; those of coils and discrete inputs are one bit each.
int RegistersOf(std::string_view format)
{
    if (format == "float64") return 4;
    return format == "int32" || format == "uint32" || format == "float32" ? 2 : 1;
}

void CheckModbusVariable(const toml::table& table, const Value& value, KTVariableSettings& variable)
{
    const bool bits = variable.table == "coil" || variable.table == "discrete";
    const toml::node* const format = table.get("format");
    if (bits && format == nullptr)
        variable.format = "bool";
    else if (bits && variable.format != "bool")
        value.FailAt(*format, value.Path() + ".format must be \"bool\" with table = " + Value::Quoted(variable.table) +
                                  ", whose values are single bits");
    const toml::node* const address = table.get("address");
    if (address != nullptr && variable.address + RegistersOf(variable.format) - 1 > lastRegister)
        value.FailAt(*address, value.Path() + ".address must be at most " +
                                   std::to_string(lastRegister + 1 - RegistersOf(variable.format)) + " with format = " +
                                   Value::Quoted(variable.format) + ", not " + std::to_string(variable.address));
    if (variable.writable && (variable.table == "discrete" || variable.table == "input"))
        value.FailAt(*table.get("writable"), value.Path() + ".writable must be false with table = " +
                                                 Value::Quoted(variable.table) + ", which can only be read");
}

void CheckSimulatedVariable(const toml::table& table, const Value& value, const KTVariableSettings& variable)
{
    if (variable.signal == "constant" || variable.low <= variable.high) return;
    const toml::node* const high = table.get("high");
    value.FailAt(high != nullptr ? *high : *table.get("low"), value.Path() + ".low must not be above " + value.Path() +
                                                                  ".high" +
                                                                  (high == nullptr ? ", which is 100 by default" : ""));
}

// Why a device or variable of the driver can't have the key; empty when it can, or when no driver knows the key. While the
// driver is unknown itself, every key of any driver passes: its own mistake is the one to tell.
std::string Foreign(const KTDriverRow* driver, std::span<const std::string_view> KTDriverRow::*keys,
                    std::string_view key)
{
    const auto uses = [&](const KTDriverRow& row)
    { return std::find((row.*keys).begin(), (row.*keys).end(), key) != (row.*keys).end(); };
    if (driver == nullptr || uses(*driver)) return {};
    const auto all = KTDriverTable();
    if (std::none_of(all.begin(), all.end(), uses)) return {};
    return ", which driver = " + Value::Quoted(driver->name) + " doesn't use";
}

void ReadVariable(const toml::table& table, const Value& value, const KTDriverRow* driver, KTVariableSettings& variable)
{
    const auto foreign = [driver](std::string_view key) { return Foreign(driver, &KTDriverRow::variableKeys, key); };
    value.Table<KTVariableSettings>(variableRows, variable, foreign);
    if (driver == nullptr) return;
    if (driver->name == "modbus-tcp") CheckModbusVariable(table, value, variable);
    if (driver->name == "simulator") CheckSimulatedVariable(table, value, variable);
    if (driver->name == "mqtt" && variable.topic.empty() && variable.publish.empty())
        value.Fail(value.Path() + ".topic is missing");
}

struct DeviceReading
{
    KTDeviceSettings device;
    const KTDriverRow* driver;  // null while the word of the driver is wrong
};

void ReadVariables(const Value& value, DeviceReading& reading)
{
    ReadNamed(value, reading.device.variables,
              [&](const toml::table& table, const Value& element, KTVariableSettings& variable)
              { ReadVariable(table, element, reading.driver, variable); });
}

void ReadDriver(const Value& value, DeviceReading& reading)
{
    std::vector<std::string_view> words;
    for (const KTDriverRow& row : KTDriverTable()) words.push_back(row.name);
    value.Word(reading.device.driver, words);
}

void ReadUnit(const Value& value, DeviceReading& reading)
{
    value.Whole(reading.device.unit, 0, tcpUnit);
    if (reading.device.unit > lastUnit && reading.device.unit < tcpUnit)
        value.Fail(value.Path() + " must be from 0 to 247, or 255, not " + std::to_string(reading.device.unit));
}

constexpr Row<DeviceReading> deviceRows[] = {
    {"name", [](const Value& v, DeviceReading& r) { v.Text(r.device.name, rules::deviceName); }},
    {"driver", ReadDriver},
    {"type", [](const Value& v, DeviceReading& r) { v.Text(r.device.type, rules::line); }},
    {"description", [](const Value& v, DeviceReading& r) { v.Text(r.device.description, rules::anyText); }},
    {"host", [](const Value& v, DeviceReading& r) { v.Text(r.device.host, rules::deviceHost); }},
    {"port", [](const Value& v, DeviceReading& r) { v.Whole(r.device.port, 1, lastPort); }},
    {"unit", ReadUnit},
    {"poll_ms", [](const Value& v, DeviceReading& r) { v.Whole(r.device.pollMilliseconds, 1, longestPoll); }},
    {"user", [](const Value& v, DeviceReading& r) { v.Text(r.device.user, rules::line); }},
    {"password", [](const Value& v, DeviceReading& r) { v.Text(r.device.password, rules::secret); }},
    {"tls", [](const Value& v, DeviceReading& r) { v.Flag(r.device.tls); }},
    {"variable", ReadVariables},
};

void ReadDevice(const toml::table& table, const Value& value, KTDeviceSettings& out)
{
    DeviceReading reading;
    // The driver decides about the other keys, wherever it stands among them.
    const toml::node* const word = table.get("driver");
    reading.driver =
        FindDriverRow(word == nullptr ? std::string_view(reading.device.driver) : word->value_or(std::string_view()));
    const auto foreign = [&](std::string_view key) { return Foreign(reading.driver, &KTDriverRow::deviceKeys, key); };
    value.Table<DeviceReading>(deviceRows, reading, foreign);
    out = std::move(reading.device);
}

void ReadScreens(const Value& value, KTSettings& settings)
{
    ReadNamed(value, settings.screens,
              [](const toml::table&, const Value& element, KTScreenSettings& screen)
              { element.Table<KTScreenSettings>(screenRows, screen); });
}

void ReadReports(const Value& value, KTSettings& settings)
{
    std::vector<ReportSettings> reports;
    ReadNamed(value, reports,
              [](const toml::table&, const Value& element, ReportSettings& report)
              { element.Table<ReportSettings>(reportRows, report); });
    for (ReportSettings& report : reports) settings.reports.push_back(std::move(report.name));
}

constexpr Row<KTSettings> rootRows[] = {
    {"program", [](const Value& v, KTSettings& s) { v.Table<KTSettings>(programRows, s); }},
    {"paths", [](const Value& v, KTSettings& s) { v.Table<KTSettings>(pathRows, s); }},
    {"locale", [](const Value& v, KTSettings& s) { v.Table<KTSettings>(localeRows, s); }},
    {"http", [](const Value& v, KTSettings& s) { v.Table<KTSettings>(httpRows, s); }},
    {"rss", [](const Value& v, KTSettings& s) { v.Table<KTSettings>(rssRows, s); }},
    {"smtp", [](const Value& v, KTSettings& s) { v.Table<KTSettings>(smtpRows, s); }},
    {"parking", [](const Value& v, KTSettings& s) { v.Table<KTSettings>(parkingRows, s); }},
    {"launch", [](const Value& v, KTSettings& s) { v.Table<KTSettings>(launchRows, s); }},
    {"screen", ReadScreens},
    {"report", ReadReports},
    {"device", [](const Value& v, KTSettings& s) { ReadNamed(v, s.devices, ReadDevice); }},
};

// Settings that contradict each other.
void CheckTogether(const toml::table& root, const KTSettings& settings, KTSettingsProblems& problems)
{
    const toml::node* const decimal = root["locale"]["decimal"].node();
    const toml::node* const thousands = root["locale"]["thousands"].node();
    if (settings.decimal == settings.thousands && (decimal != nullptr || thousands != nullptr))
    {
        // The one that stands later in the file, or alone, made them equal.
        const bool second =
            decimal == nullptr || (thousands != nullptr && decimal->source().begin < thousands->source().begin);
        const toml::node* const place = second ? thousands : decimal;
        const bool byDefault = decimal == nullptr || thousands == nullptr;
        problems.Add(place->source().begin, "locale.decimal and locale.thousands must differ; both are " +
                                                Value::Quoted(settings.decimal) +
                                                (byDefault ? ", one by default" : ""));
    }

    if (settings.certificate.empty() != settings.key.empty())
    {
        const bool noKey = settings.key.empty();
        const toml::node* const place = root["http"][noKey ? "certificate" : "key"].node();
        problems.Add(place->source().begin,
                     noKey ? "http.certificate needs http.key as well" : "http.key needs http.certificate as well");
    }
}

void CheckScreens(const toml::table& root, const KTSettings& settings, KTSettingsProblems& problems)
{
    std::unordered_set<std::string> devices;
    for (const KTDeviceSettings& device : settings.devices) devices.insert(device.name);
    // Which events there are stands in another document.
    const auto isKnown = [&](const std::string& name)
    { return devices.count(name) != 0 || name.starts_with(rules::eventDevicePrefix); };
    const toml::array* const screens = root["screen"].as_array();
    if (screens == nullptr) return;
    for (const toml::node& screen : *screens)
    {
        const toml::table* const table = screen.as_table();
        const toml::array* const names = table == nullptr ? nullptr : (*table)["devices"].as_array();
        if (names == nullptr) continue;
        for (const toml::node& name : *names)
            if (name.is_string() && !isKnown(name.as_string()->get()))
                problems.Add(name.source().begin, "screen.devices names " + Value::Shown(name) +
                                                      ", and there is no [[device]] of that name");
    }
}

std::string ResolvedPath(const std::filesystem::path& directory, const std::string& text)
{
    std::string path = (directory / text).lexically_normal().string();
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

void ResolvePaths(KTSettings& settings)
{
    for (std::string KTSettings::*path : {&KTSettings::cfgPath, &KTSettings::dataPath, &KTSettings::htmlPath,
                                          &KTSettings::resourcesPath, &KTSettings::certificate, &KTSettings::key})
        if (!(settings.*path).empty()) settings.*path = ResolvedPath(settings.directory, settings.*path);
}

bool ReadWholeFile(const std::string& file, std::string& text)
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(std::fopen(file.c_str(), "rbe"), &std::fclose);
    if (stream == nullptr) return false;
    char buffer[16384];
    for (;;)
    {
        const std::size_t got = std::fread(buffer, 1, sizeof buffer, stream.get());
        text.append(buffer, got);
        if (got < sizeof buffer) return std::ferror(stream.get()) == 0;
    }
}

std::string At(const std::string& file, unsigned line, std::string_view reason)
{
    return file + ':' + std::to_string(line) + ": " + std::string(reason);
}

template <class T>
void AppendKeys(std::vector<std::string>& out, const std::string& table, const T& rows)
{
    for (const auto& row : rows) out.push_back(table + std::string(row.key));
}
}  // namespace

bool KTSettings::Load(const std::string& settingsFile, std::string& error)
{
    std::string text;
    if (ReadWholeFile(settingsFile, text)) return Parse(text, settingsFile, error);
    error = settingsFile + ": can't be read: " + std::strerror(errno);
    *this = KTSettings();
    return false;
}

bool KTSettings::Parse(const std::string& text, const std::string& settingsFile, std::string& error)
{
    *this = KTSettings();
    toml::table root;
    try
    {
        root = toml::parse(text);
    }
    catch (const toml::parse_error& mistake)
    {
        error = At(settingsFile, mistake.source().begin.line, mistake.description());
        return false;
    }

    KTSettings read;
    KTSettingsProblems problems;
    Value(root, "", problems).Table<KTSettings>(rootRows, read);
    CheckTogether(root, read, problems);
    CheckScreens(root, read, problems);
    if (!problems.Empty())
    {
        error = At(settingsFile, problems.Line(), problems.Reason());
        return false;
    }

    read.file = settingsFile;
    read.directory = ResolvedPath(std::filesystem::absolute(settingsFile).parent_path(), "");
    ResolvePaths(read);
    *this = std::move(read);
    return true;
}

std::vector<std::string> KTSettings::Keys()
{
    std::vector<std::string> keys;
    AppendKeys(keys, "program.", programRows);
    AppendKeys(keys, "paths.", pathRows);
    AppendKeys(keys, "locale.", localeRows);
    AppendKeys(keys, "http.", httpRows);
    AppendKeys(keys, "http.user.", userRows);
    AppendKeys(keys, "rss.", rssRows);
    AppendKeys(keys, "smtp.", smtpRows);
    AppendKeys(keys, "parking.", parkingRows);
    AppendKeys(keys, "launch.", launchRows);
    AppendKeys(keys, "screen.", screenRows);
    AppendKeys(keys, "report.", reportRows);
    AppendKeys(keys, "device.", deviceRows);
    AppendKeys(keys, "device.variable.", variableRows);
    return keys;
}
