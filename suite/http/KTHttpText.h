// The small grammars of requests: escapes, forms, cookies, addresses.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct sockaddr;

/// Pairs in the order in which they came.
using KTHttpPairs = std::vector<std::pair<std::string, std::string>>;

/// Undoes `%hh`, and `+` for a blank where a form wants it. False for a broken escape and for an escaped NUL, which no text
/// of ours can hold.
bool PercentDecode(std::string_view text, bool plusIsBlank, std::string& out);

/// application/x-www-form-urlencoded, in a body or behind the `?`. False as PercentDecode.
bool ParseForm(std::string_view text, KTHttpPairs& out);

/// The value of the first pair of that name, or null.
const std::string* FindPair(const KTHttpPairs& pairs, std::string_view name);

/// ASCII letters alone fold.
bool EqualIgnoringCase(std::string_view a, std::string_view b);

std::string_view TrimBlanks(std::string_view text);  // blanks, tabs, CR, LF

/// Whether the text is a token, as methods and names of headers are.
bool IsHttpToken(std::string_view text);

/// The value of that cookie in a Cookie header; empty when it isn't there.
std::string_view FindCookie(std::string_view header, std::string_view name);

/// The `name:password` of an Authorization header of the scheme Basic. False for any other.
bool ParseBasic(std::string_view header, std::string& name, std::string& password);

/// `host`, `host:port`, `[v6]`, `[v6]:port`. The host comes without brackets, the port is 0 when there is none. False for
/// anything else.
bool SplitAuthority(std::string_view text, std::string& host, int& port);

/// The one way of writing a numeric address: IPv4 inside IPv6 becomes plain, zeros are shortened. Empty for what is none.
std::string CanonicalAddress(std::string_view text);
std::string CanonicalAddress(const sockaddr* address);

/// Of a canonical address.
bool IsLoopback(std::string_view address);
