#include "suite/http/KTHttpCall.h"

void KTHttpAnswer::Text(int status, std::string_view why)
{
    Empty(status);
    contentType = "text/plain; charset=utf-8";
    reply.Append(why);
    reply.Append("\n");
}

void KTHttpAnswer::Empty(int status)
{
    reply.Reset();
    reply.Start(status, 0);
    contentType.clear();
    headers.clear();
    staticFile = false;
    stream.reset();
}

void KTHttpAnswer::Document(std::string_view type, std::string_view content)
{
    Empty(200);
    contentType = type;
    reply.Append(content);
}
