#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <string>

#include "host/KTText.h"
#include "host/XmlDocument.h"
#include "tools/XmlSamples.h"

namespace
{
using Node = XmlDocument::XmlNode;

const char* const plant =
    "<main>"
    "<events>"
    "<event><id>1</id><name>Pump</name></event>"
    "<event><id>2</id><name>Valve</name><at>first</at></event>"
    "<event><id>3</id><name>Valve</name><at>second</at></event>"
    "<event><id>4</id><name></name><at>empty name</at></event>"
    "<event><id>5</id><at>no name</at></event>"
    "<event><id>6</id><name>and/or?</name><at>signs</at></event>"
    "<event><id>7</id><name>a?b</name><at>question</at></event>"
    "<event><id>8</id><name>x=y</name><at>equals</at></event>"
    "<event><id>9</id><name>caf\xC3\xA9 \xF0\x9F\x98\x80</name><at>wide</at></event>"
    "<other><name>Pump</name><at>other tag</at></other>"
    "<event><name>no</name><name>twice</name><at>two keys</at></event>"
    "</events>"
    "<events><event><id>99</id><name>Hidden</name></event></events>"
    "<calendar><year><year>2024</year><month3><day5>table</day5></month3></year>"
    "<year><year>2025</year></year></calendar>"
    "</main>";

std::string AtOf(const Node* node)
{
    if (node == nullptr) return "null";
    KTNarrowString out;
    Utf16ToUtf8(out, node->Value(L"at", L"(none)"));
    return out.Str();
}

TEST(XmlPath, FollowsStepsAndSelectors)
{
    const struct
    {
        const wchar_t* path;
        const char* at;
    } rows[] = {
        {L"events/event?name=Valve?", "first"},  // the first of several
        {L"/events/event?name=Valve?", "first"},
        {L"events/event?id=3?", "second"},
        {L"events/event?name=?", "empty name"},  // present and empty, not missing
        {L"events/event?name=valve?", "null"},   // exact
        {L"events/event?name=Valv?", "null"},
        {L"events/event?name=Valve ?", "null"},
        {L"events/event?name=Nobody?", "null"},
        {L"events/other?name=Pump?", "other tag"},
        {L"events/event?name=and/or??", "signs"},  // a value may hold a slash and a question mark
        {L"events/event?name=a?b?", "question"},
        {L"events/event?name=x=y?", "equals"},
        {L"events/event?name=caf\u00E9 \xD83D\xDE00?", "wide"},
        {L"events/event?name=no?", "two keys"},
        {L"events/event?name=twice?", "null"},   // a key's first child counts
        {L"events/event?name=Hidden?", "null"},  // only in the first of the two containers
        {L"events/event?missing=1?", "null"},
        {L"events/event?id=2?/at/x", "null"},
        // What makes no sense leads nowhere.
        {L"", "null"},
        {L"/", "null"},
        {L"//events", "null"},
        {L"events//event", "null"},
        {L"events/", "null"},
        {L"events/event?name=Pump", "null"},
        {L"events/event?name?", "null"},
        {L"events/event?=Pump?", "null"},
        {L"events/event?", "null"},
        {L"events/event??", "null"},
        {L"?name=Pump?", "null"},
        {L"Events", "null"},
        {L"main", "null"},  // paths start below the root
    };
    const XmlDocument document = Parsed(plant);
    for (const auto& r : rows)
    {
        KTNarrowString shown;
        Utf16ToUtf8(shown, KTWideString(r.path));
        EXPECT_EQ(AtOf(document.Node(r.path)), r.at) << shown.Str();
        EXPECT_EQ(AtOf(document.Root()->Node(r.path)), r.at) << shown.Str();
    }
    EXPECT_STREQ(document.Root()->Value(L"events/event?id=2?/name", L"").Str(), L"Valve");
}

TEST(XmlPath, FormatsItsPaths)
{
    XmlDocument document = Parsed(plant);
    const Node& root = *document.Root();
    EXPECT_EQ(AtOf(root.NodeV(L"events/event?id=%s?", L"3")), "second");
    EXPECT_EQ(AtOf(root.NodeV(L"/events/event?id=%d?", 9)), "wide");
    const Node* const calendar = root.Node(L"calendar");
    const Node* const year = calendar->NodeV(L"/year?year=%d?", 2024);
    ASSERT_NE(year, nullptr);
    EXPECT_EQ(calendar->NodeV(L"/year?year=%d?", 2023), nullptr);
    const Node* const month = year->NodeV(L"month%d", 3);
    ASSERT_NE(month, nullptr);
    EXPECT_STREQ(month->NodeV(L"/day%d", 5)->Value().Str(), L"table");
    EXPECT_EQ(month->NodeV(L"/day%d", 6), nullptr);

    Node* const days = document.Root()->NewChild(L"days");
    days->NewChild(L"day")->SetValue(L"color", L"000ABC");
    EXPECT_NE(days->NodeV(L"/day?color=%06X?", 0xABC), nullptr);

    const std::wstring longName(5000, L'n');
    days->NewChild(L"day")->SetValue(L"name", longName.c_str());
    EXPECT_NE(days->NodeV(L"/day?name=%s?", longName.c_str()), nullptr);
    EXPECT_EQ(days->NodeV(L"/day?name=%sm?", longName.c_str()), nullptr);
}

TEST(XmlPath, ComparesAKeyHoweverItsTextCame)
{
    XmlDocument document = Parsed("<main><e><k>caf\xC3\xA9</k></e><e><k>\xEF\xBF\xBD</k></e></main>");
    Node& root = *document.Root();
    EXPECT_NE(root.Node(L"e?k=caf\u00E9?"), nullptr);
    (void)root.Node(L"e/k")->Value();  // now it is wide
    EXPECT_NE(root.Node(L"e?k=caf\u00E9?"), nullptr);
    EXPECT_EQ(root.Node(L"e?k=caf?"), nullptr);
    root.Node(L"e")->SetValue(L"k", L"set");
    EXPECT_NE(root.Node(L"e?k=set?"), nullptr);
    const std::wstring alone{L'e', L'?', L'k', L'=', 0xD800, L'?'};
    EXPECT_EQ(root.Node(alone.c_str()), nullptr) << "half a pair isn't the replacement character";
    EXPECT_NE(root.Node(L"e?k=\uFFFD?"), nullptr);
}

// Against looking at every child in turn, in a list that is long enough for whatever speeds a search up, while texts
// and children change in between.
RC_GTEST_PROP(XmlPath, FindsTheFirstMatchWhateverChanged, ())
{
    XmlDocument document;
    document.Create(L"main");
    Node& root = *document.Root();
    const int count = *rc::gen::inRange(0, 300);
    for (int i = 0; i < count; ++i)
    {
        Node* const child = root.NewChild(*rc::gen::arbitrary<bool>() ? L"event" : L"other");
        if (*rc::gen::inRange(0, 5) != 0) child->SetValue(L"id", std::to_wstring(*rc::gen::inRange(0, 40)).c_str());
    }
    for (int step = 0; step < 400; ++step)
    {
        const std::wstring wanted = std::to_wstring(*rc::gen::inRange(0, 45));
        const Node* expected = nullptr;
        for (auto at = root.ChildsBegin(); expected == nullptr && at != root.ChildsEnd(); ++at)
        {
            const Node* const id = static_cast<const Node*>(*at)->Node(L"id");
            if ((*at)->Tag() == L"event" && id != nullptr && id->Value() == wanted.c_str()) expected = *at;
        }
        RC_ASSERT(root.NodeV(L"event?id=%s?", wanted.c_str()) == expected);
        if (expected == nullptr) continue;
        switch (*rc::gen::inRange(0, 12))
        {
            case 0:
                root.RemoveChild(const_cast<Node*>(expected));
                break;
            case 1:
                const_cast<Node*>(expected)->SetValue(L"id", L"changed");
                break;
            case 2:
                root.NewChild(L"event")->SetValue(L"id", wanted.c_str());
                break;
            case 3:
                const_cast<Node*>(expected)->EraseTag(L"id");
                break;
            case 4:
                *root.NewChild(L"x") = *expected;
                break;
            default:
                break;
        }
    }
}
}  // namespace
