#include "tests/common/test_clock.h"

#include <atomic>
#include <ctime>
#include <mutex>

namespace {
// The clock's state is here, since the system calls plain functions. One TestClock lives at a time.
std::atomic<int64_t> now;
std::atomic<uint64_t> tick;
std::atomic<DWORD> tickStep;
std::mutex lock;  // guards the others
std::vector<DWORD> waits;
std::function<void(DWORD, size_t)> handler;

void SleepOnTestClock(DWORD waitMs)
{
    std::function<void(DWORD, size_t)> called;
    size_t index = 0;
    {
        const std::lock_guard<std::mutex> guard(lock);
        index = waits.size();
        waits.push_back(waitMs);
        called = handler;
    }
    now += waitMs / 1000;
    tick += waitMs;
    if (called)
        called(waitMs, index);
}

const Clock testClock = {[] { return now.load(); }, [] { return tick += tickStep; }, SleepOnTestClock};
}  // namespace

TestClock::TestClock()
{
    Set(std::time(nullptr));
    ClockReplace(&testClock);
}

TestClock::~TestClock()
{
    ClockReplace(nullptr);
    ClearWaits();
    OnSleep(nullptr);
    StepTicks(0);
}

std::vector<DWORD> TestClock::Waits() const
{
    const std::lock_guard<std::mutex> guard(lock);
    return waits;
}

void TestClock::ClearWaits()
{
    const std::lock_guard<std::mutex> guard(lock);
    waits.clear();
}

void TestClock::Advance(int64_t seconds)
{
    now += seconds;
}

void TestClock::Set(int64_t unixTime)
{
    now = unixTime;
}

void TestClock::StepTicks(DWORD ms)
{
    tickStep = ms;
}

void TestClock::OnSleep(std::function<void(DWORD waitMs, size_t index)> called)
{
    const std::lock_guard<std::mutex> guard(lock);
    handler = std::move(called);
}
