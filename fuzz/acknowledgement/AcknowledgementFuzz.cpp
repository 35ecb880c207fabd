// Any bytes as the body of an acknowledgement, against a registry with open occurrences.

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "engine/KTEventDriver.h"
#include "engine/KTEventServer.h"
#include "host/KTCorvaneSetup.h"
#include "host/KTHttp.h"
#include "host/KTText.h"

namespace
{
// Counts upwards, so that the corpus can name occurrences that exist.
class CountingGuids : public KTGuidSource
{
public:
    bool Next(GUID& guid) override
    {
        guid = GUID{};
        guid.Data1 = ++last;
        return true;
    }
    std::uint32_t last = 0;
};

class Plant
{
public:
    Plant()
    {
        std::string directory = (std::filesystem::temp_directory_path() / "corvane-fuzz-XXXXXX").string();
        if (mkdtemp(directory.data()) == nullptr) std::abort();
        directory += '/';
        const std::string file = directory + "default.xeve";
        std::ofstream(file) << "<main><eventsGroups/><events>" << Event(1, 'T') << Event(2, 'T') << Event(3, 'F')
                            << "</events></main>";
        KTSetupData data;
        Utf8ToUtf16(data.cfgPath, KTNarrowString(directory.c_str()));
        KTCorvaneSetup::Get().Configure(data);
        server.LoadCfg();
        unlink(file.c_str());
        rmdir(directory.c_str());
        if (KTEventSystem::Get().EventsSize() != 3) std::abort();
        Scan();
    }

    void Acknowledge(const std::string& body)
    {
        KTHttpRequest request;
        server.ProcessHttpServiceAck(request, reinterpret_cast<const unsigned char*>(body.c_str()));
        Scan();
    }

private:
    static std::string Event(int number, char notify)
    {
        return "<event><id>{0000000" + std::to_string(number) + "-0000-0000-0000-00000000000E}</id><name>E" +
               std::to_string(number) + "</name><condition>1 = 1</condition><notify>" + notify + "</notify></event>";
    }

    static void Scan()
    {
        for (auto event = KTEventSystem::Get().EventsBegin(); event != KTEventSystem::Get().EventsEnd(); ++event)
            if (!(*event)->Work(KTDateTime::LTC())) std::abort();
    }

    KTEventServer server;
};
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static CountingGuids guids;
    KTGuidSource::Install(&guids);
    guids.last = 0;
    Plant().Acknowledge(std::string(reinterpret_cast<const char*>(data), size));
    KTGuidSource::Install(nullptr);
    return 0;
}
