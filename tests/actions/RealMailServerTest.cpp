// The outgoing mail and a mail server that others wrote: what arrives is what was composed.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "actions/KTEventActionMail.h"
#include "actions/KTSmtp.h"
#include "support/TestClock.h"
#include "support/TestConfig.h"
#include "support/TestEvent.h"
#include "support/TestZone.h"

extern char** environ;

namespace
{
/// mail_server.py as a process of its own.
class RealMailServer
{
public:
    explicit RealMailServer(std::string mechanisms, bool eightBit = true)
    {
        std::array<int, 2> in{};
        std::array<int, 2> out{};
        if (pipe2(in.data(), O_CLOEXEC) != 0 || pipe2(out.data(), O_CLOEXEC) != 0) std::abort();
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
        std::string program = "/usr/bin/python3";
        std::string script = CORVANE_SOURCE_DIRECTORY "/tests/actions/mail_server.py";
        std::string eight = eightBit ? "yes" : "no";
        std::array<char*, 5> arguments{program.data(), script.data(), mechanisms.data(), eight.data(), nullptr};
        EXPECT_EQ(posix_spawn(&process, program.c_str(), &actions, nullptr, arguments.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        close(in[0]);
        close(out[1]);
        commands = in[1];
        answers = fdopen(out[0], "r");
        const std::string ready = Line();
        EXPECT_EQ(ready.substr(0, 10), "listening ") << ready;
        if (ready.size() > 10) address = "127.0.0.1:" + ready.substr(10);
    }
    RealMailServer(const RealMailServer&) = delete;
    RealMailServer& operator=(const RealMailServer&) = delete;
    ~RealMailServer()
    {
        close(commands);  // which ends it
        waitpid(process, nullptr, 0);
        std::fclose(answers);
    }

    nlohmann::json NextMail()
    {
        EXPECT_EQ(write(commands, "next\n", 5), 5);
        const nlohmann::json mail = nlohmann::json::parse(Line(), nullptr, false);
        EXPECT_TRUE(mail.is_object() && !mail.empty()) << "no mail has come";
        return mail;
    }

    std::string address;  // of its port

private:
    std::string Line()
    {
        std::string line;
        for (int c = std::fgetc(answers); c != EOF && c != '\n'; c = std::fgetc(answers)) line += static_cast<char>(c);
        return line;
    }

    pid_t process = -1;
    int commands = -1;
    std::FILE* answers = nullptr;
};

std::unique_ptr<KTSmtp> Client(const RealMailServer& server, const char* user, const char* password)
{
    auto smtp = std::make_unique<KTSmtp>(server.address.c_str(), KTSmtp::usualPort, 0);
    smtp->SetFrom("plant@example.org");
    if (user != nullptr) smtp->SetUserPassword(user, password);
    smtp->AddTo("ana@example.org");
    smtp->AddTo("olga@example.org");
    return smtp;
}

// Texts as people write them; the package that reads the mails ends them with a line end.
const struct
{
    const char* name;
    const char* text;
} scripts[] = {
    {"Pump 3", "Pressure above 7 bar."},
    {"Bomba n\xC2\xBA 3", "\xC2\xA1Presi\xC3\xB3n por encima del l\xC3\xADmite!\r\n\r\nA\xC3\xB1o 2024 = 100 bar"},
    {"\xCE\x91\xCE\xBD\xCF\x84\xCE\xBB\xCE\xAF\xCE\xB1", "\xCE\xA0\xCE\xAF\xCE\xB5\xCF\x83\xCE\xB7 > 7"},
    {"\xD0\x9D\xD0\xB0\xD1\x81\xD0\xBE\xD1\x81", "\xD0\x94\xD0\xB0\xD0\xB2\xD0\xBB\xD0\xB5\xD0\xBD\xD0\xB8\xD0\xB5"},
    {"\xD9\x85\xD8\xB6\xD8\xAE\xD8\xA9", "\xD8\xA7\xD9\x84\xD8\xB6\xD8\xBA\xD8\xB7 \xD9\xA7"},
    {"\xE6\xB3\xB5 3", "\xE5\x8E\x8B\xE5\x8A\x9B\xE8\xB6\x85\xE8\xBF\x87 7 bar\xE3\x80\x82"},
    {"\xE0\xA4\xAA\xE0\xA4\x82\xE0\xA4\xAA", "\xE0\xA4\xA6\xE0\xA4\xAC\xE0\xA4\xBE\xE0\xA4\xB5"},
    {"\xF0\x9F\x94\xA5\xF0\x9F\x92\xA7", "\xF0\x9F\x9A\xA8 e\xCC\x81\r\nThe dot . stays."},
};

std::string WithoutReturns(std::string text)
{
    std::erase(text, '\r');
    return text;
}
}  // namespace

TEST(RealMailServer, StoresWhatEventsComposedInAnyScript)
{
    const TestZone zone(testZoneOfMadrid);
    RealMailServer server("LOGIN,PLAIN,CRAM-MD5");
    TestConfig config;
    config.setup.smtpServer = server.address.c_str();
    config.setup.smtpFrom = "plant@example.org";
    config.setup.smtpUser = "tim";
    config.setup.smtpPassword = "pass word";
    config.setup.smtpAuthenticated = true;
    for (const auto& row : scripts)
    {
        SCOPED_TRACE(row.name);
        config.setup.programName = Wide(std::string("Plant ") + row.name);
        config.Apply();
        TestEvent event;
        event.name = Wide(row.name);
        KTEventActionMail action(&event);
        XmlDocument document;
        std::string message;
        for (const char* c = row.text; *c != '\0'; ++c)
            message += *c == '\r' ? std::string("&#13;") : std::string(1, *c);
        ASSERT_TRUE(document.Parse(Element("mail", Element("message", message) + Element("address", "ana@example.org") +
                                                       Element("address", "olga@example.org"))
                                       .c_str()));
        ASSERT_TRUE(action.LoadXml(document.Root()));
        const std::string year = std::to_string(KTDateTime::LTC().Year());
        EXPECT_TRUE(action.Execute(0));
        const nlohmann::json mail = server.NextMail();
        const std::string subject = mail["subject"];
        EXPECT_TRUE(subject.starts_with(std::string("Plant ") + row.name + " - " + year + "-")) << subject;
        EXPECT_TRUE(subject.ends_with(std::string(" - Event ") + row.name + " activated")) << subject;
        EXPECT_EQ(mail["text"], WithoutReturns(row.text) + "\n");
        EXPECT_EQ(mail["encoding"], "8bit");
        EXPECT_EQ(mail["from"], "plant@example.org");
        EXPECT_EQ(mail["type"], "text/plain; charset=\"UTF-8\"");
        // Each recipient has it stored once.
        (void)server.NextMail();
    }
}

TEST(RealMailServer, TakesEachWayOfSigningIn)
{
    for (const char* mechanism : {"LOGIN", "PLAIN", "CRAM-MD5"})
    {
        SCOPED_TRACE(mechanism);
        RealMailServer server(mechanism);
        const auto smtp = Client(server, "tim", "pass word");
        EXPECT_TRUE(smtp->Send("S\xC3\xAD", "text")) << smtp->ErrorMsg().Str();
        EXPECT_EQ(server.NextMail()["subject"], "S\xC3\xAD");
        const auto wrong = Client(server, "tim", "password");
        EXPECT_FALSE(wrong->Send("subject", "text"));
        EXPECT_EQ(wrong->ErrorCode(), 535);
        const auto stranger = Client(server, nullptr, nullptr);
        EXPECT_FALSE(stranger->Send("subject", "text"));
        EXPECT_EQ(stranger->ErrorCode(), 550) << stranger->ErrorMsg().Str();
    }
}

TEST(RealMailServer, TakesMailsWithoutSigningInAndManyByOneClient)
{
    RealMailServer server("");
    const auto smtp = Client(server, nullptr, nullptr);
    for (const char* subject : {"one", "two", "three"})
    {
        EXPECT_TRUE(smtp->Send(subject, "text")) << smtp->ErrorMsg().Str();
        const nlohmann::json mail = server.NextMail();
        EXPECT_EQ(mail["subject"], subject);
        EXPECT_EQ(mail["text"], "text\n");
        (void)server.NextMail();
    }
    smtp->AddTo("nobody@example.org");
    EXPECT_FALSE(smtp->Send("subject", "text"));
    EXPECT_EQ(smtp->ErrorCode(), 550);
    smtp->ResetTo();
    smtp->AddTo("eva@example.org");
    EXPECT_TRUE(smtp->Send("after a refusal", ""));
    EXPECT_EQ(server.NextMail()["subject"], "after a refusal");
}

TEST(RealMailServer, TakesTheFirstDotOfALineAsItsOwn)
{
    RealMailServer server("");
    EXPECT_TRUE(Client(server, nullptr, nullptr)->Send("dots", "a\r\n.b\r\n..c\r\nd."));
    EXPECT_EQ(server.NextMail()["text"], "a\nb\n.c\nd.\n");
}

TEST(RealMailServer, StoresRawTextUnderTheOtherLabelToo)
{
    RealMailServer server("", false);
    const auto smtp = Client(server, nullptr, nullptr);
    for (const auto& row : scripts)
    {
        SCOPED_TRACE(row.name);
        if (std::string(row.text).find('=') != std::string::npos) continue;  // which the label gives another meaning
        EXPECT_TRUE(smtp->Send(row.name, row.text)) << smtp->ErrorMsg().Str();
        const nlohmann::json mail = server.NextMail();
        EXPECT_EQ(mail["subject"], row.name);
        EXPECT_EQ(mail["text"], WithoutReturns(row.text) + "\n");
        EXPECT_EQ(mail["encoding"], "quoted-printable");
        (void)server.NextMail();
    }
}
