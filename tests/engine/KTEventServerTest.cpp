#include "engine/KTEventServer.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <atomic>
#include <set>

#include "ServerFixture.h"
#include "support/TestNoThreads.h"
#include "timetable/KTTimeTable.h"

namespace
{
using KTEventServerTest = ServerFixture;
using Strings = std::vector<std::string>;

// An event that lists when it is asked, and lets a test act on the scan's thread.
class AskedEvent : public TestEvent
{
public:
    AskedEvent(const wchar_t* itsName, std::function<void(const KTDateTime& now)> function)
        : onAsked(std::move(function))
    {
        name = itsName;
    }
    bool NeedCheck(const KTDateTime& now) override
    {
        onAsked(now);
        return false;
    }

private:
    std::function<void(const KTDateTime& now)> onAsked;
};

// Which files of a directory are opened while it lives.
class OpenedFiles
{
public:
    explicit OpenedFiles(const std::filesystem::path& directory) : handle(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
    {
        EXPECT_GE(inotify_add_watch(handle, directory.c_str(), IN_OPEN), 0);
    }
    ~OpenedFiles() { close(handle); }

    /// Since the last call.
    std::set<std::string> Names()
    {
        std::set<std::string> names;
        alignas(inotify_event) char buffer[4096];
        for (ssize_t size = read(handle, buffer, sizeof buffer); size > 0; size = read(handle, buffer, sizeof buffer))
            for (const char* at = buffer; at < buffer + size;)
            {
                const auto* const told = reinterpret_cast<const inotify_event*>(at);
                names.insert(told->name);
                at += sizeof *told + told->len;
            }
        names.erase("");
        return names;
    }

private:
    const int handle;
};

Strings ChildTags(const XmlDocument::XmlNode& node)
{
    Strings tags;
    for (auto child = node.ChildsBegin(); child != node.ChildsEnd(); ++child) tags.push_back(Utf8((*child)->Tag()));
    return tags;
}
}  // namespace

TEST(KTEventServer, StandsInOnePlaceWhileItLives)
{
    EXPECT_EQ(KTEventServer::Instance(), nullptr);
    {
        KTEventServer server;
        EXPECT_EQ(&KTEventServer::Get(), &server);
        EXPECT_EQ(KTEventServer::Instance(), &server);
        EXPECT_FALSE(server.IsRunning());
        EXPECT_EQ(server.ActiveEventsCount(), 0);
    }
    EXPECT_EQ(KTEventServer::Instance(), nullptr);
}

TEST_F(KTEventServerTest, WithoutFilesTheDocumentsHaveTheirRootsAndContainers)
{
    EXPECT_TRUE(server.LoadCfg());
    EXPECT_EQ(KTEventSystem::Get().EventsSize(), 0);
    EXPECT_EQ(KTEventSystem::Get().EventsGroupsSize(), 0);
    EXPECT_EQ(server.Cfg()->Root()->Tag(), L"main");
    EXPECT_EQ(ChildTags(*server.Cfg()->Root()), (Strings{"eventsGroups", "events"}));
    EXPECT_EQ(server.TimeTableCfg()->Root()->Tag(), L"main");
    EXPECT_EQ(ChildTags(*server.TimeTableCfg()->Root()), (Strings{"days", "weeks", "calendars"}));
    EXPECT_TRUE(std::filesystem::is_empty(config.File(""))) << "nothing is saved";
    Start();
    NextScan();
    EXPECT_EQ(server.ActiveEventsCount(), 0);
}

TEST_F(KTEventServerTest, AnUnreadableFileCountsAsAbsent)
{
    const char* const contents[] = {"",          "<main><events>",   "not XML", "<main/><main/>",
                                    "\xFF\xFE<", "<main>\x01</main>"};
    for (const char* content : contents)
    {
        config.WriteEvents(EventXml(1, "old", "TRUE"));
        EXPECT_TRUE(server.LoadCfg());
        EXPECT_EQ(KTEventSystem::Get().EventsSize(), 1);
        config.Write("default.xeve", content);
        config.Write("default.xtmt", content);
        EXPECT_TRUE(server.LoadCfg());
        EXPECT_EQ(KTEventSystem::Get().EventsSize(), 0) << content;
        EXPECT_EQ(ChildTags(*server.Cfg()->Root()), (Strings{"eventsGroups", "events"})) << content;
        EXPECT_EQ(ChildTags(*server.TimeTableCfg()->Root()), (Strings{"days", "weeks", "calendars"})) << content;
    }
}

TEST_F(KTEventServerTest, MissingContainersAreMadeAndTheOthersStay)
{
    config.Write("default.xeve", "<main><events>" + EventXml(1, "e", "TRUE") + "</events><other/></main>");
    config.Write("default.xtmt", "<main><weeks/></main>");
    EXPECT_TRUE(server.LoadCfg());
    EXPECT_EQ(ChildTags(*server.Cfg()->Root()), (Strings{"events", "other", "eventsGroups"}));
    EXPECT_EQ(ChildTags(*server.TimeTableCfg()->Root()), (Strings{"weeks", "days", "calendars"}));
    EXPECT_EQ(Names(), Strings{"e"});
}

TEST_F(KTEventServerTest, TheRegistryIsBuiltAndSortedByName)
{
    config.WriteEvents(
        EventXml(1, "beta", "TRUE",
                 Element("timeTable", "Night") + Element("eventsGroups", Element("g", Text(TestId(9))))) +
            EventXml(2, "Alpha", "TRUE") + EventXml(3, "refused", "1"),
        GroupXml(8, "z") + GroupXml(9, "Y"));
    config.WriteTimeTables(TableXml("day", "{n}", "Night"));
    EXPECT_TRUE(server.LoadCfg());
    EXPECT_EQ(Names(), (Strings{"Alpha", "beta"}));
    KTEventSystem& system = KTEventSystem::Get();
    EXPECT_EQ((*system.EventsGroupsBegin()), system.LockEventsGroup(L"Y"));
    const KTEventDriver* const beta = system.LockEvent(L"beta");
    EXPECT_EQ(beta->TimeTable(), system.LockTimeTable(L"{n}"));
    EXPECT_EQ(beta->Groups(), std::vector<KTEventDriverGroup*>{system.LockEventsGroup(L"Y")});
}

TEST_F(KTEventServerTest, LoadingAgainReplacesTheRegistry)
{
    config.WriteEvents(EventXml(1, "first", "TRUE"), GroupXml(2, "g"));
    config.WriteTimeTables(TableXml("day", "d", "d"));
    server.LoadCfg();
    config.WriteEvents(EventXml(3, "second", "TRUE"));
    config.WriteTimeTables("");
    server.LoadCfg();
    EXPECT_EQ(Names(), Strings{"second"});
    EXPECT_EQ(KTEventSystem::Get().EventsGroupsSize(), 0);
    EXPECT_EQ(KTEventSystem::Get().LockTimeTable(L"d"), nullptr);
}

TEST_F(KTEventServerTest, WithoutParkingItsFileIsNeitherReadNorMade)
{
    EXPECT_TRUE(server.LoadCfg());
    EXPECT_FALSE(std::filesystem::exists(config.File("default.xpark")));
    config.WriteEvents("");
    config.WriteTimeTables("");
    config.WriteParking(Element("eventError", IdElement(1) + "<name>p</name>"));
    OpenedFiles opened(config.File(""));
    EXPECT_TRUE(server.LoadCfg());
    EXPECT_TRUE(Names().empty());
    EXPECT_EQ(opened.Names(), (std::set<std::string>{"default.xeve", "default.xtmt"}));
    config.SetParking(true);
    EXPECT_TRUE(server.LoadCfg());
    EXPECT_TRUE(opened.Names().contains("default.xpark"));
}

TEST_F(KTEventServerTest, ParkingEventsStandAmongTheOthersByName)
{
    config.SetParking(true);
    config.WriteEvents(EventXml(1, "a", "TRUE") + EventXml(2, "m", "TRUE") + EventXml(3, "z", "TRUE"));
    config.WriteParking(Element("eventTime", IdElement(4) + "<name>X</name>") +
                        Element("eventError", IdElement(5) + "<name>C</name>"));
    EXPECT_TRUE(server.LoadCfg());
    EXPECT_EQ(Names(), (Strings{"a", "C", "m", "X", "z"}));
    EXPECT_EQ(KTEventSystem::Get().LockEvent(L"C")->Id(), TestId(5));
}

TEST_F(KTEventServerTest, WithParkingAMissingFileMeansNoParkingEvents)
{
    config.SetParking(true);
    EXPECT_TRUE(server.LoadCfg());
    EXPECT_TRUE(Names().empty());
    config.Write("default.xpark", "<zenpark/>");
    EXPECT_TRUE(server.LoadCfg());
    EXPECT_TRUE(Names().empty());
}

// One scan: the local time once, each event in the order of names with a yield behind it, and the pause.
TEST_F(KTEventServerTest, AScanTakesTheTimeOnceAndYieldsBehindEachEvent)
{
    config.WriteEvents(EventXml(1, "b", "TRUE") + EventXml(2, "A", "TRUE") + EventXml(3, "c", "TRUE"));
    server.LoadCfg();
    Strings trace;
    std::vector<KTDateTime> instants;
    for (const wchar_t* name : {L"A", L"b", L"c"})
        Replace(name, std::make_unique<AskedEvent>(name,
                                                   [&, name](const KTDateTime& now)
                                                   {
                                                       trace.push_back(Utf8(KTWideString(name)));
                                                       instants.push_back(now);
                                                   }));
    std::atomic<bool> watching{true};
    ObservedClock seen;
    const std::thread::id test = std::this_thread::get_id();
    seen.onLocalTime = [&]
    {
        if (watching && std::this_thread::get_id() != test) trace.emplace_back("time");
    };
    seen.onSleep = [&](std::uint32_t milliseconds)
    {
        if (watching && std::this_thread::get_id() != test) trace.push_back("sleep " + std::to_string(milliseconds));
        // Time goes on during a scan, and its events are told the instant of its beginning all the same.
        if (milliseconds == 0 && std::this_thread::get_id() != test)
            clock->SetUtc(Date(2024, 3, 10, 8, static_cast<int>(trace.size())));
    };
    const StopAtEnd stop(*this);
    Start();
    watching = false;
    EXPECT_EQ(trace, (Strings{"time", "A", "sleep 0", "b", "sleep 0", "c", "sleep 0", "sleep 1000"}));
    ASSERT_EQ(instants.size(), 3U);
    EXPECT_EQ(Text(instants[0]), Text(instants[1]));
    EXPECT_EQ(Text(instants[0]), Text(instants[2]));
    EXPECT_EQ(instants[0].Year(), 2024);
}

TEST_F(KTEventServerTest, TheScanHoldsTheWorkMutexAndThePauseDoesNot)
{
    config.WriteEvents(EventXml(1, "a", "TRUE"));
    server.LoadCfg();
    std::atomic<int> duringEvent{77};
    std::atomic<int> behindEvent{77};
    std::atomic<int> duringPause{77};
    Replace(L"a",
            std::make_unique<AskedEvent>(L"a", [&](const KTDateTime&) { duringEvent = server.ActiveEventsCount(); }));
    ObservedClock seen;
    const std::thread::id test = std::this_thread::get_id();
    seen.onSleep = [&](std::uint32_t milliseconds)
    {
        if (std::this_thread::get_id() == test) return;
        (milliseconds == 0 ? behindEvent : duringPause) = server.ActiveEventsCount();
    };
    const StopAtEnd stop(*this);
    Start();
    EXPECT_EQ(duringEvent, -1) << "the same thread can't take it twice";
    EXPECT_EQ(behindEvent, -1);
    EXPECT_EQ(duringPause, 0);
}

TEST_F(KTEventServerTest, AnEventThatCannotBeLockedIsLeftToTheNextScan)
{
    config.WriteEvents(EventXml(1, "a", "TRUE") + EventXml(2, "b", "TRUE") + EventXml(3, "c", "TRUE"));
    server.LoadCfg();
    Strings trace;
    TestEvent* b = nullptr;
    bool lock = true;
    Replace(L"a", std::make_unique<AskedEvent>(L"a", [&](const KTDateTime&) { lock = lock && b->mutex.Lock(); }));
    b = Replace(L"b", std::make_unique<AskedEvent>(L"b", [&](const KTDateTime&) { trace.emplace_back("b"); }));
    Replace(L"c", std::make_unique<AskedEvent>(L"c",
                                               [&](const KTDateTime&)
                                               {
                                                   trace.emplace_back("c");
                                                   if (std::exchange(lock, false)) b->mutex.Unlock();
                                               }));
    const StopAtEnd stop(*this);
    Start();
    EXPECT_EQ(trace, Strings{"c"});
    NextScan();
    EXPECT_EQ(trace, (Strings{"c", "b", "c"}));
}

TEST_F(KTEventServerTest, ScansOnceASecond)
{
    config.WriteEvents(EventXml(1, "a", "[T.A]=1", "<delayToActivate>2</delayToActivate>"));
    server.LoadCfg();
    plant.Register();
    plant.Set(L"A", 1.0);
    Start();
    const std::uint64_t first = Scans();
    clock->Advance(std::chrono::milliseconds(999));
    EXPECT_EQ(clock->Sleepers(), 1);
    EXPECT_EQ(Scans(), first);
    clock->Advance(std::chrono::milliseconds(1));
    ASSERT_TRUE(WaitUntil([&] { return Scans() == first + 1 && clock->Sleepers() == 1; }));
    EXPECT_EQ(server.ActiveEventsCount(), 0);
    NextScan();
    EXPECT_EQ(server.ActiveEventsCount(), 1) << "two seconds after the first scan";
}

TEST_F(KTEventServerTest, CountsTheEventsThatAreActive)
{
    config.WriteEvents(EventXml(1, "a", "[T.A]=1") + EventXml(2, "b", "[T.B]=1") + EventXml(3, "c", "[T.C]=1"));
    server.LoadCfg();
    plant.Register();
    Start();
    EXPECT_EQ(server.ActiveEventsCount(), 0);
    plant.Set(L"A", 1.0);
    plant.Set(L"C", 1.0);
    NextScan();
    EXPECT_EQ(server.ActiveEventsCount(), 2);
    plant.Set(L"A", 0.0);
    plant.Clear(L"C");
    plant.Set(L"B", 1.0);
    NextScan();
    EXPECT_EQ(server.ActiveEventsCount(), 1);
    Stop();
    EXPECT_EQ(server.ActiveEventsCount(), 0) << "the mutex is free and the registry empty";
}

TEST_F(KTEventServerTest, StartOnARunningServerMakesNoSecondThread)
{
    std::atomic<int> begun{0};
    std::atomic<int> ended{0};
    ObservedClock seen;
    seen.onScanThread = [&](bool scanning) { ++(scanning ? begun : ended); };
    server.LoadCfg();
    Start();
    EXPECT_TRUE(server.IsRunning()) << "when Start returns the thread runs";
    EXPECT_TRUE(server.Start());
    EXPECT_TRUE(server.Start());
    NextScan();
    EXPECT_EQ(begun, 1);
    Stop();
    EXPECT_EQ(begun, 1);
    EXPECT_EQ(ended, 1);
    EXPECT_FALSE(server.IsRunning());
}

TEST_F(KTEventServerTest, StopOnAServerThatNeverStartedEmptiesTheRegistryAtOnce)
{
    config.WriteEvents(EventXml(1, "a", "TRUE"));
    server.LoadCfg();
    server.Stop();
    EXPECT_EQ(KTEventSystem::Get().EventsSize(), 0);
    EXPECT_EQ(Status(), 200) << "and took no count";
    server.Stop();
}

TEST_F(KTEventServerTest, TheRequestToStopIsSeenOnlyAfterThePause)
{
    server.LoadCfg();
    Start();
    const std::uint64_t scans = Scans();
    auto stop = InBackground([&] { server.Stop(); });
    EXPECT_TRUE(StillWaits(stop));
    clock->Advance(std::chrono::milliseconds(999));
    EXPECT_TRUE(StillWaits(stop));
    clock->Advance(std::chrono::milliseconds(1));
    stop.get();
    EXPECT_EQ(Scans(), scans) << "and no scan comes behind it";
}

TEST_F(KTEventServerTest, AfterAStopServicesAreRefusedUntilTheNextStart)
{
    config.WriteEvents(EventXml(1, "a", "TRUE"));
    server.LoadCfg();
    EXPECT_EQ(Status(), 200) << "before the first start";
    Start();
    EXPECT_EQ(Status(), 200);
    Stop();
    EXPECT_EQ(Status(Service::actived), 503);
    EXPECT_EQ(Status(Service::notified), 503);
    EXPECT_FALSE(Acknowledge("<eventsAck/>"));
    Start();
    EXPECT_EQ(Status(), 200);
    EXPECT_TRUE(Acknowledge("<eventsAck/>"));
    EXPECT_TRUE(Names().empty()) << "a start after a stop runs on an empty registry";
    Stop();
    server.LoadCfg();
    Start();
    EXPECT_EQ(Names(), Strings{"a"});
    EXPECT_EQ(server.ActiveEventsCount(), 1);
}

TEST_F(KTEventServerTest, ManyStartsNeverGiveMoreThanTheirCounts)
{
    server.LoadCfg();
    for (int i = 0; i < 5; ++i)
    {
        Start();
        Stop();
        EXPECT_EQ(Status(), 503) << "a stop drains all that a start gave";
    }
}

TEST_F(KTEventServerTest, StopWaitsForAServiceInProgressBeforeItAsksTheScanToEnd)
{
    std::atomic<bool> scanEnded{false};
    ObservedClock seen;
    seen.onScanThread = [&](bool scanning) { scanEnded = !scanning; };
    config.WriteEvents(EventXml(1, "a", "TRUE"));
    server.LoadCfg();
    Start();
    std::promise<void> inService;
    std::promise<void> goOn;
    auto service = InBackground(
        [&]
        {
            TestResponse response;
            bool first = true;
            response.onWrite = [&](const std::string&)
            {
                if (!std::exchange(first, false)) return;
                inService.set_value();
                goOn.get_future().wait();
            };
            Ask(Service::actived, response);
            return response.status;
        });
    inService.get_future().wait();
    const std::uint64_t scans = Scans();
    auto stop = InBackground([&] { server.Stop(); });
    EXPECT_TRUE(StillWaits(stop));
    // The scan wakes, and waits for the service that holds the work mutex: it wasn't asked to end.
    clock->Advance(std::chrono::seconds(1));
    ASSERT_TRUE(WaitUntil([&] { return clock->Sleepers() == 0; }));
    EXPECT_TRUE(StillWaits(stop));
    EXPECT_FALSE(scanEnded);
    EXPECT_EQ(Status(Service::notified), 503) << "new services are shut out meanwhile";
    EXPECT_FALSE(Acknowledge("<eventsAck/>"));
    EXPECT_EQ(KTEventSystem::Get().EventsSize(), 1);

    goOn.set_value();
    EXPECT_EQ(service.get(), 200) << "the service in progress is served to its end";
    ASSERT_TRUE(WaitUntil([&] { return Scans() > scans; }));
    while (stop.wait_for(std::chrono::milliseconds(1)) == std::future_status::timeout)
        clock->Advance(std::chrono::seconds(1));
    EXPECT_TRUE(scanEnded);
    EXPECT_EQ(KTEventSystem::Get().EventsSize(), 0);
}

TEST_F(KTEventServerTest, WhenTheSystemGivesNoThreadStartFailsAndCanBeTriedAgain)
{
    config.WriteEvents(EventXml(1, "a", "TRUE"));
    server.LoadCfg();
    {
        TestNoThreads none;
        EXPECT_FALSE(server.Start());
        EXPECT_FALSE(server.IsRunning());
        EXPECT_FALSE(server.Start());
    }
    EXPECT_EQ(Status(), 200) << "the services work on the registry all the same";
    Start();
    EXPECT_EQ(server.ActiveEventsCount(), 1);
}

TEST_F(KTEventServerTest, AStopAfterAFailedStartKeepsTheCountsAndEmptiesTheRegistry)
{
    config.WriteEvents(EventXml(1, "a", "TRUE"));
    server.LoadCfg();
    {
        TestNoThreads none;
        EXPECT_FALSE(server.Start());
    }
    server.Stop();
    EXPECT_TRUE(Names().empty());
    EXPECT_EQ(Status(), 200);
}

TEST_F(KTEventServerTest, ItsEndStopsTheScan)
{
    config.WriteEvents(EventXml(1, "a", "[T.A]=1", "<notify>T</notify>"));
    plant.Register();
    plant.Set(L"A", 1.0);
    std::atomic<int> ended{0};
    ObservedClock seen;
    seen.onScanThread = [&](bool scanning) { ended += scanning ? 0 : 1; };
    {
        KTEventServer second;  // takes the place of the fixture's
        second.LoadCfg();
        ASSERT_TRUE(second.Start());
        ASSERT_TRUE(WaitUntil([&] { return second.ActiveEventsCount() == 1; }));
        clock->Release();
    }
    EXPECT_EQ(ended, 1);
    EXPECT_EQ(KTEventServer::Instance(), nullptr);
}

TEST_F(KTEventServerTest, OpenOccurrencesAreDiscardedAtAStop)
{
    constexpr unsigned count = 10'000;
    std::string events;
    for (unsigned i = 1; i <= count; ++i)
        events += EventXml(i, "event " + std::to_string(i), "[T.A]=1", "<notify>T</notify><annotation>a</annotation>");
    config.WriteEvents(events);
    server.LoadCfg();
    plant.Register();
    plant.Set(L"A", 1.0);
    Start();
    EXPECT_EQ(server.ActiveEventsCount(), static_cast<int>(count));
    plant.Set(L"A", 0.0);
    NextScan();
    plant.Set(L"A", 1.0);
    NextScan();
    EXPECT_EQ(server.ActiveEventsCount(), static_cast<int>(count));
    Stop();
    EXPECT_EQ(KTEventSystem::Get().EventsSize(), 0);
    server.LoadCfg();
    Start();
    EXPECT_EQ(server.ActiveEventsCount(), static_cast<int>(count)) << "what still holds activates anew";
}

TEST(KTEventServer, RunsOnTheSystemsClock)
{
    TestConfig config;
    TestDriver plant(L"T", {L"A"});
    plant.Set(L"A", 1.0);
    plant.Register();
    KTEventServer server;
    config.WriteEvents(EventXml(1, "a", "[T.A]=1"));
    server.LoadCfg();
    const auto began = std::chrono::steady_clock::now();
    ASSERT_TRUE(server.Start());
    ASSERT_TRUE(WaitUntil([&] { return server.ActiveEventsCount() == 1; }));
    plant.Set(L"A", 0.0);
    ASSERT_TRUE(WaitUntil([&] { return server.ActiveEventsCount() == 0; }));
    EXPECT_GE(std::chrono::steady_clock::now() - began, std::chrono::seconds(1)) << "a second lies between two scans";
    server.Stop();
    EXPECT_GE(std::chrono::steady_clock::now() - began, std::chrono::seconds(2));
}
