// Expanding a typical annotation, against fmt::format of the same text with the same numbers read from the same cells.

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>

#include "bench/engine/BenchPlant.h"
#include "engine/KTEventDriver.h"
#include "engine/KTEventSystem.h"
#include "host/KTText.h"

namespace
{
using Steady = std::chrono::steady_clock;

constexpr const char* groupsXml =
    "<main><eventsGroups><eventsGroup><id>{6F9619FF-8B86-D011-B42D-00CF4FC964FF}</id><name>Energy</name></eventsGroup>"
    "</eventsGroups><events/></main>";

// Two powers with their formats: a variable alone, and an expression.
constexpr const char* eventXml =
    "<event><id>{8919CE68-E070-40B8-BF6A-3DD28D274905}</id><name>Supply load high</name><description>Active power near "
    "the contracted 300 kW</description><condition>[B.V0] &gt; 280</condition><delayToActivate>30</delayToActivate>"
    "<eventsGroups><eventsGroup>{6F9619FF-8B86-D011-B42D-00CF4FC964FF}</eventsGroup></eventsGroups><arguments>"
    "<argument><value>[B.V0]</value><format>.01</format><thousandSeparator>F</thousandSeparator></argument>"
    "<argument><value>[B.V1] - [B.V2]</value><format>.02</format><thousandSeparator>F</thousandSeparator></argument>"
    "</arguments></event>";
constexpr const wchar_t* annotation = L"%n: %t. Supply at %a1 kW for %b s, %a2 kW of them in the hall (group %g1)";

std::string WithFmt(const BenchDriver& driver)
{
    static const std::string name = "Supply load high";
    static const std::string description = "Active power near the contracted 300 kW";
    static const std::string group = "Energy";
    static const unsigned delay = 30'000;
    const auto cell = [&driver](std::size_t i) { return driver.cells[i].load(std::memory_order_relaxed); };
    return fmt::format("{}: {}. Supply at {:.1f} kW for {} s, {:.2f} kW of them in the hall (group {})", name,
                       description, cell(0), delay / 1000, cell(1) - cell(2), group);
}

// What a turn of the plant gives: no two expansions show the same numbers.
void Turn(BenchDriver& driver, int round)
{
    driver.cells[0].store(250.0 + 0.137 * (round % 997), std::memory_order_relaxed);
    driver.cells[1].store(90.0 + 0.0731 * (round % 991), std::memory_order_relaxed);
}

// The time of one expansion in nanoseconds.
template <class Expand>
double Measure(BenchDriver& driver, Expand&& expand)
{
    constexpr int rounds = 5000;
    const auto begin = Steady::now();
    for (int round = 0; round < rounds; ++round)
    {
        Turn(driver, round);
        expand();
    }
    return std::chrono::duration<double, std::nano>(Steady::now() - begin).count() / rounds;
}
}  // namespace

int main()
{
    BenchDriver driver(3);
    driver.cells[2] = 12.34;
    KTEventSystem system;
    XmlDocument groups;
    XmlDocument document;
    KTEventDriver event;
    if (!groups.Parse(groupsXml) || !document.Parse(eventXml)) std::abort();
    system.LoadXml(groups);
    if (!event.LoadXml(document.Root())) std::abort();

    const KTWideString text(annotation);
    KTWideString out;
    Turn(driver, 7);
    event.ParseAnnotation(out, text);
    KTNarrowString narrow;
    Utf16ToUtf8(narrow, out);
    if (narrow.Str() != WithFmt(driver))
    {
        std::fprintf(stderr, "the two differ:\n%s\n%s\n", narrow.Str(), WithFmt(driver).c_str());
        return 1;
    }
    // In turns, and the best of each: what disturbs a run only makes it slower.
    std::size_t length = 0;
    double ours = std::numeric_limits<double>::infinity();
    double theirs = ours;
    for (int repetition = 0; repetition < 60; ++repetition)
    {
        ours = std::min(ours, Measure(driver,
                                      [&]
                                      {
                                          event.ParseAnnotation(out, text);
                                          length += static_cast<std::size_t>(out.Length());
                                      }));
        theirs = std::min(theirs, Measure(driver, [&] { length -= WithFmt(driver).size(); }));
    }
    if (length != 0) std::abort();  // over all rounds the two wrote equally much
    std::printf("%-20s %6.0f ns\n", "annotation/corvane", ours);
    std::printf("%-20s %6.0f ns   ratio %.2f\n", "annotation/fmt", theirs, ours / theirs);
    return 0;
}
