#include "host/KTGuid.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace
{
constexpr GUID sample{0x6F9619FF, 0x8B86, 0xD011, {0xB4, 0x2D, 0x00, 0xCF, 0x4F, 0xC9, 0x64, 0xFF}};

std::string TextOf(const GUID& guid)
{
    char text[guidTextSize];
    return guidtoc(guid, text);
}

TEST(KTGuid, IsWrittenInBracesAndUpperCase)
{
    wchar_t wide[guidTextSize];
    char narrow[guidTextSize];
    EXPECT_EQ(guidtow(sample, wide), wide);
    EXPECT_EQ(guidtoc(sample, narrow), narrow);
    EXPECT_STREQ(wide, L"{6F9619FF-8B86-D011-B42D-00CF4FC964FF}");
    EXPECT_STREQ(narrow, "{6F9619FF-8B86-D011-B42D-00CF4FC964FF}");
}

TEST(KTGuid, IsReadInEitherCaseWithOrWithoutBraces)
{
    for (const wchar_t* text : {L"{6F9619FF-8B86-D011-B42D-00CF4FC964FF}", L"6F9619FF-8B86-D011-B42D-00CF4FC964FF",
                                L"{6f9619ff-8b86-d011-b42d-00cf4fc964ff}", L"6f9619FF-8B86-d011-B42D-00cf4fc964FF"})
        EXPECT_EQ(wtoguid(text), sample) << text;
}

TEST(KTGuid, AnythingElseIsTheNullIdentifier)
{
    for (const wchar_t* text :
         {L"", L"{", L"{}", L"pump", L" {6F9619FF-8B86-D011-B42D-00CF4FC964FF}",
          L"{6F9619FF-8B86-D011-B42D-00CF4FC964FF} ", L"{6F9619FF-8B86-D011-B42D-00CF4FC964FF",
          L"6F9619FF-8B86-D011-B42D-00CF4FC964FF}", L"{6F9619FF8B86D011B42D00CF4FC964FF}",
          L"{6F9619FF-8B86-D011-B42D-00CF4FC964F}", L"{6F9619FF-8B86-D011-B42D-00CF4FC964FFF}",
          L"{6F9619FG-8B86-D011-B42D-00CF4FC964FF}", L"{6F9619F-F8B86-D011-B42D-00CF4FC964FF}",
          L"({6F9619FF-8B86-D011-B42D-00CF4FC964FF})", L"{6F9619FF-8B86-D011-B42D-00CF4FC964F\u0661}",
          L"{0x6F9619F-8B86-D011-B42D-00CF4FC964FF}"})
        EXPECT_EQ(wtoguid(text), nullGuid) << text;
    EXPECT_EQ(wtoguid(nullptr), nullGuid);
}

RC_GTEST_PROP(KTGuid, ReadsBackWhatItWrites, ())
{
    GUID guid;
    guid.Data1 = *rc::gen::arbitrary<std::uint32_t>();
    guid.Data2 = *rc::gen::arbitrary<std::uint16_t>();
    guid.Data3 = *rc::gen::arbitrary<std::uint16_t>();
    for (auto& byte : guid.Data4) byte = *rc::gen::arbitrary<std::uint8_t>();
    wchar_t wide[guidTextSize];
    RC_ASSERT(wtoguid(guidtow(guid, wide)) == guid);
}

TEST(KTGuid, FreshIdentifiersAreRandomOnesAndDiffer)
{
    std::set<std::string> seen;
    for (int i = 0; i < 10'000; ++i)
    {
        GUID guid;
        ASSERT_TRUE(NewGUID(guid));
        EXPECT_EQ(guid.Data3 >> 12, 4) << TextOf(guid);
        EXPECT_EQ(guid.Data4[0] >> 6, 2) << TextOf(guid);
        EXPECT_TRUE(seen.insert(TextOf(guid)).second) << TextOf(guid);
    }
}

// Every bit that isn't fixed is as often 1 as 0: 4000 draws stay within six standard deviations of the half.
TEST(KTGuid, NoBitOfAFreshIdentifierIsStuck)
{
    constexpr int draws = 4000;
    int ones[128] = {};
    for (int i = 0; i < draws; ++i)
    {
        GUID guid;
        ASSERT_TRUE(NewGUID(guid));
        unsigned char bytes[16];
        std::memcpy(bytes, &guid, sizeof bytes);
        for (int bit = 0; bit < 128; ++bit) ones[bit] += bytes[bit / 8] >> (bit % 8) & 1;
    }
    int fixed = 0;
    for (const int count : ones)
    {
        if (count == 0 || count == draws)
            ++fixed;
        else
            EXPECT_NEAR(count, draws / 2, 190);
    }
    EXPECT_EQ(fixed, 6) << "version and variant";
}

TEST(KTGuid, ThreadsDrawDifferentIdentifiers)
{
    std::vector<std::vector<GUID>> drawn(4, std::vector<GUID>(5000));
    std::vector<std::thread> threads;
    for (auto& mine : drawn)
        threads.emplace_back(
            [&mine]
            {
                for (GUID& guid : mine) ASSERT_TRUE(NewGUID(guid));
            });
    for (auto& thread : threads) thread.join();
    std::set<std::string> seen;
    for (const auto& mine : drawn)
        for (const GUID& guid : mine) EXPECT_TRUE(seen.insert(TextOf(guid)).second);
}

// A buffer of random numbers that a forked child inherited would give parent and child the same identifiers.
TEST(KTGuid, AForkedChildDrawsDifferentIdentifiers)
{
    GUID guid;
    ASSERT_TRUE(NewGUID(guid));  // fills this thread's buffer
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0)
    {
        GUID own;
        const bool good = NewGUID(own) && write(ends[1], &own, sizeof own) == sizeof own;
        _exit(good ? 0 : 1);
    }
    GUID childs;
    ASSERT_EQ(read(ends[0], &childs, sizeof childs), static_cast<ssize_t>(sizeof childs));
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    close(ends[0]);
    close(ends[1]);
    GUID own;
    ASSERT_TRUE(NewGUID(own));
    EXPECT_NE(own, childs);
    EXPECT_NE(childs, nullGuid);
}

class CountingSource final : public KTGuidSource
{
public:
    bool Next(GUID& guid) override
    {
        if (left == 0) return false;
        guid = GUID();
        guid.Data1 = left--;
        return true;
    }
    std::uint32_t left = 2;
};

TEST(KTGuid, TakesItsNumbersFromTheInstalledSource)
{
    CountingSource source;
    EXPECT_EQ(KTGuidSource::Install(&source), nullptr);
    GUID guid;
    EXPECT_TRUE(NewGUID(guid));
    EXPECT_EQ(TextOf(guid), "{00000002-0000-0000-0000-000000000000}");
    EXPECT_TRUE(NewGUID(guid));
    EXPECT_FALSE(NewGUID(guid));
    EXPECT_EQ(TextOf(guid), "{00000001-0000-0000-0000-000000000000}") << "left as it was";
    EXPECT_EQ(KTGuidSource::Install(nullptr), &source);
    EXPECT_TRUE(NewGUID(guid));
    EXPECT_EQ(guid.Data3 >> 12, 4);
}
}  // namespace
