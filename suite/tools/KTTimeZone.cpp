#include "suite/tools/KTTimeZone.h"

#include <cstdlib>
#include <ctime>
#include <mutex>
#include <string>

namespace
{
// localtime_r reads TZ only at its first use, and tzset looks at the file of the zone each time: so tzset runs only when
// the variable has changed since this thread's last look.
void FollowZone()
{
    thread_local bool known = false;
    thread_local bool set = false;
    thread_local std::string last;
    const char* zone = std::getenv("TZ");
    if (known && set == (zone != nullptr) && (!set || last == zone)) return;
    {
        // The C library has a lock of its own for this; ours is one that the thread sanitizer can see.
        static std::mutex mutex;
        const std::lock_guard guard(mutex);
        tzset();
    }
    known = true;
    set = zone != nullptr;
    last = set ? zone : "";
}
}  // namespace

std::int32_t kt::ZoneOffset(std::int64_t utcSeconds)
{
    FollowZone();
    const auto instant = static_cast<std::time_t>(utcSeconds);
    std::tm fields{};
    if (localtime_r(&instant, &fields) == nullptr) return 0;
    return static_cast<std::int32_t>(fields.tm_gmtoff);
}
