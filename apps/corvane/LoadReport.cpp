#include "apps/corvane/LoadReport.h"

#include <spdlog/spdlog.h>
#include <unistd.h>

#include <cerrno>
#include <initializer_list>
#include <unordered_set>

#include "apps/corvane/Texts.h"
#include "engine/KTEventSystem.h"
#include "host/KTEvaluator.h"
#include "log/KTOldEventFiles.h"
#include "suite/tools/XmlFault.h"

namespace
{
using XmlNode = XmlDocument::XmlNode;

constexpr int mostTold = 100;  // a document of thousands of bad events has one mistake, not thousands

std::string LineOf(const KTWideString& text) { return corvane::OneLine(corvane::Utf8(text)); }

// Warnings up to a number, then how many more there were.
class Warnings
{
public:
    Warnings() = default;
    Warnings(const Warnings&) = delete;
    Warnings& operator=(const Warnings&) = delete;
    ~Warnings()
    {
        if (count > mostTold) spdlog::warn("and {} more warnings of this kind", count - mostTold);
    }

    void Add(const XmlNode& event, const std::string& reason)
    {
        if (++count <= mostTold) spdlog::warn("{} {}", corvane::EventTitle(event), reason);
    }

private:
    int count = 0;
};

bool IsEmpty(const XmlNode& root, std::initializer_list<const wchar_t*> containers)
{
    for (const wchar_t* container : containers)
        if (const XmlNode* node = root.Node(container); node != nullptr && node->Size() > 0) return false;
    return true;
}

// A document that can't be read stands in memory as an empty one, so only those are looked at again. Empty: it is good, or
// missing, as it may be.
std::string FaultOf(const std::string& directory, const char* name)
{
    const std::string path = directory + '/' + name;
    if (access(path.c_str(), F_OK) != 0 && errno == ENOENT) return {};
    const std::string fault = kt::XmlFaultOf(path);
    return fault.empty() ? std::string() : path + ": " + fault;
}

void ReportFile(const std::string& directory, const char* name)
{
    const std::string fault = FaultOf(directory, name);
    if (!fault.empty()) spdlog::warn("{}; the server runs as if it were empty", fault);
}

// What the server writes from here on would be replaced by a later conversion.
void ReportOldLog()
{
    const std::size_t months = kt::FindOldEventMonths().size();
    if (months == 0) return;
    spdlog::warn("{} {} of the old event log in the data directory: stop, and convert with `corvane migrate`", months,
                 months == 1 ? "file" : "files");
}

std::string ConditionFault(const KTWideString& text, const char* what)
{
    KTEvaluator evaluator(text.Str());
    const int analysis = evaluator.AnalizeExpression();
    if (analysis == 1) return {};
    return std::string("its ") + what + (analysis < 0 ? " is not an expression: " : " is not logical: ") + LineOf(text);
}

std::string ReasonNotLoaded(const XmlNode& event)
{
    if (wtoguid(event.Value(L"id", L"").Str()) == nullGuid) return "it has no id";
    const XmlNode* const condition = event.Node(L"condition");
    if (condition == nullptr) return "it has no condition";
    return ConditionFault(condition->Value(), "condition");
}

void ReportLeftOut(const XmlNode& events)
{
    std::unordered_set<const XmlNode*> loaded;
    const KTEventSystem& system = KTEventSystem::Get();
    for (auto event = system.EventsBegin(); event != system.EventsEnd(); ++event) loaded.insert((*event)->Node());
    Warnings warnings;
    for (auto event = events.ChildsBegin(); event != events.ChildsEnd(); ++event)
        if (!loaded.contains(*event)) warnings.Add(**event, "was left out: " + ReasonNotLoaded(**event));
}

void ReportDroppedParts()
{
    Warnings warnings;
    const KTEventSystem& system = KTEventSystem::Get();
    for (auto event = system.EventsBegin(); event != system.EventsEnd(); ++event)
    {
        const XmlNode& node = *(*event)->Node();
        if (const XmlNode* stop = node.Node(L"conditionStop"))
            if (const std::string fault = ConditionFault(stop->Value(), "stop condition"); !fault.empty())
                warnings.Add(node, "runs without its stop condition: " + fault);
        const KTWideString table = node.Value(L"timeTable", L"");
        if (!table.Empty() && (*event)->TimeTable() == nullptr)
            warnings.Add(node, "is always checked: there is no time table " + LineOf(table));
    }
}
}  // namespace

void corvane::ReportLoading(KTEventServer& server, const KTSettings& settings)
{
    const XmlNode& root = *server.Cfg()->Root();
    if (IsEmpty(root, {L"eventsGroups", L"events"})) ReportFile(settings.cfgPath, "default.xeve");
    if (IsEmpty(*server.TimeTableCfg()->Root(), {L"days", L"weeks", L"calendars"}))
        ReportFile(settings.cfgPath, "default.xtmt");
    if (settings.parkingEnabled) ReportFile(settings.cfgPath, "default.xpark");
    ReportLeftOut(*root.Node(L"events"));
    ReportDroppedParts();
    ReportOldLog();
    const int size = KTEventSystem::Get().EventsSize();
    spdlog::info("{} {} loaded", size, size == 1 ? "event" : "events");
}

std::string corvane::UnreadableEvents(KTEventServer& server, const KTSettings& settings)
{
    std::string fault;
    if (IsEmpty(*server.Cfg()->Root(), {L"eventsGroups", L"events"})) fault = FaultOf(settings.cfgPath, "default.xeve");
    if (fault.empty() && settings.parkingEnabled) fault = FaultOf(settings.cfgPath, "default.xpark");
    return fault;
}

std::string corvane::EventTitle(const XmlNode& event)
{
    KTWideString name = event.Value(L"name", L"");
    if (name.Empty()) name = event.Value(L"id", L"");
    return "event \"" + LineOf(name) + '"';
}

std::string corvane::EventTitle(const KTEventDriver& event) { return EventTitle(*event.Node()); }
