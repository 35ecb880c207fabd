#include "actions/KTEventActionMail.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "actions/KTEventActionMailQueue.h"
#include "actions/MailCollector.h"
#include "devices/Waiting.h"
#include "engine/KTEventObserver.h"
#include "engine/KTEventSystem.h"
#include "host/KTDigest.h"
#include "host/KTNumberFormat.h"
#include "suite/support/KTLanguage.h"
#include "support/TestClock.h"
#include "support/TestConfig.h"
#include "support/TestDriver.h"
#include "support/TestEvent.h"
#include "support/TestNoThreads.h"
#include "support/TestZone.h"

namespace
{
/// A mail action whose insides a test can reach.
class TestMail : public KTEventActionMail
{
public:
    using KTEventActionMail::addresses;
    using KTEventActionMail::id;
    using KTEventActionMail::KTEventActionMail;
    using KTEventActionMail::mailQueue;
    using KTEventActionMail::mailQueueUsers;
    using KTEventActionMail::message;

    bool LoadText(const std::string& element)
    {
        XmlDocument document;
        return document.Parse(element.c_str()) && LoadXml(document.Root());
    }
    [[nodiscard]] std::vector<std::string> Addresses() const
    {
        std::vector<std::string> texts;
        for (const KTNarrowString& address : addresses) texts.emplace_back(address.Str());
        return texts;
    }
};

/// An observer that takes mails over, or only listens.
class MailObserver : public KTEventObserver
{
public:
    struct Mail
    {
        std::string event;
        int phase;
        std::vector<std::string> to;
        std::string subject;
        std::string text;
        bool operator==(const Mail&) const = default;
    };

    explicit MailObserver(bool takesOver = true) : takes(takesOver), before(Install(this)) {}
    ~MailObserver() override { Install(before); }

    void StatusChanged(const KTEventDriver&, const KTEventDriver::tagSEventRT&, int) override {}
    bool TakesMail(const KTEventDriver& event, int phase, const std::vector<KTNarrowString>& addresses,
                   const KTNarrowString& subject, const KTNarrowString& text) override
    {
        Mail mail{Utf8(event.Name()), phase, {}, subject.Str(), text.Str()};
        for (const KTNarrowString& address : addresses) mail.to.emplace_back(address.Str());
        mails.push_back(std::move(mail));
        return takes;
    }

    std::vector<Mail> mails;

private:
    const bool takes;
    KTEventObserver* const before;
};

/// An event whose annotations are what the test says.
class TemplateEvent : public TestEvent
{
public:
    bool ParseAnnotation(KTWideString& out, const KTWideString& text) override
    {
        out = text;
        out += L" = ";
        out += Wide(value);
        return true;
    }
    std::string value = "1";
};

class KTEventActionMailTest : public testing::Test
{
protected:
    KTEventActionMailTest()
    {
        event.name = L"Pump";
        config.setup.smtpServer = collector.server.Address().c_str();
        config.setup.smtpFrom = "plant@example.org";
        config.Apply();
    }
    ~KTEventActionMailTest() override
    {
        LocaleInformationWide() = {};
        std::string error;
        (void)KTLanguage::Load("", "en", error);
    }

    /// An action for ana, loaded.
    std::unique_ptr<TestMail> Action(const std::string& message = "power")
    {
        auto action = std::make_unique<TestMail>(&event);
        EXPECT_TRUE(action->LoadText("<mail><message>" + message + "</message><address>ana@x</address></mail>"));
        return action;
    }
    std::string SubjectOf(int phase)
    {
        MailObserver observer;
        EXPECT_TRUE(Action()->Execute(phase));
        return observer.mails.empty() ? "none" : observer.mails[0].subject;
    }

