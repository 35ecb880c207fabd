// A time zone for the length of a test.
#pragma once

#include <stdlib.h>

#include <string>

/// Sets TZ, and puts back what it was. Only while no other thread asks for the local time.
class TestZone
{
public:
    explicit TestZone(const char* zone)
    {
        if (const char* was = getenv("TZ"))
        {
            before = was;
            had = true;
        }
        setenv("TZ", zone, 1);
    }
    TestZone(const TestZone&) = delete;
    TestZone& operator=(const TestZone&) = delete;
    ~TestZone()
    {
        if (had)
            setenv("TZ", before.c_str(), 1);
        else
            unsetenv("TZ");
    }

private:
    std::string before;
    bool had = false;
};

/// One hour ahead of UTC, two from the last Sunday of March to that of October: written out, so that no machine's
/// time zone files are asked.
inline constexpr const char* testZoneOfMadrid = "CET-1CEST,M3.5.0,M10.5.0/3";
