// Any bytes as the parts of a request: what lets it in, and the handlers that read its body.
//
// The first line is the method, the second the target, then come headers, one a line, then an empty line and the body.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "suite/http/KTHttpGate.h"
#include "suite/http/KTHttpServices.h"
#include "suite/http/KTHttpVariables.h"
#include "tests/support/TestDriver.h"

namespace
{
void Expect(bool condition)
{
    if (!condition) std::abort();
}

KTSettings Settings()
{
    KTSettings settings;
    settings.names = {"plant.example"};
    settings.htmlPath = "/nonexistent";
    settings.users = {{"ana", "a", KTUserSettings::Role::viewer}, {"emil", "e", KTUserSettings::Role::engineer}};
    return settings;
}

KTHttpServices Services()
{
    KTHttpServices services;
    services.actived = services.notified = [](KTHttpRequest&, KTHttpResponse& response)
    {
        response.Start(200, 3);
        return response.Finish();
    };
    services.logger = [actived = services.actived](KTHttpRequest& request, KTHttpResponse& response,
                                                   const KTDateTime& begin, const KTDateTime& end)
    {
        if (!(begin < end)) std::abort();
        return actived(request, response);
    };
    services.acknowledge = [](KTHttpRequest&, const unsigned char* body) { return body[0] == '<'; };
    services.eventsList = [] { return std::string("[]"); };
    services.healthy = [] { return true; };
    services.metrics = [] { return std::string("up 1\n"); };
    return services;
}

std::string_view Line(std::string_view& text)
{
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(line.size() < text.size() ? line.size() + 1 : text.size());
    return line;
}

KTHttpCall Call(std::string_view text)
{
    KTHttpCall call;
    call.method = Line(text);
    call.target = Line(text);
    for (std::string_view line = Line(text); !line.empty(); line = Line(text))
        call.headers.emplace_back(line.substr(0, line.find(':')), TrimBlanks(line.substr(line.find(':') + 1)));
    call.body = text;
    call.peerAddress = call.localAddress = "127.0.0.1";
    if (const std::string* host = call.Header("Host")) call.authority = *host;
    return call;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static TestDriver panel(L"PANEL", {L"DOOR"});
    [[maybe_unused]] static const bool registered = panel.Register();
    static KTHttpServer server(Settings(), {},
                               [](const std::string& password, const std::string& hash) { return password == hash; });
    [[maybe_unused]] static const bool added = (AddHttpServices(server, Settings(), Services(), "/nonexistent"), true);
    static KTHttpGate gate(Settings(), server.Router(), server.Users());

    KTHttpCall call = Call({reinterpret_cast<const char*>(data), size});
    KTHttpAnswer answer(nullptr, call.peerAddress);
    const KTHttpRoute* const route = gate.Admit(call, answer);
    if (route == nullptr)
    {
        Expect(answer.reply.Status() >= 400 && answer.reply.Size() > 0);
        return 0;
    }
    Expect(call.access >= route->access);
    route->handler(call, answer);
    Expect(answer.reply.Status() >= 200);

    double number = 0.0;
    if (ParseNumber(call.body, number)) Expect(number - number == 0.0);
    return 0;
}
