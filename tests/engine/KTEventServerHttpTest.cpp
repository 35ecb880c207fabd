// Admission, locks and documents of the services.
#include "ServerFixture.h"

namespace
{
class KTEventServerHttp : public ServerFixture
{
protected:
    /// Two events that notify and one that doesn't, all active after one scan.
    void LoadThree()
    {
        config.WriteEvents(EventXml(1, "b", "[T.A]=1", "<notify>T</notify>") +
                           EventXml(2, "A", "[T.A]=1", "<notify>T</notify>") + EventXml(3, "c", "[T.A]=1"));
        server.LoadCfg();
        plant.Set(L"A", 1.0);
        plant.Register();
        Start();
    }
    std::string Reply(Service service)
    {
        TestResponse response;
        EXPECT_TRUE(Ask(service, response));
        EXPECT_EQ(response.status, 200);
        EXPECT_EQ(response.starts, 1);
        EXPECT_EQ(response.finishes, 1);
        return response.Text();
    }
    std::vector<std::string> Contents(Service service, const std::string& tag)
    {
        const std::string reply = Reply(service);
        std::vector<std::string> all;
        for (std::size_t at = reply.find("<" + tag + ">"); at != std::string::npos;
             at = reply.find("<" + tag + ">", at))
        {
            at += tag.size() + 2;
            all.push_back(reply.substr(at, reply.find("</" + tag + ">", at) - at));
        }
        return all;
    }
    std::vector<std::string> OccurrenceIds() { return Contents(Service::notified, "id"); }
    std::size_t Acknowledged() { return Contents(Service::notified, "ackDateTime").size(); }
};

using Strings = std::vector<std::string>;

std::string Ack(const Strings& ids)
{
    std::string body = "<eventsAck>";
    for (const std::string& id : ids) body += Element("id", id);
    return body + "</eventsAck>";
}
}  // namespace

TEST_F(KTEventServerHttp, WithoutEventsAReplyIsHeadAndTail)
{
    server.LoadCfg();
    EXPECT_EQ(Reply(Service::actived), xmlLine + "<activedEvents></activedEvents>");
    EXPECT_EQ(Reply(Service::notified), xmlLine + "<notifiedEvents></notifiedEvents>");
}

TEST_F(KTEventServerHttp, TheFirstPieceIsTheXmlLineWithNoLineEnd)
{
    server.LoadCfg();
    for (const Service service : {Service::actived, Service::notified})
    {
        TestResponse response;
        Ask(service, response);
        ASSERT_FALSE(response.pieces.empty());
        EXPECT_EQ(response.pieces.front(), xmlLine);
    }
}

TEST_F(KTEventServerHttp, TheStartModeFollowsTheRequestsFlags)
{
    server.LoadCfg();
    const struct
    {
        std::uint32_t flags;
        int mode;
    } rows[] = {{0, 3}, {1, 3}, {2, 5}, {3, 5}, {4, 3}, {0xFFFFFFFD, 3}, {0xFFFFFFFF, 5}};
    for (const auto& row : rows)
        for (const Service service : {Service::actived, Service::notified})
        {
            TestResponse response;
            Ask(service, response, row.flags);
            EXPECT_EQ(response.status, 200);
            EXPECT_EQ(response.mode, row.mode) << row.flags;
        }
}

TEST_F(KTEventServerHttp, TheResultIsThatOfTheResponsesEnd)
{
    server.LoadCfg();
    for (const bool result : {true, false})
        for (const Service service : {Service::actived, Service::notified})
        {
            TestResponse response;
            response.finishResult = result;
            EXPECT_EQ(Ask(service, response), result);
        }
}

TEST_F(KTEventServerHttp, EventsStandInTheOrderOfTheRegistry)
{
    LoadThree();
    EXPECT_EQ(Contents(Service::actived, "name"), (Strings{"A", "b", "c"}));
    EXPECT_EQ(Contents(Service::actived, "id"), (Strings{Text(TestId(2)), Text(TestId(1)), Text(TestId(3))}))
        << "the events' own identity";
    EXPECT_EQ(Contents(Service::notified, "name"), (Strings{"A", "b"})) << "only of events that notify";
    for (const std::string& id : OccurrenceIds())
        for (unsigned number = 1; number <= 3; ++number) EXPECT_NE(id, Text(TestId(number)));
}

TEST_F(KTEventServerHttp, AWholeReply)
{
    LoadThree();
    EXPECT_EQ(Reply(Service::notified).substr(0, xmlLine.size() + 23), xmlLine + "<notifiedEvents><event>");
    const std::string actived = Reply(Service::actived);
    EXPECT_EQ(actived.find('\n'), std::string::npos);
    EXPECT_EQ(actived.substr(0, xmlLine.size() + 22), xmlLine + "<activedEvents><event>");
    EXPECT_EQ(actived.substr(actived.size() - 24), "</event></activedEvents>");
}

