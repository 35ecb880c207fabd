// A reply that remembers how it was made.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "host/KTHttp.h"

/// Records the calls of a service. A test may look in at each piece written, on the service's thread.
class TestResponse : public KTHttpResponse
{
public:
    int Start(int itsStatus, int itsMode) override
    {
        status = itsStatus;
        mode = itsMode;
        ++starts;
        return 0;
    }
    int Write(const KTNarrowString& piece) override { return Write(piece.Str(), piece.Length()); }
    int Write(const char* piece, int length) override
    {
        if (length < 0)
            pieces.emplace_back(piece);
        else
            pieces.emplace_back(piece, static_cast<std::size_t>(length));
        if (onWrite) onWrite(pieces.back());
        return 0;
    }
    int Flush() override { return 0; }
    bool Finish() override
    {
        ++finishes;
        return finishResult;
    }

    [[nodiscard]] std::string Text() const
    {
        std::string all;
        for (const std::string& piece : pieces) all += piece;
        return all;
    }

    int status = 0;
    int mode = -1;
    int starts = 0;
    int finishes = 0;
    std::vector<std::string> pieces;
    bool finishResult = true;
    std::function<void(const std::string& piece)> onWrite;
};
