// Events and actions whose insides a test can reach.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <string>
#include <utility>

#include "engine/KTEventDriver.h"
#include "host/KTEvaluator.h"
#include "support/TestConfig.h"

/// An action that does what a test tells it.
class TestAction : public KTEventAction
{
public:
    using Deed = std::function<bool(int phase)>;

    TestAction(CObject* event, Deed itsDeed) : KTEventAction(event), deed(std::move(itsDeed)) {}
    bool Execute(int phase) override { return deed(phase); }

private:
    Deed deed;
};

/// An event with its run time open to tests. It keeps the document that it was loaded from.
class TestEvent : public KTEventDriver
{
public:
    using KTEventDriver::actionLists;
    using KTEventDriver::activationTime;
    using KTEventDriver::actived;
    using KTEventDriver::annotationTemplate;
    using KTEventDriver::annotationText;
    using KTEventDriver::arguments;
    using KTEventDriver::conditionEvaluator;
    using KTEventDriver::conditionStopEvaluator;
    using KTEventDriver::delayOffCounter;
    using KTEventDriver::delayOnCounter;
    using KTEventDriver::delayToActivate;
    using KTEventDriver::delayToDeactivate;
    using KTEventDriver::description;
    using KTEventDriver::groups;
    using KTEventDriver::id;
    using KTEventDriver::mutex;
    using KTEventDriver::name;
    using KTEventDriver::node;
    using KTEventDriver::notify;
    using KTEventDriver::record;
    using KTEventDriver::SaveEvent;
    using KTEventDriver::timeTable;

    /// Loads one `event` element.
    bool LoadText(const std::string& element)
    {
        auto fresh = std::make_unique<XmlDocument>();
        if (!fresh->Parse(element.c_str())) return false;
        document = std::move(fresh);
        return LoadXml(document->Root());
    }

    /// Appends an action of the server's section.
    void Add(int phase, TestAction::Deed deed)
    {
        actionLists[static_cast<std::size_t>(phase)].push_back(new TestAction(this, std::move(deed)));
    }

    // The tests of one event run on one thread, where nobody else can hold the lock.
    std::list<tagSEventRT*>& Occurrences() KT_NO_THREAD_SAFETY_ANALYSIS { return occurrences; }
    tagSEventRT* MakeOccurrence() KT_NO_THREAD_SAFETY_ANALYSIS { return NewEventRT(); }
    bool SetStatus(tagSEventRT* occurrence, int status) KT_NO_THREAD_SAFETY_ANALYSIS
    {
        return SetEventStatus(occurrence, status);
    }

private:
    std::unique_ptr<XmlDocument> document;
};
