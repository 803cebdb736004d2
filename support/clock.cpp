#include "support/clock.h"

#include <time.h>

#include <atomic>

namespace {

std::atomic<const Clock*> replacement{nullptr};

}  // namespace

int64_t ClockUnixTime()
{
    if (const Clock* clock = replacement.load(std::memory_order_acquire))
        return clock->unixTime();
    return _time64(nullptr);
}

uint64_t ClockTickMs()
{
    if (const Clock* clock = replacement.load(std::memory_order_acquire))
        return clock->tickMs();
    return GetTickCount64();
}

void ClockSleep(DWORD waitMs)
{
    if (const Clock* clock = replacement.load(std::memory_order_acquire)) {
        clock->sleep(waitMs);
        return;
    }
    Sleep(waitMs);
}

void ClockReplace(const Clock* clock)
{
    replacement.store(clock, std::memory_order_release);
}
