// The one place from which the system reads the time or sleeps.
#pragma once

#include "platform/platform.h"

// Unix time in seconds. Jumps when somebody sets the machine's clock.
int64_t ClockUnixTime();

// Milliseconds since an arbitrary moment. Never jumps, so this is what durations are measured with.
uint64_t ClockTickMs();

// Blocks the calling thread for waitMs milliseconds.
void ClockSleep(DWORD waitMs);

// A clock to put behind the functions above. All members are set, and may be called on any thread.
struct Clock {
    int64_t (*unixTime)();
    uint64_t (*tickMs)();
    void (*sleep)(DWORD waitMs);
};

// Tests put their own clock here and remove it with NULL. The record must outlive its use; nothing but tests calls
// this, and only while no other thread runs in the system.
void ClockReplace(const Clock* clock);
