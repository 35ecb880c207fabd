// Each kind of mistake in a settings file: where it is told and what is said about it.
#include <gtest/gtest.h>

#include <string>

#include "suite/support/KTSettings.h"

namespace
{
constexpr const char* goodHash =
    "$scrypt$ln=15,r=8,p=3$AAAAAAAAAAAAAAAAAAAAAAAA$AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA";

struct Mistake
{
    const char* text;
    int line;
    const char* reason;  // a piece of it
};

void ExpectRefused(const Mistake& row)
{
    KTSettings settings;
    std::string error;
    ASSERT_FALSE(settings.Parse(row.text, "plant/corvane.toml", error)) << row.text;
    const std::string place = "plant/corvane.toml:" + std::to_string(row.line) + ": ";
    EXPECT_EQ(error.substr(0, place.size()), place) << row.text << "\n" << error;
    EXPECT_NE(error.find(row.reason), std::string::npos) << row.text << "\n" << error;
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
}

template <std::size_t count>
void ExpectAllRefused(const Mistake (&rows)[count])
{
    for (const Mistake& row : rows) ExpectRefused(row);
}

constexpr const char* memoryDevice = "[[device]]\nname = \"D\"\ndriver = \"memory\"\n";
constexpr const char* simulator =
    "[[device]]\nname = \"D\"\ndriver = \"simulator\"\n[[device.variable]]\nname = \"V\"\n";
constexpr const char* modbus = "[[device]]\nname = \"D\"\n[[device.variable]]\nname = \"V\"\n";
constexpr const char* mqtt =
    "[[device]]\nname = \"D\"\ndriver = \"mqtt\"\n[[device.variable]]\nname = \"V\"\ntopic = \"t\"\n";

void ExpectRefusedBehind(const char* head, const char* text, int line, const char* reason)
{
    const std::string whole = std::string(head) + text;
    ExpectRefused({whole.c_str(), line, reason});
}
}  // namespace

TEST(KTSettings, TellsTheLineOfASyntaxError)
{
    ExpectAllRefused({
        {"[http]\nport = \n", 2, ""},
        {"[http\nport = 1\n", 1, ""},
        {"\n\n[http]\nlisten = \"127.0.0.1\nport = 1\n", 4, ""},
        {"[http]\nport = 1\nport = 2\n", 3, "port"},
        {"[http]\n[rss]\n[http]\n", 3, "http"},
        {"[program]\nname = \"\xff\"\n", 2, ""},
    });
}

TEST(KTSettings, RefusesUnknownKeysAndSaysWhatIsKnown)
{
    ExpectAllRefused({
        {"prot = 1\n", 1, "unknown key \"prot\"; known here: program, paths, locale"},
        {"[htpp]\nport = 1\n", 1, "unknown key \"htpp\""},
        {"[http]\nport = 1\nprot = 8080\n", 3, "unknown key \"prot\" in [http]; known here: listen, port, certificate"},
        {"[http]\nPort = 1\n", 2, "unknown key \"Port\" in [http]"},
        {"http.prot = 1\n", 1, "unknown key \"prot\" in [http]"},
        {"[http.tls]\nkey = \"a\"\n", 1, "unknown key \"tls\" in [http]"},
        {"[program]\nversion = 1\n", 2, "in [program]; known here: name, language"},
        {"[paths]\nlog = \"x\"\n", 2, "in [paths]; known here: cfg, data, html, resources"},
        {"[locale]\nlanguage = \"en\"\n", 2, "in [locale]"},
        {"[rss]\nenabled = true\n", 2, "in [rss]; known here: active, items, url"},
        {"[smtp]\nport = 25\n", 2, "in [smtp]"},
        {"[parking]\nactive = true\n", 2, "in [parking]; known here: enabled"},
        {"[launch]\ndeny = []\n", 2, "in [launch]; known here: enabled, allow"},
        {"[[http.user]]\nname = \"a\"\nrol = \"viewer\"\n", 1, "http.user.password is missing"},
        {"[[screen]]\nname = \"a\"\ndevice = []\n", 3, "in [screen]; known here: name, devices"},
        {"[[report]]\nname = \"a\"\nfile = \"b\"\n", 3, "in [report]; known here: name"},
    });
    const std::string user =
        std::string("[[http.user]]\nname = \"a\"\npassword = \"") + goodHash + "\"\nrol = \"viewer\"\n";
    ExpectRefused({user.c_str(), 4, "unknown key \"rol\" in [http.user]; known here: name, password, role"});
}

