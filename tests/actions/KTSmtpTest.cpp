#include "actions/KTSmtp.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "actions/ScriptedMailServer.h"

namespace
{
// What the client sends, and what it is then answered.
struct Turn
{
    std::string client;
    std::string server;
};
using Turns = std::vector<Turn>;

const std::string mailHead =
    "From: plant@example.org\r\n"
    "To: ana@example.org; olga@example.org\r\n"
    "Subject: =?UTF-8?B?UHJlc3N1cmUg4oCTIDcgYmFy?=\r\n"
    "Content-Type: text/plain; charset=UTF-8\r\n"
    "MIME-Version: 1.0 \r\n";
constexpr const char* subject = "Pressure \xE2\x80\x93 7 bar";
constexpr const char* text = "Pump 3\nis d\xC3\xA9j\xC3\xA0 off";

const std::string mail = mailHead + "Content-Transfer-Encoding: quoted-printable\r\n\r\n" + text + "\r\n.\r\n";

Turns Dialogue(const std::string& offer, const Turns& signIn = {})
{
    Turns turns = {{"EHLO server\r\n", "220 mx ready\r\n" + offer}};
    turns.insert(turns.end(), signIn.begin(), signIn.end());
    const Turns rest = {
        {"MAIL FROM: <plant@example.org>\r\n", "250 sender ok\r\n"},
        {"RCPT TO: <ana@example.org>\r\n", "250 ana ok\r\n"},
        {"RCPT TO: <olga@example.org>\r\n", "251 olga elsewhere\r\n"},
        {"DATA\r\n", "354 go on\r\n"},
        {mail, "250 taken\r\n"},
        {"QUIT\r\n", "221 bye\r\n"},
    };
    turns.insert(turns.end(), rest.begin(), rest.end());
    return turns;
}

const Turns login = {
    {"AUTH LOGIN\r\n", "334 VXNlcm5hbWU6\r\n"},
    {"dGlt\r\n", "334 UGFzc3dvcmQ6\r\n"},
    {"dGFuc3RhYWZ0YW5zdGFhZg==\r\n", "235 welcome\r\n"},
};
const Turns plain = {{"AUTH PLAIN AHRpbQB0YW5zdGFhZnRhbnN0YWFm\r\n", "235 welcome\r\n"}};
// The example of RFC 2195.
const Turns cramMd5 = {
    {"AUTH CRAM-MD5\r\n", "334 PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+\r\n"},
    {"dGltIGI5MTNhNjAyYzdlZGE3YTQ5NWI0ZTZlNzMzNGQzODkw\r\n", "235 welcome\r\n"},
};

// Keeps to these turns; afterwards the client sends nothing more.
ScriptedMailServer::Script Follow(const Turns& turns)
{
    return [turns](MailSession& session)
    {
        for (const Turn& turn : turns)
        {
            if (!session.Expect(turn.client)) return;
            session.Say(turn.server);
        }
        EXPECT_EQ(session.Rest(), "");
    };
}

std::unique_ptr<KTSmtp> Client(const ScriptedMailServer& server, bool signsIn = false)
{
    auto smtp = std::make_unique<KTSmtp>(server.Address().c_str(), KTSmtp::usualPort, 0);
    smtp->SetFrom("plant@example.org");
    if (signsIn) smtp->SetUserPassword("tim", "tanstaaftanstaaf");
    smtp->AddTo("ana@example.org");
    smtp->AddTo("olga@example.org");
    return smtp;
}

void Fails(KTSmtp& smtp, int code, const std::string& message)
{
    EXPECT_FALSE(smtp.Send(subject, text)) << message;
    EXPECT_EQ(smtp.ErrorCode(), code) << message;
    EXPECT_STREQ(smtp.ErrorMsg().Str(), message.c_str());
}

void Succeeds(KTSmtp& smtp)
{
    EXPECT_TRUE(smtp.Send(subject, text)) << smtp.ErrorMsg().Str();
    EXPECT_EQ(smtp.ErrorCode(), 0);
    EXPECT_STREQ(smtp.ErrorMsg().Str(), "");
}

// The turns up to number `last`, with another answer there.
Turns Until(Turns turns, std::size_t last, const std::string& answer)
{
    turns.resize(last + 1);
    turns[last].server = answer;
    return turns;
}
}  // namespace

