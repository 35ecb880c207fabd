#include "suite/support/KTSettingsRules.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>

#include "suite/support/KTPassword.h"

namespace
{
constexpr std::size_t longestHostName = 255;
constexpr std::size_t longestTopic = 65535;  // bytes; the protocol has 16 bits for the length

bool IsControl(char character) { return static_cast<unsigned char>(character) < 0x20 || character == 0x7F; }
bool IsDigit(char character) { return character >= '0' && character <= '9'; }
bool IsLetter(char character)
{
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
}

bool IsLine(std::string_view text) { return std::none_of(text.begin(), text.end(), IsControl); }
bool IsName(std::string_view text) { return !text.empty() && IsLine(text); }
bool IsEntityName(std::string_view text)
{
    return IsName(text) && text.find_first_of(".[]@:") == std::string_view::npos;
}
bool IsDeviceName(std::string_view text)
{
    return IsEntityName(text) && !text.starts_with(kt::rules::eventDevicePrefix);
}
bool IsUserName(std::string_view text) { return IsName(text) && text.find(':') == std::string_view::npos; }

bool IsLanguage(std::string_view text)
{
    // It becomes part of a file's name.
    return !text.empty() && text.size() <= 35 &&
           std::all_of(text.begin(), text.end(),
                       [](char c) { return IsLetter(c) || IsDigit(c) || c == '-' || c == '_'; });
}

// The module keeps a separator in one UTF-16 unit.
bool IsOneUnit(std::string_view text)
{
    if (text.empty()) return false;
    const auto lead = static_cast<unsigned char>(text[0]);
    const std::size_t bytes = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    return bytes < 4 && text.size() == bytes;
}

bool IsSeparator(std::string_view text)
{
    return IsOneUnit(text) && !IsControl(text[0]) && !IsDigit(text[0]) && !IsLetter(text[0]);
}
bool IsNumberSeparator(std::string_view text) { return IsSeparator(text) && text != "-" && text != "+"; }

bool IsIp(const std::string& text, int family)
{
    unsigned char bytes[sizeof(in6_addr)];
    return inet_pton(family, text.c_str(), bytes) == 1;
}

bool IsAddress(std::string_view text)
{
    const std::string address(text);
    return address == "localhost" || IsIp(address, AF_INET) || IsIp(address, AF_INET6);
}

bool IsHost(std::string_view text)
{
    if (text.starts_with('[') && text.ends_with(']'))
        return IsIp(std::string(text.substr(1, text.size() - 2)), AF_INET6);
    // Letters of other scripts are left to the resolver.
    return IsName(text) && text.size() <= longestHostName && text.find_first_of(" /\\:@[]?#") == std::string_view::npos;
}
bool IsDeviceHost(std::string_view text) { return IsHost(text) || IsIp(std::string(text), AF_INET6); }

bool IsPort(std::string_view text)
{
    int port = 0;
    const auto [end, result] = std::from_chars(text.data(), text.data() + text.size(), port);
    return result == std::errc() && end == text.data() + text.size() && IsDigit(text[0]) && port >= 1 && port <= 65535;
}

bool IsHostAndPort(std::string_view text)
{
    if (text.empty() || IsHost(text)) return true;
    const std::size_t colon = text.rfind(':');
    return colon != std::string_view::npos && IsHost(text.substr(0, colon)) && IsPort(text.substr(colon + 1));
}

bool IsTopic(std::string_view text)
{
    return text.size() <= longestTopic && text.find_first_of("+#") == std::string_view::npos;
}

bool IsPointer(std::string_view text)
{
    if (text.empty()) return true;
    if (text[0] != '/') return false;
    for (std::size_t i = 0; i < text.size(); ++i)
        if (text[i] == '~' && (i + 1 == text.size() || (text[i + 1] != '0' && text[i + 1] != '1'))) return false;
    return true;
}

bool IsAny(std::string_view /*text*/) { return true; }
bool IsNotEmpty(std::string_view text) { return !text.empty(); }
bool IsHash(std::string_view text) { return KTPassword::IsHash(text); }
}  // namespace

namespace kt::rules
{
const KTTextRule anyText{IsAny, "a text without NUL"};
const KTTextRule secret{IsAny, "a text without NUL", true};
const KTTextRule line{IsLine, "a text without line ends or other control characters"};
const KTTextRule name{IsName, "a text of at least one character, without control characters"};
const KTTextRule entityName{IsEntityName, "a name of at least one character, with none of . [ ] @ : in it"};
const KTTextRule deviceName{IsDeviceName,
                            "a name of at least one character, with none of . [ ] @ : in it, that doesn't begin with "
                            "R$EVE_ as the events' own do"};
const KTTextRule userName{IsUserName, "a name of at least one character, without : or control characters"};
const KTTextRule passwordHash{IsHash, "a hash as `corvane password` prints it", true};
const KTTextRule language{IsLanguage, "the name of a language, of letters, digits, - and _, such as \"en\""};
const KTTextRule path{IsNotEmpty, "a path of at least one character, without NUL"};
const KTTextRule separator{IsSeparator, "exactly one character, neither letter nor digit"};
const KTTextRule numberSeparator{IsNumberSeparator, "exactly one character that is no letter, digit or sign"};
const KTTextRule address{IsAddress, "an IP address or \"localhost\""};
const KTTextRule host{IsHost, "a host name, an IPv4 address, or an IPv6 address in brackets, without port"};
const KTTextRule deviceHost{IsDeviceHost, "a host name or an IP address, without port"};
const KTTextRule hostAndPort{IsHostAndPort, "empty, \"host\" or \"host:port\", with a port from 1 to 65535"};
const KTTextRule topic{IsTopic, "an MQTT topic without the wildcards + and #"};
const KTTextRule pointer{IsPointer, "a JSON pointer: empty, or names each begun by /"};
}  // namespace kt::rules
