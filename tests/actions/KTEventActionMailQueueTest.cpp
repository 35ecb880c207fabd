#include "actions/KTEventActionMailQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "actions/MailCollector.h"
#include "devices/Waiting.h"
#include "host/KTClock.h"
#include "host/KTCorvaneSetup.h"
#include "support/TestClock.h"
#include "support/TestNoThreads.h"

namespace
{
using std::chrono::milliseconds;

/// A queue whose insides a test can reach.
class TestQueue : public KTEventActionMailQueue
{
public:
    using KTEventActionMailQueue::mutex;
    using KTEventActionMailQueue::running;
    using KTEventActionMailQueue::starting;
    using KTEventActionMailQueue::stopped;

    void Add(const std::string& text)
    {
        EXPECT_TRUE(KTEventActionMailQueue::Add({KTNarrowString("ana@example.org")}, "subject", text.c_str()));
    }
    [[nodiscard]] int State() const { return state; }

    // Only while no worker runs.
    [[nodiscard]] std::vector<std::string> Waiting() const KT_NO_THREAD_SAFETY_ANALYSIS
    {
        std::vector<std::string> texts;
        for (const KTEventMailEntry* entry : entries) texts.emplace_back(entry->text.Str());
        return texts;
    }
    void PutCursor(int place) KT_NO_THREAD_SAFETY_ANALYSIS { cursor = std::next(entries.begin(), place); }
    [[nodiscard]] std::string AtCursor() const KT_NO_THREAD_SAFETY_ANALYSIS
    {
        return cursor == entries.end() ? "end" : (*cursor)->text.Str();
    }
};

class KTEventActionMailQueueTest : public testing::Test
{
protected:
    KTEventActionMailQueueTest() { SetServer(mails.server.Address()); }
    ~KTEventActionMailQueueTest() override { KTCorvaneSetup::Get().Configure({}); }

    /// Only while no worker reads the settings.
    static void SetServer(const std::string& address, const char* user = nullptr)
    {
        KTSetupData data;
        data.smtpServer = address.c_str();
        data.smtpFrom = "plant@example.org";
        data.smtpAuthenticated = user != nullptr;
        if (user != nullptr) data.smtpUser = user;
        data.smtpPassword = "secret";
        KTCorvaneSetup::Get().Configure(data);
    }
    static std::vector<std::string> Numbers(int from, int to)
    {
        std::vector<std::string> texts;
        for (int i = from; i < to; ++i) texts.push_back(std::to_string(i));
        return texts;
    }
    [[nodiscard]] bool Arrived(std::size_t count) const
    {
        return Eventually([&] { return mails.Count() >= count; });
    }
    static bool IsStopped(const TestQueue& queue)
    {
        return Eventually([&] { return queue.State() == TestQueue::stopped; });
    }

    MailCollector mails;
};

// A pause of the worker ends at once: it reaches its end as fast as it can.
class HastyClock : public KTClock
{
public:
    HastyClock() : inner(Get()), before(Install(this)) {}
    ~HastyClock() override { Install(before); }
    KTDateTime UTC() override { return inner.UTC(); }
    KTDateTime LTC() override { return inner.LTC(); }
    std::uint32_t TickCount() override { return inner.TickCount(); }
    void Sleep(std::uint32_t) override { inner.Sleep(0); }
    void SetScanThread(bool) override {}

private:
    KTClock& inner;
    KTClock* const before;
};
}  // namespace

TEST_F(KTEventActionMailQueueTest, SendsWhatItIsGivenInOrderAndThenRests)
{
    TestQueue queue;
    EXPECT_EQ(queue.State(), TestQueue::stopped);
    for (const std::string& text : Numbers(0, 5)) queue.Add(text);
    ASSERT_TRUE(Arrived(5));
    EXPECT_EQ(mails.Texts(), Numbers(0, 5));
    EXPECT_TRUE(IsStopped(queue));
    EXPECT_EQ(mails.server.Connections(), 5);
    EXPECT_EQ(mails.Mails()[0].commands,
              (std::vector<std::string>{"EHLO server\r\n", "MAIL FROM: <plant@example.org>\r\n",
                                        "RCPT TO: <ana@example.org>\r\n", "DATA\r\n"}));
}

