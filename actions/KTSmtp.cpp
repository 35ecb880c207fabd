#include "actions/KTSmtp.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

#include "host/KTClock.h"

namespace
{
// Nothing that a server says of itself is longer; one that never ends its reply must not take all memory.
constexpr int longestReply = 1 << 20;

constexpr std::string_view timedOut = "999 Communication timeout";

constexpr int md5BlockSize = 64;  // bytes
using Md5Block = std::array<unsigned char, md5BlockSize>;
using Md5Digest = std::array<unsigned char, md5DigestSize>;

std::string_view View(const KTNarrowString& text) { return {text.Str(), static_cast<std::size_t>(text.Length())}; }

std::optional<KTNarrowString> Copy(const char* text)
{
    if (text == nullptr) return std::nullopt;
    return KTNarrowString(text);
}

void Append(KTNarrowString& out, std::string_view text) { out.Append(text.data(), static_cast<int>(text.size())); }

KTNarrowString Base64(std::string_view bytes)
{
    KTNarrowString out;
    EncodeBase64(out, bytes.data(), static_cast<int>(bytes.size()));
    return out;
}

bool Contains(const KTNarrowString& text, std::string_view word)
{
    return View(text).find(word) != std::string_view::npos;
}

Md5Digest Md5(std::string_view first, std::string_view second = {})
{
    Md5Digest digest{};
    MD5_CTX context;
    MD5Init(&context);
    MD5Update(&context, first.data(), first.size());
    MD5Update(&context, second.data(), second.size());
    MD5Final(digest.data(), &context);
    return digest;
}

template <std::size_t size>
std::string_view Bytes(const std::array<unsigned char, size>& bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), size};
}

Md5Block Combined(std::string_view key, unsigned char with)
{
    Md5Block block{};
    std::copy(key.begin(), key.end(), block.begin());
    for (unsigned char& byte : block) byte ^= with;
    return block;
}
}  // namespace

KTSmtp::KTSmtp(const char* itsServer, int itsPort, int itsTimeout)
    : server(itsServer != nullptr ? itsServer : ""), port(itsPort), timeout(itsTimeout)
{
}

void KTSmtp::SetFrom(const char* itsFrom) { from = Copy(itsFrom); }

void KTSmtp::SetUserPassword(const char* itsUser, const char* itsPassword)
{
    user = Copy(itsUser);
    password = Copy(itsPassword);
    authenticate = true;
}

void KTSmtp::AddTo(const char* address)
{
    if (address != nullptr) to.emplace_back(address);
}

bool KTSmtp::Send(const char* subject, const char* text)
{
    authModes = 0;
    eightBit = false;
    errorCode = 0;
    errorMsg.Clear();
    if (!socket.Connect(server.Str(), port)) return Fail(ownError, "999 Unable open connection to smtp server");
    if (!SendInit()) return false;
    if (authenticate && !SendAuthentification()) return false;
    if (!SendFromTo() || !SendData(subject, text) || !SendEnd()) return false;
    socket.Close();
    return true;
}

bool KTSmtp::SendInit()
{
    // Without waiting for the greeting: it is read behind it, as the first of two replies.
    KTNarrowString reply(KTNarrowString::growLarge);
    if (!Command("EHLO server", "", "", accepted, reply)) return false;
    if (!ReadResponse(reply, accepted)) return false;
    eightBit = Contains(reply, "8BITMIME");
    if (!authenticate || !Contains(reply, "AUTH")) return true;
    if (Contains(reply, "LOGIN")) authModes |= authLogin;
    if (Contains(reply, "PLAIN")) authModes |= authPlain;
    if (Contains(reply, "MD5")) authModes |= authCramMd5;
    return true;
}

bool KTSmtp::SendAuthentification()
{
    if (!user) return Fail(ownError, "999 Invalid user");
    if (!password) return Fail(ownError, "999 Invalid password");
    if ((authModes & authLogin) != 0) return AuthenticateLogin();
    if ((authModes & authPlain) != 0) return AuthenticatePlain();
    if ((authModes & authCramMd5) != 0) return AuthenticateCramMd5();
    return Fail(ownError, "999 Unknown SMTP authentication mode");
}

bool KTSmtp::AuthenticateLogin()
{
    return Command("AUTH LOGIN", "", "", goOn) && Command("", View(Base64(View(*user))), "", goOn) &&
           Command("", View(Base64(View(*password))), "", accepted);
}

bool KTSmtp::AuthenticatePlain()
{
    KTNarrowString credentials;
    credentials += '\0';
    credentials += *user;
    credentials += '\0';
    credentials += *password;
    return Command("AUTH PLAIN ", View(Base64(View(credentials))), "", accepted);
}

bool KTSmtp::AuthenticateCramMd5()
{
    KTNarrowString reply(KTNarrowString::growLarge);
    if (!Command("AUTH CRAM-MD5", "", "", goOn, reply)) return false;
    const std::string_view line = View(reply);
    const std::string_view encoded = line.substr(std::min<std::size_t>(line.size(), 4));
    // A reply of several lines is longer than a line, so the room is the reply's.
    std::vector<char> challenge(std::max<std::size_t>(encoded.size() + 1, lineSize));
    // What can't be decoded is answered all the same: the server refuses it, and says so.
    (void)DecodeBase64String(challenge.data(), encoded.data(), static_cast<int>(encoded.size()));
    char digest[2 * md5DigestSize + 1] = {};
    Generate_SMTP_CRAM_MD5(password->Str(), challenge.data(), digest);
    KTNarrowString answer = *user;
    answer += ' ';
    answer += digest;
    return Command("", View(Base64(View(answer))), "", accepted);
}

