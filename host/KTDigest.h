// The MD5 digest and Base64, as mail servers ask for them.
#pragma once

#include <cstddef>

#include "host/KTString.h"

inline constexpr int md5DigestSize = 16;  // bytes

/// An MD5 under way, RFC 1321. Any number of updates between Init and Final; copying one copies its state.
///
/// Memory:  owns nothing, so that one may be dropped at any point.
struct MD5_CTX
{
    alignas(8) unsigned char state[88];
};

void MD5Init(MD5_CTX* context);
void MD5Update(MD5_CTX* context, const void* data, std::size_t size);

/// The digest of all that was given; `context` must be initialised before it is used again.
void MD5Final(unsigned char digest[md5DigestSize], MD5_CTX* context);

/// RFC 4648 with padding and without line ends. Replaces `out`.
void EncodeBase64(KTNarrowString& out, const void* data, int size);

/// Replaces `out` by the bytes that the text means and a terminator: it needs room for three bytes for each four
/// characters, and one more. White space is skipped; padding may be missing. False at the first character that can't stand
/// there; `out` then holds the bytes before it.
bool DecodeBase64String(char* out, const char* text, int size);
