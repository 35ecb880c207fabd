// A place for a text while it is being made.
#pragma once

#include <cstddef>
#include <memory>

namespace kt
{
/// Room for at least `size` characters: on the stack where they fit there.
///
/// Errors: throws std::bad_alloc.
template <class CharT>
class Scratch
{
public:
    explicit Scratch(std::size_t size)
    {
        if (size > sizeof local / sizeof(CharT)) heap.reset(new CharT[size]);
    }

    CharT* Data() { return heap ? heap.get() : local; }

private:
    std::unique_ptr<CharT[]> heap;
    CharT local[512];  // what an event's texts usually need
};
}  // namespace kt