    const TestZone zone{testZoneOfMadrid};
    TestConfig config;
    MailCollector collector;
    TemplateEvent event;
};

std::string Subject(const MailCollector::Mail& mail)
{
    const std::string begin = "Subject: =?UTF-8?B?";
    const std::size_t at = mail.content.find(begin) + begin.size();
    const std::string encoded = mail.content.substr(at, mail.content.find("?=\r\n", at) - at);
    std::vector<char> text(encoded.size() + 1);
    EXPECT_TRUE(DecodeBase64String(text.data(), encoded.data(), static_cast<int>(encoded.size())));
    return text.data();
}
}  // namespace

static_assert(!std::is_copy_constructible_v<KTEventActionMail> && !std::is_copy_assignable_v<KTEventActionMail>);

TEST_F(KTEventActionMailTest, LoadsItsMessageAndItsAddressesInTheirOrder)
{
    TestMail action(&event);
    EXPECT_EQ(action.Parent(), &event);
    ASSERT_TRUE(
        action.LoadText("<mail><address>ana@x</address><id>the-id</id><other>no</other><address></address>"
                        "<message>text %V1 \xC3\xA9</message><address>  no address at all </address>"
                        "<address>\xD0\xBE@x</address><address>ana@x</address><Address>tag@x</Address></mail>"));
    EXPECT_EQ(action.Addresses(), (std::vector<std::string>{"ana@x", "  no address at all ", "\xD0\xBE@x", "ana@x"}));
    EXPECT_EQ(Utf8(action.message), "text %V1 \xC3\xA9");
    EXPECT_STREQ(action.id.Str(), "the-id");
}

TEST_F(KTEventActionMailTest, AMailWithoutAnAddressIsNotLoaded)
{
    for (const char* element : {"<mail/>", "<mail><message>m</message></mail>", "<mail><address/></mail>",
                                "<mail><address></address><address></address></mail>",
                                "<Mail><address>a</address></Mail>", "<beep><address>a</address></beep>"})
    {
        TestMail action(&event);
        EXPECT_FALSE(action.LoadText(element)) << element;
    }
    TestMail action(&event);
    EXPECT_TRUE(action.LoadText("<mail><address>a</address></mail>"));  // an empty message passes
    EXPECT_EQ(action.id.Length(), 38);                                  // a fresh GUID
}

TEST_F(KTEventActionMailTest, HasNothingToTellAClient)
{
    KTNarrowString fragment("as it was");
    EXPECT_FALSE(Action()->ProcessHttpServiceEventsActions(fragment));
    EXPECT_STREQ(fragment.Str(), "as it was");
}

TEST_F(KTEventActionMailTest, TheSubjectHasTheTimeAsPeopleWriteItThere)
{
    using Order = KTLocaleInformation::DateOrder;
    const struct
    {
        Order order;
        wchar_t date;
        wchar_t time;
        KTDateTime utc;
        const char* text;
    } rows[] = {
        {Order::ymd, L'-', L':', Date(2024, 3, 5, 6, 7, 8), "2024-3-5 7:07:08"},
        {Order::dmy, L'/', L':', Date(2024, 3, 5, 6, 7, 8), "5/3/2024 7:07:08"},
        {Order::mdy, L'/', L'.', Date(2024, 3, 5, 6, 7, 8), "3/5/2024 7.07.08"},
        {Order::dmy, L'.', L'h', Date(2024, 12, 31, 22, 59, 59), "31.12.2024 23h59h59"},
        {Order::ymd, L'-', L':', Date(2024, 12, 31, 23, 0, 0), "2025-1-1 0:00:00"},
        {Order::mdy, L'-', L':', Date(999, 1, 2, 3, 4, 5), "1-2-0999 4:04:05"},
        {Order::ymd, L'\x2215', L'\x2236', Date(2024, 7, 1, 10, 0, 9),
         "2024\xE2\x88\x95"
         "7\xE2\x88\x95"
         "1 12\xE2\x88\xB6"
         "00\xE2\x88\xB6"
         "09"},
    };
    for (const auto& row : rows)
    {
        const TestClock clock(row.utc);
        LocaleInformationWide().dateOrder = row.order;
        LocaleInformationWide().dateSeparator = row.date;
        LocaleInformationWide().timeSeparator = row.time;
        EXPECT_EQ(SubjectOf(0), std::string("Test - ") + row.text + " - Event Pump activated");
    }
}

