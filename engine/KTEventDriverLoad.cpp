// Building an event from its element.

#include "actions/KTEventAction.h"
#include "engine/KTEventDriver.h"
#include "engine/KTEventSystem.h"
#include "host/KTEvaluator.h"
#include "host/KTText.h"

namespace
{
using XmlNode = XmlDocument::XmlNode;

bool Flag(const XmlNode& node, const wchar_t* tag) { return node.Value(tag, L"") == L"T"; }

// Seconds in the document, milliseconds in memory. Unsigned: a negative delay becomes one of close to 49.7 days.
std::uint32_t Delay(const XmlNode& node, const wchar_t* tag)
{
    return static_cast<std::uint32_t>(_wtoi(node.Value(tag, L"").Str())) * 1000U;
}

// A compiled logical expression, or null.
std::unique_ptr<KTEvaluator> LogicalExpression(const wchar_t* text)
{
    auto evaluator = std::make_unique<KTEvaluator>();
    evaluator->mode = 4;
    evaluator->polaca.mode = 4;
    evaluator->Set(text);
    if (evaluator->AnalizeExpression() != 1) return nullptr;
    return evaluator;
}

constexpr const wchar_t* sectionTags[KTEventAction::sections] = {L"actions", L"clientActions"};
constexpr const wchar_t* phaseTags[KTEventAction::phases] = {L"activate", L"while", L"deactivate", L"acknowledge"};
}  // namespace

bool KTEventDriver::LoadXml(const XmlNode* element)
{
    delete conditionEvaluator;
    conditionEvaluator = nullptr;
    delete conditionStopEvaluator;
    conditionStopEvaluator = nullptr;
    node = element;
    id = wtoguid(node->Value(L"id", L"").Str());
    if (id == nullGuid) return false;
    LoadValues();
    if (!LoadConditions()) return false;
    LoadGroups();
    LoadArguments();
    LoadActions();
    return true;
}

void KTEventDriver::LoadValues()
{
    name = node->Value(L"name", L"");
    description = node->Value(L"description", L"");
    annotationTemplate = node->Value(L"annotation", L"");
    delayToActivate = Delay(*node, L"delayToActivate");
    delayToDeactivate = Delay(*node, L"delayToDeactivate");
    notify = Flag(*node, L"notify");
    record = Flag(*node, L"record");
    rssActivate = Flag(*node, L"rssActivate");
    rssDeactivate = Flag(*node, L"rssDeactivate");
    rssAcknowledge = Flag(*node, L"rssAcknowledge");
    timeTable = KTEventSystem::Get().LockTimeTable(node->Value(L"timeTable", L"").Str());
}

bool KTEventDriver::LoadConditions()
{
    const XmlNode* const condition = node->Node(L"/condition");
    if (condition == nullptr) return false;
    conditionEvaluator = LogicalExpression(condition->Value().Str()).release();
    if (conditionEvaluator == nullptr) return false;
    // A bad stop condition costs only itself: the event then stops by its condition.
    if (const XmlNode* const stop = node->Node(L"conditionStop"))
        conditionStopEvaluator = LogicalExpression(stop->Value().Str()).release();
    return true;
}

void KTEventDriver::LoadGroups()
{
    groups.clear();
    const XmlNode* const references = node->Node(L"eventsGroups");
    if (references == nullptr) return;
    // The place of a group is its number in annotations, so that one that is gone keeps its place.
    for (auto child = references->ChildsBegin(); child != references->ChildsEnd(); ++child)
        groups.push_back(KTEventSystem::Get().LockEventsGroup(wtoguid((*child)->Value().Str())));
}

void KTEventDriver::LoadArguments()
{
    arguments.clear();
    if (const XmlNode* const list = node->Node(L"arguments")) arguments.assign(list->ChildsBegin(), list->ChildsEnd());
}

void KTEventDriver::LoadActions()
{
    for (int section = 0; section < KTEventAction::sections; ++section)
    {
        const XmlNode* const sectionNode = node->Node(sectionTags[section]);
        if (sectionNode == nullptr) continue;
        // Without notification there is no acknowledgement, and so nothing to do at one.
        const int phases = notify ? KTEventAction::phases : KTEventAction::phaseAcknowledge;
        for (int phase = 0; phase < phases; ++phase)
        {
            const XmlNode* const phaseNode = sectionNode->Node(phaseTags[phase]);
            if (phaseNode == nullptr) continue;
            const int number = section * KTEventAction::phases + phase;
            auto& list = actionLists[static_cast<std::size_t>(number)];
            for (auto child = phaseNode->ChildsBegin(); child != phaseNode->ChildsEnd(); ++child)
            {
                auto action = KTEventAction::Create((*child)->Tag().Str(), this);
                if (action != nullptr && action->LoadXml(*child)) list.push_back(action.release());
            }
        }
    }
}
