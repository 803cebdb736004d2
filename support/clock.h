// The only place where the system reads the time or sleeps.
#pragma once

#include "platform/platform.h"

// Unix time in seconds. Jumps when the machine's clock is set.
int64_t ClockUnixTime();

// Milliseconds since an arbitrary moment. Monotonic: use it to measure durations.
uint64_t ClockTickMs();

// Blocks the calling thread for waitMs milliseconds.
void ClockSleep(DWORD waitMs);

// A replacement for the functions above. All members must be set, and may be called on any thread.
struct Clock {
    int64_t (*unixTime)();
    uint64_t (*tickMs)();
    void (*sleep)(DWORD waitMs);
};

// For tests only: installs their clock; NULL restores the real one. `clock` must outlive its use. Call it only while no
// other thread uses the system.
void ClockReplace(const Clock* clock);
