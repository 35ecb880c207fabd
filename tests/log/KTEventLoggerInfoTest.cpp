#include "log/KTEventLoggerInfo.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "TestRegistry.h"

namespace
{
std::vector<GUID> Ids(const KTEventLoggerInfo& info)
{
    std::vector<GUID> ids;
    for (auto variable = info.EventsBegin(); variable != info.EventsEnd(); ++variable) ids.push_back((*variable)->Id());
    return ids;
}

std::vector<KTEventDriver*> Drivers(const KTEventLoggerInfo& info)
{
    std::vector<KTEventDriver*> drivers;
    for (auto variable = info.EventsBegin(); variable != info.EventsEnd(); ++variable)
        drivers.push_back((*variable)->Driver());
    return drivers;
}

using Guids = std::vector<GUID>;
}  // namespace

TEST(KTEventLoggerInfoVar, IsLockedWhileItKnowsItsEvent)
{
    TestRegistry registry({"a"});
    KTEventLoggerInfoVar variable(TestId(1));
    EXPECT_EQ(variable.Id(), TestId(1));
    EXPECT_FALSE(variable.IsLocked());
    EXPECT_EQ(variable.Driver(), nullptr);
    EXPECT_TRUE(variable.Lock());
    EXPECT_TRUE(variable.IsLocked());
    EXPECT_EQ(variable.Driver(), &registry.Event(1));
    KTEventLoggerInfoVar copy(variable);
    EXPECT_EQ(copy.Driver(), variable.Driver());
    variable.Unlock();
    EXPECT_FALSE(variable.IsLocked());
    EXPECT_TRUE(copy.IsLocked());
    copy = KTEventLoggerInfoVar(TestId(2));
    EXPECT_EQ(copy.Id(), TestId(2));
    EXPECT_FALSE(copy.IsLocked());
}

TEST(KTEventLoggerInfoVar, CannotLockWhatTheRegistryDoesNotKnow)
{
    TestRegistry registry({"a"});
    KTEventLoggerInfoVar variable(TestId(1));
    EXPECT_TRUE(variable.Lock());
    registry.system.Reset();
    EXPECT_FALSE(variable.Lock());
    EXPECT_EQ(variable.Driver(), nullptr);
}

TEST(KTEventLoggerInfo, ListsEachEventOnceInTheOrderOfAdding)
{
    KTEventLoggerInfo info;
    EXPECT_EQ(info.NVariables(), 0);
    for (const unsigned number : {3U, 1U, 3U, 2U, 1U, 0U, 0U}) info.AddVariable(TestId(number));
    EXPECT_EQ(Ids(info), (Guids{TestId(3), TestId(1), TestId(2), TestId(0)}));
    EXPECT_EQ(info.NVariables(), 4);
    info.DeleteAll();
    EXPECT_EQ(info.NVariables(), 0);
    info.AddVariable(TestId(3));
    EXPECT_EQ(Ids(info), Guids{TestId(3)}) << "what was deleted can be listed again";
}

TEST(KTEventLoggerInfo, LocksWhatIsThereAndDropsTheRest)
{
    TestRegistry registry({"a", "b"});
    KTEventLoggerInfo info;
    for (const unsigned number : {7U, 2U, 8U, 1U, 9U}) info.AddVariable(TestId(number));
    info.Lock();
    EXPECT_EQ(Ids(info), (Guids{TestId(2), TestId(1)}));
    EXPECT_EQ(Drivers(info), (std::vector<KTEventDriver*>{&registry.Event(2), &registry.Event(1)}));
    info.AddVariable(TestId(8));
    EXPECT_EQ(info.NVariables(), 3) << "what was dropped can be listed again";
    info.Unlock();
    EXPECT_EQ(Drivers(info), (std::vector<KTEventDriver*>{nullptr, nullptr, nullptr}));
    registry.system.Reset();
    info.Lock();
    EXPECT_EQ(info.NVariables(), 0);
}

TEST(KTEventLoggerInfo, ACopyHasItsOwnVariables)
{
    TestRegistry registry({"a", "b"});
    auto info = std::make_unique<KTEventLoggerInfo>();
    info->AddVariable(TestId(2));
    info->AddVariable(TestId(1));
    info->Lock();
    const KTEventLoggerInfo copy(*info);
    KTEventLoggerInfo assigned;
    assigned.AddVariable(TestId(5));
    assigned = *info;
    EXPECT_NE(*copy.EventsBegin(), *info->EventsBegin());
    info.reset();
    for (const KTEventLoggerInfo* kept : {&copy, &std::as_const(assigned)})
    {
        EXPECT_EQ(Ids(*kept), (Guids{TestId(2), TestId(1)}));
        EXPECT_EQ(Drivers(*kept), (std::vector<KTEventDriver*>{&registry.Event(2), &registry.Event(1)}));
    }
    assigned.AddVariable(TestId(1));
    assigned.AddVariable(TestId(5));
    EXPECT_EQ(Ids(assigned), (Guids{TestId(2), TestId(1), TestId(5)}));
}

TEST(KTEventLoggerInfo, CanBeAssignedToItself)
{
    KTEventLoggerInfo info;
    info.AddVariable(TestId(2));
    const KTEventLoggerInfo& same = info;
    info = same;
    EXPECT_EQ(Ids(info), Guids{TestId(2)});
}

// The service asks for all events of the registry, which may be very many.
TEST(KTEventLoggerInfo, ListsAHundredThousandEventsInNoTime)
{
    KTEventLoggerInfo info;
    for (int round = 0; round < 2; ++round)
        for (unsigned number = 1; number <= 100'000; ++number) info.AddVariable(TestId(number));
    EXPECT_EQ(info.NVariables(), 100'000);
}
