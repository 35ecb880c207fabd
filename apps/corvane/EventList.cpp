#include "apps/corvane/EventList.h"

#include <nlohmann/json.hpp>

#include "apps/corvane/Texts.h"
#include "engine/KTEventDriver.h"
#include "engine/KTEventDriverGroup.h"
#include "engine/KTEventSystem.h"
#include "timetable/KTTimeTable.h"

namespace
{
using corvane::Utf8;

nlohmann::ordered_json Describe(const KTEventDriver& event)
{
    char id[guidTextSize];
    auto groups = nlohmann::ordered_json::array();
    for (const KTEventDriverGroup* group : event.Groups())
        if (group != nullptr) groups.push_back(Utf8(group->Name()));
    const KTTimeTable* const table = event.TimeTable();
    return {{"id", guidtoc(event.Id(), id)},
            {"name", Utf8(event.Name())},
            {"description", Utf8(event.Description())},
            {"groups", std::move(groups)},
            {"notify", event.Notify()},
            {"record", event.Record()},
            {"timeTable", table == nullptr ? nlohmann::ordered_json() : nlohmann::ordered_json(Utf8(table->name))}};
}
}  // namespace

std::string corvane::EventListJson()
{
    auto list = nlohmann::ordered_json::array();
    const KTEventSystem& system = KTEventSystem::Get();
    for (auto event = system.EventsBegin(); event != system.EventsEnd(); ++event) list.push_back(Describe(**event));
    return list.dump();
}