TEST(KTSettings, RefusesKeysThatTheDriverOfTheDeviceDoesntUse)
{
    ExpectRefusedBehind(
        memoryDevice, "host = \"h\"\n", 4,
        "unknown key \"host\" in [device], which driver = \"memory\" doesn't use; known here: name, driver, "
        "type, description, variable");
    ExpectRefusedBehind(memoryDevice, "poll_ms = 5\n", 4, "unknown key \"poll_ms\"");
    ExpectRefusedBehind(memoryDevice, "[[device.variable]]\nname = \"V\"\nscale = 2\n", 6, "unknown key \"scale\"");
    ExpectRefusedBehind(
        simulator, "address = 1\n", 6,
        "unknown key \"address\" in [device.variable], which driver = \"simulator\" doesn't use; known here: "
        "name, description, labels, writable, signal, low, high, period_s, seed");
    ExpectRefusedBehind(modbus, "signal = \"sine\"\n", 5, "which driver = \"modbus-tcp\" doesn't use");
    ExpectRefusedBehind(modbus, "topic = \"t\"\n", 5, "unknown key \"topic\"");
    ExpectRefusedBehind(mqtt, "table = \"coil\"\n", 7, "unknown key \"table\"");
    ExpectAllRefused({
        {"[[device]]\nname = \"D\"\nuser = \"u\"\n", 3, "unknown key \"user\""},
        {"[[device]]\nname = \"D\"\nunit = 1\ndriver = \"mqtt\"\n", 3, "unknown key \"unit\""},
        {"[[device]]\nname = \"D\"\nflavour = 1\n", 3,
         "unknown key \"flavour\" in [device]; known here: name, driver, "
         "type, description, host, port, unit, poll_ms, variable"},
    });
}

TEST(KTSettings, RefusesValuesOfTheWrongType)
{
    ExpectAllRefused({
        {"program = 3\n", 1, "program must be a table, [program], not 3"},
        {"[[program]]\nname = \"a\"\n", 1, "program must be a table, [program], not a list"},
        {"[program]\nname = 3\n", 2,
         "program.name must be a text of at least one character, without control characters, not 3"},
        {"[program]\nname = true\n", 2, "not true"},
        {"[program]\nname = [\"a\"]\n", 2, "not a list"},
        {"[program]\nname = 2024-01-01\n", 2, "not a date or time"},
        {"[program.name]\n", 1, "program.name must be a text"},
        {"[paths]\ndata = 1.5\n", 2, "paths.data must be a path of at least one character, without NUL, not 1.5"},
        {"[http]\nport = \"8080\"\n", 2, "http.port must be a whole number from 0 to 65535, not \"8080\""},
        {"[http]\nport = 8080.0\n", 2, "http.port must be a whole number from 0 to 65535, not 8080"},
        {"[http]\nopen = \"true\"\n", 2, "http.open must be true or false, not \"true\""},
        {"[http]\nopen = 1\n", 2, "http.open must be true or false, not 1"},
        {"[http]\nnames = \"plant\"\n", 2, "http.names must be a list of texts, not \"plant\""},
        {"[http]\nnames = [\n  \"plant\",\n  7,\n]\n", 4, "each entry of http.names must be a host name"},
        {"[http]\nuser = \"ana\"\n", 2,
         "http.user must be an array of tables, each begun by [[http.user]], not \"ana\""},
        {"[http.user]\nname = \"ana\"\n", 1, "http.user must be an array of tables, each begun by [[http.user]]"},
        {"[launch]\nallow = true\n", 2, "launch.allow must be a list of texts"},
        {"[device]\nname = \"D\"\n", 1, "device must be an array of tables, each begun by [[device]], not a table"},
        {"device = [1]\n", 1, "device must be an array of tables, each begun by [[device]], not 1"},
        {"screen = 1\n", 1, "screen must be an array of tables"},
        {"[[screen]]\nname = \"a\"\ndevices = \"D\"\n", 3, "screen.devices must be a list of texts"},
    });
    ExpectRefusedBehind(simulator, "low = \"0\"\n", 6, "device.variable.low must be a finite number, not \"0\"");
    ExpectRefusedBehind(simulator, "labels = [1]\n", 6, "each entry of device.variable.labels must be a text");
    ExpectRefusedBehind(simulator, "seed = 1.0\n", 6, "device.variable.seed must be a whole number");
    ExpectRefusedBehind(memoryDevice, "variable = 1\n", 4, "device.variable must be an array of tables");
}

