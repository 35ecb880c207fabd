#include "engine/KTEventServer.h"

#include <initializer_list>

#include "engine/KTEventDriver.h"
#include "host/KTClock.h"
#include "host/KTCorvaneSetup.h"

KTEventServer* KTEventServer::instance = nullptr;

namespace
{
// Each part of an event is asked for some events before the part that is found through it.
void PrefetchAhead(KTEventSystem::EventIterator events, int current, int size)
{
    constexpr int eventsAStep = 4;
    for (int step = 0; step < KTEventDriver::prefetchSteps; ++step)
    {
        const int ahead = current + (KTEventDriver::prefetchSteps - step) * eventsAStep;
        if (ahead < size) events[ahead]->Prefetch(step);
    }
}

// Loads a document of the configuration directory, or makes an empty one that a later save puts in its place.
void LoadDocument(XmlDocument& document, const wchar_t* file, const wchar_t* root,
                  std::initializer_list<const wchar_t*> containers)
{
    KTWideString path(KTWideString::growSmall);
    path = KTCorvaneSetup::Get().CfgPath();
    path += file;
    if (!document.Load(path.Str())) document.Create(root);
    for (const wchar_t* container : containers)
        if (document.Root()->Node(container) == nullptr) document.Root()->NewChild(container);
}
}  // namespace

KTEventServer::KTEventServer() : requestSlots(std::make_unique<KTSemaphore>(slots, slots)) { instance = this; }

KTEventServer::~KTEventServer()
{
    instance = nullptr;
    Stop();
}

bool KTEventServer::LoadCfg()
{
    LoadDocument(eventsCfg, L"default.xeve", L"main", {L"eventsGroups", L"events"});
    if (KTCorvaneSetup::Get().HasParking()) LoadDocument(parkingCfg, L"default.xpark", L"zenpark", {L"events"});
    LoadDocument(timeTableCfg, L"default.xtmt", L"main", {L"days", L"weeks", L"calendars"});
    LoadXml();
    return true;
}

void KTEventServer::LoadXml()
{
    eventSystem.Reset();
    eventSystem.LoadTimeTableXml(timeTableCfg);  // first: events resolve their time table while they load
    eventSystem.LoadXml(eventsCfg);
    eventSystem.LoadParkingXml(parkingCfg);
    eventSystem.Sort();
    eventSystem.SortEventsGroups();
}

bool KTEventServer::Start()
{
    if (state == stateRunning) return true;
    // Gives back what a stop drained; on the first start the semaphore is full and each release fails harmlessly.
    for (int i = 0; i < slots; ++i) requestSlots->Release();
    state = stateStarting;
    if (!worker.Start([](void* server) { static_cast<KTEventServer*>(server)->Work(); }, this)) return false;
    while (state == stateStarting) Sleep(0);
    return true;
}

void KTEventServer::Stop()
{
    if (state == stateRunning)
    {
        requestSlots->Drain();
        state = stateStopRequested;
        while (state != stateStopped) Sleep(0);
        worker.Join();
    }
    eventSystem.Reset();
}

void KTEventServer::Work()
{
    KTClock::Get().SetScanThread(true);
    state = stateRunning;
    while (state != stateStopRequested)
    {
        Scan();
        Sleep(pauseBetweenScans);
    }
    KTClock::Get().SetScanThread(false);
    state = stateStopped;
}

void KTEventServer::Scan()
{
    if (!workMutex.LockFirst()) return;
    ScanEvents();
    workMutex.Unlock();
}

void KTEventServer::ScanEvents()
{
    const std::uint32_t beginTick = GetTickCount();
    // One instant for all events of a scan.
    const KTDateTime now = KTDateTime::LTC();
    const auto begin = eventSystem.EventsBegin();
    const int size = eventSystem.EventsSize();
    for (int i = 0; i < size; ++i)
    {
        PrefetchAhead(begin, i, size);
        (void)begin[i]->Work(now);  // an event that can't be locked is looked at in the next scan
        Sleep(0);
    }
    scanFigures.lastEnd = GetTickCount();
    scanFigures.lastDuration = scanFigures.lastEnd - beginTick;
    ++scanFigures.scans;
}

int KTEventServer::ActiveEventsCount()
{
    const KTLockGuard guard(workMutex);
    if (!guard.Locked()) return -1;
    int count = 0;
    for (auto event = eventSystem.EventsBegin(); event != eventSystem.EventsEnd(); ++event)
        if ((*event)->IsEnabled()) ++count;
    return count;
}
