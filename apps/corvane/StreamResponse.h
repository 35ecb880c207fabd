// A document of the services, written to a stream.
#pragma once

#include <cstring>
#include <ostream>

#include "host/KTHttp.h"

namespace corvane
{
/// Errors:  those of the stream.
/// Memory:  the stream must outlive it.
class StreamResponse final : public KTHttpResponse
{
public:
    explicit StreamResponse(std::ostream& stream) : out(stream) {}

    int Start(int /*status*/, int /*mode*/) override { return 0; }
    int Write(const KTNarrowString& text) override { return Write(text.Str(), text.Length()); }
    int Write(const char* text, int length) override
    {
        const int count = length < 0 ? static_cast<int>(std::strlen(text)) : length;
        out.write(text, count);
        return out ? count : -1;
    }
    int Flush() override { return 0; }
    bool Finish() override { return static_cast<bool>(out); }

private:
    std::ostream& out;
};
}  // namespace corvane
