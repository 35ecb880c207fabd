// Any bytes as the two files of a month of the old event log.
//
// The first two bytes say where the record file ends and the annotation file begins.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "engine/KTEventSystem.h"
#include "host/KTCorvaneSetup.h"
#include "host/XmlDocument.h"
#include "log/KTEventFile.h"
#include "log/KTTransformEventsFilesTo27.h"
#include "support/FaultyFiles.h"
#include "support/TestText.h"

namespace
{
constexpr const char* recordsPath = "/data/Events 05-2007.eve";
constexpr const char* textsPath = "/data/Annotations 05-2007.dat";
constexpr std::size_t headerSize = 11;
constexpr std::size_t recordSize = 41;
constexpr std::size_t eventIdAt = 20;  // in a record
constexpr std::size_t guidSize = 16;

void Must(bool good)
{
    if (!good) std::abort();
}

// Three events, whose ids begin with the letters A, B and C and go on with zeros.
class Registry
{
public:
    Registry()
    {
        KTSetupData setup;
        setup.dataPath = L"/data/";
        KTCorvaneSetup::Get().Configure(setup);
        std::string events;
        for (const char letter : {'A', 'B', 'C'})
            events += "<event><id>{" + std::string(1, '4') + static_cast<char>(letter - 'A' + '1') +
                      "000000-0000-0000-0000-000000000000}</id><name>event " + letter +
                      "</name><condition>1=1</condition></event>";
        Must(document.Parse(("<main><eventsGroups/><events>" + events + "</events></main>").c_str()));
        system.LoadXml(document);
        Must(system.EventsSize() == 3);
    }

private:
    XmlDocument document;
    KTEventSystem system;
};

// How many records belong to the event of that letter, counted without any reader.
int CountOf(const std::string& records, char letter)
{
    std::string id(guidSize, '\0');
    id[0] = letter;
    int count = 0;
    for (std::size_t at = headerSize; at + recordSize <= records.size(); at += recordSize)
        count += records.compare(at + eventIdAt, guidSize, id) == 0 ? 1 : 0;
    return count;
}

void Check(const FaultyFiles& files, const std::string& records, char letter)
{
    const std::string path = std::string("/data/2007/05/event ") + letter + " 05-2007.suc";
    const int expected = CountOf(records, letter);
    Must(files.Exists(path) == (expected > 0));
    if (expected == 0) return;
    KTEventFile file(true);
    Must(file.Open(Wide(path).Str(), true));
    Must(file.NRecords() == expected && file.TailSize() == 0);
    KTNarrowString text;
    for (int index = 0; index < expected; ++index)
    {
        Must(file.GoRecord(index));
        file.EventAnnotation(text);
        Must(text.Empty() == (file.AnnotationOffset() == 0));
    }
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 2) return 0;
    static const Registry registry;
    const std::size_t cut = std::min<std::size_t>(data[0] * 256U + data[1], size - 2);
    const std::string records(data + 2, data + 2 + cut);
    FaultyFiles files;
    files.Put(recordsPath, records);
    files.Put(textsPath, {data + 2 + cut, data + size});
    KTTransformEventsFilesTo27().Transform();

    const bool isOne = records.starts_with("EVENT");
    Must(files.Exists(recordsPath) == !isOne && files.Exists(textsPath) == !isOne);
    for (const char letter : {'A', 'B', 'C'}) Check(files, isOne ? records : std::string(), letter);
    return 0;
}
