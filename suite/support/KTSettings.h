// The settings of an installation, as corvane.toml gives them.
#pragma once

#include <string>
#include <vector>

/// One variable of a device. Which fields count depends on the device's driver; the others keep their defaults.
struct KTVariableSettings
{
    std::string name;  // no `.`, `[`, `]`, `@`, `:`
    std::string description;
    std::vector<std::string> labels;
    bool writable = false;

    std::string table = "holding";   // modbus-tcp: coil, discrete, input, holding
    int address = 0;                 // modbus-tcp: 0 to 65535
    std::string format = "float32";  // modbus-tcp: bool, int16, uint16, int32, uint32, float32, float64
    std::string wordOrder = "abcd";  // modbus-tcp: abcd, cdab, badc, dcba
    double scale = 1.0;              // modbus-tcp, mqtt: value = raw * scale

    std::string signal = "sine";  // simulator: constant, sine, square, ramp, walk, daily
    double low = 0.0;
    double high = 100.0;
    double periodSeconds = 60.0;
    int seed = 1;

    std::string topic;  // mqtt
    std::string pointer;
    std::string publish;
};

struct KTDeviceSettings
{
    std::string name;    // no `.`, `[`, `]`, `@`, `:`
    std::string driver;  // memory, simulator, modbus-tcp, mqtt
    std::string type;
    std::string description;
    std::string host = "127.0.0.1";
    int port = 502;
    int unit = 1;
    int pollMilliseconds = 1000;
    std::string user;
    std::string password;
    bool tls = false;
    std::vector<KTVariableSettings> variables;
};

struct KTUserSettings
{
    enum class Role
    {
        viewer,        // reads
        operatorRole,  // also acknowledges
        engineer       // also writes variables and runs the check
    };
    std::string name;
    std::string password;  // the hash that KTPassword makes
    Role role = Role::viewer;
};

/// A screen or a report: something that clients can open.
struct KTScreenSettings
{
    std::string name;
    std::vector<std::string> devices;
};

/// The whole file with the defaults in force. Paths are absolute and end in no separator.
///
/// Memory:  a plain value.
struct KTSettings
{
    std::string programName = "Corvane";
    std::string language = "en";

    std::string cfgPath = "cfg";
    std::string dataPath = "data";
    std::string htmlPath = "html";
    std::string resourcesPath;  // empty: as installed

    std::string dateOrder = "ymd";  // mdy, dmy, ymd
    std::string dateSeparator = "-";
    std::string timeSeparator = ":";
    std::string decimal = ".";
    std::string thousands = ",";
    std::string firstDay = "monday";

    std::string listen = "127.0.0.1";
    int port = 8080;
    std::string certificate;
    std::string key;
    std::vector<std::string> names;
    bool open = false;
    std::vector<KTUserSettings> users;

    bool rssActive = false;
    int rssItems = 20;
    std::string rssUrl = "localhost";

    std::string smtpServer;
    std::string smtpFrom;
    std::string smtpUser;
    std::string smtpPassword;
    bool smtpAuthenticated = false;

    bool parkingEnabled = false;

    bool launchEnabled = true;
    std::vector<std::string> launchAllow;

    std::vector<KTScreenSettings> screens;
    std::vector<std::string> reports;
    std::vector<KTDeviceSettings> devices;

    std::string directory;  // of the settings file, absolute

    /// Reads and checks the file. False with `error` as "FILE:LINE: what is wrong and what is allowed"; the settings are
    /// then unusable.
    bool Load(const std::string& file, std::string& error);

    /// Hands what the module reads to KTCorvaneSetup and the separators to LocaleInformationWide, and makes missing data
    /// and html directories. False with `error` when one can't be made.
    bool Install(std::string& error) const;
};
