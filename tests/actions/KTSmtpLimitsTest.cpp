// The client and a server that is slow, or gone.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "actions/KTSmtp.h"
#include "actions/ScriptedMailServer.h"
#include "host/KTClock.h"

namespace
{
using std::chrono::milliseconds;

// Its ticks are what the test says; counts how often it was asked.
class TickClock : public KTClock
{
public:
    TickClock() : before(Install(this)) {}
    ~TickClock() override { Install(before); }

    KTDateTime UTC() override { return {}; }
    KTDateTime LTC() override { return {}; }
    std::uint32_t TickCount() override
    {
        {
            const std::lock_guard guard(mutex);
            ++asked[std::this_thread::get_id()];
        }
        return ticks.fetch_add(step);
    }
    void Sleep(std::uint32_t) override {}
    void SetScanThread(bool) override {}

    void Advance(std::uint32_t count) { ticks += count; }
    /// Waits until each of these threads has asked again so often.
    void WaitForQuestions(int count, const std::vector<std::thread::id>& threads)
    {
        std::map<std::thread::id, int> until;
        for (const std::thread::id thread : threads) until[thread] = Asked(thread) + count;
        for (const std::thread::id thread : threads)
            while (Asked(thread) < until[thread]) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    void WaitForQuestions(int count, std::thread::id thread) { WaitForQuestions(count, std::vector{thread}); }

    std::atomic<std::uint32_t> ticks{0xFFFFF000};  // wraps within the limit
    std::atomic<std::uint32_t> step{0};            // of each question

private:
    int Asked(std::thread::id thread)
    {
        const std::lock_guard guard(mutex);
        return asked[thread];
    }

    std::mutex mutex;
    std::map<std::thread::id, int> asked;  // how often
    KTClock* const before;
};

struct Turn
{
    std::string end;  // of what the client sends
    std::string reply;
};
const std::string signedIn = "235 in\r\n";
std::vector<Turn> Dialogue(const std::string& mechanism, const std::vector<Turn>& signIn)
{
    std::vector<Turn> turns = {{"\r\n", "220 mx\r\n250 AUTH " + mechanism + "\r\n"}};
    turns.insert(turns.end(), signIn.begin(), signIn.end());
    for (const char* reply : {"250 from\r\n", "250 to\r\n", "354 go on\r\n"}) turns.push_back({"\r\n", reply});
    turns.push_back({"\r\n.\r\n", "250 taken\r\n"});
    turns.push_back({"\r\n", "221 bye\r\n"});
    return turns;
}
const std::vector<std::vector<Turn>> dialogues = {
    Dialogue("LOGIN", {{"\r\n", "334 user\r\n"}, {"\r\n", "334 password\r\n"}, {"\r\n", signedIn}}),
    Dialogue("PLAIN", {{"\r\n", signedIn}}),
    Dialogue("CRAM-MD5", {{"\r\n", "334 YWJj\r\n"}, {"\r\n", signedIn}}),
};

std::unique_ptr<KTSmtp> Client(const ScriptedMailServer& server, int timeout = 0)
{
    auto smtp = std::make_unique<KTSmtp>(server.Address().c_str(), KTSmtp::usualPort, timeout);
    smtp->SetFrom("plant@example.org");
    smtp->SetUserPassword("tim", "secret");
    smtp->AddTo("ana@example.org");
    return smtp;
}

void IsTimedOut(KTSmtp& smtp, std::future<bool>& sent)
{
    EXPECT_FALSE(sent.get());
    EXPECT_EQ(smtp.ErrorCode(), 999);
    EXPECT_STREQ(smtp.ErrorMsg().Str(), "999 Communication timeout");
}

bool StillWaits(std::future<bool>& sent) { return sent.wait_for(milliseconds(0)) == std::future_status::timeout; }

// Sends on a thread of its own, and tells which.
std::future<bool> SendInBackground(KTSmtp& smtp, std::thread::id& thread)
{
    std::promise<std::thread::id> started;
    std::future<bool> sent = std::async(std::launch::async,
                                        [&smtp, &started]
                                        {
                                            started.set_value(std::this_thread::get_id());
                                            return smtp.Send("subject", "text");
                                        });
    thread = started.get_future().get();
    return sent;
}

enum class Way
{
    silent,
    closes,
    resets
};

// Answers the turns before `last` and then, having heard the client's command or not, does as `way` says.
class FailingServer
{
public:
    FailingServer(const std::vector<Turn>& turns, std::size_t last, Way way)
        : server(
              [this, turns, last, way](MailSession& session)
              {
                  for (std::size_t i = 0; i <= last; ++i)
                  {
                      EXPECT_FALSE(session.ReadTo(turns[i].end).empty());
                      if (i < last) session.Say(turns[i].reply);
                  }
                  reached = true;
                  if (way == Way::silent)
                  {
                      EXPECT_EQ(session.Rest(), "");
                  }
                  if (way == Way::resets) session.ResetAtClose();
              })
    {
    }

