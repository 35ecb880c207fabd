#include "apps/corvane/LoadReport.h"

#include <spdlog/spdlog.h>
#include <unistd.h>

#include <cerrno>
#include <initializer_list>
#include <unordered_set>

#include "engine/KTEventSystem.h"
#include "host/KTEvaluator.h"
#include "host/KTText.h"
#include "suite/tools/XmlFault.h"

namespace
{
using XmlNode = XmlDocument::XmlNode;

constexpr int mostTold = 100;  // a document of thousands of bad events has one mistake, not thousands

std::string OneLine(const KTWideString& text)
{
    KTNarrowString narrow;
    Utf16ToUtf8(narrow, text);
    std::string line(narrow.Str(), static_cast<std::size_t>(narrow.Length()));
    for (char& c : line)
        if (static_cast<unsigned char>(c) < ' ' || c == 0x7f) c = ' ';
    return line;
}

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

// A document that can't be read stands in memory as an empty one, so only those are looked at again.
void ReportFile(const std::string& directory, const char* name)
{
    const std::string path = directory + '/' + name;
    if (access(path.c_str(), F_OK) != 0 && errno == ENOENT) return;  // it may be missing
    const std::string fault = kt::XmlFaultOf(path);
    if (!fault.empty()) spdlog::warn("{}: {}; the server runs as if it were empty", path, fault);
}

std::string ConditionFault(const KTWideString& text, const char* what)
{
    KTEvaluator evaluator(text.Str());
    const int analysis = evaluator.AnalizeExpression();
    if (analysis == 1) return {};
    return std::string("its ") + what + (analysis < 0 ? " is not an expression: " : " is not logical: ") +
           OneLine(text);
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
            warnings.Add(node, "is always checked: there is no time table " + OneLine(table));
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
    const int size = KTEventSystem::Get().EventsSize();
    spdlog::info("{} {} loaded", size, size == 1 ? "event" : "events");
}

std::string corvane::EventTitle(const XmlNode& event)
{
    KTWideString name = event.Value(L"name", L"");
    if (name.Empty()) name = event.Value(L"id", L"");
    return "event \"" + OneLine(name) + '"';
}

std::string corvane::EventTitle(const KTEventDriver& event) { return EventTitle(*event.Node()); }
