#include "log/KTFileTail.h"

#include "host/KTFiles.h"

bool KTFileTail::Append(const void* data, std::size_t size)
{
    if (lost) return false;
    const auto* const bytes = static_cast<const std::uint8_t*>(data);
    held.insert(held.end(), bytes, bytes + size);
    return held.size() < piece || Flush();
}

bool KTFileTail::Flush()
{
    if (lost || held.empty()) return !lost;
    const auto size = static_cast<std::ptrdiff_t>(held.size());
    lost = KTFiles::Get().WriteAt(file, begin, held.data(), held.size()) != size;
    begin += size;
    held.clear();
    return !lost;
}