TEST_F(KTEventActionMailQueueTest, KeepsCopiesAndSendsEachMailToItsOwnRecipients)
{
    TestQueue queue;
    {
        std::vector<KTNarrowString> to = {KTNarrowString("a@x"), KTNarrowString("b@x")};
        std::string subject = "first";
        std::string text = "one";
        EXPECT_TRUE(queue.KTEventActionMailQueue::Add(to, subject.c_str(), text.c_str()));
        to = {KTNarrowString("c@x")};
        subject = "other";
        text = "two";
        EXPECT_TRUE(queue.KTEventActionMailQueue::Add(to, subject.c_str(), text.c_str()));
    }
    ASSERT_TRUE(Arrived(2));
    const auto taken = mails.Mails();
    EXPECT_EQ(taken[0].commands[2] + taken[0].commands[3], "RCPT TO: <a@x>\r\nRCPT TO: <b@x>\r\n");
    EXPECT_EQ(taken[1].commands[2] + taken[1].commands[3], "RCPT TO: <c@x>\r\nDATA\r\n");
    EXPECT_NE(taken[0].content.find("To: a@x; b@x\r\nSubject: =?UTF-8?B?Zmlyc3Q=?="), std::string::npos);
    EXPECT_EQ(taken[1].Text(), "two");
}

TEST_F(KTEventActionMailQueueTest, TriesAMailThatFailsForEverInItsTurn)
{
    std::mutex guard;
    std::vector<std::string> tried;
    std::atomic<int> refusals{0};
    std::atomic<bool> first{false};
    std::atomic<bool> accept{false};
    mails.SetAnswer(
        [&](const std::string& command) -> std::string
        {
            // The first mail waits until the others are queued.
            while (!first) std::this_thread::yield();
            if (!command.starts_with("From: ")) return {};
            const std::lock_guard lock(guard);
            tried.push_back(command.substr(command.find("\r\n\r\n") + 4));
            if (accept || tried.back() == "good") return {};
            // Neither for good nor for now makes a difference.
            return ++refusals % 2 == 0 ? "550 never\r\n" : "450 not now\r\n";
        });
    TestQueue queue;
    {
        const TestNoThreads none;
        queue.Add("bad 1");
        queue.Add("good");
        queue.Add("bad 2");
    }
    queue.Add("bad 3");
    first = true;
    ASSERT_TRUE(Eventually([&] { return refusals >= 30; }));
    accept = true;
    ASSERT_TRUE(Arrived(4));
    ASSERT_TRUE(IsStopped(queue));
    ASSERT_EQ(tried.size(), 4U + static_cast<std::size_t>(refusals));
    const std::vector<std::string> start = {"bad 1", "good", "bad 2", "bad 3", "bad 1", "bad 2", "bad 3", "bad 1"};
    EXPECT_EQ(std::vector<std::string>(tried.begin(), tried.begin() + 8), start);
    for (std::size_t i = 7; i + 6 < tried.size(); ++i) EXPECT_EQ(tried[i], tried[i + 3]) << i;
}

TEST_F(KTEventActionMailQueueTest, PausesTenMillisecondsBetweenTwoAttempts)
{
    TestClock clock;
    std::atomic<int> attempts{0};
    mails.SetAnswer(
        [&](const std::string& command) -> std::string
        {
            if (!command.starts_with("MAIL")) return {};
            ++attempts;
            return "450 not now\r\n";
        });
    auto queue = std::make_unique<TestQueue>();
    queue->Add("stubborn");
    for (int i = 1; i < 20; ++i)
    {
        ASSERT_TRUE(Eventually([&] { return clock->Sleepers() == 1; }));
        EXPECT_EQ(attempts, i);
        clock->Advance(milliseconds(9));
        EXPECT_EQ(clock->Sleepers(), 1);
        clock->Advance(milliseconds(1));
        ASSERT_TRUE(Eventually([&] { return attempts == i + 1; }));
    }
    clock->Release();
    queue.reset();
}