TEST(KTSettings, RefusesWordsThatAreNoneOfTheAllowed)
{
    ExpectAllRefused({
        {"[locale]\ndate_order = \"ydm\"\n", 2, "locale.date_order must be \"mdy\", \"dmy\" or \"ymd\", not \"ydm\""},
        {"[locale]\ndate_order = \"YMD\"\n", 2, "locale.date_order must be"},
        {"[locale]\nfirst_day = \"Monday\"\n", 2, "locale.first_day must be \"monday\", \"tuesday\""},
        {"[[device]]\nname = \"D\"\ndriver = \"modbus\"\n", 3,
         "device.driver must be \"memory\", \"simulator\", \"modbus-tcp\" or \"mqtt\", not \"modbus\""},
        {"[[device]]\nname = \"D\"\ndriver = 1\n", 3, "device.driver must be"},
        // While the driver is wrong, keys of any driver pass.
        {"[[device]]\nname = \"D\"\ntls = true\nunit = 3\ndriver = \"x\"\n", 5, "device.driver must be"},
    });
    ExpectRefusedBehind(modbus, "table = \"holdings\"\n", 5,
                        "must be \"coil\", \"discrete\", \"input\" or \"holding\"");
    ExpectRefusedBehind(modbus, "format = \"double\"\n", 5, "device.variable.format must be \"bool\", \"int16\"");
    ExpectRefusedBehind(modbus, "word_order = \"ABCD\"\n", 5, "must be \"abcd\", \"cdab\", \"badc\" or \"dcba\"");
    ExpectRefusedBehind(simulator, "signal = \"cosine\"\n", 6, "device.variable.signal must be \"constant\", \"sine\"");
    const std::string user =
        std::string("[[http.user]]\nname = \"a\"\npassword = \"") + goodHash + "\"\nrole = \"admin\"\n";
    ExpectRefused({user.c_str(), 4, "http.user.role must be \"viewer\", \"operator\" or \"engineer\", not \"admin\""});
}

TEST(KTSettings, RefusesNumbersOutOfRange)
{
    ExpectAllRefused({
        {"[http]\nport = -1\n", 2, "http.port must be a whole number from 0 to 65535, not -1"},
        {"[http]\nport = 65536\n", 2, "not 65536"},
        {"[http]\nport = 4294967376\n", 2, "not 4294967376"},
        {"[rss]\nitems = -1\n", 2, "rss.items must be a whole number from 0 to 10000, not -1"},
        {"[rss]\nitems = 10001\n", 2, "not 10001"},
        {"[[device]]\nname = \"D\"\nport = 0\n", 3, "device.port must be a whole number from 1 to 65535, not 0"},
        {"[[device]]\nname = \"D\"\nport = 65536\n", 3, "device.port"},
        {"[[device]]\nname = \"D\"\nunit = -1\n", 3, "device.unit must be"},
        {"[[device]]\nname = \"D\"\nunit = 248\n", 3, "device.unit must be from 0 to 247, or 255, not 248"},
        {"[[device]]\nname = \"D\"\nunit = 256\n", 3, "device.unit must be"},
        {"[[device]]\nname = \"D\"\npoll_ms = 0\n", 3,
         "device.poll_ms must be a whole number from 1 to 86400000, not 0"},
        {"[[device]]\nname = \"D\"\npoll_ms = 86400001\n", 3, "device.poll_ms"},
    });
    ExpectRefusedBehind(modbus, "address = -1\n", 5, "device.variable.address must be a whole number from 0 to 65535");
    ExpectRefusedBehind(modbus, "address = 65536\n", 5, "device.variable.address");
    ExpectRefusedBehind(modbus, "scale = 0\n", 5, "device.variable.scale must be a finite number other than 0, not 0");
    ExpectRefusedBehind(modbus, "scale = nan\n", 5,
                        "device.variable.scale must be a finite number other than 0, not nan");
    ExpectRefusedBehind(simulator, "low = -inf\n", 6, "device.variable.low must be a finite number, not -inf");
    ExpectRefusedBehind(simulator, "period_s = 0\n", 6, "device.variable.period_s must be a number of seconds above 0");
    ExpectRefusedBehind(simulator, "period_s = -5.0\n", 6, "device.variable.period_s");
    ExpectRefusedBehind(simulator, "period_s = inf\n", 6, "device.variable.period_s");
    ExpectRefusedBehind(simulator, "seed = 2147483648\n", 6, "device.variable.seed");
}

