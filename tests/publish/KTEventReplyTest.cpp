#include "publish/KTEventReply.h"

#include <gtest/gtest.h>

#include "support/TestResponse.h"
#include "support/TestText.h"

TEST(KTEventReply, OpensWithTheXmlLineAsAPieceOfItsOwn)
{
    TestResponse response;
    KTEventReply::Open(response, "activedEvents");
    EXPECT_EQ(
        response.pieces,
        (std::vector<std::string>{"<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>", "<activedEvents>"}));
    EXPECT_EQ(response.starts + response.finishes, 0);
}

TEST(KTEventReply, ClosesTheRoot)
{
    TestResponse response;
    KTEventReply::Close(response, "activedEvents");
    EXPECT_EQ(response.Text(), "</activedEvents>");
}

TEST(KTEventReply, AppendsAnEventBehindWhatIsThere)
{
    KTNarrowString out("<event>", true);
    KTEventReply::AppendEvent(out, TestId(1), Wide("a<b"), Wide("\xC3\xA9&"), KTNarrowString("&lt;raw> stays"));
    EXPECT_EQ(out, ("<event><id>" + Text(TestId(1)) +
                    "</id><name>a&lt;b</name><description>\xC3\xA9&amp;</description>"
                    "<annotation>&lt;raw> stays</annotation>")
                       .c_str());
}

TEST(KTEventReply, AppendsADateWithoutSeparators)
{
    KTNarrowString out;
    KTEventReply::AppendDate(out, "ackDateTime", Date(2024, 1, 2, 3, 4, 5));
    KTEventReply::AppendDate(out, "dateTime", KTDateTime(1999, 12, 31, 23, 59, 59, 999, 999));
    EXPECT_EQ(out, "<ackDateTime>02012024030405</ackDateTime><dateTime>31121999235959</dateTime>");
}

TEST(KTEventReply, EscapesAndDropsWhatXmlCannotHold)
{
    const struct
    {
        KTWideString text;
        const char* escaped;
    } rows[] = {
        {KTWideString(), ""},
        {KTWideString(L"plain"), "plain"},
        {KTWideString(L"<>&\"'"), "&lt;&gt;&amp;&quot;&apos;"},
        {KTWideString(L"a\x0001\tb\n"), "a\tb\n"},
        {KTWideString(L"\x20AC"), "\xE2\x82\xAC"},
        {KTWideString(L"\xD83D\xDE00"), "\xF0\x9F\x98\x80"},
        {KTWideString(L"\xD83D!"), "\xEF\xBF\xBD!"},
    };
    for (const auto& row : rows)
    {
        KTNarrowString out("before", true);
        KTEventReply::Escape(out, row.text);
        EXPECT_EQ(out, row.escaped);
    }
}