    void WaitReached() const
    {
        while (!reached) std::this_thread::sleep_for(milliseconds(1));
    }

    std::atomic<bool> reached{false};
    const ScriptedMailServer server;
};

// One client and its server.
struct Attempt
{
    Attempt(const std::vector<Turn>& turns, std::size_t turn, Way way)
        : name(turns[0].reply + "turn " + std::to_string(turn) + ", way " + std::to_string(static_cast<int>(way))),
          failing(turns, turn, way),
          smtp(Client(failing.server)),
          sent(SendInBackground(*smtp, thread))
    {
    }

    const std::string name;
    const FailingServer failing;
    const std::unique_ptr<KTSmtp> smtp;
    std::thread::id thread;
    std::future<bool> sent;
};
}  // namespace

TEST(KTSmtpLimits, EachReplyIsAwaitedForFiveSecondsWhateverBecomesOfTheConnection)
{
    // A signal about a broken connection would end the process here.
    const auto before = std::signal(SIGPIPE, SIG_DFL);
    TickClock clock;
    std::vector<std::unique_ptr<Attempt>> attempts;
    for (const auto& turns : dialogues)
        for (std::size_t turn = 0; turn < turns.size(); ++turn)
            for (const Way way : {Way::silent, Way::closes, Way::resets})
                attempts.push_back(std::make_unique<Attempt>(turns, turn, way));
    std::vector<std::thread::id> threads;
    for (const auto& attempt : attempts)
    {
        attempt->failing.WaitReached();
        threads.push_back(attempt->thread);
    }
    clock.WaitForQuestions(3, threads);  // by now each has noted the start of its reply
    clock.Advance(KTSmtp::replyTimeout - 1);
    clock.WaitForQuestions(2, threads);
    for (const auto& attempt : attempts) EXPECT_TRUE(StillWaits(attempt->sent)) << attempt->name;
    clock.Advance(1);
    for (const auto& attempt : attempts)
    {
        SCOPED_TRACE(attempt->name);
        IsTimedOut(*attempt->smtp, attempt->sent);
    }
    (void)std::signal(SIGPIPE, before);
}

TEST(KTSmtpLimits, TheReplyToEhloHasALimitOfItsOwn)
{
    TickClock clock;
    std::atomic<bool> heard{false};
    std::atomic<bool> greet{false};
    const ScriptedMailServer server(
        [&](MailSession& session)
        {
            (void)session.ReadTo("\r\n");
            heard = true;
            while (!greet) std::this_thread::sleep_for(milliseconds(1));
            session.Say("220 mx\r\n");
            EXPECT_EQ(session.Rest(), "");
        });
    const auto smtp = Client(server);
    std::thread::id thread;
    std::future<bool> sent = SendInBackground(*smtp, thread);
    while (!heard) std::this_thread::sleep_for(milliseconds(1));
    clock.WaitForQuestions(3, thread);
    clock.Advance(4900);
    greet = true;
    clock.WaitForQuestions(5, thread);  // some of them behind the greeting
    clock.Advance(4999);
    clock.WaitForQuestions(2, thread);
    EXPECT_TRUE(StillWaits(sent));
    clock.Advance(1);
    IsTimedOut(*smtp, sent);
}

TEST(KTSmtpLimits, TheTimeoutOfTheCallerIsAdded)
{
    const struct
    {
        int timeout;
        std::uint32_t waits;  // milliseconds
    } rows[] = {{1000, 6000}, {-4000, 1000}};
    for (const auto& row : rows)
    {
        TickClock clock;
        const FailingServer failing(dialogues[0], 0, Way::silent);
        const auto smtp = Client(failing.server, row.timeout);
        std::thread::id thread;
        std::future<bool> sent = SendInBackground(*smtp, thread);
        failing.WaitReached();
        clock.WaitForQuestions(3, thread);
        clock.Advance(row.waits - 1);
        clock.WaitForQuestions(2, thread);
        EXPECT_TRUE(StillWaits(sent));
        clock.Advance(1);
        IsTimedOut(*smtp, sent);
    }
}

TEST(KTSmtpLimits, ALimitOfNothingHasPassedAtOnce)
{
    for (const int timeout : {-5000, -6000})
    {
        const TickClock clock;
        const ScriptedMailServer server([](MailSession& session) { EXPECT_EQ(session.Rest(), "EHLO server\r\n"); });
        const auto smtp = Client(server, timeout);
        std::thread::id thread;
        std::future<bool> sent = SendInBackground(*smtp, thread);
        IsTimedOut(*smtp, sent);
    }
}

TEST(KTSmtpLimits, NobodyLooksAtTheLimitWhileBytesKeepComing)
{
    TickClock clock;
    const ScriptedMailServer server(
        [&](MailSession& session)
        {
            // The reply is there before it is read, and each look at the clock costs more than half of the limit.
            session.Say("220 mx\r\n");
            std::string reply;
            for (int i = 0; i < 100; ++i) reply += "250-line " + std::to_string(i) + "\r\n";
            session.Say(reply + "550 end\r\n");
            EXPECT_EQ(session.Rest(), "EHLO server\r\n");
        });
    clock.step = 3000;
    const auto smtp = Client(server);
    EXPECT_FALSE(smtp->Send("subject", "text"));
    EXPECT_STREQ(smtp->ErrorMsg().Str(), "550 end");
}

TEST(KTSmtpLimits, APauseDropsWhatCameOfTheLine)
{
    const ScriptedMailServer server(
        [](MailSession& session)
        {
            session.Say("220 mx\r\n554 no");
            std::this_thread::sleep_for(milliseconds(400));
            session.Say("250 mx\r\n");
            EXPECT_EQ(session.ReadTo("\r\n"), "EHLO server\r\n");
            EXPECT_EQ(session.ReadTo("\r\n"), "MAIL FROM: <plant@example.org>\r\n");
            session.Say("550 enough\r\n");
        });
    KTSmtp smtp(server.Address().c_str(), KTSmtp::usualPort, 0);
    smtp.SetFrom("plant@example.org");
    smtp.AddTo("ana@example.org");
    EXPECT_FALSE(smtp.Send("subject", "text"));
    EXPECT_STREQ(smtp.ErrorMsg().Str(), "550 enough");
}

TEST(KTSmtpLimits, ALineMayComeByteByByte)
{
    const ScriptedMailServer server(
        [](MailSession& session)
        {
            for (const char c : std::string("220 mx\r\n250-a\r\n250 b\r\n"))
            {
                session.Say(std::string(1, c));
                std::this_thread::sleep_for(milliseconds(2));
            }
            EXPECT_EQ(session.ReadTo("\r\n"), "EHLO server\r\n");
            EXPECT_EQ(session.ReadTo("\r\n"), "MAIL FROM: <plant@example.org>\r\n");
            session.Say("550 enough\r\n");
        });
    KTSmtp smtp(server.Address().c_str(), KTSmtp::usualPort, 0);
    smtp.SetFrom("plant@example.org");
    smtp.AddTo("ana@example.org");
    EXPECT_FALSE(smtp.Send("subject", "text"));
    EXPECT_STREQ(smtp.ErrorMsg().Str(), "550 enough");
}