TEST_F(KTEventActionMailTest, EachPhaseHasItsText)
{
    const TestClock clock(Date(2024, 3, 5, 6, 7, 8));
    const struct
    {
        int phase;
        const char* text;
    } rows[] = {{0, "Event Pump activated"},
                {1, "Event Pump is still active"},
                {2, "Event Pump deactivated"},
                {3, "Event Pump acknowledged"},
                {4, ""},
                {-1, ""}};
    for (const auto& row : rows) EXPECT_EQ(SubjectOf(row.phase), std::string("Test - 2024-3-5 7:07:08 - ") + row.text);
}

TEST_F(KTEventActionMailTest, TheNameOfTheEventIsTakenAsItIs)
{
    const TestClock clock(Date(2024, 3, 5, 6, 7, 8));
    event.name = Wide("100 %s %d \xF0\x9F\x94\xA5 " + std::string(3000, 'n'));
    config.setup.programName = Wide("\xE4\xB8\xAD");
    config.Apply();
    EXPECT_EQ(SubjectOf(2), "\xE4\xB8\xAD - 2024-3-5 7:07:08 - Event 100 %s %d \xF0\x9F\x94\xA5 " +
                                std::string(3000, 'n') + " deactivated");
}

TEST_F(KTEventActionMailTest, SpeaksTheLanguageOfTheMoment)
{
    const TestClock clock(Date(2024, 3, 5, 6, 7, 8));
    std::string error;
    ASSERT_TRUE(KTLanguage::Load(CORVANE_SOURCE_DIRECTORY "/resources", "es", error)) << error;
    EXPECT_EQ(SubjectOf(0), "Test - 2024-3-5 7:07:08 - Evento Pump activado");
}

TEST_F(KTEventActionMailTest, TheObserverIsShownTheMailAndMayTakeItOver)
{
    const TestClock clock(Date(2024, 3, 5, 6, 7, 8));
    const auto action = Action("P");
    const TestNoThreads none;
    const MailObserver::Mail expected{
        "Pump", 3, {"ana@x"}, "Test - 2024-3-5 7:07:08 - Event Pump acknowledged", "P = 1"};
    {
        MailObserver observer;
        EXPECT_TRUE(action->Execute(3));
        EXPECT_EQ(observer.mails, std::vector{expected});
    }
    MailObserver listening(false);
    EXPECT_TRUE(action->Execute(3));
    EXPECT_EQ(listening.mails, std::vector{expected});
}

TEST_F(KTEventActionMailTest, TimeAndValuesAreThoseOfTheEventAndNotOfTheSending)
{
    TestClock clock(Date(2024, 3, 5, 6, 7, 8));
    const auto action = Action("P");
    {
        const TestNoThreads none;
        EXPECT_TRUE(action->Execute(0));
    }
    event.value = "2";
    event.name = L"Other";
    clock->Advance(std::chrono::hours(5));
    EXPECT_TRUE(action->Execute(2));
    ASSERT_TRUE(Eventually(
        [&]
        {
            clock->Advance(std::chrono::milliseconds(10));
            return collector.Count() == 2;
        }));
    const auto mails = collector.Mails();
    EXPECT_EQ(Subject(mails[0]), "Test - 2024-3-5 7:07:08 - Event Pump activated");
    EXPECT_EQ(mails[0].Text(), "P = 1");
    EXPECT_EQ(Subject(mails[1]).substr(0, 24), "Test - 2024-3-5 12:07:08");
    EXPECT_EQ(mails[1].Text(), "P = 2");
    clock->Release();
}