TEST(KTSmtp, SendsTheseBytesInTheseTurns)
{
    const struct
    {
        const char* name;
        bool signsIn;
        Turns turns;
    } rows[] = {
        {"without signing in", false, Dialogue("250 mx\r\n")},
        {"LOGIN", true, Dialogue("250-mx\r\n250 AUTH LOGIN\r\n", login)},
        {"PLAIN", true, Dialogue("250-mx\r\n250 AUTH PLAIN\r\n", plain)},
        {"CRAM-MD5", true, Dialogue("250-mx\r\n250 AUTH CRAM-MD5\r\n", cramMd5)},
        {"LOGIN before CRAM-MD5", true, Dialogue("250 AUTH CRAM-MD5 LOGIN\r\n", login)},
        {"LOGIN before PLAIN", true, Dialogue("250 AUTH PLAIN LOGIN\r\n", login)},
        {"PLAIN before CRAM-MD5", true, Dialogue("250 AUTH CRAM-MD5 PLAIN\r\n", plain)},
        {"an offer is ignored without an account", false, Dialogue("250 AUTH LOGIN PLAIN CRAM-MD5\r\n")},
        {"words count wherever they stand", true, Dialogue("250-LOGIN here\r\n250-no\r\n250 XAUTHX\r\n", login)},
        {"the words may stand on other lines", true, Dialogue("250-CRAM-MD5\r\n250-AUTH\r\n250 end\r\n", cramMd5)},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.name);
        const ScriptedMailServer server(Follow(row.turns));
        Succeeds(*Client(server, row.signsIn));
        EXPECT_EQ(server.Connections(), 1);
    }
}

TEST(KTSmtp, SaysEhloBeforeTheGreeting)
{
    const ScriptedMailServer server(
        [](MailSession& session)
        {
            if (!session.Expect("EHLO server\r\n")) return;  // nothing has been said so far
            session.Say("220 mx ready\r\n");
            session.Say("250 mx\r\n");
            if (!session.Expect("MAIL FROM: <plant@example.org>\r\n")) return;
            session.Say("421 enough\r\n");
            EXPECT_EQ(session.Rest(), "");
        });
    Fails(*Client(server), 421, "421 enough");
}

TEST(KTSmtp, TheGreetingMayComeFirstToo)
{
    Turns turns = Dialogue("250 mx\r\n");
    const ScriptedMailServer server(
        [turns](MailSession& session)
        {
            session.Say("220-mx\r\n220 ready\r\n");
            EXPECT_TRUE(session.Expect("EHLO server\r\n"));
            session.Say("250 mx\r\n");
            Follow(Turns(turns.begin() + 1, turns.end()))(session);
        });
    Succeeds(*Client(server));
}

TEST(KTSmtp, EndsAtTheFirstRefusalWithTheServersCodeAndLine)
{
    const struct
    {
        const char* name;
        bool signsIn;
        Turns turns;
    } dialogues[] = {
        {"without signing in", false, Dialogue("250 mx\r\n")},
        {"LOGIN", true, Dialogue("250 AUTH LOGIN\r\n", login)},
        {"PLAIN", true, Dialogue("250 AUTH PLAIN\r\n", plain)},
        {"CRAM-MD5", true, Dialogue("250 AUTH CRAM-MD5\r\n", cramMd5)},
    };
    for (const auto& dialogue : dialogues)
        for (std::size_t turn = 0; turn < dialogue.turns.size(); ++turn)
        {
            SCOPED_TRACE(dialogue.name + std::string(", ") + dialogue.turns[turn].client);
            const ScriptedMailServer server(Follow(Until(dialogue.turns, turn, "550 not you\r\n")));
            Fails(*Client(server, dialogue.signsIn), 550, "550 not you");
        }
}

TEST(KTSmtp, TheReplyToEhloCanBeARefusalToo)
{
    const ScriptedMailServer server(Follow(Until(Dialogue(""), 0, "220 mx\r\n502 what?\r\n")));
    Fails(*Client(server), 502, "502 what?");
}

