#include "engine/KTEventSystem.h"

#include <algorithm>
#include <memory>

#include "engine/KTEventDriver.h"
#include "engine/KTEventDriverGroup.h"
#include "engine/KTEventDriverParking.h"
#include "host/KTCorvaneSetup.h"
#include "host/KTText.h"
#include "timetable/KTTimeTableCalendar.h"
#include "timetable/KTTimeTableDay.h"
#include "timetable/KTTimeTableWeek.h"

KTEventSystem* KTEventSystem::instance = nullptr;

namespace
{
template <class Map, class Key>
auto Find(const Map& map, const Key& key) -> typename Map::mapped_type
{
    const auto found = map.find(key);
    return found == map.end() ? nullptr : found->second;
}

// Equal names keep the order of the document.
template <class Container>
void SortByName(Container& container)
{
    std::stable_sort(container.begin(), container.end(),
                     [](const auto* a, const auto* b) { return _wcsicmp(a->Name().Str(), b->Name().Str()) < 0; });
}
}  // namespace

KTEventSystem::KTEventSystem() { instance = this; }

KTEventSystem::KTEventSystem(const KTEventSystem& other) { ShareContent(other); }

KTEventSystem& KTEventSystem::operator=(const KTEventSystem& other)
{
    if (this == &other) return *this;
    KeepContent();
    ShareContent(other);
    return *this;
}

KTEventSystem::~KTEventSystem() { Reset(); }

void KTEventSystem::ShareContent(const KTEventSystem& other)
{
    rssMaxItems = other.rssMaxItems;
    rssItems = other.rssItems;
    rssActive = other.rssActive;
    rssDocument = other.rssDocument;
    events = other.events;
    timeTables = other.timeTables;
    eventsGroups = other.eventsGroups;
    eventIndex = other.eventIndex;
    groupIndex = other.groupIndex;
    timeTableIndex = other.timeTableIndex;
    ownsContent = false;
}

template <class Container, class Element>
void KTEventSystem::Empty(Container& container, std::vector<std::unique_ptr<Element>>& kept)
{
    if (ownsContent)
        for (Element* element : container) delete element;
    container.clear();
    kept.clear();
}

void KTEventSystem::KeepContent()
{
    if (!ownsContent) return;
    for (KTEventDriver* event : events) keptEvents.emplace_back(event);
    for (KTTimeTable* table : timeTables) keptTimeTables.emplace_back(table);
    for (KTEventDriverGroup* group : eventsGroups) keptGroups.emplace_back(group);
}

template <class Container, class Element>
void KTEventSystem::Add(Container& container, std::vector<std::unique_ptr<Element>>& kept,
                        std::unique_ptr<Element> element)
{
    container.push_back(element.get());
    if (ownsContent)
        (void)element.release();  // the container owns it from here on
    else
        kept.push_back(std::move(element));
}

void KTEventSystem::Reset()
{
    eventIndex = {};
    groupIndex = {};
    timeTableIndex.clear();
    // Events first: until they are gone they refer to tables and groups.
    Empty(events, keptEvents);
    Empty(timeTables, keptTimeTables);
    Empty(eventsGroups, keptGroups);
    ownsContent = true;
}

template <class Table>
void KTEventSystem::LoadTables(const XmlDocument::XmlNode* container)
{
    if (container == nullptr) return;
    for (auto child = container->ChildsBegin(); child != container->ChildsEnd(); ++child)
    {
        std::unique_ptr<KTTimeTable> table = std::make_unique<Table>();
        if (table->LoadXml(*child)) Add(timeTables, keptTimeTables, std::move(table));  // a bad table is simply absent
    }
}

bool KTEventSystem::LoadTimeTableXml(const XmlDocument& document)
{
    LoadTables<KTTimeTableDay>(document.Node(L"days"));
    LoadTables<KTTimeTableWeek>(document.Node(L"weeks"));
    LoadTables<KTTimeTableCalendar>(document.Node(L"calendars"));
    IndexTimeTables();
    return true;
}

void KTEventSystem::IndexTimeTables()
{
    timeTableIndex.clear();
    // Of two tables the earlier one wins, even where the later matches by its id.
    for (KTTimeTable* table : timeTables)
    {
        timeTableIndex.try_emplace(table->id.Str(), table);
        timeTableIndex.try_emplace(table->name.Str(), table);
    }
}

template <class Element, class Container>
void KTEventSystem::BuildIndex(Index<Element>& index, const Container& elements)
{
    index = {};
    index.byText.reserve(elements.size());
    index.byId.reserve(elements.size());
    for (Element* element : elements)
    {
        index.byText.try_emplace(element->Name().Str(), element);
        index.byId.try_emplace(element->Id(), element);
    }
}

bool KTEventSystem::LoadXml(const XmlDocument& document)
{
    // The groups first: an event resolves its references to them while it loads.
    const XmlDocument::XmlNode* const groupsNode = document.Node(L"eventsGroups");
    for (auto child = groupsNode->ChildsBegin(); child != groupsNode->ChildsEnd(); ++child)
    {
        auto group = std::make_unique<KTEventDriverGroup>();
        if (group->LoadXml(**child)) Add(eventsGroups, keptGroups, std::move(group));
    }
    BuildIndex(groupIndex, eventsGroups);

    const XmlDocument::XmlNode* const eventsNode = document.Node(L"events");
    for (auto child = eventsNode->ChildsBegin(); child != eventsNode->ChildsEnd(); ++child)
    {
        auto event = std::make_unique<KTEventDriver>();
        if (event->LoadXml(*child)) Add(events, keptEvents, std::move(event));
    }
    BuildIndex(eventIndex, events);
    return true;
}

bool KTEventSystem::LoadParkingXml(const XmlDocument& document)
{
    if (!KTCorvaneSetup::Get().HasParking()) return true;
    for (const wchar_t* path : {L"/events/eventError", L"/events/eventTime"})
    {
        const XmlDocument::XmlNode* const node = document.Node(path);
        if (node == nullptr) continue;
        std::unique_ptr<KTEventDriver> event = std::make_unique<KTEventDriverParking>();
        if (event->LoadXml(node)) Add(events, keptEvents, std::move(event));
    }
    BuildIndex(eventIndex, events);
    return true;
}

void KTEventSystem::Sort()
{
    SortByName(events);
    BuildIndex(eventIndex, events);
}

void KTEventSystem::SortEventsGroups()
{
    SortByName(eventsGroups);
    BuildIndex(groupIndex, eventsGroups);
}

KTEventDriver* KTEventSystem::LockEvent(const wchar_t* name) { return Find(eventIndex.byText, name); }
KTEventDriver* KTEventSystem::LockEvent(const GUID& id) { return Find(eventIndex.byId, id); }
KTEventDriverGroup* KTEventSystem::LockEventsGroup(const wchar_t* name) { return Find(groupIndex.byText, name); }
KTEventDriverGroup* KTEventSystem::LockEventsGroup(const GUID& id) { return Find(groupIndex.byId, id); }
KTTimeTable* KTEventSystem::LockTimeTable(const wchar_t* text) { return Find(timeTableIndex, text); }

void KTEventSystem::PublishRSS(const KTWideString& /*title*/, const KTWideString& /*description*/,
                               const KTDateTime& /*date*/, int /*status*/)
{
}
