#include "log/KTTextArena.h"

#include <cstring>

const char* KTTextArena::Keep(const char* text, std::size_t length)
{
    char* const copy = Take(length + 1);
    std::memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

char* KTTextArena::Take(std::size_t size)
{
    if (size > chunkSize / 4)
    {
        // A block of its own, so that a long text doesn't end a chunk that has room for many short ones.
        chunks.push_back(std::make_unique_for_overwrite<char[]>(size));
        return chunks.back().get();
    }
    if (size > room)
    {
        chunks.push_back(std::make_unique_for_overwrite<char[]>(chunkSize));
        place = chunks.back().get();
        room = chunkSize;
    }
    char* const taken = place;
    place += size;
    room -= size;
    return taken;
}

void KTTextArena::Clear()
{
    chunks.clear();
    place = nullptr;
    room = 0;
}
