#include "engine/KTEventDriverGroup.h"

#include <gtest/gtest.h>

#include "support/TestConfig.h"

namespace
{
bool Load(KTEventDriverGroup& group, const std::string& xml)
{
    XmlDocument document;
    EXPECT_TRUE(document.Parse(xml.c_str())) << xml;
    return group.LoadXml(*document.Root());
}
}  // namespace

TEST(KTEventDriverGroup, TakesNameAndIdentity)
{
    KTEventDriverGroup group;
    ASSERT_TRUE(Load(group, GroupXml(7, "Pumps &amp; valves")));
    EXPECT_EQ(group.Name(), L"Pumps & valves");
    EXPECT_EQ(group.Id(), TestId(7));
}

TEST(KTEventDriverGroup, IsRefusedWithoutIdentityOrName)
{
    const struct
    {
        const char* why;
        std::string xml;
        bool kept;
    } rows[] = {
        {"whole", GroupXml(1, "G"), true},
        {"id missing", "<g><name>G</name></g>", false},
        {"id empty", "<g><id/><name>G</name></g>", false},
        {"id malformed", "<g><id>{1234}</id><name>G</name></g>", false},
        {"id null", GroupXml(0, "G"), false},
        {"name missing", Element("g", IdElement(1)), false},
        {"name empty", GroupXml(1, ""), false},
        {"name of one character", GroupXml(1, "g"), true},
        {"id in lower case without braces", "<g><id>6f9619ff-8b86-d011-b42d-00cf4fc964ff</id><name>G</name></g>", true},
        {"another tag", Element("anything", IdElement(1) + Element("name", "G")), true},
    };
    for (const auto& row : rows)
    {
        KTEventDriverGroup group;
        EXPECT_EQ(Load(group, row.xml), row.kept) << row.why;
    }
}

TEST(KTEventDriverGroup, ANewOneHasNeitherNameNorIdentity)
{
    const KTEventDriverGroup group;
    EXPECT_TRUE(group.Name().Empty());
    EXPECT_EQ(group.Id(), nullGuid);
}

TEST(KTEventDriverGroup, CopiesAndAssignsByValue)
{
    KTEventDriverGroup group;
    ASSERT_TRUE(Load(group, GroupXml(1, "one")));
    const KTEventDriverGroup copy(group);
    KTEventDriverGroup assigned;
    assigned = group;
    ASSERT_TRUE(Load(group, GroupXml(2, "two")));
    EXPECT_EQ(copy.Name(), L"one");
    EXPECT_EQ(copy.Id(), TestId(1));
    EXPECT_EQ(assigned.Name(), L"one");
    EXPECT_EQ(assigned.Id(), TestId(1));
    EXPECT_EQ(group.Name(), L"two");
}

TEST(KTEventDriverGroup, LoadingAgainReplacesBoth)
{
    KTEventDriverGroup group;
    ASSERT_TRUE(Load(group, GroupXml(1, "one")));
    EXPECT_FALSE(Load(group, GroupXml(2, "")));
    EXPECT_EQ(group.Id(), TestId(2));
    EXPECT_TRUE(group.Name().Empty());
}
