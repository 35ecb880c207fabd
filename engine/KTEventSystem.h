// The registry of events, groups and time tables.
#pragma once

#include <list>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/KTDateTime.h"
#include "host/KTGuid.h"
#include "host/KTString.h"
#include "host/XmlDocument.h"

class KTEventDriver;
class KTEventDriverGroup;
class KTTimeTable;

/// Owns every event, group and time table, and the state of the feed.
///
/// Errors:  what doesn't load is simply absent; null from a lookup means not found.
/// Threads: filled and emptied while no scan runs; read under KTEventServer's work mutex, or by a service that holds a
///          count of its request slots. The Lock operations are plain lookups that lock nothing; what they return is good
///          until the next Reset.
/// Memory:  a copy shares the pointers of its source and owns none of them, so it must not outlive the source's content;
///          what it loads itself is its own. What an assignment replaces is freed by the next Reset.
class KTEventSystem
{
public:
    KTEventSystem();
    KTEventSystem(const KTEventSystem& other);
    KTEventSystem& operator=(const KTEventSystem& other);
    virtual ~KTEventSystem();

    static KTEventSystem& Get() { return *instance; }

    void Reset();

    /// All three always return true; each adds what loads and drops the rest without a word. LoadXml expects the document
    /// to have both of its containers.
    bool LoadTimeTableXml(const XmlDocument& document);
    bool LoadXml(const XmlDocument& document);
    bool LoadParkingXml(const XmlDocument& document);

    /// By name, ignoring case; the order of the events is the order of the scan.
    void Sort();
    void SortEventsGroups();

    /// The first event or group in the registry's order with exactly that name or id.
    KTEventDriver* LockEvent(const wchar_t* name);
    KTEventDriver* LockEvent(const GUID& id);
    KTEventDriverGroup* LockEventsGroup(const wchar_t* name);
    KTEventDriverGroup* LockEventsGroup(const GUID& id);
    /// The first table, in the order of loading, whose id or name is exactly that text.
    KTTimeTable* LockTimeTable(const wchar_t* text);

    using EventIterator = std::vector<KTEventDriver*>::iterator;
    using ConstEventIterator = std::vector<KTEventDriver*>::const_iterator;
    using GroupIterator = std::vector<KTEventDriverGroup*>::iterator;
    using ConstGroupIterator = std::vector<KTEventDriverGroup*>::const_iterator;

    EventIterator EventsBegin() { return events.begin(); }
    EventIterator EventsEnd() { return events.end(); }
    [[nodiscard]] ConstEventIterator EventsBegin() const { return events.begin(); }
    [[nodiscard]] ConstEventIterator EventsEnd() const { return events.end(); }
    GroupIterator EventsGroupsBegin() { return eventsGroups.begin(); }
    GroupIterator EventsGroupsEnd() { return eventsGroups.end(); }
    [[nodiscard]] ConstGroupIterator EventsGroupsBegin() const { return eventsGroups.begin(); }
    [[nodiscard]] ConstGroupIterator EventsGroupsEnd() const { return eventsGroups.end(); }
    [[nodiscard]] int EventsSize() const { return static_cast<int>(events.size()); }
    [[nodiscard]] int EventsGroupsSize() const { return static_cast<int>(eventsGroups.size()); }

    [[nodiscard]] int GetRssMaxNumberOfItems() const { return rssMaxItems; }
    [[nodiscard]] int GetRssNumberOfItems() const { return rssItems; }
    [[nodiscard]] bool GetRssActive() const { return rssActive; }

    /// Adds an item to the feed. `status` is the bit of the change; `date` is UTC.
    void PublishRSS(const KTWideString& title, const KTWideString& description, const KTDateTime& date, int status);

private:
    static KTEventSystem* instance;

    // From what a lookup compares with to the first element in order that bears it. Built when the containers are filled
    // or sorted, so that a lookup costs the same however many there are and changes nothing.
    template <class Element>
    struct Index
    {
        std::unordered_map<std::wstring, Element*> byText;
        std::unordered_map<GUID, Element*, KTGuidHash> byId;
    };

    template <class Table>
    void LoadTables(const XmlDocument::XmlNode* container);
    template <class Element, class Container>
    static void BuildIndex(Index<Element>& index, const Container& elements);
    void IndexTimeTables();
    void ShareContent(const KTEventSystem& other);
    void KeepContent();
    template <class Container, class Element>
    void Empty(Container& container, std::vector<std::unique_ptr<Element>>& kept);
    template <class Container, class Element>
    void Add(Container& container, std::vector<std::unique_ptr<Element>>& kept, std::unique_ptr<Element> element);

    std::int32_t rssMaxItems = 20;
    std::int32_t rssItems = 0;
    bool rssActive = false;
    XmlDocument rssDocument;
    std::vector<KTEventDriver*> events;             // owned, as ownsContent says
    std::list<KTTimeTable*> timeTables;             // the same; days, then weeks, then calendars
    std::vector<KTEventDriverGroup*> eventsGroups;  // the same
    Index<KTEventDriver> eventIndex;
    Index<KTEventDriverGroup> groupIndex;
    std::unordered_map<std::wstring, KTTimeTable*> timeTableIndex;
    bool ownsContent = true;  // false while the three containers show what another registry owns

    // Owned besides the three containers: what was loaded on top of a shared content, and what an assignment replaced. The
    // latter can't go at once, since the assigned one may be a copy of us.
    std::vector<std::unique_ptr<KTEventDriver>> keptEvents;
    std::vector<std::unique_ptr<KTTimeTable>> keptTimeTables;
    std::vector<std::unique_ptr<KTEventDriverGroup>> keptGroups;
};
