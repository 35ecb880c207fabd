// From the identifier of an occurrence to the number of its row.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "host/KTGuid.h"

/// A hash table of row numbers; the identifiers themselves stand in the rows.
///
/// Units:   rows are numbered from 0. An entry is 8 bytes.
/// Threads: one at a time.
/// Memory:  holds numbers only. The hash is keyed by a secret of the process, since identifiers come from files: nobody can
///          write a log whose identifiers all meet in one place.
class KTEventRowIndex
{
public:
    static constexpr std::uint32_t none = 0xFFFFFFFF;

    /// The row that bears `id`, or none. `idOf` gives the identifier of a row.
    template <class IdOf>
    [[nodiscard]] std::uint32_t Find(const GUID& id, IdOf idOf) const
    {
        if (slots.empty()) return none;
        const std::uint32_t hash = Hash(id);
        for (std::size_t at = hash & mask;; at = (at + 1) & mask)
        {
            const Slot& slot = slots[at];
            if (slot.row == none) return none;
            if (slot.hash == hash && idOf(slot.row) == id) return slot.row;
        }
    }

    /// Adds a row; one that bears the same identifier already stays the one that is found.
    template <class IdOf>
    void Insert(const GUID& id, std::uint32_t row, IdOf idOf)
    {
        if (3 * (count + 1) > 2 * slots.size()) Grow();
        const std::uint32_t hash = Hash(id);
        std::size_t at = hash & mask;
        for (; slots[at].row != none; at = (at + 1) & mask)
            if (slots[at].hash == hash && idOf(slots[at].row) == id) return;
        slots[at] = {hash, row};
        ++count;
    }

    /// Asks the processor for the place of an identifier, which is seldom near.
    void Fetch(const GUID& id) const
    {
        if (!slots.empty()) __builtin_prefetch(&slots[Hash(id) & mask], 1);
    }

    void Clear()
    {
        slots.clear();
        count = 0;
    }

private:
    struct Slot
    {
        std::uint32_t hash = 0;
        std::uint32_t row = none;
    };

    static std::uint32_t Hash(const GUID& id);
    void Grow();

    std::vector<Slot> slots;  // a power of two of them, at most two thirds of them taken, or none at all
    std::size_t mask = 0;
    std::size_t count = 0;
};