TEST(KTSmtp, TakesOnlyTheClassThatATurnWants)
{
    const struct
    {
        std::size_t turn;
        const char* reply;
        int code;  // 0: it goes on
    } rows[] = {
        {1, "199 x\r\n", 199}, {1, "200 x\r\n", 0},   {1, "299 x\r\n", 0},   {1, "300 x\r\n", 300},
        {4, "299 x\r\n", 299}, {4, "300 x\r\n", 0},   {4, "399 x\r\n", 0},   {4, "400 x\r\n", 400},
        {4, "250 x\r\n", 250}, {5, "354 x\r\n", 354}, {6, "354 x\r\n", 354}, {6, "299 x\r\n", 0},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.reply);
        Turns turns = Dialogue("250 mx\r\n");
        turns[row.turn].server = row.reply;
        if (row.code != 0) turns.resize(row.turn + 1);
        const ScriptedMailServer server(Follow(turns));
        const auto smtp = Client(server);
        if (row.code == 0)
            Succeeds(*smtp);
        else
            Fails(*smtp, row.code, std::string(row.reply, 5));
    }
}

TEST(KTSmtp, ARefusalOfTheLastTurnFailsAMailThatTheServerHas)
{
    const ScriptedMailServer server(Follow(Until(Dialogue("250 mx\r\n"), 6, "421 too late\r\n")));
    Fails(*Client(server), 421, "421 too late");
}

TEST(KTSmtp, ReadsAReplyOfManyLinesAsOneText)
{
    const struct
    {
        const char* reply;
        bool offered;
    } rows[] = {
        {"250-8BITMIME\r\n250-mx\r\n250 end\r\n", true},
        {"250-mx\r\n250-8BITMIME\r\n250 end\r\n", true},
        {"250-mx\r\n250-mx\r\n250 8BITMIME\r\n", true},
        {"250-x8BITMIMEx\r\n250 end\r\n", true},
        {"250 8bitmime\r\n", false},
        {"250-mx 8BITMI\r\n250 ME\r\n", false},  // the second code stands between
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.reply);
        Turns turns = Dialogue(row.reply);
        if (row.offered) turns[5].client = mailHead + "Content-Transfer-Encoding: 8bit\r\n\r\n" + text + "\r\n.\r\n";
        const ScriptedMailServer server(Follow(turns));
        Succeeds(*Client(server));
    }
}

TEST(KTSmtp, AFirstLineOutOfClassEndsAtOnceAndTheRestStaysUnread)
{
    // The rest never comes, and nobody waits for it.
    const ScriptedMailServer server(Follow(Until(Dialogue("250 mx\r\n"), 2, "550-no\r\n550-such\r\n")));
    Fails(*Client(server), 550, "550-no");
}

TEST(KTSmtp, ALaterLineOutOfClassEndsWithItsCode)
{
    const ScriptedMailServer server(Follow(Until(Dialogue("250 mx\r\n"), 2, "250-yes\r\n450 but no\r\n")));
    Fails(*Client(server), 450, "450 but no");
}

TEST(KTSmtp, ALineOfThreeBytesEndsAReply)
{
    Turns turns = Dialogue("250-mx\r\n250\r\n");
    turns[1].server = "250\r\n";
    turns[4].server = "354\r\n";
    const ScriptedMailServer server(Follow(turns));
    Succeeds(*Client(server));
}

TEST(KTSmtp, ALineOfFewerBytesIsBadSyntax)
{
    for (const char* reply : {"\r\n", "2\r\n", "25\r\n"})
    {
        SCOPED_TRACE(reply);
        const ScriptedMailServer server(Follow(Until(Dialogue("250 mx\r\n"), 1, reply)));
        Fails(*Client(server), 999, "999 Bad return syntax");
    }
}

TEST(KTSmtp, CountsCodesWithoutAskingForDigits)
{
    const struct
    {
        const char* line;
        int code;  // 0: it goes on
    } rows[] = {
        {"1:0 is 200", 0}, {"0D0 is 200", 0}, {"2.9 is 189", 189}, {"abc", 100 * 49 + 10 * 50 + 51}, {"   ", -16 * 111},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.line);
        Turns turns = Dialogue("250 mx\r\n");
        turns[1].server = row.line + std::string("\r\n");
        if (row.code != 0) turns.resize(2);
        const ScriptedMailServer server(Follow(turns));
        const auto smtp = Client(server);
        if (row.code == 0)
            Succeeds(*smtp);
        else
            Fails(*smtp, row.code, row.line);
    }
}

