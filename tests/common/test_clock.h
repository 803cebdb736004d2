// A clock that moves only when the system sleeps or a test moves it, and that records every wait.
#pragma once

#include <functional>
#include <vector>

#include "platform/owner.h"
#include "support/clock.h"

class TestClock : private NonCopyable {
  public:
    TestClock();  // starts at the current second and replaces the system's clock
    ~TestClock();
    std::vector<DWORD> Waits() const;  // every sleep so far, in ms, in order
    void ClearWaits();
    // Both move the wall clock only, so that no answer in progress on another thread times out.
    void Advance(int64_t seconds);
    void Set(int64_t unixTime);
    // Each reading of the tick is now that much later than the one before. Otherwise only sleeps move it.
    void StepTicks(DWORD ms);
    // Called inside each sleep with its length and its index from 0, before it returns. Called on the sleeping thread.
    void OnSleep(std::function<void(DWORD waitMs, size_t index)> handler);
};
