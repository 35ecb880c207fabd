#include "suite/http/KTHttpExchange.h"

#include <poll.h>

#include <algorithm>
#include <charconv>
#include <exception>

namespace
{
constexpr std::size_t smallBody = 64 * 1024;  // bodies up to here pay nothing: the number of connections bounds them
constexpr std::size_t sendBlock = 64 * 1024;
constexpr std::chrono::milliseconds streamTurn{250};  // how soon a stream notices that it has to end
constexpr std::chrono::hours forEver{24};

constexpr std::pair<const char*, const char*> securityHeaders[] = {
    {"Content-Security-Policy",
     "default-src 'self'; style-src 'self'; img-src 'self' data:; frame-ancestors 'none'; base-uri 'none'; "
     "form-action 'self'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
};

MHD_Result CollectHeader(void* target, MHD_ValueKind /*kind*/, const char* key, std::size_t keySize, const char* value,
                         std::size_t valueSize)
{
    static_cast<KTHttpPairs*>(target)->emplace_back(std::string(key, keySize),
                                                    value == nullptr ? std::string() : std::string(value, valueSize));
    return MHD_YES;
}

bool IsCleanHeader(const std::pair<std::string, std::string>& header)
{
    const auto unfit = [](char c) { return (static_cast<unsigned char>(c) < ' ' && c != '\t') || c == 0x7F; };
    return IsHttpToken(header.first) && std::none_of(header.second.begin(), header.second.end(), unfit);
}

// A reply on its way out. Owns the answer, since the library sends long after the exchange's last step.
ssize_t ReadReply(void* context, std::uint64_t position, char* out, std::size_t count)
{
    const auto* answer = static_cast<const KTHttpAnswer*>(context);
    const std::size_t copied = answer->reply.Copy(position, out, count);
    return copied > 0 ? static_cast<ssize_t>(copied) : MHD_CONTENT_READER_END_OF_STREAM;
}

void FreeReply(void* context) { delete static_cast<KTHttpAnswer*>(context); }

struct tagSSending  // a stream on its way out
{
    KTHttpCore& core;
    KTHttpConnections::tagSEntry* entry;
    std::unique_ptr<KTHttpStream> stream;
    std::string pending = {};
};

bool PeerIsGone(int socket)
{
    pollfd state{socket, POLLRDHUP, 0};
    return ::poll(&state, 1, 0) > 0;
}

// Waits here, on the connection's own thread, until there is something: the library takes an empty answer for "ask again
// at once".
bool FillPending(tagSSending& sending)
{
    (void)sending.core.connections.Enter(sending.entry, KTHttpConnections::Phase::streaming, forEver);
    while (sending.pending.empty())
    {
        if (sending.core.stopping || sending.core.connections.IsCut(sending.entry)) return false;
        if (!sending.stream->Next(sending.pending, streamTurn)) return false;
        if (sending.pending.empty() && PeerIsGone(sending.entry->socket)) return false;
    }
    return sending.core.connections.Enter(sending.entry, KTHttpConnections::Phase::streaming,
                                          sending.core.limits.streamIdle);
}

ssize_t ReadStream(void* context, std::uint64_t /*position*/, char* out, std::size_t count)
{
    auto& sending = *static_cast<tagSSending*>(context);
    try
    {
        if (!FillPending(sending)) return MHD_CONTENT_READER_END_OF_STREAM;
    }
    catch (const std::exception&)
    {
        return MHD_CONTENT_READER_END_WITH_ERROR;
    }
    const std::size_t part = std::min(count, sending.pending.size());
    std::copy_n(sending.pending.data(), part, out);
    sending.pending.erase(0, part);
    return static_cast<ssize_t>(part);
}

void FreeStream(void* context) { delete static_cast<tagSSending*>(context); }
}  // namespace

KTHttpExchange::KTHttpExchange(KTHttpCore& shared, MHD_Connection* link, KTHttpConnections::tagSEntry* place,
                               const char* target)
    : core(shared), connection(link), entry(place), answer(std::make_unique<KTHttpAnswer>(&shared.replies, place->peer))
{
    call.target = target;
}

KTHttpExchange::~KTHttpExchange() { core.bodies.Give(entry->peer, reserved); }

MHD_Result KTHttpExchange::Step(const char* method, const char* version, const char* data, std::size_t* size)
{
    if (!begun)
    {
        begun = true;
        return Head(method, version);
    }
    if (*size == 0) return Work();
    const std::size_t part = std::exchange(*size, 0);
    return Body(data, part);
}

// A refusal leaves `route` null and the answer filled in.
MHD_Result KTHttpExchange::Head(const char* method, const char* version)
{
    core.connections.EnterWork(entry);  // a password takes its time
    SetIdleLimit(false);
    ReadCall(method);
    if (core.stopping)
        (void)Reject(503, "The server is stopping.");
    else if (IsWellFormed(version))
        route = core.gate.Admit(call, *answer);
    if (route != nullptr) ReserveBody();
    SetIdleLimit(true);
    if (AnswerAtOnce()) return Send();
    (void)core.connections.Enter(entry, KTHttpConnections::Phase::body, core.limits.body);
    return MHD_YES;
}

void KTHttpExchange::ReadCall(const char* method)
{
    call.method = method;
    call.peerAddress = entry->peer;
    call.localAddress = entry->local;
    call.secure = core.secure;
    MHD_get_connection_values_n(connection, MHD_HEADER_KIND, &CollectHeader, &call.headers);
    if (const std::string* host = call.Header("Host")) call.authority = *host;
}

bool KTHttpExchange::IsWellFormed(const char* version)
{
    const auto* head = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_REQUEST_HEADER_SIZE);
    if (head != nullptr && head->header_size > core.limits.headSize)
        return Reject(431, "The head of the request is too large.");
    if (!IsHttpToken(call.method) || !std::all_of(call.headers.begin(), call.headers.end(), &IsCleanHeader))
        return Reject(400, "A header can't be read.");
    const std::size_t hosts = Count("Host");
    const bool old = std::strcmp(version, "HTTP/1.0") == 0;
    if (hosts > 1 || (hosts == 0 && !old)) return Reject(400, "The request needs exactly one Host header.");