TEST_F(KTEventServerHttp, ADocumentOfTwoIdsAcknowledgesBoth)
{
    LoadThree();
    ASSERT_EQ(OccurrenceIds().size(), 2U);
    EXPECT_TRUE(Acknowledge(Ack(OccurrenceIds())));
    EXPECT_EQ(Acknowledged(), 2U);
}

TEST_F(KTEventServerHttp, OnlyTheNamedOccurrencesAreAcknowledged)
{
    LoadThree();
    EXPECT_TRUE(Acknowledge(Ack({OccurrenceIds()[1]})));
    EXPECT_EQ(Acknowledged(), 1U);
    const std::string reply = Reply(Service::notified);
    EXPECT_GT(reply.find("<ackDateTime>"), reply.find("<name>b</name>"));
}

TEST_F(KTEventServerHttp, ASecondAcknowledgementChangesNothing)
{
    LoadThree();
    EXPECT_TRUE(Acknowledge(Ack(OccurrenceIds())));
    const std::string before = Reply(Service::notified);
    clock->Advance(std::chrono::milliseconds(500));
    EXPECT_TRUE(Acknowledge(Ack(OccurrenceIds())));
    EXPECT_EQ(Reply(Service::notified), before);
}

TEST_F(KTEventServerHttp, AnIdTwiceInOneDocumentIsAcknowledgedOnce)
{
    LoadThree();
    const std::string id = OccurrenceIds()[0];
    EXPECT_TRUE(Acknowledge(Ack({id, id})));
    EXPECT_EQ(Acknowledged(), 1U);
}

TEST_F(KTEventServerHttp, UnknownIdsAndOtherChildrenArePassedOver)
{
    LoadThree();
    const std::string id = OccurrenceIds()[1];
    const struct
    {
        const char* what;
        std::string body;
        std::size_t acknowledged;
    } rows[] = {
        {"no child at all", "<eventsAck/>", 0},
        {"an unknown identifier", Ack({Text(TestId(77))}), 0},
        {"the event's instead of the occurrence's", Ack({Text(TestId(1))}), 0},
        {"no identifier", Ack({"", "nonsense"}), 0},
        {"another tag", "<eventsAck><Id>" + id + "</Id><ids><id>" + id + "</id></ids></eventsAck>", 0},
        {"text beside", "<eventsAck>" + id + "</eventsAck>", 0},
        {"behind unknown ones", Ack({Text(TestId(77)), "nonsense", id}), 1},
    };
    for (const auto& row : rows)
    {
        EXPECT_TRUE(Acknowledge(row.body)) << row.what;
        EXPECT_EQ(Acknowledged(), row.acknowledged) << row.what;
    }
}

TEST_F(KTEventServerHttp, ABodyThatIsNoAcknowledgementIsFalseAndChangesNothing)
{
    LoadThree();
    const std::string id = Element("id", OccurrenceIds()[0]);
    for (const std::string& body :
         {std::string(), std::string("nonsense"), "<eventsAck>" + id, "<eventsack>" + id + "</eventsack>",
          "<ack>" + id + "</ack>", "<x><eventsAck>" + id + "</eventsAck></x>", id})
    {
        EXPECT_FALSE(Acknowledge(body)) << body;
        EXPECT_EQ(Acknowledged(), 0U) << body;
    }
    for (int i = 0; i < 2 * KTEventServer::slots; ++i) EXPECT_FALSE(Acknowledge("<"));
    EXPECT_EQ(Status(), 200) << "and each gave its count back";
}

TEST_F(KTEventServerHttp, FinishedOccurrencesAreAcknowledgedWithoutEffect)
{
    LoadThree();
    const Strings ids = OccurrenceIds();
    plant.Set(L"A", 0.0);
    NextScan();
    EXPECT_TRUE(Acknowledge(Ack(ids)));
    EXPECT_EQ(OccurrenceIds(), ids) << "finished, and there until the sweep";
    NextScan();
    EXPECT_TRUE(OccurrenceIds().empty());
    EXPECT_TRUE(Acknowledge(Ack(ids)));
}

