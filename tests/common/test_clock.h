// A clock that stands still until the system sleeps or a test moves it, and that remembers every wait.
#pragma once

#include <functional>
#include <vector>

#include "support/clock.h"

class TestClock {
  public:
    TestClock();  // starts at the present second; put behind the system's clock
    ~TestClock();
    TestClock(const TestClock&) = delete;
    TestClock& operator=(const TestClock&) = delete;

    std::vector<DWORD> Waits() const;  // every sleep so far, in ms, in order
    void ClearWaits();
    // Both move the wall clock alone, so that no answer under way on another thread runs out of time.
    void Advance(int64_t seconds);
    void Set(int64_t unixTime);
    // From now on each reading of the tick is so much later than the one before. Otherwise only sleeps move it.
    void StepTicks(DWORD ms);
    // Called inside each sleep with its length and its index from 0, before it returns. Called on the sleeping thread.
    void OnSleep(std::function<void(DWORD waitMs, size_t index)> handler);
};
