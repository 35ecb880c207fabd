// How far a long work has come, on a terminal.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

namespace corvane
{
/// One line that is written over, and gone at the end. Without a terminal it writes nothing.
class Progress
{
public:
    Progress(std::ostream& messages, bool terminal) : err(messages), shown(terminal) {}
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress() { Clear(); }

    /// Begins a work of so many units.
    void Begin(const char* what, std::int64_t units)
    {
        title = what;
        total = units;
        done = 0;
        percent = -1;
        Add(0);
    }

    void Add(std::int64_t units)
    {
        done += units;
        const int now = total > 0 ? static_cast<int>(done < total ? done * 100 / total : 100) : 100;
        if (!shown || now == percent) return;
        percent = now;
        err << '\r' << title << ' ' << percent << " %" << std::flush;
    }

    /// Before a message, so that it doesn't stand behind the figures.
    void Clear()
    {
        if (shown && percent >= 0) err << "\r\033[K" << std::flush;
        percent = -1;
    }

private:
    std::ostream& err;
    const bool shown;
    std::string title;
    std::int64_t total = 0;
    std::int64_t done = 0;
    int percent = -1;  // on the screen; -1: nothing is
};
}  // namespace corvane