bool KTSmtp::SendFromTo()
{
    if (!from) return Fail(ownError, "999 Invalid from value");
    if (to.empty()) return Fail(ownError, "999 Invalidt to value");
    if (!Command("MAIL FROM: <", View(*from), ">", accepted)) return false;
    return std::all_of(to.begin(), to.end(),
                       [this](const KTNarrowString& address)
                       { return Command("RCPT TO: <", View(address), ">", accepted); });
}

bool KTSmtp::SendData(const char* subject, const char* text)
{
    if (!Command("DATA", "", "", goOn)) return false;
    KTNarrowString mail(KTNarrowString::growLarge);
    Append(mail, "From: ");
    mail += *from;
    Append(mail, "\r\nTo: ");
    for (const KTNarrowString& address : to)
    {
        if (&address != &to.front()) Append(mail, "; ");
        mail += address;
    }
    Append(mail, "\r\nSubject: =?UTF-8?B?");
    mail += Base64(subject != nullptr ? subject : "");
    Append(mail, "?=\r\nContent-Type: text/plain; charset=UTF-8\r\nMIME-Version: 1.0 \r\n");
    Append(mail, eightBit ? "Content-Transfer-Encoding: 8bit\r\n\r\n"
                          : "Content-Transfer-Encoding: quoted-printable\r\n\r\n");  // a label; the text stays as it is
    Append(mail, text != nullptr ? text : "");
    Append(mail, "\r\n.\r\n");
    (void)socket.Send(mail.Str(), mail.Length());  // a broken connection shows as a reply that doesn't come
    KTNarrowString reply(KTNarrowString::growLarge);
    return ReadResponse(reply, accepted);
}

bool KTSmtp::SendEnd() { return Command("QUIT", "", "", accepted); }

bool KTSmtp::Command(std::string_view before, std::string_view text, std::string_view after, int expected)
{
    KTNarrowString reply(KTNarrowString::growLarge);
    return Command(before, text, after, expected, reply);
}

bool KTSmtp::Command(std::string_view before, std::string_view text, std::string_view after, int expected,
                     KTNarrowString& reply)
{
    KTNarrowString command(KTNarrowString::growSmall);
    Append(command, before);
    Append(command, text);
    Append(command, after);
    Append(command, "\r\n");
    // Half a command would leave the server waiting for the other half.
    if (command.Length() >= lineSize) return Fail(ownError, "999 Command too long");
    (void)socket.Send(command.Str(), command.Length());  // a broken connection shows as a reply that doesn't come
    return ReadResponse(reply, expected);
}

bool KTSmtp::ReadResponse(KTNarrowString& reply, int expected)
{
    reply.Clear();
    const std::uint32_t start = GetTickCount();
    if (IsLate(start)) return Fail(ownError, timedOut);
    for (;;)
    {
        std::array<char, lineSize> buffer{};
        const int size = ReadLine(buffer.data(), start);
        if (size == 0) return Fail(ownError, timedOut);
        const std::string_view line(buffer.data(), static_cast<std::size_t>(size - 2));
        if (reply.Length() < longestReply) Append(reply, line);
        if (line.size() < 3) return Fail(ownError, "999 Bad return syntax");
        int code = 0;
        for (const char digit : line.substr(0, 3)) code = code * 10 + static_cast<unsigned char>(digit) - '0';
        if (code < expected || code >= expected + 100) return Fail(code, line);
        const bool goesOn = line.size() > 3 && line[3] == '-';
        if (!goesOn) return true;
    }
}

int KTSmtp::ReadLine(char* line, std::uint32_t start)
{
    for (int size = 0;;)
    {
        if (socket.Receive(line + size, 1) == 1)
        {
            ++size;
            if (size >= 2 && line[size - 2] == '\r' && line[size - 1] == '\n') return size;
            if (size < lineSize) continue;
        }
        // Only here: while bytes keep coming nobody looks at the limit.
        if (IsLate(start)) return 0;
        size = 0;  // what came of the line so far doesn't count
    }
}

bool KTSmtp::IsLate(std::uint32_t start) const
{
    // Unsigned difference, so the tick counter may wrap.
    return static_cast<std::int64_t>(GetTickCount() - start) >= std::int64_t{replyTimeout} + timeout;
}

void KTSmtp::Generate_SMTP_CRAM_MD5(const char* secret, const char* challenge, char* digest)
{
    std::string_view key = secret;
    Md5Digest shortened{};
    if (key.size() > md5BlockSize)
    {
        shortened = Md5(key);
        key = Bytes(shortened);
    }
    const Md5Digest inner = Md5(Bytes(Combined(key, 0x36)), challenge);
    const Md5Digest outer = Md5(Bytes(Combined(key, 0x5C)), Bytes(inner));
    constexpr std::string_view digits = "0123456789abcdef";
    for (const unsigned char byte : outer)
    {
        *digest++ = digits[byte >> 4];
        *digest++ = digits[byte & 15];
    }
    *digest = '\0';
}

bool KTSmtp::Fail(int code, std::string_view message)
{
    errorCode = code;
    errorMsg.Assign(message.data(), static_cast<int>(message.size()));
    return false;
}