TEST(KTSettings, RefusesNamesThatAreMissingWrongOrGivenTwice)
{
    ExpectAllRefused({
        {"\n[[device]]\ndriver = \"memory\"\n", 2, "device.name is missing"},
        {"[[device]]\nname = \"\"\n", 2, "device.name must be a name of at least one character"},
        {"[[device]]\nname = \"A.B\"\n", 2, "device.name must be a name"},
        {"[[device]]\nname = \"A[\"\n", 2, "device.name"},
        {"[[device]]\nname = \"A]\"\n", 2, "device.name"},
        {"[[device]]\nname = \"A@B\"\n", 2, "device.name"},
        {"[[device]]\nname = \"A:B\"\n", 2, "with none of . [ ] @ : in it"},
        {"[[device]]\nname = \"A\\tB\"\n", 2, "not \"A?B\""},
        {"[[device]]\nname = \"A\\u0000B\"\n", 2, "device.name"},
        {"[[device]]\nname = \"R$EVE_Pump\"\n", 2, "doesn't begin with R$EVE_"},
        {"[[device]]\nname = \"A\"\n[[device]]\nname = \"B\"\n[[device]]\nname = \"A\"\n", 6,
         "device.name \"A\" is given twice"},
        {"[[screen]]\ndevices = []\n", 1, "screen.name is missing"},
        {"[[screen]]\nname = \"A\"\n[[screen]]\nname = \"A\"\n", 4, "screen.name \"A\" is given twice"},
        {"[[report]]\n", 1, "report.name is missing"},
        {"[[report]]\nname = \"\"\n", 2, "report.name must be"},
        {"[[report]]\nname = \"A\"\n[[report]]\nname = \"A\"\n", 4, "report.name \"A\" is given twice"},
        {"[program]\nname = \"\"\n", 2, "program.name must be"},
        {"[program]\nname = \"a\\nb\"\n", 2, "program.name must be"},
    });
    for (const char* const name : {"\"\"", "\"A.B\"", "\"[A\"", "\"A]\"", "\"A@\"", "\":A\"", "\"\\n\""})
        ExpectRefusedBehind(
            memoryDevice, (std::string("[[device.variable]]\nname = ") + name).c_str(), 5,
            "device.variable.name must be a name of at least one character, with none of . [ ] @ : in it");
    ExpectRefusedBehind(memoryDevice, "\n[[device.variable]]\nlabels = []\n", 5, "device.variable.name is missing");
    ExpectRefusedBehind(memoryDevice, "[[device.variable]]\nname = \"V\"\n[[device.variable]]\nname = \"V\"\n", 7,
                        "device.variable.name \"V\" is given twice");

    const std::string hash = std::string("password = \"") + goodHash + "\"\n";
    const std::string nameless = "[[http.user]]\n" + hash;
    ExpectRefused({nameless.c_str(), 1, "http.user.name is missing"});
    const std::string colon = "[[http.user]]\nname = \"a:b\"\n" + hash;
    ExpectRefused({colon.c_str(), 2, "http.user.name must be a name of at least one character, without :"});
    const std::string twice = "[[http.user]]\nname = \"a\"\n" + hash + "[[http.user]]\nname = \"a\"\n" + hash;
    ExpectRefused({twice.c_str(), 5, "http.user.name \"a\" is given twice"});
}

