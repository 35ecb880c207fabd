#include "suite/http/KTHttpText.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstdio>

TEST(KTHttpText, UndoesEscapesAndRefusesBrokenOnes)
{
    const struct
    {
        const char* text;
        bool plus;
        bool good;
        const char* decoded;
    } rows[] = {
        {"", false, true, ""},         {"/a b", false, true, "/a b"}, {"%41%7a", false, true, "Az"},
        {"a+b", false, true, "a+b"},   {"a+b", true, true, "a b"},    {"%C3%A1", false, true, "\xC3\xA1"},
        {"%2e%2E", false, true, ".."}, {"%", false, false, ""},       {"%4", false, false, ""},
        {"%zz", false, false, ""},     {"a%4gb", false, false, ""},   {"%00", false, false, ""},
        {"%2500", false, true, "%00"},
    };
    for (const auto& r : rows)
    {
        std::string out;
        EXPECT_EQ(PercentDecode(r.text, r.plus, out), r.good) << r.text;
        EXPECT_EQ(r.good ? out : "", r.decoded) << r.text;
    }
}

namespace
{
std::string Escape(const std::string& text)
{
    std::string out;
    for (const char c : text)
    {
        char escape[4];
        (void)std::snprintf(escape, sizeof escape, "%%%02X", static_cast<unsigned>(static_cast<unsigned char>(c)));
        out += escape;
    }
    return out;
}
}  // namespace

RC_GTEST_PROP(KTHttpText, DecodesWhateverWasEncoded, (const std::vector<std::pair<std::string, std::string>>& pairs))
{
    std::string form;
    for (const auto& [name, value] : pairs)
    {
        RC_PRE(name.find('\0') == name.npos && value.find('\0') == value.npos);
        form += (form.empty() ? "" : "&") + Escape(name) + '=' + Escape(value);
    }
    KTHttpPairs decoded;
    RC_ASSERT(ParseForm(form, decoded));
    RC_ASSERT(decoded == pairs);
}

RC_GTEST_PROP(KTHttpText, ReadsAnyBytesWithoutHarm, (const std::string& text))
{
    std::string out;
    std::string other;
    KTHttpPairs pairs;
    int port = 0;
    if (PercentDecode(text, true, out)) RC_ASSERT(out.size() <= text.size());
    (void)ParseForm(text, pairs);
    (void)FindCookie(text, "session");
    (void)ParseBasic("Basic " + text, out, other);
    if (SplitAuthority(text, out, port)) RC_ASSERT(!out.empty());
    (void)CanonicalAddress(text);
}

TEST(KTHttpText, ReadsForms)
{
    KTHttpPairs pairs;
    ASSERT_TRUE(ParseForm("name=ana&password=a%26b%3Dc+d&&empty=&alone&name=second", pairs));
    const KTHttpPairs expected = {
        {"name", "ana"}, {"password", "a&b=c d"}, {"empty", ""}, {"alone", ""}, {"name", "second"}};
    EXPECT_EQ(pairs, expected);
    EXPECT_EQ(*FindPair(pairs, "name"), "ana");
    EXPECT_EQ(FindPair(pairs, "nobody"), nullptr);
    EXPECT_FALSE(ParseForm("name=%0", pairs));
    EXPECT_TRUE(ParseForm("", pairs));
    EXPECT_TRUE(pairs.empty());
}

TEST(KTHttpText, FindsOneCookieAmongOthers)
{
    const struct
    {
        const char* header;
        const char* value;
    } rows[] = {
        {"session=1", "1"},
        {"a=0; session=2; b=3", "2"},
        {"xsession=9;session=4", "4"},
        {"sessions=5", ""},
        {"session", ""},
        {"", ""},
        {";;=;session= 6 ", "6"},
        {"session=", ""},
    };
    for (const auto& r : rows) EXPECT_EQ(FindCookie(r.header, "session"), r.value) << r.header;
}

TEST(KTHttpText, ReadsBasicCredentials)
{
    const struct
    {
        const char* header;
        bool good;
        const char* name;
        const char* password;
    } rows[] = {
        {"Basic YW5hOmFuYS1wdw==", true, "ana", "ana-pw"},
        {"basic   YW5hOmFuYS1wdw==", true, "ana", "ana-pw"},
        {"Basic YTpiOmM=", true, "a", "b:c"},  // only the first colon parts
        {"Basic Og==", true, "", ""},
        {"Basic YW5h", false, "", ""},  // no colon
        {"Basic !!!!", false, "", ""},
        {"Basic YW5hOmFuYS1wdw=", false, "", ""},
        {"Basic YW=hOmFuYS1wdw==", false, "", ""},
        {"Basic ====", false, "", ""},
        {"Basic", false, "", ""},
        {"Basic ", false, "", ""},
        {"Bearer YW5hOmFuYS1wdw==", false, "", ""},
    };
    for (const auto& r : rows)
    {
        std::string name;
        std::string password;
        ASSERT_EQ(ParseBasic(r.header, name, password), r.good) << r.header;
        if (!r.good) continue;
        EXPECT_EQ(name, r.name) << r.header;
        EXPECT_EQ(password, r.password) << r.header;
    }
}

TEST(KTHttpText, SplitsHostAndPort)
{
    const struct
    {
        const char* text;
        bool good;
        const char* host;
        int port;
    } rows[] = {
        {"plant", true, "plant", 0},   {"plant:8080", true, "plant", 8080},
        {"plant:", true, "plant", 0},  {"[::1]", true, "::1", 0},
        {"[::1]:80", true, "::1", 80}, {"[::1", false, "", 0},
        {"[plant]", false, "", 0},     {"[::1]x", false, "", 0},
        {"plant:0", false, "", 0},     {"plant:65536", false, "", 0},
        {"plant:8o", false, "", 0},    {"", false, "", 0},
        {":80", false, "", 0},         {"::1", false, "", 0},
        {"plant:-1", false, "", 0},
    };
    for (const auto& r : rows)
    {
        std::string host;
        int port = -1;
        ASSERT_EQ(SplitAuthority(r.text, host, port), r.good) << r.text;
        if (!r.good) continue;
        EXPECT_EQ(host, r.host) << r.text;
        EXPECT_EQ(port, r.port) << r.text;
    }
}

TEST(KTHttpText, WritesAnAddressInOneWay)
{
    const struct
    {
        const char* text;
        const char* canonical;
    } rows[] = {
        {"127.0.0.1", "127.0.0.1"}, {"::ffff:127.0.0.1", "127.0.0.1"},
        {"0:0::0001", "::1"},       {"FE80::A", "fe80::a"},
        {"localhost", ""},          {"127.1", ""},
    };
    for (const auto& r : rows) EXPECT_EQ(CanonicalAddress(r.text), r.canonical) << r.text;
    EXPECT_TRUE(IsLoopback("127.8.9.1"));
    EXPECT_TRUE(IsLoopback("::1"));
    EXPECT_FALSE(IsLoopback("10.0.0.127"));
}