TEST_F(KTEventServerHttp, AcknowledgeActionsRunOnTheThreadOfTheRequestInTheOrderOfTheDocument)
{
    LoadThree();
    Stop();
    server.LoadCfg();
    std::vector<std::string> ran;
    std::thread::id thread;
    for (const wchar_t* name : {L"A", L"b"})
    {
        auto event = std::make_unique<TestEvent>();
        ASSERT_TRUE(event->LoadText(EventXml(9, Utf8(KTWideString(name)), "[T.A]=1", "<notify>T</notify>")));
        event->Add(3,
                   [&, name](int)
                   {
                       thread = std::this_thread::get_id();
                       ran.push_back(Utf8(KTWideString(name)));
                       EXPECT_EQ(server.ActiveEventsCount(), -1) << "the work mutex is held";
                       return true;
                   });
        Replace(name, std::move(event));
    }
    Start();
    const Strings ids = OccurrenceIds();
    ASSERT_EQ(ids.size(), 2U);
    EXPECT_TRUE(Acknowledge(Ack({ids[1], ids[0]})));
    EXPECT_EQ(ran, (Strings{"b", "A"}));
    EXPECT_EQ(thread, std::this_thread::get_id());
}

TEST_F(KTEventServerHttp, AnEventThatCannotBeLockedContributesNothing)
{
    LoadThree();
    Stop();
    server.LoadCfg();
    auto fresh = std::make_unique<TestEvent>();
    ASSERT_TRUE(fresh->LoadText(EventXml(9, "A", "[T.A]=1", "<notify>T</notify>")));
    TestEvent* const event = Replace(L"A", std::move(fresh));
    Start();
    const Strings ids = OccurrenceIds();
    ASSERT_TRUE(event->mutex.Lock());
    EXPECT_EQ(Contents(Service::notified, "name"), Strings{"b"}) << "and the reply goes on";
    EXPECT_TRUE(Acknowledge(Ack(ids)));
    event->mutex.Unlock();
    EXPECT_EQ(Acknowledged(), 1U);
}

TEST_F(KTEventServerHttp, WhenTheWorkMutexCannotBeTakenTheAnswerIs503)
{
    LoadThree();
    // What asks from inside a service holds the work mutex already. Often enough to use up all counts, if one were kept.
    TestResponse outer;
    int rounds = 0;
    outer.onWrite = [&](const std::string&)
    {
        if (rounds > 0) return;
        for (; rounds < KTEventServer::slots + 5; ++rounds)
        {
            TestResponse inner;
            inner.finishResult = rounds % 2 == 0;
            EXPECT_EQ(Ask(rounds % 3 == 0 ? Service::actived : Service::notified, inner), inner.finishResult);
            EXPECT_EQ(inner.status, 503);
            EXPECT_EQ(inner.mode, 0);
            EXPECT_EQ(inner.finishes, 1);
            EXPECT_TRUE(inner.pieces.empty());
            EXPECT_FALSE(Acknowledge("<eventsAck/>"));
            EXPECT_EQ(server.ActiveEventsCount(), -1);
        }
    };
    EXPECT_TRUE(Ask(Service::actived, outer));
    EXPECT_EQ(outer.status, 200);
    EXPECT_EQ(rounds, KTEventServer::slots + 5);
}

TEST_F(KTEventServerHttp, ARefusedServiceAnswers503AndEnds)
{
    server.LoadCfg();
    Start();
    Stop();
    for (const bool result : {true, false})
    {
        TestResponse response;
        response.finishResult = result;
        const auto began = std::chrono::steady_clock::now();
        EXPECT_EQ(Ask(Service::actived, response), result);
        EXPECT_GE(std::chrono::steady_clock::now() - began, std::chrono::milliseconds(99));
        EXPECT_EQ(response.status, 503);
        EXPECT_EQ(response.starts, 1);
        EXPECT_EQ(response.finishes, 1);
        EXPECT_TRUE(response.pieces.empty());
    }
    const auto began = std::chrono::steady_clock::now();
    EXPECT_FALSE(Acknowledge("<eventsAck/>"));
    EXPECT_GE(std::chrono::steady_clock::now() - began, std::chrono::milliseconds(99));
}

TEST_F(KTEventServerHttp, TheScanAndAServiceExcludeEachOther)
{
    LoadThree();
    std::promise<void> inService;
    std::promise<void> goOn;
    auto service = InBackground(
        [&]
        {
            TestResponse response;
            bool first = true;
            response.onWrite = [&](const std::string&)
            {
                if (!std::exchange(first, false)) return;
                inService.set_value();
                goOn.get_future().wait();
            };
            Ask(Service::actived, response);
            return response.Text();
        });
    inService.get_future().wait();
    plant.Set(L"A", 0.0);
    const std::uint64_t scans = Scans();
    clock->Advance(std::chrono::seconds(1));
    ASSERT_TRUE(WaitUntil([&] { return clock->Sleepers() == 0; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(Scans(), scans);
    goOn.set_value();
    EXPECT_NE(service.get().find("<name>c</name>"), std::string::npos) << "the reply shows one moment";
    ASSERT_TRUE(WaitUntil([&] { return Scans() > scans; }));
    EXPECT_EQ(server.ActiveEventsCount(), 0);
}
