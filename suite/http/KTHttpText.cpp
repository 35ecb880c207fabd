#include "suite/http/KTHttpText.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/evp.h>
#include <sys/socket.h>

#include <algorithm>
#include <charconv>
#include <cstring>

namespace
{
int HexDigit(char c)
{
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

std::string TextOf(const in6_addr& address)
{
    char text[INET6_ADDRSTRLEN];
    if (IN6_IS_ADDR_V4MAPPED(&address) == 0) return inet_ntop(AF_INET6, &address, text, sizeof text);
    return inet_ntop(AF_INET, address.s6_addr + 12, text, sizeof text);
}

std::string TextOf(const in_addr& address)
{
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &address, text, sizeof text);
}

bool DecodeBase64(std::string_view text, std::string& out)
{
    if (text.empty() || text.size() % 4 != 0) return false;
    std::size_t padding = 0;
    while (padding < 2 && text[text.size() - 1 - padding] == '=') ++padding;
    // The decoder itself would take a `=` in the middle for a zero.
    if (text.substr(0, text.size() - padding).find('=') != std::string_view::npos) return false;
    out.resize(text.size() / 4 * 3);
    const int length =
        EVP_DecodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                        reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()));
    if (length < 0) return false;
    out.resize(static_cast<std::size_t>(length) - padding);
    return true;
}
}  // namespace

bool PercentDecode(std::string_view text, bool plusIsBlank, std::string& out)
{
    out.clear();
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        if (text[i] != '%')
        {
            out += text[i] == '+' && plusIsBlank ? ' ' : text[i];
            continue;
        }
        if (i + 2 >= text.size()) return false;
        const int high = HexDigit(text[i + 1]);
        const int low = HexDigit(text[i + 2]);
        if (high < 0 || low < 0 || (high == 0 && low == 0)) return false;
        out += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return true;
}

bool ParseForm(std::string_view text, KTHttpPairs& out)
{
    out.clear();
    while (!text.empty())
    {
        const std::string_view field = text.substr(0, text.find('&'));
        text.remove_prefix(std::min(text.size(), field.size() + 1));
        if (field.empty()) continue;
        const std::string_view name = field.substr(0, field.find('='));
        const std::string_view value = field.substr(std::min(field.size(), name.size() + 1));
        std::pair<std::string, std::string> pair;
        if (!PercentDecode(name, true, pair.first) || !PercentDecode(value, true, pair.second)) return false;
        out.push_back(std::move(pair));
    }
    return true;
}

const std::string* FindPair(const KTHttpPairs& pairs, std::string_view name)
{
    const auto found = std::find_if(pairs.begin(), pairs.end(), [&](const auto& pair) { return pair.first == name; });
    return found == pairs.end() ? nullptr : &found->second;
}

bool EqualIgnoringCase(std::string_view a, std::string_view b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) { return Lower(x) == Lower(y); });
}

std::string_view TrimBlanks(std::string_view text)
{
    while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
    return text;
}

bool IsHttpToken(std::string_view text)
{
    constexpr std::string_view others = "!#$%&'*+-.^_`|~";
    const auto allowed = [&](char c)
    { return (Lower(c) >= 'a' && Lower(c) <= 'z') || (c >= '0' && c <= '9') || others.find(c) != others.npos; };
    return !text.empty() && std::all_of(text.begin(), text.end(), allowed);
}

std::string_view FindCookie(std::string_view header, std::string_view name)
{
    while (!header.empty())
    {
        const std::string_view pair = header.substr(0, header.find(';'));
        header.remove_prefix(std::min(header.size(), pair.size() + 1));
        const std::size_t equals = pair.find('=');
        if (equals == pair.npos || TrimBlanks(pair.substr(0, equals)) != name) continue;
        return TrimBlanks(pair.substr(equals + 1));
    }
    return {};
}

bool ParseBasic(std::string_view header, std::string& name, std::string& password)
{
    constexpr std::string_view scheme = "Basic ";
    if (header.size() <= scheme.size() || !EqualIgnoringCase(header.substr(0, scheme.size()), scheme)) return false;
    std::string both;
    if (!DecodeBase64(TrimBlanks(header.substr(scheme.size())), both)) return false;
    const std::size_t colon = both.find(':');
    if (colon == both.npos) return false;
    name = both.substr(0, colon);
    password = both.substr(colon + 1);
    return true;
}

bool SplitAuthority(std::string_view text, std::string& host, int& port)
{
    const bool bracket = text.starts_with('[');
    const std::size_t end = bracket ? text.find(']') : text.find(':');
    if (bracket && end == text.npos) return false;
    host = bracket ? text.substr(1, end - 1) : text.substr(0, end);
    std::string_view rest = end == text.npos ? std::string_view() : text.substr(bracket ? end + 1 : end);
    port = 0;
    if (host.empty() || (bracket && host.find(':') == host.npos)) return false;
    if (rest.empty()) return true;
    if (rest.front() != ':') return false;
    rest.remove_prefix(1);
    if (rest.empty()) return true;
    const auto [stop, error] = std::from_chars(rest.data(), rest.data() + rest.size(), port);
    return error == std::errc() && stop == rest.data() + rest.size() && port > 0 && port <= 65535;
}

std::string CanonicalAddress(std::string_view text)
{
    const std::string terminated(text);
    in_addr four{};
    if (inet_pton(AF_INET, terminated.c_str(), &four) == 1) return TextOf(four);
    in6_addr six{};
    if (inet_pton(AF_INET6, terminated.c_str(), &six) == 1) return TextOf(six);
    return {};
}

std::string CanonicalAddress(const sockaddr* address)
{
    if (address == nullptr) return {};
    if (address->sa_family == AF_INET)
    {
        sockaddr_in four{};
        std::memcpy(&four, address, sizeof four);
        return TextOf(four.sin_addr);
    }
    if (address->sa_family == AF_INET6)
    {
        sockaddr_in6 six{};
        std::memcpy(&six, address, sizeof six);
        return TextOf(six.sin6_addr);
    }
    return {};
}

bool IsLoopback(std::string_view address) { return address == "::1" || address.starts_with("127."); }
