// The system calls of one record, and nothing around them.
#pragma once

#include <cstdint>
#include <string>

/// Appends records to a pair of files with exactly the calls that an event's record costs: what no program that opens,
/// judges, writes, commits and closes could do without.
class BareLog
{
public:
    explicit BareLog(const std::string& directory);

    void Append();
    void AppendWithAnnotation(const std::string& text);

private:
    int OpenAndJudge();

    std::string records;
    std::string annotations;
};