TEST_F(KTEventActionMailQueueTest, TheNewest128SurviveAnOutage)
{
    std::atomic<bool> broken{true};
    mails.SetAnswer([&](const std::string&) { return broken ? std::string("421 out of order\r\n") : std::string(); });
    TestQueue queue;
    for (const std::string& text : Numbers(0, 200)) queue.Add(text);
    EXPECT_EQ(mails.Count(), 0U);
    broken = false;
    ASSERT_TRUE(Arrived(128));
    ASSERT_TRUE(IsStopped(queue));
    const std::vector<std::string> texts = mails.Texts();
    EXPECT_EQ(texts.size(), 128U);
    const std::vector<std::string> newest = Numbers(72, 200);
    EXPECT_EQ(std::multiset<std::string>(texts.begin(), texts.end()),
              std::multiset<std::string>(newest.begin(), newest.end()));
}

TEST_F(KTEventActionMailQueueTest, The129thDropsTheOldestAndTheTurnStaysUnlessItWasItsTurn)
{
    const struct
    {
        int turn;
        const char* before;
        const char* after;
    } rows[] = {{0, "0", "1"}, {1, "1", "1"}, {64, "64", "64"}, {127, "127", "127"}, {128, "end", "end"}};
    const TestNoThreads none;
    for (const auto& row : rows)
    {
        TestQueue queue;
        for (const std::string& text : Numbers(0, 128)) queue.Add(text);
        EXPECT_EQ(queue.Waiting(), Numbers(0, 128));
        queue.PutCursor(row.turn);
        EXPECT_EQ(queue.AtCursor(), row.before);
        queue.Add("128");
        EXPECT_EQ(queue.Waiting(), Numbers(1, 129));
        EXPECT_EQ(queue.AtCursor(), row.after);
    }
}

TEST_F(KTEventActionMailQueueTest, WithoutAThreadAMailWaitsForTheNextOneThatGetsIt)
{
    TestQueue queue;
    {
        const TestNoThreads none;
        queue.Add("first");
        EXPECT_EQ(queue.State(), TestQueue::starting);
        queue.Add("second");
        EXPECT_EQ(queue.Waiting(), (std::vector<std::string>{"first", "second"}));
    }
    queue.Add("third");
    ASSERT_TRUE(Arrived(3));
    EXPECT_EQ(mails.Texts(), (std::vector<std::string>{"first", "second", "third"}));
}

TEST_F(KTEventActionMailQueueTest, GoesWithoutEverHavingHadAThread)
{
    const TestNoThreads none;
    TestQueue queue;
    queue.Add("lost");
    EXPECT_EQ(queue.State(), TestQueue::starting);
}

TEST_F(KTEventActionMailQueueTest, AMutexThatTheCallerHoldsLeavesTheMailUnqueued)
{
    const TestNoThreads none;
    TestQueue queue;
    {
        const KTLockGuard guard(queue.mutex);
        ASSERT_TRUE(guard.Locked());
        queue.Add("unqueued");
    }
    EXPECT_TRUE(queue.Waiting().empty());
    queue.Add("queued");
    EXPECT_EQ(queue.Waiting(), std::vector<std::string>{"queued"});
}

TEST_F(KTEventActionMailQueueTest, ItsEndFinishesTheDialogueAndLosesWhatWaits)
{
    std::atomic<bool> inDialogue{false};
    std::atomic<bool> goOn{false};
    mails.SetAnswer(
        [&](const std::string& command)
        {
            if (command.starts_with("DATA"))
            {
                inDialogue = true;
                while (!goOn) std::this_thread::sleep_for(milliseconds(1));
            }
            return std::string();
        });
    auto queue = std::make_unique<TestQueue>();
    {
        const TestNoThreads none;
        queue->Add("on its way");
        queue->Add("lost");
    }
    queue->Add("lost as well");
    ASSERT_TRUE(Eventually([&] { return inDialogue.load(); }));
    std::future<void> end = std::async(std::launch::async, [&queue] { queue.reset(); });
    EXPECT_EQ(end.wait_for(milliseconds(100)), std::future_status::timeout);
    goOn = true;
    end.get();
    EXPECT_EQ(mails.Texts(), std::vector<std::string>{"on its way"});
    EXPECT_EQ(mails.server.Connections(), 1);
}

