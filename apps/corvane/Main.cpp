#include <poll.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <ostream>

#include "apps/corvane/Arguments.h"
#include "apps/corvane/Commands.h"

namespace
{
constexpr const char* settingsHelp = "the settings of the installation (corvane.toml)";

void AddSetup(CLI::App& command, std::string& setup)
{
    command.add_option("--setup", setup, settingsHelp)->required()->type_name("FILE");
}

const CLI::App* AddServe(CLI::App& app, corvane::ServeOptions& options)
{
    CLI::App* const serve = app.add_subcommand("serve", "runs the events and the HTTP server until it is stopped");
    AddSetup(*serve, options.setup);
    serve->add_option("--port", options.port, "listen here instead of where the settings say; 0 lets the system choose")
        ->check(CLI::Range(0, 65535));
    return serve;
}

const CLI::App* AddEval(CLI::App& app, corvane::EvalOptions& options)
{
    CLI::App* const eval = app.add_subcommand("eval", "evaluates an expression once against the devices");
    AddSetup(*eval, options.setup);
    eval->add_flag("--json", options.json, "print the result as a JSON object");
    eval->add_option("expression", options.expression, "as in the condition of an event: \"[M1.P] > 5\"")->required();
    return eval;
}

constexpr const char* moment = "YYYY-MM-DDThh:mm:ssZ";

void AddFormats(CLI::App& log, corvane::LogOptions& options)
{
    const auto choose = [&options](const std::string& name)
    {
        options.asReply = name == "xml";
        options.format = name == "csv"    ? corvane::RowFormat::csv
                         : name == "json" ? corvane::RowFormat::json
                                          : corvane::RowFormat::table;
    };
    log.add_option_function<std::string>("--format", choose,
                                         "table, csv, json (an object a line), xml (the logger service's reply)")
        ->check(CLI::IsMember({"table", "csv", "json", "xml"}))
        ->type_name("FORMAT");
    log.add_flag_callback(
        "--json", [choose] { choose("json"); }, "the same as --format json");
}

const CLI::App* AddLog(CLI::App& app, corvane::LogOptions& options)
{
    CLI::App* const log =
        app.add_subcommand("log", "shows what happened in a period, or what stands in a file of the event log");
    log->add_option("--setup", options.setup, settingsHelp)->type_name("FILE");
    log->add_option("--begin", options.begin, "occurrences that began at this moment or later")->type_name(moment);
    log->add_option("--end", options.end, "and before this one")->type_name(moment);
    log->add_option("--event", options.events, "of this event alone; may be given more than once")
        ->allow_extra_args(false)
        ->type_name("NAME");
    log->add_flag("--before", options.before, "also what was open at the beginning");
    log->add_flag("--totals", options.totals, "a total an event instead of a row an occurrence");
    log->add_option("--file", options.file, "instead: every record of this file (.suc) as it stands")
        ->type_name("FILE");
    AddFormats(*log, options);
    log->footer(
        "Dates are UTC. Exit codes: 0 done, 1 no rows or a damaged record, 2 wrong usage, an unknown event\n"
        "or an unreadable file.\n\n"
        "  corvane log --setup corvane.toml --begin 2026-03-01T00:00:00Z --end 2026-04-01T00:00:00Z --event Pump\n"
        "  corvane log --file 'data/2026/03/Pump 03-2026.suc' --format csv");
    return log;
}

const CLI::App* AddMigrate(CLI::App& app, corvane::MigrateOptions& options)
{
    CLI::App* const migrate =
        app.add_subcommand("migrate", "converts the files of the old event log (Events MM-YYYY.eve), once");
    AddSetup(*migrate, options.setup);
    migrate->add_flag("--dry-run", options.dryRun, "only count what would be converted and dropped");
    migrate->add_flag("--json", options.json, "print what is dropped as JSON, an object an event");
    migrate->footer(
        "Deletes the old files, and drops records of events that aren't configured any more: keep a copy.\n"
        "Exit codes: 0 done, 1 records were dropped, 2 wrong usage or an unreadable configuration, 3 another\n"
        "program works on the data or not all could be written.");
    return migrate;
}

const CLI::App* AddRename(CLI::App& app, corvane::RenameOptions& options)
{
    CLI::App* const rename = app.add_subcommand("rename", "lets the log files of an event follow it to its new name");
    AddSetup(*rename, options.setup);
    rename->add_option("--old", options.oldEvents, "the events (default.xeve) before the change")
        ->required()
        ->type_name("FILE");
    rename->add_option("--new", options.newEvents, "the events after it")->required()->type_name("FILE");
    rename->add_flag("--json", options.json, "print what is renamed as JSON, an object a file");
    rename->footer(
        "Follows the first event whose name has changed, with its files of this year up to this month.\n"
        "Exit codes: 0 done, 2 wrong usage or an unreadable document, 3 another program works on the data or a\n"
        "file could not be renamed.");
    return rename;
}

// Devices log in every command, and standard output is for results alone.
void LogToStandardError()
{
    constexpr const char* name = "corvane";
    if (!spdlog::get(name)) spdlog::set_default_logger(spdlog::stderr_logger_mt(name));
}

// Whoever reads standard output has enough, as `head` after ten lines.
bool ReaderIsGone()
{
    pollfd output{STDOUT_FILENO, POLLOUT, 0};
    return poll(&output, 1, 0) > 0 && (output.revents & POLLERR) != 0;
}

// A result that got lost, on a full disk for instance, is none.
int Delivered(int code, const corvane::Streams& streams)
{
    if (streams.out.flush()) return code;
    if (ReaderIsGone()) return code;
    streams.err << "corvane: can't write to standard output\n";
    return corvane::workFailed;
}
}  // namespace

int corvane::Main(int argc, const char* const* argv, const Streams& streams)
{
    CLI::App app("Corvane: events over live plant variables", "corvane");
    app.require_subcommand(1);
    app.get_formatter()->column_width(36);
    app.footer("Exit codes: 0 done, 1 the work found something, 2 wrong usage or unreadable input, 3 the work failed.");

    ServeOptions serveOptions;
    const CLI::App* const serve = AddServe(app, serveOptions);
    LogOptions logOptions;
    const CLI::App* const log = AddLog(app, logOptions);
    MigrateOptions migrateOptions;
    const CLI::App* const migrate = AddMigrate(app, migrateOptions);
    RenameOptions renameOptions;
    const CLI::App* const rename = AddRename(app, renameOptions);
    EvalOptions evalOptions;
    const CLI::App* const eval = AddEval(app, evalOptions);
    const CLI::App* const password =
        app.add_subcommand("password", "reads a password and prints its hash for the settings");

    try
    {
        std::vector<std::string> words = WithExpressionLast({argv + 1, argv + argc});
        std::reverse(words.begin(), words.end());  // the parser takes them from the end
        app.parse(std::move(words));
    }
    catch (const CLI::ParseError& problem)
    {
        const int code = app.exit(problem, streams.out, streams.err);
        return code == 0 ? done : wrongUsage;  // --help is no problem
    }
    LogToStandardError();
    if (serve->parsed()) return Serve(serveOptions, streams);
    if (log->parsed()) return Delivered(Log(logOptions, streams), streams);
    if (migrate->parsed()) return Delivered(Migrate(migrateOptions, streams), streams);
    if (rename->parsed()) return Delivered(Rename(renameOptions, streams), streams);
    if (eval->parsed()) return Delivered(Eval(evalOptions, streams), streams);
    if (password->parsed()) return Delivered(Password(streams.in, streams.terminal, streams.out, streams.err), streams);
    return wrongUsage;
}