TEST(KTSmtp, ALineHasRoomFor512BytesWithItsEnd)
{
    const std::string longest = "250 " + std::string(506, 'x');
    const struct
    {
        std::string reply;
        int code;
        std::string message;
    } rows[] = {
        {longest + "\r\n", 0, ""},
        {"550 " + std::string(506, 'y') + "\r\n", 550, "550 " + std::string(506, 'y')},
        // One byte more: the first 512 are dropped, and what follows is a line of its own.
        {longest + "x\r\n", 999, ""},
        {longest + "xx" + "250 ok\r\n", 0, ""},
        {longest + "xx" + "\r\n", 999, "999 Bad return syntax"},
        {std::string(1024, 'z') + "550 after\r\n", 550, "550 after"},
        {"250 a\rb\nc\n\rd\r\n", 0, ""},  // only the pair ends a line
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.reply.substr(0, 20) + " of " + std::to_string(row.reply.size()));
        // Where the end of the line is cut in two, "\n" and the next line are one that has no code.
        const bool cut = row.reply.size() == 513;
        Turns turns = Dialogue("250 mx\r\n");
        turns[1].server = row.reply + (cut ? "250 ok\r\n" : "");
        if (row.code != 0) turns.resize(2);
        const ScriptedMailServer server(Follow(turns));
        const auto smtp = Client(server);
        if (row.code == 0)
            Succeeds(*smtp);
        else if (cut)
            Fails(*smtp, 100 * ('\n' - '0') + 10 * 2 + 5, "\n250 ok");
        else
            Fails(*smtp, row.code, row.message);
    }
}

TEST(KTSmtp, RefusesAnAccountThatItDoesNotHave)
{
    const struct
    {
        const char* user;
        const char* password;
        const char* message;
    } rows[] = {
        {nullptr, "secret", "999 Invalid user"},
        {nullptr, nullptr, "999 Invalid user"},
        {"tim", nullptr, "999 Invalid password"},
    };
    for (const auto& row : rows)
    {
        const ScriptedMailServer server(Follow(Until(Dialogue(""), 0, "220 mx\r\n250 AUTH LOGIN\r\n")));
        const auto smtp = Client(server);
        smtp->SetUserPassword(row.user, row.password);
        Fails(*smtp, 999, row.message);
    }
}

TEST(KTSmtp, KnowsNoOtherWayToSignIn)
{
    for (const char* offer : {"250 mx\r\n", "250-mx\r\n250 AUTH GSSAPI\r\n", "250 LOGIN PLAIN MD5\r\n",
                              "250 auth login\r\n", "250-LOGIN\r\n250-PLAIN\r\n250 CRAM-MD5 Auth\r\n"})
    {
        SCOPED_TRACE(offer);
        const ScriptedMailServer server(Follow(Until(Dialogue(""), 0, "220 mx\r\n" + std::string(offer))));
        Fails(*Client(server, true), 999, "999 Unknown SMTP authentication mode");
    }
}

TEST(KTSmtp, NeedsASenderAndARecipientAfterSigningIn)
{
    const Turns signIn = Dialogue("250 AUTH PLAIN\r\n", plain);
    const Turns until(signIn.begin(), signIn.begin() + 2);
    {
        const ScriptedMailServer server(Follow(until));
        const auto smtp = Client(server, true);
        smtp->ResetTo();
        Fails(*smtp, 999, "999 Invalidt to value");
    }
    {
        const ScriptedMailServer server(Follow(until));
        const auto smtp = Client(server, true);
        smtp->SetFrom(nullptr);
        Fails(*smtp, 999, "999 Invalid from value");
    }
    {
        const ScriptedMailServer server(Follow(until));
        const auto smtp = Client(server, true);
        smtp->SetFrom(nullptr);
        smtp->ResetTo();
        Fails(*smtp, 999, "999 Invalid from value");
    }
}