TEST(KTSettings, RefusesAPasswordThatIsNoHashAndDoesntShowIt)
{
    for (const char* const password : {"\"secret1\"", "\"\"", "123454321", "\"$scrypt$secret1\""})
    {
        KTSettings settings;
        std::string error;
        const std::string text = std::string("[[http.user]]\nname = \"a\"\npassword = ") + password + "\n";
        ASSERT_FALSE(settings.Parse(text, "f.toml", error));
        EXPECT_EQ(error, "f.toml:3: http.user.password must be a hash as `corvane password` prints it");
    }
    KTSettings settings;
    std::string error;
    ASSERT_FALSE(settings.Parse("[smtp]\npassword = 123454321\n", "f.toml", error));
    EXPECT_EQ(error, "f.toml:2: smtp.password must be a text without NUL");
}

TEST(KTSettings, RefusesSettingsThatContradictEachOther)
{
    ExpectAllRefused({
        {"[locale]\ndecimal = \",\"\n", 2,
         "locale.decimal and locale.thousands must differ; both are \",\", one by default"},
        {"[locale]\nthousands = \".\"\n", 2, "locale.decimal and locale.thousands must differ"},
        {"[locale]\ndecimal = \",\"\ntime_separator = \":\"\nthousands = \",\"\n", 4, "must differ; both are \",\""},
        {"[locale]\nthousands = \"'\"\ndecimal = \"'\"\n", 3, "must differ"},
        {"[http]\nport = 1\ncertificate = \"c.pem\"\n", 3, "http.certificate needs http.key as well"},
        {"[http]\nkey = \"k.pem\"\n", 2, "http.key needs http.certificate as well"},
        {"[[screen]]\nname = \"S\"\ndevices = [\"D\", \"R$EVE_Pump\",\n \"E\"]\n[[device]]\nname = \"D\"\n", 4,
         "screen.devices names \"E\", and there is no [[device]] of that name"},
    });
    ExpectRefusedBehind(simulator, "low = 3\nhigh = 2\n", 7,
                        "device.variable.low must not be above device.variable.high");
    ExpectRefusedBehind(simulator, "low = 101\n", 6, "which is 100 by default");
    ExpectRefusedBehind(modbus, "table = \"coil\"\nformat = \"int16\"\n", 6,
                        "format must be \"bool\" with table = \"coil\"");
    ExpectRefusedBehind(modbus, "table = \"input\"\nwritable = true\n", 6,
                        "writable must be false with table = \"input\"");
    ExpectRefusedBehind(modbus, "writable = true\ntable = \"discrete\"\n", 5, "writable must be false");
    ExpectRefusedBehind(modbus, "address = 65535\n", 5,
                        "address must be at most 65534 with format = \"float32\", not 65535");
    ExpectRefusedBehind(modbus, "address = 65533\nformat = \"float64\"\n", 5, "address must be at most 65532");
    ExpectRefused({"[[device]]\nname = \"D\"\ndriver = \"mqtt\"\n[[device.variable]]\nname = \"V\"\n", 4,
                   "device.variable.topic is missing"});
}

