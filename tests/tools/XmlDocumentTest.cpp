#include "host/XmlDocument.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "tools/XmlSamples.h"

namespace
{
using Node = XmlDocument::XmlNode;

TEST(XmlDocument, StartsWithoutARoot)
{
    const XmlDocument document;
    EXPECT_EQ(document.Root(), nullptr);
    EXPECT_EQ(document.Node(L"events"), nullptr);
    EXPECT_EQ(CodeOf(document), "");
    XmlDocument copy(document);
    EXPECT_EQ(copy.Root(), nullptr);
    EXPECT_FALSE(copy.Save());
}

TEST(XmlDocument, CreateMakesARootAndDiscardsTheRest)
{
    XmlDocument document = Parsed("<old><a>1</a></old>");
    document.Create(L"main");
    ASSERT_NE(document.Root(), nullptr);
    EXPECT_STREQ(document.Root()->Tag().Str(), L"main");
    EXPECT_EQ(document.Root()->Size(), 0);
    EXPECT_STREQ(document.Root()->Value().Str(), L"");
    document.Create(document.Root()->Tag().Str());  // a text that goes with the old content
    EXPECT_EQ(CodeOf(document), "<main/>");
}

TEST(XmlDocument, ATextWithoutChildrenIsKeptExactly)
{
    const struct
    {
        const char* xml;
        const wchar_t* text;
    } rows[] = {
        {"<a>x</a>", L"x"},
        {"<a> x </a>", L" x "},
        {"<a>  </a>", L"  "},
        {"<a>\n</a>", L"\n"},
        {"<a>\r\n\t</a>", L"\n\t"},  // XML reads every line end as LF
        {"<a>&#13;</a>", L"\r"},
        {"<a>&lt;b&gt; &amp; &quot;&apos;</a>", L"<b> & \"'"},
        {"<a><![CDATA[<b>&amp;]]></a>", L"<b>&amp;"},
        {"<a>1<!-- two -->3<?four five?>6</a>", L"136"},
        {"<a/>", L""},
        {"<a></a>", L""},
        {"<a>\xC3\xA9\xE2\x82\xAC</a>", L"\u00E9\u20AC"},
    };
    for (const auto& r : rows) EXPECT_STREQ(Parsed(r.xml).Root()->Value().Str(), r.text) << r.xml;
    const XmlDocument face = Parsed("<a>\xF0\x9F\x98\x80</a>");
    ASSERT_EQ(face.Root()->Value().Length(), 2);
    EXPECT_EQ(face.Root()->Value().Str()[0], 0xD83D);
    EXPECT_EQ(face.Root()->Value().Str()[1], 0xDE00);
}

TEST(XmlDocument, WithChildrenATextOfWhiteSpaceIsNone)
{
    const struct
    {
        const char* xml;
        const wchar_t* text;
    } rows[] = {
        {"<a>\n  <b/>\n</a>", L""},
        {"<a> <b/></a>", L""},
        {"<a><b/> </a>", L""},
        {"<a> x <b/> y </a>", L" x  y "},
        {"<a>\xC2\xA0<b/></a>", L"\u00A0"},  // no white space of XML
        {"<a>&#32;<b/></a>", L""},
    };
    for (const auto& r : rows) EXPECT_STREQ(Parsed(r.xml).Root()->Value().Str(), r.text) << r.xml;
}

TEST(XmlDocument, ValueTellsAMissingNodeFromAnEmptyOne)
{
    const XmlDocument document = Parsed("<event><name></name><id/><delay>5</delay><sub><x>deep</x></sub></event>");
    const Node& event = *document.Root();
    EXPECT_STREQ(event.Value(L"name", L"default").Str(), L"");
    EXPECT_STREQ(event.Value(L"id", L"default").Str(), L"");
    EXPECT_STREQ(event.Value(L"missing", L"default").Str(), L"default");
    EXPECT_STREQ(event.Value(L"delay", L"default").Str(), L"5");
    EXPECT_STREQ(event.Value(L"/sub/x", L"default").Str(), L"deep");
    const KTWideString kept = event.Value(L"delay", L"");
    EXPECT_FALSE(kept.Borrowed()) << "it must outlive the document";
}

TEST(XmlDocument, SetValueChangesTextsAndMakesMissingChildren)
{
    XmlDocument document;
    document.Create(L"main");
    Node& root = *document.Root();
    root.SetValue(L"name", L"Pump");
    root.SetValue(L"name", L"Valve");
    root.SetValue(L"empty", L"");
    root.SetValue(L"own text");
    EXPECT_EQ(root.Size(), 2);
    EXPECT_EQ(CodeOf(document), "<main>own text<name>Valve</name><empty/></main>");
    root.SetValue(root.Value().Str() + 4);  // from its own text
    EXPECT_STREQ(root.Value().Str(), L"text");
    root.SetValue(L"");
    EXPECT_STREQ(root.Value().Str(), L"");
    root.SetValue(L"a/b", L"a tag, not a path");
    EXPECT_EQ(root.Size(), 3);
}

TEST(XmlDocument, KeepsWideTextAsItWasSet)
{
    XmlDocument document;
    document.Create(L"main");
    const std::wstring strange{0xD800, L'x', 0x1F600, 1, 0xFFFE};
    document.Root()->SetValue(strange.c_str());
    EXPECT_EQ(std::wstring(document.Root()->Value().Str()), strange);
    const XmlDocument copy(document);
    EXPECT_EQ(std::wstring(copy.Root()->Value().Str()), strange);
    EXPECT_EQ(CodeOf(document), "<main>\xEF\xBF\xBDx\xF0\x9F\x98\x80\xEF\xBF\xBD</main>")
        << "what XML can't hold goes when it is written";
}

TEST(XmlDocument, NewChildAppendsAlsoWhereOneOfThatTagStands)
{
    XmlDocument document = Parsed("<main><event>1</event></main>");
    Node* const second = document.Root()->NewChild(L"event");
    second->SetValue(L"2");
    EXPECT_EQ(CodeOf(document), "<main><event>1</event><event>2</event></main>");
    EXPECT_STREQ(document.Root()->Value(L"event", L"").Str(), L"1");
}

TEST(XmlDocument, RemovesChildrenWithAllBelow)
{
    XmlDocument document = Parsed("<main><a>1</a><b><c><d/></c></b><a>2</a></main>");
    Node& root = *document.Root();
    root.RemoveChild(root.Node(L"b"));
    EXPECT_EQ(CodeOf(document), "<main><a>1</a><a>2</a></main>");
    EXPECT_TRUE(root.EraseTag(L"a"));
    EXPECT_EQ(CodeOf(document), "<main><a>2</a></main>") << "the first of them";
    EXPECT_TRUE(root.EraseTag(L"a"));
    EXPECT_FALSE(root.EraseTag(L"a"));
    EXPECT_FALSE(root.EraseTag(L"main"));
    root.RemoveChild(&root);
    root.RemoveChild(nullptr);
    EXPECT_EQ(CodeOf(document), "<main/>");
}

TEST(XmlDocument, ResetKeepsOnlyTheTag)
{
    XmlDocument document = Parsed("<main>text<a><b/></a></main>");
    document.Root()->Reset();
    EXPECT_EQ(CodeOf(document), "<main/>");
    document.Root()->Reset();
    document.Root()->SetValue(L"a", L"1");
    EXPECT_EQ(CodeOf(document), "<main><a>1</a></main>");
}

TEST(XmlDocument, WalksChildrenInDocumentOrder)
{
    XmlDocument document = Parsed("<main><a/>x<b/><a/><c/></main>");
    std::wstring order;
    const XmlDocument& constant = document;
    for (auto at = constant.Root()->ChildsBegin(); at != constant.Root()->ChildsEnd(); ++at)
        order += (*at)->Tag().Str();
    EXPECT_EQ(order, L"abac");
    std::wstring backward;
    for (auto at = document.Root()->ChildsEnd(); at != document.Root()->ChildsBegin();)
        backward += (*--at)->Tag().Str();
    EXPECT_EQ(backward, L"caba");
    EXPECT_EQ(document.Root()->Size(), 4);
    const Node* const leaf = constant.Root()->Node(L"a");
    EXPECT_TRUE(leaf->ChildsBegin() == leaf->ChildsEnd());
}

TEST(XmlDocument, AnEndTakenFromALeafIsStillTheEndAfterAChildHasCome)
{
    XmlDocument document;
    document.Create(L"main");
    Node& root = *document.Root();
    const auto end = root.ChildsEnd();
    root.NewChild(L"a");
    root.NewChild(L"b");
    int count = 0;
    for (auto at = root.ChildsBegin(); at != end; ++at) ++count;
    EXPECT_EQ(count, 2);
}

TEST(XmlDocument, NodesStayWhereTheyAreWhileOthersComeAndGo)
{
    XmlDocument document;
    document.Create(L"channel");
    Node& root = *document.Root();
    Node* const title = root.NewChild(L"title");
    title->SetValue(L"Events");
    for (int round = 0; round < 10'000; ++round)
    {
        Node* const item = root.NewChild(L"item");
        item->SetValue(
            L"title",
            (L"Item " + std::to_wstring(round) + std::wstring(static_cast<std::size_t>(round % 400), L'x')).c_str());
        if (root.Size() > 21) root.RemoveChild(root.Node(L"item"));
    }
    EXPECT_EQ(root.Node(L"title"), title);
    EXPECT_STREQ(title->Value().Str(), L"Events");
    EXPECT_EQ(root.Size(), 21);
    EXPECT_EQ(root.Value(L"item/title", L"").Str(), std::wstring(L"Item 9980") + std::wstring(380, L'x'));
}

TEST(XmlDocument, CopiesAreDeepAndIndependent)
{
    XmlDocument original = Parsed("<main>t<a><b>1</b></a></main>");
    XmlDocument copy(original);
    XmlDocument assigned;
    assigned.Create(L"old");
    assigned = original;
    const XmlDocument part(*original.Node(L"a"));
    original.Node(L"a/b")->SetValue(L"2");
    original.Root()->NewChild(L"c");
    EXPECT_EQ(CodeOf(copy), "<main>t<a><b>1</b></a></main>");
    EXPECT_EQ(CodeOf(assigned), "<main>t<a><b>1</b></a></main>");
    EXPECT_EQ(CodeOf(part), "<a><b>1</b></a>");
    copy.Root()->NewChild(L"d");
    EXPECT_EQ(CodeOf(original), "<main>t<a><b>2</b></a><c/></main>");
    assigned = XmlDocument();
    EXPECT_EQ(assigned.Root(), nullptr);
}

TEST(XmlDocument, ACopyOutlivesItsOriginal)
{
    auto original = std::make_unique<XmlDocument>(Parsed("<main><a>text</a></main>"));
    XmlDocument other = Parsed("<x/>");
    *other.Root() = *original->Node(L"a");
    const XmlDocument copy(*original);
    original.reset();
    EXPECT_EQ(CodeOf(copy), "<main><a>text</a></main>");
    EXPECT_EQ(CodeOf(other), "<a>text</a>");
}

TEST(XmlDocument, AssignmentWithinOneTreeIsSafe)
{
    const char* const code = "<main>m<a>x<b>y<c>z</c></b></a><d/></main>";
    XmlDocument document = Parsed(code);
    const XmlDocument& itself = document;
    document = itself;
    EXPECT_EQ(CodeOf(document), code);

    Node* const a = document.Node(L"a");
    Node& self = *a;
    *a = self;
    EXPECT_EQ(CodeOf(document), code);

    *document.Root() = *document.Node(L"a/b");  // its own descendant
    EXPECT_EQ(CodeOf(document), "<b>y<c>z</c></b>");

    document = Parsed(code);
    *document.Node(L"a/b") = *document.Root();  // its own ancestor
    EXPECT_EQ(CodeOf(document), "<main>m<a>x<main>m<a>x<b>y<c>z</c></b></a><d/></main></a><d/></main>");

    document = Parsed(code);
    *document.Node(L"d") = *document.Node(L"a");  // a sibling
    EXPECT_EQ(CodeOf(document), "<main>m<a>x<b>y<c>z</c></b></a><a>x<b>y<c>z</c></b></a></main>");

    document = Parsed(code);
    document = XmlDocument(*document.Node(L"a"));
    EXPECT_EQ(CodeOf(document), "<a>x<b>y<c>z</c></b></a>");
}

TEST(XmlDocument, WritesTextThatReadsBackTheSame)
{
    XmlDocument document;
    document.Create(L"main");
    document.Root()->SetValue(L"a", L" <&>\"'\t\r\n]]> ");
    EXPECT_EQ(CodeOf(document), "<main><a> &lt;&amp;&gt;\"'\t&#13;\n]]&gt; </a></main>");
    EXPECT_STREQ(Parsed(CodeOf(document)).Root()->Value(L"a", L"").Str(), L" <&>\"'\t\r\n]]> ");
    KTNarrowString declared;
    document.CreateXmlCode(declared, true);
    EXPECT_EQ(std::string(declared.Str()), R"(<?xml version="1.0" encoding="UTF-8"?>)" + CodeOf(document));
}

// What is read back must be written the same again: such a text would be layout to the reader.
TEST(XmlDocument, DoesNotWriteATextOfWhiteSpaceBesideChildren)
{
    XmlDocument document = Parsed("<main><a> </a></main>");
    document.Root()->SetValue(L" \t\r\n");
    document.Node(L"a")->SetValue(L"b", L"1");
    EXPECT_EQ(CodeOf(document), "<main><a><b>1</b></a></main>");
    document.Node(L"a")->EraseTag(L"b");
    EXPECT_EQ(CodeOf(document), "<main><a> </a></main>") << "it is still there";
    document.Root()->SetValue(L" .");
    EXPECT_EQ(CodeOf(document), "<main> .<a> </a></main>");
}

TEST(XmlDocument, WritesANodeToAStream)
{
    const XmlDocument document = Parsed("<main><a>caf\xC3\xA9<b/></a></main>");
    std::FILE* const stream = std::tmpfile();
    ASSERT_NE(stream, nullptr);
    std::fputs("[", stream);
    document.Node(L"a")->SaveXmlCode(stream);
    std::fputs("]", stream);
    std::rewind(stream);
    char text[64] = {};
    const std::size_t length = std::fread(text, 1, sizeof text, stream);
    std::fclose(stream);
    EXPECT_EQ(std::string(text, length), "[<a>caf\xC3\xA9<b/></a>]");
}

TEST(XmlDocument, SurvivesAMillionLevels)
{
    constexpr int depth = 1'000'000;
    const std::string deep = Nested(depth);
    XmlDocument document;
    ASSERT_TRUE(document.Parse(deep.c_str()));
    const XmlDocument copy(document);
    KTNarrowString code;
    copy.CreateXmlCode(code, false);
    // The innermost one is written as <a/>.
    EXPECT_EQ(code.Length(), static_cast<int>(deep.size()) - 3);
    document = copy;
    *document.Root() = *document.Node(L"a/a/a");
    document.Root()->RemoveChild(document.Node(L"a"));
    EXPECT_EQ(CodeOf(document), "<a/>");
    document = copy;
    document.Root()->Reset();
    EXPECT_EQ(CodeOf(document), "<a/>");
}

TEST(XmlDocument, ManyChildrenCostNoMoreThanTheyAre)
{
    XmlDocument document;
    document.Create(L"events");
    for (int i = 0; i < 200'000; ++i) document.Root()->NewChild(L"event")->SetValue(L"id", L"x");
    EXPECT_EQ(document.Root()->Size(), 200'000);
    for (int i = 0; i < 200'000; ++i) document.Root()->EraseTag(L"event");
    EXPECT_EQ(CodeOf(document), "<events/>");
}

// Readers share a document that nobody changes, also where a text is wanted by reference for the first time.
TEST(XmlDocument, ThreadsReadTogether)
{
    std::string text = "<main>";
    for (int i = 0; i < 500; ++i) text += "<e><id>" + std::to_string(i) + "</id></e>";
    const XmlDocument document = Parsed(text + "</main>");
    std::vector<std::thread> readers;
    for (int t = 0; t < 4; ++t)
        readers.emplace_back(
            [&document]
            {
                int expected = 0;
                for (auto at = document.Root()->ChildsBegin(); at != document.Root()->ChildsEnd(); ++at, ++expected)
                {
                    const std::wstring number = std::to_wstring(expected);
                    EXPECT_EQ((*at)->Node(L"id")->Value().Str(), number);
                    EXPECT_EQ((*at)->Value(L"id", L"").Str(), number);
                    EXPECT_EQ(document.Root()->NodeV(L"e?id=%s?", number.c_str()), *at);
                }
            });
    for (auto& reader : readers) reader.join();
}

// A tree as a generator makes it, beside the code that it must have.
struct Made
{
    std::wstring tag;
    std::wstring text;
    std::vector<Made> children;
};

rc::Gen<std::wstring> SomeText()
{
    return rc::gen::container<std::wstring>(
        rc::gen::oneOf(rc::gen::element(L'<', L'&', L'>', L'"', L'\'', L'\r', L'\n', L'\t', L' ', L']'),
                       rc::gen::inRange<wchar_t>(0x20, 0x7F), rc::gen::inRange<wchar_t>(0xA0, 0xD800),
                       rc::gen::inRange<wchar_t>(0xE000, 0xFFFE)));
}

rc::Gen<Made> SomeTree(int levels)
{
    return rc::gen::exec(
        [levels]
        {
            Made made;
            made.tag = *rc::gen::element<std::wstring>(L"event", L"a", L"\u00E9v\u00E9nement", L"_x-1.2");
            made.text = *SomeText();
            if (levels > 0)
                made.children = *rc::gen::resize(4, rc::gen::container<std::vector<Made>>(SomeTree(levels - 1)));
            const bool blank = made.text.find_first_not_of(L" \t\r\n") == std::wstring::npos;
            if (blank && !made.children.empty()) made.text.clear();
            return made;
        });
}

void Build(Node& node, const Made& made)
{
    node.SetValue(made.text.c_str());
    for (const Made& child : made.children) Build(*node.NewChild(child.tag.c_str()), child);
}

void ExpectSame(const Node& node, const Made& made)
{
    RC_ASSERT(std::wstring(node.Tag().Str()) == made.tag);
    RC_ASSERT(std::wstring(node.Value().Str()) == made.text);
    RC_ASSERT(static_cast<std::size_t>(node.Size()) == made.children.size());
    auto at = node.ChildsBegin();
    for (const Made& child : made.children) ExpectSame(**at++, child);
}

RC_GTEST_PROP(XmlDocument, WhatIsWrittenParsesToTheSameTree, ())
{
    const Made made = *SomeTree(3);
    XmlDocument document;
    document.Create(made.tag.c_str());
    Build(*document.Root(), made);
    XmlDocument back;
    RC_ASSERT(back.Parse(CodeOf(document).c_str()));
    ExpectSame(*back.Root(), made);
    RC_ASSERT(CodeOf(back) == CodeOf(document));
    const XmlDocument copy(back);
    ExpectSame(*copy.Root(), made);
}
}  // namespace
