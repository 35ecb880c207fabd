#include "suite/http/KTHttpBudget.h"

bool KTHttpBudget::Take(const std::string& owner, std::size_t bytes)
{
    const std::lock_guard guard(mutex);
    if (bytes == 0) return true;
    if (bytes > limit - taken) return false;
    const auto found = owners.find(owner);
    const std::size_t before = found == owners.end() ? 0 : found->second;
    if (bytes > ownerLimit || before > ownerLimit - bytes) return false;
    owners[owner] = before + bytes;
    taken += bytes;
    return true;
}

void KTHttpBudget::Give(const std::string& owner, std::size_t bytes)
{
    const std::lock_guard guard(mutex);
    const auto found = owners.find(owner);
    if (found == owners.end()) return;
    taken -= bytes;
    found->second -= bytes;
    if (found->second == 0) owners.erase(found);
}

std::size_t KTHttpBudget::Taken() const
{
    const std::lock_guard guard(mutex);
    return taken;
}
