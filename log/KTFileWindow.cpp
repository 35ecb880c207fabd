#include "log/KTFileWindow.h"

#include <algorithm>

#include "host/KTFiles.h"

std::size_t KTFileWindow::ReadElsewhere(int file, std::int64_t offset, void* out, std::size_t size, std::int64_t limit)
{
    if (offset < 0) return 0;
    if (offset < limit) Move(file, offset, size, limit);
    if (Holds(offset, size))
    {
        std::memcpy(out, buffer.get() + (offset - begin), size);
        return size;
    }
    // The end of the file, or a place on the disk that can't be read: a read of these bytes alone says what there is.
    return static_cast<std::size_t>(std::max<std::ptrdiff_t>(KTFiles::Get().ReadAt(file, offset, out, size), 0));
}

void KTFileWindow::Move(int file, std::int64_t offset, std::size_t size, std::int64_t limit)
{
    const std::int64_t end = begin + static_cast<std::int64_t>(held);
    const std::int64_t wantedEnd = offset + static_cast<std::int64_t>(size);
    const bool forward = held > 0 && offset <= end && wantedEnd > end;
    const bool backward = held > 0 && offset < begin && wantedEnd >= begin;
    step = forward || backward ? std::min(step * 2, largest) : smallest;
    const auto length = static_cast<std::int64_t>(std::max(step, size));

    std::int64_t from = offset;
    if (backward) from = wantedEnd - length;
    if (!forward && !backward) from = offset - length / 2;
    from = std::clamp<std::int64_t>(from, 0, offset);
    const std::int64_t to = std::min(from + length, limit);

    Reserve(static_cast<std::size_t>(to - from));
    begin = from;
    const std::ptrdiff_t got = KTFiles::Get().ReadAt(file, from, buffer.get(), static_cast<std::size_t>(to - from));
    held = static_cast<std::size_t>(std::max<std::ptrdiff_t>(got, 0));
}

void KTFileWindow::Reserve(std::size_t size)
{
    if (size <= room) return;
    buffer = std::make_unique_for_overwrite<std::uint8_t[]>(size);
    room = size;
}
