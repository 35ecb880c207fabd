// The subcommands of `corvane`, one file each. main hands arguments and streams on; tests call the same functions.
#pragma once

#include <iosfwd>
#include <string>

namespace corvane
{
/// Exit codes of every subcommand.
enum ExitCode : int
{
    done = 0,
    foundSomething = 1,  // warnings, damage, no rows
    wrongUsage = 2,      // or unreadable input
    workFailed = 3
};

/// Where a command reads and writes: results go to `out`, messages to `err`.
struct Streams
{
    std::istream& in;
    std::ostream& out;
    std::ostream& err;
    bool terminal = false;  // `in` is a terminal
};

/// The whole program: parses the arguments and runs the subcommand.
int Main(int argc, const char* const* argv, const Streams& streams);

struct ServeOptions
{
    std::string setup;
    int port = -1;  // -1: as the settings say; 0: the system chooses
};
/// Runs until SIGINT or SIGTERM, or until the optional `stop` of a test is set.
int Serve(const ServeOptions& options, const Streams& streams);

struct EvalOptions
{
    std::string setup;
    std::string expression;
    bool json = false;
};
int Eval(const EvalOptions& options, const Streams& streams);
}  // namespace corvane
