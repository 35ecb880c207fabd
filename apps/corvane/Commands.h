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
    foundSomething = 1,  // warnings, damage, no rows, an expression without result
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
/// Runs until SIGINT or SIGTERM, then stops in order.
int Serve(const ServeOptions& options, const Streams& streams);

struct EvalOptions
{
    std::string setup;
    std::string expression;
    bool json = false;
};
/// Evaluates one expression once, against the devices of the settings.
int Eval(const EvalOptions& options, const Streams& streams);

/// Reads a password and prints the hash alone to `out`. At a terminal, which then has to be standard input, it asks twice
/// and hides what is typed; otherwise it takes one line of `in`.
int Password(std::istream& in, bool terminal, std::ostream& out, std::ostream& err);
}  // namespace corvane
