#include <charconv>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <ostream>

#include "apps/corvane/Commands.h"
#include "apps/corvane/EventDevices.h"
#include "apps/corvane/Installation.h"
#include "apps/corvane/Texts.h"
#include "engine/KTEventServer.h"
#include "host/KTEvaluator.h"

namespace
{
constexpr int firstAnswerWait = 5000;  // milliseconds

struct Result
{
    const char* kind = "error";
    int code = KTPolaca::nothingCompiled;
    double value = std::numeric_limits<double>::quiet_NaN();
};

Result Evaluate(const std::string& expression)
{
    KTEvaluator evaluator(corvane::Wide(expression).Str());
    Result result;
    const int analysis = evaluator.AnalizeExpression();
    if (analysis < 0) return result;
    int kind = 0;
    result.code = evaluator.polaca.Evaluate(result.value, kind);
    result.kind = analysis == 1 ? "logical" : "numeric";
    return result;
}

// The shortest text that reads back as the same number, without exponent where people would write none.
std::string Number(double value)
{
    if (std::isnan(value)) return "NaN";
    if (value == 0.0) return "0";  // never "-0"
    const double size = std::fabs(value);
    const auto format = size >= 1e-6 && size < 1e15 ? std::chars_format::fixed : std::chars_format::general;
    char text[32];
    return {text, std::to_chars(text, text + sizeof text, value, format).ptr};
}

void Print(const Result& result, bool json, std::ostream& out)
{
    if (json)
    {
        // Adding zero takes the sign of a negative zero away.
        const bool good = result.code == KTPolaca::success;
        out << nlohmann::ordered_json{{"kind", result.kind},
                                      {"code", result.code},
                                      {"value", good ? nlohmann::ordered_json(result.value + 0.0) : nullptr}}
                   .dump()
            << '\n';
        return;
    }
    out << result.kind << ' ' << result.code << ' ' << Number(result.value) << '\n';
}
}  // namespace

int corvane::Eval(const EvalOptions& options, const Streams& streams)
{
    Installation installation(streams.err);
    if (const int code = installation.Open(options.setup); code != done) return code;
    if (const int code = installation.StartDevices(); code != done) return code;
    // The events stand still: they are here for their pseudo-devices.
    KTEventServer server;
    server.LoadCfg();
    const EventDevices eventDevices;
    for (const KTDriverBase* silent : installation.devices.FirstAnswer(firstAnswerWait))
        streams.err << "corvane: device " << Utf8(silent->DeviceName()) << " doesn't answer\n";
    const Result result = Evaluate(options.expression);
    Print(result, options.json, streams.out);
    return result.code == KTPolaca::success ? done : foundSomething;
}
