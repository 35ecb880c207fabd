#include "suite/tools/XmlReader.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <ctime>
#include <string>

#include "tools/XmlSamples.h"

namespace
{
bool Parses(const std::string& text)
{
    XmlDocument document = Parsed("<before/>");
    const bool good = document.Parse(text.c_str());
    EXPECT_EQ(document.Root() != nullptr, good) << "a document that doesn't parse is empty: " << text.substr(0, 80);
    return good;
}

TEST(XmlReader, RefusesWhatIsNoXml)
{
    for (const char* text : {"",
                             " ",
                             "text",
                             "<",
                             "<a",
                             "<a>",
                             "<a></b>",
                             "<a/><b/>",
                             "<a/>text",
                             "<a></a></a>",
                             "<a b></a>",
                             "<a b='1' b='2'/>",
                             "<a>&unknown;</a>",
                             "<a>&#0;</a>",
                             "<a>&#x1;</a>",
                             "<a>&</a>",
                             "<a>\x01</a>",
                             "<a>\xFF</a>",
                             "<a>\xC0\x80</a>",
                             "<a>\xED\xA0\x80</a>",
                             "<a><![CDATA[</a>",
                             "<a><!-- -- --></a>",
                             "<!-- alone -->",
                             "<?xml version='1.0'?>",
                             " <?xml version='1.0'?><a/>",
                             "<?xml version='1.0' encoding='klingon'?><a/>",
                             "<a>]]></a>",
                             "<1a/>"})
        EXPECT_FALSE(Parses(text)) << text;
}

TEST(XmlReader, PassesOverWhatIsNoElement)
{
    const XmlDocument document = Parsed(
        "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"utf-8\" standalone=\"yes\"?>\r\n<!-- c --><?pi?>"
        "<!DOCTYPE main [<!ELEMENT main ANY><!ATTLIST main x CDATA #IMPLIED>]>"
        "<main x=\"1\"><!-- c --><a b='2'>1</a><?pi data?></main>\n<!-- end -->\n");
    EXPECT_EQ(CodeOf(document), "<main><a>1</a></main>");
}

TEST(XmlReader, KeepsPrefixesInTags)
{
    EXPECT_EQ(CodeOf(Parsed("<x:a xmlns:x='u'><x:b/></x:a>")), "<x:a><x:b/></x:a>");
    EXPECT_EQ(CodeOf(Parsed("<\xC3\xA9t\xC3\xA9>1</\xC3\xA9t\xC3\xA9>")), "<\xC3\xA9t\xC3\xA9>1</\xC3\xA9t\xC3\xA9>");
}

bool Reads(const std::string& bytes, std::string& code)
{
    kt::XmlStore store;
    kt::XmlReader reader(store);
    if (!reader.Read(bytes.data(), bytes.size())) return false;
    code = CodeOf(*reader.Root());
    return true;
}

TEST(XmlReader, ReadsTheEncodingsThatDocumentsSayTheyHave)
{
    std::string utf16le = "\xFF\xFE";
    std::string utf16be = "\xFE\xFF";
    for (const char16_t unit : std::u16string(u"<a>\u00E9\u20AC\U0001F600</a>"))
    {
        utf16le += {static_cast<char>(unit & 0xFF), static_cast<char>(unit >> 8)};
        utf16be += {static_cast<char>(unit >> 8), static_cast<char>(unit & 0xFF)};
    }
    const struct
    {
        std::string bytes;
        const char* code;
    } rows[] = {
        {utf16le, "<a>\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80</a>"},
        {utf16be, "<a>\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80</a>"},
        {"<?xml version='1.0' encoding='ISO-8859-1'?><a>\xE9</a>", "<a>\xC3\xA9</a>"},
        {"<?xml version='1.0' encoding='US-ASCII'?><a>e</a>", "<a>e</a>"},
        {"<?xml version='1.0' encoding='UTF-8'?><a>\xC3\xA9</a>", "<a>\xC3\xA9</a>"},
    };
    for (const auto& r : rows)
    {
        std::string code;
        ASSERT_TRUE(Reads(r.bytes, code)) << r.code;
        EXPECT_EQ(code, r.code);
    }
    std::string code;
    EXPECT_FALSE(Reads("<?xml version='1.0' encoding='US-ASCII'?><a>\xE9</a>", code));
}

TEST(XmlReader, ANulIsAnError)
{
    std::string code;
    EXPECT_FALSE(Reads(std::string("<a>\0</a>", 8), code));
    EXPECT_FALSE(Reads(std::string("<a></a>\0", 8), code));
    EXPECT_FALSE(Reads(std::string("\0<a></a>", 8), code));
    EXPECT_FALSE(Reads(std::string("<a\0></a>", 8), code));
}

TEST(XmlReader, InnerEntitiesAreHarmless)
{
    EXPECT_EQ(CodeOf(Parsed("<!DOCTYPE a [<!ENTITY firm 'Plant &#38;#38; Co'>]><a>&firm;!</a>")),
              "<a>Plant &amp; Co!</a>");
    EXPECT_EQ(CodeOf(Parsed("<!DOCTYPE a [<!ENTITY e '<b>1</b>'>]><a>&e;</a>")), "<a><b>1</b></a>");
    EXPECT_FALSE(Parses("<!DOCTYPE a [<!ENTITY x '&y;'><!ENTITY y '&x;'>]><a>&x;</a>")) << "a circle";
}

TEST(XmlReader, RefusesOuterEntities)
{
    EXPECT_FALSE(Parses("<!DOCTYPE a [<!ENTITY e SYSTEM 'file:///etc/passwd'>]><a>&e;</a>"));
    EXPECT_FALSE(Parses("<!DOCTYPE a SYSTEM 'missing.dtd'><a>&e;</a>"));
    EXPECT_FALSE(Parses("<!DOCTYPE a [<!ENTITY % p SYSTEM 'missing.dtd'>%p;]><a>&e;</a>"));
    EXPECT_TRUE(Parses("<!DOCTYPE a SYSTEM 'missing.dtd'><a/>")) << "named, but nothing of it is needed";
}

TEST(XmlReader, RefusesEntitiesThatMultiply)
{
    std::string text = "<!DOCTYPE a [<!ENTITY e0 '0123456789'>";
    for (int i = 1; i <= 12; ++i)
    {
        std::string references;
        for (int r = 0; r < 10; ++r) references += "&e" + std::to_string(i - 1) + ";";
        text += "<!ENTITY e" + std::to_string(i) + " '" + references + "'>";
    }
    EXPECT_FALSE(Parses(text + "]><a>&e12;</a>"));
}

// Each entity that names another takes a piece of the parser's stack.
TEST(XmlReader, RefusesALongChainOfEntities)
{
    std::string text = "<!DOCTYPE a [<!ENTITY e0 'x'>";
    for (int i = 1; i <= 100'000; ++i)
        text += "<!ENTITY e" + std::to_string(i) + " '&e" + std::to_string(i - 1) + ";'>";
    EXPECT_FALSE(Parses(text + "]><a>&e100000;</a>"));
    EXPECT_FALSE(Parses(text + "]><a b='&e100000;'/>"));
}

TEST(XmlReader, ATruncatedDocumentIsNone)
{
    const std::string whole = "<?xml version='1.0'?><main><!-- c --><a x='1'>\xC3\xA9&amp;</a><![CDATA[d]]></main>";
    ASSERT_TRUE(Parses(whole));
    for (std::size_t length = 0; length < whole.size(); ++length)
        EXPECT_FALSE(Parses(whole.substr(0, length))) << length;
}

TEST(XmlReader, LongPiecesTakeLinearTime)
{
    const struct
    {
        const char* before;
        const char* after;
    } rows[] = {
        {"<a><!--", "--></a>"}, {"<a b='", "'/>"}, {"<a><?p ", "?></a>"}, {"<a><![CDATA[", "]]></a>"}, {"<a>", "</a>"}};
    for (const auto& r : rows)
    {
        const auto timeOf = [&r](std::size_t size)
        {
            const std::string text = r.before + std::string(size, 'x') + r.after;
            std::FILE* const file = std::tmpfile();
            std::fwrite(text.data(), 1, text.size(), file);
            std::fflush(file);
            std::rewind(file);
            const std::clock_t begin = std::clock();  // of the processor, so that other programs play no part
            kt::XmlStore store;
            kt::XmlReader reader(store);
            EXPECT_TRUE(reader.ReadFile(fileno(file))) << r.before;
            std::fclose(file);
            return static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
        };
        const double small = timeOf(4'000'000);
        const double large = timeOf(32'000'000);
        // 8 times the size; 64 times the time if it grew with the square.
        EXPECT_LT(large, 0.2 + small * 24) << r.before;
    }
}

RC_GTEST_PROP(XmlReader, AnyBytesGiveAResult, (const std::string& bytes))
{
    std::string code;
    if (Reads(bytes, code)) RC_ASSERT(!code.empty());
}

// A good document with bytes changed at random: it parses or it doesn't, and what parses can be written and read again.
RC_GTEST_PROP(XmlReader, AChangedByteGivesAResult, ())
{
    std::string text =
        "<?xml version='1.0'?><!DOCTYPE m [<!ENTITY e 'v'>]><main><events><event><id>{6F9619FF}</id>"
        "<name>caf\xC3\xA9 &amp; &e;</name></event></events></main>";
    const int changes = *rc::gen::inRange(1, 6);
    for (int i = 0; i < changes; ++i)
        text[*rc::gen::inRange<std::size_t>(0, text.size())] = *rc::gen::arbitrary<char>();
    std::string code;
    if (!Reads(text, code)) return;
    std::string again;
    RC_ASSERT(Reads(code, again));
    RC_ASSERT(again == code);
}
}  // namespace
