// The one place from which the system reads the time or sleeps.
#pragma once

#include "platform/platform.h"

// Unix time in seconds.
int64_t ClockUnixTime();

// Blocks the calling thread for waitMs milliseconds.
void ClockSleep(DWORD waitMs);

// A clock that stands behind the two functions above. Both members are set, and both may be called on any thread.
struct Clock {
    int64_t (*unixTime)();
    void (*sleep)(DWORD waitMs);
};

// Tests put their own clock here and take it away with NULL. The record must outlive its use; nothing but tests calls
// this, and only while no other thread runs in the system.
void ClockReplace(const Clock* clock);
