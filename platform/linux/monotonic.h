// Points in time on the monotonic clock.
#pragma once

#include <time.h>

#include "platform/linux/win_types.h"

inline timespec MonotonicAfter(DWORD waitMs)
{
    timespec point;
    clock_gettime(CLOCK_MONOTONIC, &point);
    point.tv_sec += waitMs / 1000;
    point.tv_nsec += static_cast<long>(waitMs % 1000) * 1000000;
    if (point.tv_nsec >= 1000000000) {
        point.tv_sec++;
        point.tv_nsec -= 1000000000;
    }
    return point;
}

inline bool HasPassed(const timespec& point)
{
    const timespec now = MonotonicAfter(0);
    return now.tv_sec != point.tv_sec ? now.tv_sec > point.tv_sec : now.tv_nsec >= point.tv_nsec;
}
