// An event's part of the services' replies.
#include "DriverFixture.h"
#include "support/TestResponse.h"
#include "support/TestZone.h"

namespace
{
class KTEventDriverHttp : public DriverFixture
{
protected:
    std::string Actived()
    {
        TestResponse response;
        EXPECT_TRUE(event.ProcessHttpServiceEventsActived(response));
        EXPECT_EQ(response.starts + response.finishes, 0) << "head and tail are the server's";
        return response.Text();
    }
    std::string Notified()
    {
        TestResponse response;
        EXPECT_TRUE(event.ProcessHttpServiceEventsNotified(response));
        EXPECT_EQ(response.starts + response.finishes, 0);
        return response.Text();
    }
    std::string OccurrenceId() { return Text(event.Occurrences().front()->id); }
};
}  // namespace

TEST_F(KTEventDriverHttp, AnInactiveEventWritesNothing)
{
    Load("<notify>T</notify>");
    EXPECT_EQ(Actived(), "");
    EXPECT_EQ(Notified(), "");
}

TEST_F(KTEventDriverHttp, AnActiveEventWritesItsElementWithTheEventsIdentity)
{
    TestZone zone(testZoneOfMadrid);
    clock->SetUtc(Date(2024, 7, 1, 4, 5, 6));
    Load("<description>d</description><annotation>a</annotation>");
    ScanWith(1);
    EXPECT_EQ(Actived(), "<event><id>" + Text(TestId(1)) +
                             "</id><name>e</name><description>d</description><annotation>a</annotation>"
                             "<dateTime>01072024040506</dateTime></event>");
    ScanWith(0);
    EXPECT_EQ(Actived(), "");
}

TEST_F(KTEventDriverHttp, TextsAreUtf8AndEscaped)
{
    ASSERT_TRUE(event.LoadText(
        EventXml(1, "&lt;n&gt; \xC3\xA9", "[T.C]=1",
                 "<description>&amp;\"'</description><annotation>a &amp; &lt;b&gt;</annotation><notify>T</notify>")));
    ScanWith(1);
    const std::string texts =
        "<name>&lt;n&gt; \xC3\xA9</name><description>&amp;&quot;&apos;</description>"
        "<annotation>a &amp; &lt;b&gt;</annotation>";
    EXPECT_NE(Actived().find(texts), std::string::npos) << Actived();
    EXPECT_NE(Notified().find(texts), std::string::npos) << Notified();
}

TEST_F(KTEventDriverHttp, EmptyTextsAreEmptyElements)
{
    ASSERT_TRUE(event.LoadText(EventXml(1, "", "[T.C]=1")));
    ScanWith(1);
    EXPECT_NE(Actived().find("<name></name><description></description><annotation></annotation>"), std::string::npos);
}

TEST_F(KTEventDriverHttp, AnActivationWithoutAValidTimeHasNoDate)
{
    Load();
    ScanWith(1);
    event.activationTime.Invalidate();
    EXPECT_EQ(Actived().find("dateTime"), std::string::npos);
}

TEST_F(KTEventDriverHttp, TheActivedReplyShowsTheAnnotationOfNowAndTheNotifiedTheFrozenOne)
{
    Load("<notify>T</notify><annotation>then</annotation>");
    ScanWith(1);
    event.annotationText = L"now";
    EXPECT_NE(Actived().find("<annotation>now</annotation>"), std::string::npos);
    EXPECT_NE(Notified().find("<annotation>then</annotation>"), std::string::npos);
}

TEST_F(KTEventDriverHttp, AnOccurrenceOfAnEventWithoutNotifyNeverAppears)
{
    Load();
    ScanWith(1);
    EXPECT_EQ(Notified(), "");
    EXPECT_NE(Actived(), "");
}

TEST_F(KTEventDriverHttp, AnOccurrenceShowsTheDatesOfItsStatus)
{
    Load("<notify>T</notify>");
    const KTDateTime activated = Date(2024, 1, 2, 3, 4, 5);
    const KTDateTime acknowledged = Date(2025, 11, 30, 23, 59, 59);
    const KTDateTime deactivated = Date(2001, 2, 3);
    const std::string date = "<dateTime>02012024030405</dateTime>";
    const std::string ack = "<ackDateTime>30112025235959</ackDateTime>";
    const std::string disable = "<disableDateTime>03022001000000</disableDateTime>";
    const struct
    {
        int status;
        std::string dates;
    } rows[] = {{1, date}, {3, date + disable}, {5, date + ack}, {7, date + ack + disable}, {2, disable},
                {4, ack},  {6, ack + disable}};
    auto* const occurrence = event.MakeOccurrence();
    occurrence->activationDate = activated;
    occurrence->acknowledgeDate = acknowledged;
    occurrence->deactivationDate = deactivated;
    EXPECT_EQ(Notified(), "") << "status 0 isn't shown";
    const std::string head =
        "<event><id>" + OccurrenceId() + "</id><name>e</name><description></description><annotation></annotation>";
    for (const auto& row : rows)
    {
        occurrence->status = row.status;
        EXPECT_EQ(Notified(), head + row.dates + "</event>") << row.status;
    }
    occurrence->activationDate.Invalidate();
    occurrence->acknowledgeDate.Invalidate();
    occurrence->deactivationDate.Invalidate();
    occurrence->status = 7;
    EXPECT_EQ(Notified(), head + "</event>") << "and no date that isn't valid";
}

TEST_F(KTEventDriverHttp, OccurrencesStandOldestFirst)
{
    Load("<notify>T</notify>");
    std::string expected;
    for (int i = 0; i < 3; ++i)
    {
        ScanWith(1);
        ScanWith(0);
        expected += "<id>" + Text(event.Occurrences().back()->id);
    }
    const std::string reply = Notified();
    std::string ids;
    for (std::size_t at = reply.find("<id>"); at != std::string::npos; at = reply.find("<id>", at + 1))
        ids += reply.substr(at, 4 + guidTextSize - 1);
    EXPECT_EQ(ids, expected);
}

TEST_F(KTEventDriverHttp, LongTextsAreNeitherCutNorOverrunAnything)
{
    const std::string name(3000, 'n');
    const std::string description(5000, '<');
    const std::string annotation(70'000, '&');
    ASSERT_TRUE(event.LoadText(EventXml(1, name, "[T.C]=1", "<notify>T</notify>")));
    event.description = Wide(description);
    event.annotationTemplate = Wide(annotation);
    ScanWith(1);
    std::string escapedDescription;
    for (std::size_t i = 0; i < description.size(); ++i) escapedDescription += "&lt;";
    std::string escapedAnnotation;
    for (std::size_t i = 0; i < annotation.size(); ++i) escapedAnnotation += "&amp;";
    const std::string texts = "<name>" + name + "</name><description>" + escapedDescription +
                              "</description><annotation>" + escapedAnnotation + "</annotation>";
    EXPECT_NE(Actived().find(texts), std::string::npos);
    EXPECT_NE(Notified().find(texts), std::string::npos);
}

TEST_F(KTEventDriverHttp, TheActivedReplyNeedsNoMutexOfTheEvent)
{
    Load("<notify>T</notify>");
    ScanWith(1);
    ASSERT_TRUE(event.mutex.Lock());
    EXPECT_NE(Actived(), "");
    TestResponse response;
    EXPECT_FALSE(event.ProcessHttpServiceEventsNotified(response)) << "the notified one does";
    EXPECT_EQ(response.Text(), "");
    event.mutex.Unlock();
}
