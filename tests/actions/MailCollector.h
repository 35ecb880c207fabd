// A mail server that takes mails, or refuses them as it is told.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "actions/ScriptedMailServer.h"

/// Threads: any; what answers runs on the server's thread.
class MailCollector
{
public:
    struct Mail
    {
        std::vector<std::string> commands;  // all but the mail itself
        std::string content;                // head and text, without the terminator
        [[nodiscard]] std::string Text() const { return content.substr(content.find("\r\n\r\n") + 4); }
    };

    MailCollector() : server([this](MailSession& session) { Serve(session); }) {}

    /// Says what a command, or a whole mail, is answered; the empty text is the usual answer.
    using Answer = std::function<std::string(const std::string& command)>;
    void SetAnswer(Answer function)
    {
        const std::lock_guard guard(mutex);
        answer = std::move(function);
    }

    [[nodiscard]] std::vector<Mail> Mails() const
    {
        const std::lock_guard guard(mutex);
        return mails;
    }
    [[nodiscard]] std::vector<std::string> Texts() const
    {
        std::vector<std::string> texts;
        for (const Mail& mail : Mails()) texts.push_back(mail.Text());
        return texts;
    }
    [[nodiscard]] std::size_t Count() const
    {
        const std::lock_guard guard(mutex);
        return mails.size();
    }

private:
    void Serve(MailSession& session)
    {
        session.Say("220 mx\r\n");
        Mail mail;
        for (std::string line = session.ReadTo("\r\n"); !line.empty(); line = session.ReadTo("\r\n"))
        {
            mail.commands.push_back(line);
            const std::string reply = Ask(line);
            session.Say(!reply.empty() ? reply : Usual(line));
            if (line.starts_with("QUIT")) break;
            if (!line.starts_with("DATA") || !reply.empty()) continue;
            if (!Take(session, mail)) return;
        }
        (void)session.Rest();
    }

    bool Take(MailSession& session, Mail& mail)
    {
        const std::string end = "\r\n.\r\n";
        mail.content = session.ReadTo(end);
        if (!mail.content.ends_with(end)) return false;
        mail.content.resize(mail.content.size() - end.size());
        const std::string reply = Ask(mail.content);
        if (reply.empty())
        {
            const std::lock_guard guard(mutex);
            mails.push_back(mail);
        }
        session.Say(reply.empty() ? "250 taken\r\n" : reply);
        return true;
    }

    std::string Ask(const std::string& command)
    {
        Answer function;
        {
            const std::lock_guard guard(mutex);
            function = answer;
        }
        return function ? function(command) : std::string();
    }

    static std::string Usual(const std::string& line)
    {
        if (line.starts_with("EHLO")) return "250-mx\r\n250-8BITMIME\r\n250 AUTH PLAIN\r\n";
        if (line.starts_with("AUTH")) return "235 in\r\n";
        if (line.starts_with("DATA")) return "354 go on\r\n";
        return line.starts_with("QUIT") ? "221 bye\r\n" : "250 ok\r\n";
    }

    mutable std::mutex mutex;
    Answer answer;
    std::vector<Mail> mails;

public:
    const ScriptedMailServer server;  // last: its thread uses the rest
};