TEST(KTSmtp, TellsThatNobodyAnswers)
{
    int port = 0;
    {
        const ScriptedMailServer gone([](MailSession&) {});
        port = gone.Port();
    }
    for (const std::string& server : {"127.0.0.1:" + std::to_string(port), std::string(), std::string("127.0.0.1:x")})
    {
        SCOPED_TRACE(server);
        KTSmtp smtp(server.c_str(), 25, 0);
        Fails(smtp, 999, "999 Unable open connection to smtp server");
    }
    KTSmtp smtp(nullptr, 25, 0);
    Fails(smtp, 999, "999 Unable open connection to smtp server");
}

TEST(KTSmtp, TheTextGoesOutAsItIs)
{
    const std::string raw = "one\ntwo\rthree\r\n..four\r\n.five\r\n\xFF\xFE\r\n";
    const ScriptedMailServer server(
        [&](MailSession& session)
        {
            Turns turns = Dialogue("250 mx\r\n");
            for (std::size_t i = 0; i < 5; ++i)
            {
                session.Expect(turns[i].client);
                session.Say(turns[i].server);
            }
            const std::string head = session.ReadTo("\r\n\r\n");
            session.Expect(raw + "\r\n.\r\n");
            session.Say("250 taken\r\n");
            session.Expect("QUIT\r\n");
            session.Say("221 bye\r\n");
        });
    const auto smtp = Client(server);
    EXPECT_TRUE(smtp->Send(subject, raw.c_str()));
}

TEST(KTSmtp, ALoneDotEndsTheMailEarly)
{
    const ScriptedMailServer server(
        [](MailSession& session)
        {
            Turns turns = Dialogue("250 mx\r\n");
            for (std::size_t i = 0; i < 5; ++i)
            {
                session.Expect(turns[i].client);
                session.Say(turns[i].server);
            }
            EXPECT_TRUE(session.ReadTo("\r\n.\r\n").ends_with("\r\n\r\nbefore\r\n.\r\n"));
            session.Say("250 taken\r\n");
            // The rest of the text is a command to a server, and so is the end of the mail.
            EXPECT_EQ(session.ReadTo("\r\n"), "after\r\n");
            session.Say("500 what?\r\n");
            EXPECT_EQ(session.ReadTo("\r\n"), ".\r\n");
        });
    const auto smtp = Client(server);
    EXPECT_FALSE(smtp->Send(subject, "before\r\n.\r\nafter"));
    EXPECT_EQ(smtp->ErrorCode(), 500);
}

TEST(KTSmtp, ALongSubjectStaysInOnePieceAndALongTextIsWhole)
{
    const std::string longSubject(3000, 's');
    const std::string longText(5'000'000, 't');
    const ScriptedMailServer server(
        [&](MailSession& session)
        {
            Turns turns = Dialogue("250 mx\r\n");
            for (std::size_t i = 0; i < 5; ++i)
            {
                session.Expect(turns[i].client);
                session.Say(turns[i].server);
            }
            const std::string head = session.ReadTo("\r\n\r\n");
            std::string encoded;
            for (int i = 0; i < 1000; ++i) encoded += "c3Nz";
            EXPECT_NE(head.find("\r\nSubject: =?UTF-8?B?" + encoded + "?=\r\n"), std::string::npos);
            EXPECT_TRUE(session.ReadTo("\r\n.\r\n") == longText + "\r\n.\r\n");
            session.Say("250 taken\r\n");
            session.Expect("QUIT\r\n");
            session.Say("221 bye\r\n");
        });
    EXPECT_TRUE(Client(server)->Send(longSubject.c_str(), longText.c_str()));
}

TEST(KTSmtp, ACommandThatDoesNotFitIsNotSent)
{
    const std::string fits(512 - 1 - std::string("MAIL FROM: <>\r\n").size(), 'f');
    Turns turns = Dialogue("250 mx\r\n");
    turns[1] = {"MAIL FROM: <" + fits + ">\r\n", "250 ok\r\n"};
    turns[2].server = "550 enough\r\n";
    turns.resize(3);
    {
        const ScriptedMailServer server(Follow(turns));
        const auto smtp = Client(server);
        smtp->SetFrom(fits.c_str());
        Fails(*smtp, 550, "550 enough");
    }
    turns.resize(1);
    const ScriptedMailServer server(Follow(turns));
    const auto smtp = Client(server);
    smtp->SetFrom((fits + "f").c_str());
    Fails(*smtp, 999, "999 Command too long");
}

