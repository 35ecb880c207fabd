#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <rapidcheck.h>

#include <string>

#include "host/KTDigest.h"

namespace
{
std::string Hex(const unsigned char* bytes)
{
    std::string text;
    for (int i = 0; i < md5DigestSize; ++i)
    {
        text += "0123456789abcdef"[bytes[i] >> 4];
        text += "0123456789abcdef"[bytes[i] & 15];
    }
    return text;
}

std::string Md5(const std::string& data)
{
    unsigned char digest[md5DigestSize];
    MD5_CTX context;
    MD5Init(&context);
    MD5Update(&context, data.data(), data.size());
    MD5Final(digest, &context);
    return Hex(digest);
}
}  // namespace

TEST(KTMd5, GivesTheDigestsOfTheStandard)
{
    const struct
    {
        const char* text;
        const char* digest;
    } rows[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const auto& row : rows) EXPECT_EQ(Md5(row.text), row.digest) << row.text;
}

TEST(KTMd5, DoesNotMindHowTheDataIsCut)
{
    const bool held = rc::check(
        [](const std::string& first, const std::string& second, const std::string& third)
        {
            unsigned char digest[md5DigestSize];
            MD5_CTX context;
            MD5Init(&context);
            for (const std::string& part : {first, second, third}) MD5Update(&context, part.data(), part.size());
            MD5_CTX copy = context;
            MD5Final(digest, &copy);
            const std::string whole = first + second + third;
            unsigned char expected[md5DigestSize];
            unsigned size = md5DigestSize;
            RC_ASSERT(EVP_Digest(whole.data(), whole.size(), expected, &size, EVP_md5(), nullptr) == 1);
            RC_ASSERT(Hex(digest) == Hex(expected));
            MD5Final(digest, &context);  // what was copied goes on by itself
            RC_ASSERT(Hex(digest) == Hex(expected));
        });
    EXPECT_TRUE(held);
}
