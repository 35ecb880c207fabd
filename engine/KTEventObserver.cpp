#include "engine/KTEventObserver.h"

#include <atomic>

namespace
{
std::atomic<KTEventObserver*> installedObserver{nullptr};
}

KTEventObserver* KTEventObserver::Installed() { return installedObserver.load(std::memory_order_acquire); }

KTEventObserver* KTEventObserver::Install(KTEventObserver* observer)
{
    return installedObserver.exchange(observer, std::memory_order_acq_rel);
}