TEST_F(KTEventActionMailTest, TheLastActionTakesTheWaitingMailsAlong)
{
    EXPECT_EQ(TestMail::mailQueue, nullptr);
    auto first = Action();
    auto second = Action();
    KTEventActionMailQueue* const queue = TestMail::mailQueue;
    ASSERT_NE(queue, nullptr);
    EXPECT_EQ(TestMail::mailQueueUsers, 2);
    {
        const TestNoThreads none;
        EXPECT_TRUE(first->Execute(0));
    }
    first.reset();
    EXPECT_EQ(TestMail::mailQueue, queue);
    second.reset();
    EXPECT_EQ(TestMail::mailQueue, nullptr);
    EXPECT_EQ(TestMail::mailQueueUsers, 0);

    const auto next = Action("next");
    EXPECT_TRUE(next->Execute(0));
    ASSERT_TRUE(Eventually([&] { return collector.Count() == 1; }));
    EXPECT_EQ(collector.Texts(), std::vector<std::string>{"next = 1"});
}

TEST_F(KTEventActionMailTest, AMailOutlivesItsAction)
{
    const auto holder = Action();
    {
        const TestNoThreads none;
        EXPECT_TRUE(Action("gone")->Execute(0));
    }
    EXPECT_TRUE(holder->Execute(0));
    ASSERT_TRUE(Eventually([&] { return collector.Count() == 2; }));
    EXPECT_EQ(collector.Texts()[0], "gone = 1");
}

TEST_F(KTEventActionMailTest, AnEventSendsMailsAtEachOfItsMoments)
{
    const TestClock clock(Date(2024, 3, 5, 6, 7, 8));
    const KTEventSystem system;
    TestDriver plant(L"T", {L"A"});
    plant.Register();
    const auto mail = [](const std::string& text)
    { return "<mail><message>" + text + "</message><address>ana@x</address></mail>"; };
    const std::string actions = Element("activate", mail("on") + "<mail/>" + mail("on too")) +
                                Element("while", mail("still")) + Element("deactivate", mail("off")) +
                                Element("acknowledge", mail("ack"));
    TestEvent loaded;
    ASSERT_TRUE(loaded.LoadText(EventXml(1, "E", "[T.A] = 1",
                                         "<notify>T</notify>" + Element("actions", actions) +
                                             Element("clientActions", Element("activate", mail("never"))))));
    EXPECT_EQ(loaded.actionLists[0].size(), 2U);
    EXPECT_EQ(loaded.actionLists[4].size(), 1U);
    MailObserver observer;
    const auto scan = [&](double value)
    {
        plant.Set(L"A", value);
        EXPECT_TRUE(loaded.Work(KTDateTime::LTC()));
    };
    for (const double value : {0.0, 1.0, 1.0, 1.0, 0.0}) scan(value);
    const GUID occurrence = loaded.Occurrences().front()->id;
    EXPECT_TRUE(loaded.ProcessHttpServiceAck(occurrence));
    EXPECT_TRUE(loaded.ProcessHttpServiceAck(occurrence));
    std::vector<std::pair<int, std::string>> told;
    for (const auto& one : observer.mails) told.emplace_back(one.phase, one.text);
    const std::vector<std::pair<int, std::string>> expected = {{0, "on"},    {0, "on too"}, {1, "still"},
                                                               {1, "still"}, {2, "off"},    {3, "ack"}};
    EXPECT_EQ(told, expected);
}

TEST_F(KTEventActionMailTest, WhileAnEventHoldsItCanFillTheQueueByItself)
{
    std::atomic<bool> broken{true};
    collector.SetAnswer([&](const std::string&) { return broken ? std::string("421 no\r\n") : std::string(); });
    const auto action = Action("P");
    for (int i = 0; i < 140; ++i)
    {
        event.value = std::to_string(i);
        EXPECT_TRUE(action->Execute(1));
    }
    broken = false;
    ASSERT_TRUE(Eventually([&] { return collector.Count() >= 128; }));
    std::vector<std::string> texts = collector.Texts();
    EXPECT_EQ(texts.size(), 128U);
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "P = 11"), 0);
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "P = 12"), 1);
}
