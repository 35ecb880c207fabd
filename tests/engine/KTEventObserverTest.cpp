#include "engine/KTEventObserver.h"

#include "DriverFixture.h"
#include "host/KTCorvaneSetup.h"

namespace
{
using KTEventObserverTest = DriverFixture;

class Deaf : public KTEventObserver
{
public:
    void StatusChanged(const KTEventDriver&, const KTEventDriver::tagSEventRT&, int) override {}
};
}  // namespace

TEST(KTEventObserver, ThereIsNoneByDefault) { EXPECT_EQ(KTEventObserver::Installed(), nullptr); }

TEST(KTEventObserver, InstallGivesTheOneBefore)
{
    Deaf first;
    Deaf second;
    EXPECT_EQ(KTEventObserver::Install(&first), nullptr);
    EXPECT_EQ(KTEventObserver::Installed(), &first);
    EXPECT_EQ(KTEventObserver::Install(&second), &first);
    EXPECT_EQ(KTEventObserver::Install(nullptr), &second);
    EXPECT_EQ(KTEventObserver::Installed(), nullptr);
}

TEST_F(KTEventObserverTest, IsToldOfEachChangeWithEventOccurrenceAndBit)
{
    Load("<notify>T</notify>");
    struct Told
    {
        const KTEventDriver* event;
        GUID occurrence;
        int status;
        int statusAfter;
        bool dated;
    };
    std::vector<Told> told;
    TestObserver watching(
        [&](const KTEventDriver& changed, const KTEventDriver::tagSEventRT& occurrence, int status)
        {
            const KTDateTime& date = status == 1   ? occurrence.activationDate
                                     : status == 2 ? occurrence.deactivationDate
                                                   : occurrence.acknowledgeDate;
            told.push_back({&changed, occurrence.id, status, occurrence.status, date.Valid()});
        });
    ScanWith(1);
    const GUID id = event.Occurrences().front()->id;
    ScanWith(1);
    ScanWith(0);
    EXPECT_TRUE(Acknowledge(id));
    EXPECT_TRUE(Acknowledge(id));
    Scan();
    const int bits[] = {1, 2, 4};
    const int after[] = {1, 3, 7};
    ASSERT_EQ(told.size(), 3U);
    for (std::size_t i = 0; i < told.size(); ++i)
    {
        EXPECT_EQ(told[i].event, &event);
        EXPECT_EQ(told[i].occurrence, id);
        EXPECT_EQ(told[i].status, bits[i]);
        EXPECT_EQ(told[i].statusAfter, after[i]);
        EXPECT_TRUE(told[i].dated);
    }
}

TEST_F(KTEventObserverTest, IsToldUnderTheEventsMutex)
{
    Load();
    bool told = false;
    TestObserver watching(
        [&](const KTEventDriver&, const KTEventDriver::tagSEventRT&, int)
        {
            told = true;
            EXPECT_FALSE(event.mutex.Lock());
        });
    ScanWith(1);
    EXPECT_TRUE(told);
}

TEST_F(KTEventObserverTest, IsToldWhatBecameOfARecordBeforeItIsToldOfTheChange)
{
    class Listening : public KTEventObserver
    {
    public:
        void RecordSaved(const KTEventDriver&, const KTEventDriver::tagSEventRT&, int status, bool saved) override
        {
            told.push_back("record " + std::to_string(status) + (saved ? " saved" : " lost"));
        }
        void StatusChanged(const KTEventDriver&, const KTEventDriver::tagSEventRT&, int status) override
        {
            told.push_back("status " + std::to_string(status));
        }
        Strings told;
    };
    KTSetupData nowhere;
    nowhere.dataPath = L"/dev/null/";  // no directory can be made there
    KTCorvaneSetup::Get().Configure(nowhere);
    Listening listening;
    KTEventObserver* const before = KTEventObserver::Install(&listening);
    Load("<record>T</record>");
    ScanWith(1);
    ScanWith(0);
    EXPECT_EQ(std::exchange(listening.told, {}), (Strings{"record 1 lost", "status 1", "record 2 lost", "status 2"}));
    Load("<record>F</record>");  // nobody misses what isn't to be recorded
    ScanWith(1);
    EXPECT_EQ(listening.told, Strings{"status 1"});
    KTEventObserver::Install(before);
    KTCorvaneSetup::Get().Configure({});
}

TEST_F(KTEventObserverTest, NothingDependsOnThereBeingOne)
{
    KTEventObserver* const before = KTEventObserver::Install(nullptr);
    Load("<notify>T</notify>");
    ScanWith(1);
    EXPECT_TRUE(Acknowledge(event.Occurrences().front()->id));
    ScanWith(0);
    EXPECT_TRUE(event.Occurrences().empty());
    EXPECT_TRUE(happened.empty());
    KTEventObserver::Install(before);
}