    // Whatever could end at another place for a proxy in front of us than for us is no request.
    const std::string* encoding = call.Header("Transfer-Encoding");
    const std::string* declared = call.Header("Content-Length");
    if (Count("Content-Length") > 1 || Count("Transfer-Encoding") > 1 || (encoding != nullptr && declared != nullptr) ||
        (encoding != nullptr && (old || !EqualIgnoringCase(*encoding, "chunked"))))
        return Reject(400, "The length of the body isn't clear.");
    if (declared == nullptr)
    {
        hasLength = encoding == nullptr;
        return true;
    }
    const auto [end, error] = std::from_chars(declared->data(), declared->data() + declared->size(), length);
    hasLength = error == std::errc() && end == declared->data() + declared->size();
    return hasLength || Reject(400, "The Content-Length is no number.");
}

bool KTHttpExchange::Reject(int status, const char* why)
{
    Refuse(status, why);
    close = true;
    return false;
}

void KTHttpExchange::Refuse(int status, const char* why)
{
    answer->Text(status, why);
    route = nullptr;
    call.body.clear();
    call.body.shrink_to_fit();
}

// A row without a body takes none and says nothing about one that comes all the same.
void KTHttpExchange::ReserveBody()
{
    if (route->bodyLimit == 0) return;
    if (hasLength && length > route->bodyLimit) return Refuse(413, "The body is too large.");
    const std::size_t wanted = hasLength ? static_cast<std::size_t>(length) : route->bodyLimit;
    if (wanted <= smallBody) return;
    if (!core.bodies.Take(entry->peer, wanted)) return Refuse(503, "Too many large requests at a time. Try again.");
    reserved = wanted;
}

bool KTHttpExchange::AnswerAtOnce() const
{
    if (route != nullptr) return false;
    const std::string* expect = call.Header("Expect");
    const bool heldBack = expect != nullptr && EqualIgnoringCase(*expect, "100-continue");
    const bool hasBody = !hasLength || length > 0;
    return close || (hasBody && heldBack) || length > core.limits.discardSize;
}