TEST(KTSmtp, AnObjectSendsAnyNumberOfMailsAndFindsTheServerAnewEachTime)
{
    int connection = 0;
    const ScriptedMailServer server(
        [&](MailSession& session)
        {
            Turns turns = Dialogue("250 mx\r\n");
            switch (connection++)
            {
                case 0:
                    turns = Dialogue("250-8BITMIME\r\n250 AUTH LOGIN PLAIN\r\n", login);
                    turns[8].client = mailHead + "Content-Transfer-Encoding: 8bit\r\n\r\n" + text + "\r\n.\r\n";
                    break;
                case 1:
                    turns = Dialogue("250 AUTH PLAIN\r\n", plain);
                    break;
                default:
                    turns = Until(turns, 0, "220 mx\r\n250 nothing\r\n");
            }
            Follow(turns)(session);
        });
    const auto smtp = Client(server, true);
    Succeeds(*smtp);
    Succeeds(*smtp);
    Fails(*smtp, 999, "999 Unknown SMTP authentication mode");
}

TEST(KTSmtp, AConnectionStaysOpenAfterAFailureUntilTheNextOne)
{
    std::atomic<int> ends{0};
    std::atomic<int> refusals{0};
    const ScriptedMailServer server(
        [&](MailSession& session)
        {
            session.Say("554 closed\r\n");
            ++refusals;
            EXPECT_EQ(session.Rest(), "EHLO server\r\n");  // and no QUIT
            ++ends;
        });
    auto smtp = Client(server);
    Fails(*smtp, 554, "554 closed");
    EXPECT_EQ(ends, 0);
    Fails(*smtp, 554, "554 closed");
    EXPECT_EQ(ends, 1);
    smtp.reset();
    while (ends < 2) std::this_thread::yield();
    EXPECT_EQ(refusals, 2);
}

TEST(KTSmtp, CramMd5ShortensLongPasswords)
{
    // HMAC-MD5 by the digest of 80 times 0xAA: RFC 2202, test case 6.
    const std::string key(80, '\xAA');
    const std::string challenge = "VGVzdCBVc2luZyBMYXJnZXIgVGhhbiBCbG9jay1TaXplIEtleSAtIEhhc2ggS2V5IEZpcnN0";
    const Turns signIn = {
        {"AUTH CRAM-MD5\r\n", "334 " + challenge + "\r\n"},
        {"dGltIDZiMWFiN2ZlNGJkN2JmOGYwYjYyZTZjZTYxYjlkMGNk\r\n", "235 welcome\r\n"},
    };
    const ScriptedMailServer server(Follow(Dialogue("250 AUTH CRAM-MD5\r\n", signIn)));
    const auto smtp = Client(server);
    smtp->SetUserPassword("tim", key.c_str());
    Succeeds(*smtp);
}

TEST(KTSmtp, AnswersWhateverChallengeThereIs)
{
    // An empty challenge, one that isn't Base64, and one of many lines that together are longer than a line.
    std::string many;
    for (int i = 0; i < 20; ++i) many += "334-" + std::string(400, 'A') + "\r\n";
    for (const std::string& reply :
         {std::string("334\r\n"), std::string("334 \r\n"), std::string("334 \x01!!\r\n"), many + "334 AAAA\r\n"})
    {
        SCOPED_TRACE(reply.substr(0, 10));
        const ScriptedMailServer server(
            [&](MailSession& session)
            {
                session.Say("220 mx\r\n250 AUTH CRAM-MD5\r\n");
                session.Expect("EHLO server\r\nAUTH CRAM-MD5\r\n");
                session.Say(reply);
                EXPECT_EQ(session.ReadTo("\r\n").size(), 4 * 12 + 2U);
                session.Say("535 no\r\n");
            });
        Fails(*Client(server, true), 535, "535 no");
    }
}
