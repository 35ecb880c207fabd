#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <ostream>

#include "apps/corvane/Arguments.h"
#include "apps/corvane/Commands.h"

namespace
{
void AddSetup(CLI::App& command, std::string& setup)
{
    command.add_option("--setup", setup, "the settings of the installation (corvane.toml)")->required();
}

// Devices log in every command, and standard output is for results alone.
void LogToStandardError()
{
    constexpr const char* name = "corvane";
    if (!spdlog::get(name)) spdlog::set_default_logger(spdlog::stderr_logger_mt(name));
}

// A result that got lost, on a full disk for instance, is none.
int Delivered(int code, const corvane::Streams& streams)
{
    if (streams.out.flush()) return code;
    streams.err << "corvane: can't write to standard output\n";
    return corvane::workFailed;
}
}  // namespace

int corvane::Main(int argc, const char* const* argv, const Streams& streams)
{
    CLI::App app("Corvane: events over live plant variables", "corvane");
    app.require_subcommand(1);
    app.footer("Exit codes: 0 done, 1 the work found something, 2 wrong usage or unreadable input, 3 the work failed.");

    ServeOptions serveOptions;
    CLI::App* const serve = app.add_subcommand("serve", "runs the events and the HTTP server until it is stopped");
    AddSetup(*serve, serveOptions.setup);
    serve
        ->add_option("--port", serveOptions.port,
                     "listen here instead of where the settings say; 0 lets the system choose")
        ->check(CLI::Range(0, 65535));

    EvalOptions evalOptions;
    CLI::App* const eval = app.add_subcommand("eval", "evaluates an expression once against the devices");
    AddSetup(*eval, evalOptions.setup);
    eval->add_flag("--json", evalOptions.json, "print the result as a JSON object");
    eval->add_option("expression", evalOptions.expression, "as in the condition of an event: \"[M1.P] > 5\"")
        ->required();

    CLI::App* const password = app.add_subcommand("password", "reads a password and prints its hash for the settings");

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
    if (eval->parsed()) return Delivered(Eval(evalOptions, streams), streams);
    if (password->parsed()) return Delivered(Password(streams.in, streams.terminal, streams.out, streams.err), streams);
    return wrongUsage;
}
