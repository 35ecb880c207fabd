#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <rapidcheck.h>

#include <string>
#include <vector>

#include "host/KTDigest.h"

namespace
{
std::string Encode(const std::string& bytes)
{
    KTNarrowString out("before");
    EncodeBase64(out, bytes.data(), static_cast<int>(bytes.size()));
    EXPECT_EQ(std::string(out.Str()).size(), static_cast<std::size_t>(out.Length()));
    return out.Str();
}

// What is decoded, or "refused " and what is before the mistake. The room is no more than is promised to suffice.
std::string Decode(const std::string& text)
{
    std::vector<char> out(text.size() / 4 * 3 + text.size() % 4 + 1, '#');
    const bool good = DecodeBase64String(out.data(), text.data(), static_cast<int>(text.size()));
    return (good ? "" : "refused ") + std::string(out.data());
}
}  // namespace

TEST(KTBase64, WritesAndReadsTheExamplesOfTheStandard)
{
    const struct
    {
        const char* bytes;
        const char* text;
    } rows[] = {{"", ""},
                {"f", "Zg=="},
                {"fo", "Zm8="},
                {"foo", "Zm9v"},
                {"foob", "Zm9vYg=="},
                {"fooba", "Zm9vYmE="},
                {"foobar", "Zm9vYmFy"},
                {"\xFB\xFF\xBF", "+/+/"}};
    for (const auto& row : rows)
    {
        EXPECT_EQ(Encode(row.bytes), row.text);
        EXPECT_EQ(Decode(row.text), row.bytes);
    }
}

TEST(KTBase64, ReadsWhatServersWriteAndRefusesTheRest)
{
    const struct
    {
        const char* text;
        const char* decoded;
    } rows[] = {
        {"Zg", "f"},
        {"Zm8", "fo"},
        {" Zm\t9v\r\n", "foo"},
        {"Zg= =", "f"},
        {"Zg=", "f"},
        {"Zm9vYg", "foob"},
        {"Z", "refused "},
        {"Zm9vY", "refused foo"},
        {"Zm9v=", "refused foo"},
        {"Zm8==", "refused fo"},
        {"Zg===", "refused f"},
        {"Zm9v!Zm9v", "refused foo"},
        {"Zg==Zg==", "refused f"},
        {"====", "refused "},
        {"-_", "refused "},
        {"Zm9v\xFF", "refused foo"},
    };
    for (const auto& row : rows) EXPECT_EQ(Decode(row.text), row.decoded) << row.text;
    EXPECT_EQ(Decode(std::string("Zm9v\0Zm9v", 9)), "refused foo");
}

TEST(KTBase64, ReadsNoFurtherThanItIsTold)
{
    char out[8];
    EXPECT_TRUE(DecodeBase64String(out, "Zm9vYmFy", 4));
    EXPECT_STREQ(out, "foo");
    EXPECT_TRUE(DecodeBase64String(out, "Zm9v", 0));
    EXPECT_STREQ(out, "");
    EXPECT_TRUE(DecodeBase64String(out, "Zm9v", -1));
    EXPECT_STREQ(out, "");
}

TEST(KTBase64, AgreesWithAnotherImplementationAndComesBack)
{
    const bool held = rc::check(
        [](const std::string& bytes)
        {
            const std::string text = Encode(bytes);
            std::vector<unsigned char> expected(bytes.size() * 2 + 8);
            const int size = EVP_EncodeBlock(expected.data(), reinterpret_cast<const unsigned char*>(bytes.data()),
                                             static_cast<int>(bytes.size()));
            RC_ASSERT(text == std::string(reinterpret_cast<char*>(expected.data()), static_cast<std::size_t>(size)));
            std::vector<char> back(text.size() / 4 * 3 + 1);
            RC_ASSERT(DecodeBase64String(back.data(), text.data(), static_cast<int>(text.size())));
            RC_ASSERT(std::string(back.data(), bytes.size()) == bytes);
        });
    EXPECT_TRUE(held);
}
