#include "publish/KTEventLogReply.h"

#include <gtest/gtest.h>

#include <string>

#include "support/TestResponse.h"
#include "support/TestText.h"

namespace
{
std::string Written(const std::string& annotation, const KTDateTime& time, std::uint32_t ackDelay,
                    std::uint32_t disabledDelay)
{
    TestResponse response;
    const GUID recordId = TestId(0xABC);
    const GUID eventId = TestId(2);
    const KTNarrowString text(annotation.c_str());
    KTEventLogReply::Write(response, {recordId, eventId, text, time, ackDelay, disabledDelay});
    EXPECT_EQ(response.starts + response.finishes, 0);
    return response.Text();
}

const std::string head =
    "<record><id>{00000ABC-0000-0000-0000-000000000001}</id><eventId>"
    "{00000002-0000-0000-0000-000000000001}</eventId>";
constexpr std::uint32_t none = 0xFFFFFFFF;
}  // namespace

TEST(KTEventLogReply, WritesWhatIsKnown)
{
    const KTDateTime time = Date(2024, 3, 5, 7, 8, 9);
    const struct
    {
        const char* annotation;
        std::uint32_t ack;
        std::uint32_t disabled;
        const char* text;
    } rows[] = {
        {"", none, none, "<dateTime>05032024070809</dateTime></record>"},
        {"P &lt; 3", none, none, "<annotation>P &lt; 3</annotation><dateTime>05032024070809</dateTime></record>"},
        {"", 12, none, "<dateTime>05032024070809</dateTime><ackDelay>12</ackDelay></record>"},
        {"", none, 7, "<dateTime>05032024070809</dateTime><disabledDelay>7</disabledDelay></record>"},
        {"a", 0, 2'147'483'647,
         "<annotation>a</annotation><dateTime>05032024070809</dateTime><ackDelay>0</ackDelay>"
         "<disabledDelay>2147483647</disabledDelay></record>"},
        {"", 0xFFFFFFFE, 0x80000000,
         "<dateTime>05032024070809</dateTime><ackDelay>-2</ackDelay><disabledDelay>-2147483648</disabledDelay>"
         "</record>"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Written(row.annotation, time, row.ack, row.disabled), head + row.text) << row.text;
}

TEST(KTEventLogReply, TheAnnotationGoesOutAsItStands)
{
    EXPECT_EQ(Written("<b>\xC3\xA9 & \xFF", Date(1999, 12, 31), none, none),
              head + "<annotation><b>\xC3\xA9 & \xFF</annotation><dateTime>31121999000000</dateTime></record>");
}

// Texts around the size of what a row is made in, and the longest that a log can hold.
TEST(KTEventLogReply, ADateThatIsNoneKeepsItsPlace)
{
    EXPECT_EQ(Written("", KTDateTime(), none, none), head + "<dateTime>00000000000000</dateTime></record>");
}

TEST(KTEventLogReply, AnAnnotationMayBeAsLongAsItLikes)
{
    for (const std::size_t length : {1U, 1000U, 1023U, 1024U, 1025U, 1900U, 2047U, 2048U, 2049U, 65'534U})
    {
        const std::string text(length, 'x');
        EXPECT_EQ(Written(text, Date(2024, 1, 1), 4'000'000'000, 4'000'000'000),
                  head + "<annotation>" + text +
                      "</annotation><dateTime>01012024000000</dateTime><ackDelay>-294967296</ackDelay>"
                      "<disabledDelay>-294967296</disabledDelay></record>")
            << length;
    }
}
