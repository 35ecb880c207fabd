// The subcommands of `corvane`, one file each. main hands arguments and streams on; tests call the same functions.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "apps/corvane/Rows.h"

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
    bool terminal = false;       // `in` is a terminal
    bool errorTerminal = false;  // `err` is one: progress can be shown
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

struct LogOptions
{
    std::string file;  // a single file; otherwise the log of the installation, by the others
    std::string setup;
    std::string begin;
    std::string end;
    std::vector<std::string> events;  // names, in the order wanted; none: all
    bool before = false;              // also occurrences that were open at the beginning
    bool totals = false;
    RowFormat format = RowFormat::table;
    bool asReply = false;  // as the logger service writes it, whatever `format` says
};
/// Shows the occurrences of a period, or every record of a file.
int Log(const LogOptions& options, const Streams& streams);

/// Every record of `options.file` as it stands, whatever bytes it holds.
int LogFile(const LogOptions& options, const Streams& streams);

struct MigrateOptions
{
    std::string setup;
    bool dryRun = false;  // only counts
    bool json = false;
};
/// Converts the old event log.
int Migrate(const MigrateOptions& options, const Streams& streams);

struct RenameOptions
{
    std::string setup;
    std::string oldEvents;  // paths of documents
    std::string newEvents;
    bool json = false;
};
/// Lets the log files of an event follow it to its new name.
int Rename(const RenameOptions& options, const Streams& streams);

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
