#include "suite/http/KTHttpReply.h"

#include <algorithm>
#include <utility>

KTHttpReply::KTHttpReply(KTHttpBudget* memory, std::string account, std::size_t limit)
    : budget(memory), owner(std::move(account)), largest(limit)
{
}

int KTHttpReply::Start(int newStatus, int /*mode*/)
{
    if (status != 0) return -1;
    status = newStatus;
    return 0;
}

int KTHttpReply::Write(const KTNarrowString& text) { return Write(text.Str(), text.Length()); }

int KTHttpReply::Write(const char* text, int length)
{
    const std::size_t count = length < 0 ? std::strlen(text) : static_cast<std::size_t>(length);
    return Append({text, count}) ? static_cast<int>(count) : -1;
}

bool KTHttpReply::Finish()
{
    if (status == 0 || finished) return false;
    finished = true;
    return lost == Lost::nothing;
}

bool KTHttpReply::Append(std::string_view text)
{
    if (status == 0 || finished || lost != Lost::nothing) return false;
    if (text.size() > largest - size)
    {
        Forget();
        lost = Lost::size;
        return false;
    }
    while (!text.empty())
    {
        if ((pieces.empty() || pieces.back().size() == pieceSize) && !MakeRoom()) return false;
        std::string& piece = pieces.back();
        const std::size_t count = std::min(text.size(), pieceSize - piece.size());
        piece.append(text.substr(0, count));
        size += count;
        text.remove_prefix(count);
    }
    return true;
}

bool KTHttpReply::MakeRoom()
{
    if (!pieces.empty() && budget != nullptr && !budget->Take(owner, pieceSize))
    {
        Forget();
        lost = Lost::room;
        return false;
    }
    const bool first = pieces.empty();
    pieces.emplace_back();
    if (!first) pieces.back().reserve(pieceSize);  // what is paid for, and no doubling while it fills
    return true;
}

void KTHttpReply::Reset()
{
    Forget();
    status = 0;
    finished = false;
    lost = Lost::nothing;
}

std::size_t KTHttpReply::Copy(std::size_t position, char* out, std::size_t count) const
{
    std::size_t copied = 0;
    while (copied < count && position < size)
    {
        const std::string& piece = pieces[position / pieceSize];
        const std::size_t start = position % pieceSize;
        const std::size_t part = std::min(count - copied, piece.size() - start);
        std::copy_n(piece.data() + start, part, out + copied);
        copied += part;
        position += part;
    }
    return copied;
}

void KTHttpReply::Forget()
{
    if (budget != nullptr && pieces.size() > 1) budget->Give(owner, (pieces.size() - 1) * pieceSize);
    pieces.clear();
    pieces.shrink_to_fit();
    size = 0;
}
