#include "publish/KTEventLogReply.h"

#include <charconv>
#include <cstring>

#include "host/KTHttp.h"

namespace
{
// A piece under construction, of a size that a row without its annotation can't reach.
class Piece
{
public:
    explicit Piece(KTHttpResponse& itsResponse) : response(itsResponse) {}

    void Add(const char* text, int count)
    {
        std::memcpy(buffer + length, text, static_cast<std::size_t>(count));
        length += count;
    }
    template <int size>
    void Add(const char (&text)[size])
    {
        Add(text, size - 1);
    }
    void AddGuid(const GUID& id)
    {
        guidtoc(id, buffer + length);
        length += guidTextSize - 1;
    }
    void AddDate(const KTDateTime& date)
    {
        if (!date.Valid())
            return Add("00000000000000");  // what a record can't date, a client must still find in its place
        KTNarrowString text;
        DateTime2String(text, date, false, false);
        Add(text.Str(), text.Length());
    }
    void AddDelay(std::uint32_t delay)
    {
        const auto signedDelay = static_cast<std::int32_t>(delay);
        length = static_cast<int>(std::to_chars(buffer + length, buffer + sizeof buffer, signedDelay).ptr - buffer);
    }
    /// However long it is.
    void AddLong(const KTNarrowString& text)
    {
        if (text.Length() <= longestInside) return Add(text.Str(), text.Length());
        Flush();
        response.Write(text);
    }
    void Flush()
    {
        response.Write(buffer, length);
        length = 0;
    }

private:
    static constexpr int longestInside = 1024;

    KTHttpResponse& response;
    char buffer[2048];
    int length = 0;
};
}  // namespace

void KTEventLogReply::Write(KTHttpResponse& response, const Row& row)
{
    Piece piece(response);
    piece.Add("<record><id>");
    piece.AddGuid(row.recordId);
    piece.Add("</id><eventId>");
    piece.AddGuid(row.eventId);
    piece.Add("</eventId>");
    if (!row.annotation.Empty())
    {
        piece.Add("<annotation>");
        piece.AddLong(row.annotation);
        piece.Add("</annotation>");
    }
    piece.Add("<dateTime>");
    piece.AddDate(row.time);
    piece.Add("</dateTime>");
    if (row.ackDelay != noDelay)
    {
        piece.Add("<ackDelay>");
        piece.AddDelay(row.ackDelay);
        piece.Add("</ackDelay>");
    }
    if (row.disabledDelay != noDelay)
    {
        piece.Add("<disabledDelay>");
        piece.AddDelay(row.disabledDelay);
        piece.Add("</disabledDelay>");
    }
    piece.Add("</record>");
    piece.Flush();
}
