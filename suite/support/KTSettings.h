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
    std::string name;                   // no `.`, `[`, `]`, `@`, `:`
    std::string driver = "modbus-tcp";  // memory, simulator, modbus-tcp, mqtt
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

/// The whole file with the defaults in force.
///
/// Format:  docs/settings.md. Texts are UTF-8 without NUL. Paths are absolute and end in no separator but "/" itself.
/// Errors:  one message, "FILE:LINE: what is wrong and what is allowed", about the first mistake of the file. It shows no
///          password.
/// Threads: a plain value. Load changes nothing but the object; Configure and Install change what the process reads.
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

    std::string file;       // as given to Load, for messages
    std::string directory;  // of the settings file, absolute

    // Where keys stand in the file that can only be judged when they are used; 0 where the default counts.
    unsigned listenLine = 0;
    unsigned languageLine = 0;
    unsigned resourcesLine = 0;

    /// Reads and checks the file. False with `error`; the settings are then the defaults.
    bool Load(const std::string& settingsFile, std::string& error);

    /// As Load, with the file's text at hand; `settingsFile` says where relative paths start and need not exist.
    bool Parse(const std::string& text, const std::string& settingsFile, std::string& error);

    /// Whether a server may listen where http.listen says: off the loopback only with users and TLS, or with `open`.
    /// False with `error`.
    [[nodiscard]] bool MayListen(std::string& error) const;

    /// Hands what the module reads to KTCorvaneSetup, the separators to LocaleInformationWide, and loads the language.
    /// False with `error` when there are no texts of that language.
    bool Configure(std::string& error) const;

    /// Makes missing data and html directories, and what GetAppPath needs where html has another name. False with `error` when one can't be made.
    [[nodiscard]] bool MakeDirectories(std::string& error) const;

    /// Configure and MakeDirectories: what every program does that runs events.
    bool Install(std::string& error) const;

    /// Every key that a file may hold, with its tables: "http.port", "device.variable.scale".
    static std::vector<std::string> Keys();
};

/// True for an address that only this machine reaches: 127.0.0.0/8, ::1, or "localhost".
bool IsLoopbackAddress(const std::string& address);
