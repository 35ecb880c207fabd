#include "bench/engine/BenchPlant.h"

#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <filesystem>
#include <fstream>

#include "host/KTCorvaneSetup.h"
#include "host/KTText.h"

BenchDriver::BenchDriver(int variables) : cells(static_cast<std::size_t>(variables))
{
    for (auto& cell : cells) cell = 10.0;
    KTDriver::Register(this);
}

BenchDriver::~BenchDriver() { KTDriver::Unregister(this); }

bool BenchDriver::VariableId(const wchar_t* variable, int& id)
{
    if (variable[0] != L'V') return false;
    const int number = _wtoi(variable + 1);
    if (number < 0 || number >= VariableCount()) return false;
    id = number;
    return true;
}

bool BenchDriver::ReadVariable(int id, KTValue& value)
{
    value.SetNumeric(cells[static_cast<std::size_t>(id)]);
    return true;
}

bool BenchDriver::WriteVariable(int id, double value)
{
    cells[static_cast<std::size_t>(id)] = value;
    return true;
}

BenchDirectory::BenchDirectory()
{
    path = (std::filesystem::temp_directory_path() / "corvane-bench-XXXXXX").string();
    if (mkdtemp(path.data()) == nullptr) std::abort();
}

BenchDirectory::~BenchDirectory() { std::filesystem::remove_all(path); }

void BenchDirectory::Use() const
{
    KTSetupData data;
    Utf8ToUtf16(data.cfgPath, KTNarrowString((path + "/").c_str()));
    KTCorvaneSetup::Get().Configure(data);
}

std::size_t BenchDirectory::WriteEvents(int events, int variables, std::size_t bytes) const
{
    std::ofstream file(EventsFile());
    file << "<?xml version=\"1.0\" encoding=\"UTF-8\"?><main><eventsGroups>";
    for (int group = 0; group < 50; ++group)
        file << "<eventsGroup><id>{00000000-0000-0000-0001-" << std::string(8, '0') << (1000 + group)
             << "}</id><name>Group " << group << "</name></eventsGroup>";
    file << "</eventsGroups><events>";
    char id[64];
    for (int i = 0; i < events; ++i)
    {
        std::snprintf(id, sizeof id, "{%08X-0000-4000-8000-000000000001}", static_cast<unsigned>(i + 1));
        // Padded, so that the order of the names is the order of the document and of the bare loop.
        char name[32];
        std::snprintf(name, sizeof name, "Event number %07d", i);
        std::string event = "<event><id>" + std::string(id) + "</id><name>" + name + "</name><condition>";
        for (int v = 0; v < variables; ++v)
            event += (v == 0 ? "[B.V" : " AND [B.V") + std::to_string(i * variables + v) +
                     (v == variables - 1 ? "] &gt; 50" : "] &gt; 5");
        event += "</condition>";
        if (bytes > 0)
        {
            event +=
                "<description>Feeder " + std::to_string(i) +
                " draws more than its contract allows</description><annotation>Power %a1 kW, limit %a2 kW, seen by "
                "the night shift</annotation><delayToActivate>5</delayToActivate><delayToDeactivate>10"
                "</delayToDeactivate><notify>T</notify><record>T</record><rssActivate>F</rssActivate>"
                "<rssDeactivate>F</rssDeactivate><rssAcknowledge>F</rssAcknowledge><eventsGroups><eventsGroup>"
                "{00000000-0000-0000-0001-000000001" +
                std::to_string(100 + i % 50).substr(0) + "}</eventsGroup></eventsGroups><arguments>";
            while (event.size() + 60 < bytes)
                event += "<argument><id>" + std::string(id) +
                         "</id><value>[B.V0] * 2</value><format>05.02</format><thousandSeparator>T</thousandSeparator>"
                         "</argument>";
            event += "</arguments>";
        }
        event += "</event>\n";
        file << event;
    }
    file << "</events></main>";
    file.close();
    return std::filesystem::file_size(EventsFile());
}