TEST_F(KTEventActionMailQueueTest, ItsEndMayMeetTheEndOfTheWorker)
{
    const HastyClock clock;
    for (int i = 0; i < 300; ++i)
    {
        auto queue = std::make_unique<TestQueue>();
        queue->Add(std::to_string(i));
        const std::size_t sent = static_cast<std::size_t>(i) + 1;
        while (mails.Count() < sent) std::this_thread::yield();
        for (int spin = 0; spin < i % 50 * 200; ++spin) std::atomic_signal_fence(std::memory_order_seq_cst);
        queue.reset();
    }
    EXPECT_EQ(mails.Count(), 300U);
}

TEST_F(KTEventActionMailQueueTest, ProducersOnTwoThreadsLoseAndDoubleNothing)
{
    TestQueue queue;
    const auto produce = [&](const std::string& name)
    {
        for (const std::string& number : Numbers(0, 60)) queue.Add(name + number);
    };
    std::thread other([&] { produce("b"); });
    produce("a");
    other.join();
    ASSERT_TRUE(Arrived(120));
    ASSERT_TRUE(IsStopped(queue));
    const std::vector<std::string> texts = mails.Texts();
    EXPECT_EQ(std::set<std::string>(texts.begin(), texts.end()).size(), 120U);
    EXPECT_EQ(texts.size(), 120U);
    // Each producer's own stay in order.
    for (const char producer : {'a', 'b'})
    {
        int next = 0;
        for (const std::string& text : texts)
        {
            if (text[0] != producer) continue;
            EXPECT_EQ(text.substr(1), std::to_string(next++));
        }
    }
}

TEST_F(KTEventActionMailQueueTest, AMailAddedAtTheEndOfARunIsNeverLeftBehind)
{
    const HastyClock clock;
    TestQueue queue;
    // Two producers, each adding right when the worker, having sent the last mail, is about to end.
    constexpr std::size_t rounds = 400;
    std::atomic<std::size_t> round{0};
    std::thread other(
        [&]
        {
            for (std::size_t i = 1; i <= rounds; ++i)
            {
                while (round < i) std::this_thread::yield();
                queue.Add("b");
            }
        });
    std::size_t arrived = 0;
    for (std::size_t i = 1; i <= rounds && arrived == 2 * (i - 1); ++i)
    {
        round = i;
        for (std::size_t spin = 0; spin < i % 40 * 300; ++spin) std::atomic_signal_fence(std::memory_order_seq_cst);
        queue.Add("a");
        // Nothing more is added until both are there: one left behind would stay so.
        if (Arrived(2 * i)) arrived = mails.Count();
    }
    round = rounds;
    other.join();
    EXPECT_EQ(arrived, 2 * rounds);
    EXPECT_TRUE(IsStopped(queue));
}

TEST_F(KTEventActionMailQueueTest, EachRunHasTheSettingsOfItsBegin)
{
    TestQueue queue;
    queue.Add("first");
    ASSERT_TRUE(Arrived(1));
    ASSERT_TRUE(IsStopped(queue));
    EXPECT_EQ(mails.Mails()[0].commands[1], "MAIL FROM: <plant@example.org>\r\n");
    const MailCollector others;
    SetServer(others.server.Address(), "tim");
    queue.Add("second");
    ASSERT_TRUE(Eventually([&] { return others.Count() == 1; }));
    ASSERT_TRUE(IsStopped(queue));
    EXPECT_EQ(others.Mails()[0].commands[1], "AUTH PLAIN AHRpbQBzZWNyZXQ=\r\n");
    EXPECT_EQ(mails.Count(), 1U);
}

TEST_F(KTEventActionMailQueueTest, AServerThatIsNotThereCostsNothingButTheOldest)
{
    int port = 0;
    {
        const ScriptedMailServer gone([](MailSession&) {});
        port = gone.Port();
    }
    SetServer("127.0.0.1:" + std::to_string(port));
    TestQueue queue;
    for (const std::string& text : Numbers(0, 150)) queue.Add(text);
    EXPECT_EQ(queue.State(), TestQueue::running);
}
