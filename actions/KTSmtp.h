// Sends one plain-text mail over one connection.
#pragma once

#include <list>
#include <optional>
#include <string_view>

#include "host/KTDigest.h"
#include "host/KTString.h"
#include "host/KTTcpSocket.h"

/// A small synchronous client. Send walks the whole dialogue; the object can be used for any number of mails.
///
/// Format:  SMTP (RFC 5321), AUTH LOGIN, PLAIN (RFC 4616) and CRAM-MD5 (RFC 2195); the text is UTF-8 and goes out as it
///          stands: neither encoded nor its line ends changed, and a line of a single dot ends the mail.
/// Units:   milliseconds of the tick counter.
/// Errors:  told by false; ErrorCode and ErrorMsg have the reason, the server's code and line, or 999 for what was noticed
///          here. After a failure the connection stays as it is until the next Send or the end of the object.
/// Threads: one at a time. Send blocks for the whole dialogue, at most about the limit for each reply.
/// Memory:  copies what it is given.
class KTSmtp
{
public:
    static constexpr int usualPort = 25;
    static constexpr int replyTimeout = 5000;  // of a whole reply; bytes that keep coming are always awaited
    static constexpr int ownError = 999;

    /// A port in `server`, as "host:port", wins over `port`. `timeout` is added to replyTimeout.
    KTSmtp(const char* server, int port, int timeout);
    KTSmtp(const KTSmtp&) = delete;
    KTSmtp& operator=(const KTSmtp&) = delete;
    virtual ~KTSmtp() = default;

    void SetFrom(const char* from);
    /// From now on each Send signs in. Null stands for none, and then fails.
    void SetUserPassword(const char* user, const char* password);
    void AddTo(const char* address);
    void ResetTo() { to.clear(); }

    /// True when the server took the mail and the connection was ended in good order. A failure of the very last reply is a
    /// failure too, although the server then has the mail.
    [[nodiscard]] bool Send(const char* subject, const char* text);

    /// Of the last Send; 0 and empty when it met no error.
    [[nodiscard]] int ErrorCode() const { return errorCode; }
    [[nodiscard]] const KTNarrowString& ErrorMsg() const { return errorMsg; }

private:
    static constexpr int lineSize = 512;  // bytes of a command, its terminator included, and of a line of a reply
    static constexpr int accepted = 200;  // classes of replies
    static constexpr int goOn = 300;

    // Mechanisms that a server offers, in the order in which they are tried.
    static constexpr int authLogin = 1;
    static constexpr int authPlain = 2;
    static constexpr int authCramMd5 = 4;

    bool SendInit();
    bool SendAuthentification();
    bool SendFromTo();
    bool SendData(const char* subject, const char* text);
    bool SendEnd();

    bool AuthenticateLogin();
    bool AuthenticatePlain();
    bool AuthenticateCramMd5();

    /// Sends before, text and after as one command, and takes the reply.
    bool Command(std::string_view before, std::string_view text, std::string_view after, int expected,
                 KTNarrowString& reply);
    bool Command(std::string_view before, std::string_view text, std::string_view after, int expected);
    bool ReadResponse(KTNarrowString& reply, int expected);
    /// One line with its end, at most lineSize bytes; 0 when it didn't come in time.
    int ReadLine(char* line, std::uint32_t start);
    [[nodiscard]] bool IsLate(std::uint32_t start) const;
    /// The HMAC-MD5 of the challenge as 32 characters and a terminator.
    static void Generate_SMTP_CRAM_MD5(const char* secret, const char* challenge, char* digest);
    bool Fail(int code, std::string_view message);

    std::optional<KTNarrowString> user;
    std::optional<KTNarrowString> password;
    std::list<KTNarrowString> to;
    std::optional<KTNarrowString> from;
    const KTNarrowString server;
    const int port;
    KTTcpSocket socket;
    const int timeout;  // milliseconds beyond replyTimeout
    int errorCode = 0;
    KTNarrowString errorMsg;
    bool authenticate = false;
    int authModes = 0;      // what the server offers
    bool eightBit = false;  // the server offers 8BITMIME
};