TEST(KTSettings, RefusesTextsThatCantWork)
{
    ExpectAllRefused({
        {"[program]\nlanguage = \"\"\n", 2, "program.language must be the name of a language"},
        {"[program]\nlanguage = \"../../etc/passwd\"\n", 2, "program.language"},
        {"[paths]\ncfg = \"\"\n", 2, "paths.cfg must be a path"},
        {"[locale]\ndecimal = \"\"\n", 2, "locale.decimal must be exactly one character"},
        {"[locale]\ndecimal = \"..\"\n", 2, "locale.decimal"},
        {"[locale]\ndecimal = \"5\"\n", 2, "locale.decimal"},
        {"[locale]\ndecimal = \"-\"\n", 2, "locale.decimal"},
        {"[locale]\nthousands = \"e\"\n", 2, "locale.thousands"},
        {"[locale]\nthousands = \"\\n\"\n", 2, "locale.thousands"},
        {"[locale]\nthousands = \"\\U0001F600\"\n", 2, "locale.thousands must be exactly one character"},
        {"[locale]\ndate_separator = \"\"\n", 2, "locale.date_separator must be exactly one character"},
        {"[locale]\ntime_separator = \"h\"\n", 2, "locale.time_separator"},
        {"[http]\nlisten = \"\"\n", 2, "http.listen must be an IP address or \"localhost\", not \"\""},
        {"[http]\nlisten = \"256.0.0.1\"\n", 2, "http.listen"},
        {"[http]\nlisten = \"127.0.0.1:80\"\n", 2, "http.listen"},
        {"[http]\nlisten = \"plant.example\"\n", 2, "http.listen"},
        {"[http]\nnames = [\"http://plant\"]\n", 2, "each entry of http.names must be a host name"},
        {"[http]\nnames = [\"plant:8080\"]\n", 2, "without port"},
        {"[http]\nnames = [\"\"]\n", 2, "each entry of http.names"},
        {"[rss]\nurl = \"http://localhost\"\n", 2, "rss.url must be a host name"},
        {"[rss]\nurl = \"\"\n", 2, "rss.url"},
        {"[smtp]\nserver = \"mail:\"\n", 2, "smtp.server must be empty, \"host\" or \"host:port\""},
        {"[smtp]\nserver = \"mail:0\"\n", 2, "smtp.server"},
        {"[smtp]\nserver = \"mail:65536\"\n", 2, "smtp.server"},
        {"[smtp]\nserver = \"mail:+25\"\n", 2, "smtp.server"},
        {"[smtp]\nserver = \":25\"\n", 2, "smtp.server"},
        {"[smtp]\nfrom = \"a@b\\r\\nBcc: c\"\n", 2, "smtp.from must be a text without line ends"},
        {"[launch]\nallow = [\"\"]\n", 2, "each entry of launch.allow"},
        {"[[device]]\nname = \"D\"\nhost = \"\"\n", 3, "device.host must be a host name or an IP address"},
        {"[[device]]\nname = \"D\"\nhost = \"meter:502\"\n", 3, "device.host"},
    });
    ExpectRefusedBehind(mqtt, "publish = \"a/+/b\"\n", 7,
                        "device.variable.publish must be an MQTT topic without the wildcards");
    ExpectRefusedBehind(mqtt, "pointer = \"p\"\n", 7, "device.variable.pointer must be a JSON pointer");
    ExpectRefusedBehind(mqtt, "pointer = \"/a~2\"\n", 7, "device.variable.pointer");
}

TEST(KTSettings, TellsTheFirstMistakeOfTheFile)
{
    // Keys are checked in another order than they stand, and contradictions after everything else.
    ExpectAllRefused({
        {"[smtp]\nserver = 3\n[http]\nport = -1\n[program]\nname = 3\n", 2, "smtp.server"},
        {"zeta = 1\nalpha = 2\n", 1, "zeta"},
        {"[http]\nport = -1\nlisten = \"x\"\n", 2, "http.port"},
        {"[http]\ncertificate = \"c\"\n[rss]\nitems = -1\n", 2, "http.certificate needs"},
        {"[[device]]\nname = \"A\"\n[[device]]\nname = \"A\"\n[[device]]\nport = -1\n", 4, "given twice"},
        {"[http]\nport = -1\nname = \"\xff\"\n", 3, ""},  // the document can't be read at all
    });
}

TEST(KTSettings, ShowsLongAndStrangeValuesInShort)
{
    KTSettings settings;
    std::string error;
    const std::string text = "[locale]\ndecimal = \"" + std::string(500, 'x') + "\"\n";
    ASSERT_FALSE(settings.Parse(text, "f", error));
    EXPECT_LT(error.size(), 200u);
    EXPECT_NE(error.find("xxx...\""), std::string::npos) << error;
    ASSERT_FALSE(settings.Parse("[locale]\ndecimal = \"\\u001b[31m\\u007f\"\n", "f", error));
    EXPECT_NE(error.find("\"?[31m?\""), std::string::npos) << error;
}