MHD_Result KTHttpExchange::Body(const char* data, std::size_t size)
{
    received += size;
    if (received > core.limits.discardSize) return MHD_NO;
    if (route == nullptr || route->bodyLimit == 0) return MHD_YES;
    if (size > route->bodyLimit - call.body.size())
        Refuse(413, "The body is too large.");
    else
        call.body.append(data, size);
    return MHD_YES;
}

MHD_Result KTHttpExchange::Work()
{
    if (route == nullptr) return Send();
    core.connections.EnterWork(entry);
    SetIdleLimit(false);
    try
    {
        route->handler(call, *answer);
        CompleteAnswer();
    }
    catch (const std::exception&)
    {
        answer->Text(500, "The request failed in the server.");
    }
    SetIdleLimit(true);
    return Send();
}

// The module doesn't look at what became of its text, so this is where a reply that didn't fit turns into a refusal.
void KTHttpExchange::CompleteAnswer()
{
    KTHttpReply& reply = answer->reply;
    if (reply.TooLarge())
        answer->Text(413, "The reply would be too large. Ask for less.");
    else if (reply.NoRoom())
    {
        answer->Text(503, "Too many large replies at a time. Try again.");
        answer->SetHeader("Retry-After", "10");
    }
    else if (reply.Status() == 0)
        answer->Text(500, "The request failed in the server.");
}

MHD_Result KTHttpExchange::Send()
{
    if (answer->stream != nullptr) return SendStream();
    const std::size_t size = answer->reply.Size();
    const std::chrono::seconds extra(size / core.limits.sendingRate);
    const std::chrono::milliseconds allowance =
        std::min<std::chrono::milliseconds>(core.limits.sending + extra, core.limits.sendingMost);
    (void)core.connections.Enter(entry, KTHttpConnections::Phase::sending, allowance);
    const int status = answer->reply.Status();
    if (size == 0) return Queue(MHD_create_response_from_buffer(0, nullptr, MHD_RESPMEM_PERSISTENT), status);
    MHD_Response* const response =
        MHD_create_response_from_callback(size, std::min(size, sendBlock), &ReadReply, answer.get(), &FreeReply);
    const MHD_Result result = Queue(response, status);
    if (response != nullptr) (void)answer.release();  // the response's, also when it couldn't be queued
    return result;
}

MHD_Result KTHttpExchange::SendStream()
{
    if (!core.connections.Enter(entry, KTHttpConnections::Phase::streaming, core.limits.streamIdle))
    {
        answer->Text(503, "Too many streams are open.");
        answer->SetHeader("Retry-After", "10");
        return Send();
    }
    SetIdleLimit(false);  // a stream may be silent as long as its client is there
    auto sending = std::make_unique<tagSSending>(tagSSending{core, entry, std::move(answer->stream)});
    MHD_Response* const response =
        MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, sendBlock, &ReadStream, sending.get(), &FreeStream);
    if (response != nullptr) (void)sending.release();
    return Queue(response, answer->reply.Status());
}

// Takes the response over. The answer must still be there.
MHD_Result KTHttpExchange::Queue(MHD_Response* response, int status)
{
    if (response == nullptr) return MHD_NO;
    const auto add = [&](const char* name, const char* value) { (void)MHD_add_response_header(response, name, value); };
    for (const auto& [name, value] : securityHeaders) add(name, value);
    for (const auto& [name, value] : answer->headers) add(name.c_str(), value.c_str());
    if (!answer->contentType.empty()) add("Content-Type", answer->contentType.c_str());
    if (!answer->staticFile) add("Cache-Control", "no-store");
    if (close || core.stopping) add("Connection", "close");
    const MHD_Result result = MHD_queue_response(connection, static_cast<unsigned>(status), response);
    MHD_destroy_response(response);
    return result;
}

void KTHttpExchange::SetIdleLimit(bool on)
{
    const auto seconds = std::max<std::chrono::milliseconds::rep>(1, core.limits.idle.count() / 1000);
    (void)MHD_set_connection_option(connection, MHD_CONNECTION_OPTION_TIMEOUT,
                                    on ? static_cast<unsigned>(seconds) : 0U);
}

std::size_t KTHttpExchange::Count(std::string_view header) const
{
    return static_cast<std::size_t>(std::count_if(call.headers.begin(), call.headers.end(),
                                                  [&](const auto& pair)
                                                  { return EqualIgnoringCase(pair.first, header); }));
}
