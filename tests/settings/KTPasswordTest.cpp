#include "suite/support/KTPassword.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace
{
// Made in Python: base64.b64encode(hashlib.scrypt("plänt".encode(), salt=bytes(range(18)), n=1024, r=8, p=1, dklen=33)).
constexpr const char* known =
    "$scrypt$ln=10,r=8,p=1$AAECAwQFBgcICQoLDA0ODxAR$RNf0ZKxWM6yMV7M8PP21rgQZk11LB/i4aBS7luiOCU+O";
}  // namespace

TEST(KTPassword, AcceptsThePasswordThatItHashedAndNoOther)
{
    std::string hash;
    ASSERT_TRUE(KTPassword::Make("correct horse", hash));
    EXPECT_TRUE(KTPassword::IsHash(hash)) << hash;
    EXPECT_TRUE(hash.starts_with("$scrypt$ln=15,r=8,p=3$")) << hash;
    EXPECT_TRUE(KTPassword::Verify("correct horse", hash));
    EXPECT_FALSE(KTPassword::Verify("correct hors", hash));
    EXPECT_FALSE(KTPassword::Verify("correct horse ", hash));
    EXPECT_FALSE(KTPassword::Verify("", hash));
}

TEST(KTPassword, SaltsEachHash)
{
    std::string first;
    std::string second;
    ASSERT_TRUE(KTPassword::Make("x", first));
    ASSERT_TRUE(KTPassword::Make("x", second));
    EXPECT_NE(first, second);
    EXPECT_TRUE(KTPassword::Verify("x", second));
}

TEST(KTPassword, VerifiesAHashThatWasMadeElsewhere)
{
    EXPECT_TRUE(KTPassword::Verify("pl\xc3\xa4nt", known));
    EXPECT_FALSE(KTPassword::Verify("plant", known));
}

TEST(KTPassword, FitsIntoATextOfTheSettingsAsItIs)
{
    std::string hash;
    ASSERT_TRUE(KTPassword::Make("\"\\\n", hash));
    EXPECT_EQ(hash.find_first_of("\"\\\n '"), std::string::npos);
    EXPECT_TRUE(KTPassword::Verify("\"\\\n", hash));
}

TEST(KTPassword, RefusesEveryTextThatIsNoHash)
{
    const std::string salt = "AAECAwQFBgcICQoLDA0ODxAR";
    const std::string key(44, 'A');
    const auto hash = [&](const std::string& costs) { return "$scrypt$" + costs + '$' + salt + '$' + key; };
    ASSERT_TRUE(KTPassword::IsHash(hash("ln=15,r=8,p=3")));
    EXPECT_TRUE(KTPassword::IsHash(hash("ln=18,r=8,p=1")));
    for (const std::string& text : {
             std::string(),
             std::string("x"),
             std::string("secret"),
             std::string("$scrypt$"),
             std::string("<hash>"),
             hash("ln=9,r=8,p=3"),   // too cheap
             hash("ln=19,r=8,p=3"),  // more than 256 MiB
             hash("ln=64,r=8,p=3"),
             hash("ln=15,r=0,p=3"),
             hash("ln=15,r=8,p=17"),
             hash("ln=015,r=8,p=3"),
             hash("ln=-15,r=8,p=3"),
             hash("ln=15,r=8,p=3 "),
             hash("ln=99999999999999999999,r=8,p=3"),
             hash("ln=,r=8,p=3"),
             hash("r=8,ln=15,p=3"),
             "$scrypt$ln=15,r=8,p=3$" + salt,
             "$scrypt$ln=15,r=8,p=3$" + salt + "$" + key + "A",
             "$scrypt$ln=15,r=8,p=3$" + salt + "$" + key.substr(1),
             "$scrypt$ln=15,r=8,p=3$" + salt.substr(1) + "$" + key,
             "$scrypt$ln=15,r=8,p=3$" + salt.substr(1) + " $" + key,
             "$scrypt$ln=15,r=8,p=3$" + salt.substr(1) + "=$" + key,
             "$argon2id$ln=15,r=8,p=3$" + salt + "$" + key,
         })
    {
        EXPECT_FALSE(KTPassword::IsHash(text)) << text;
        EXPECT_FALSE(KTPassword::Verify("secret", text)) << text;
    }
}

TEST(KTPassword, RefusesAHashWithAnyCharacterChanged)
{
    const std::string good = known;
    for (std::size_t i = 0; i < good.size(); ++i)
    {
        std::string bad = good;
        bad[i] = bad[i] == 'B' ? 'C' : 'B';
        EXPECT_FALSE(KTPassword::Verify("pl\xc3\xa4nt", bad)) << i;
    }
}
