#include "tests/common/test_clock.h"

#include <ctime>
#include <mutex>

namespace {
// The clock's state stands here, since the system calls plain functions. One TestClock lives at a time.
std::mutex lock;
int64_t now;
uint64_t tick;
DWORD tickStep;
std::vector<DWORD> waits;
std::function<void(DWORD, size_t)> handler;

int64_t Now()
{
    const std::lock_guard<std::mutex> guard(lock);
    return now;
}

uint64_t Tick()
{
    const std::lock_guard<std::mutex> guard(lock);
    tick += tickStep;
    return tick;
}

void SleepOnTestClock(DWORD waitMs)
{
    std::function<void(DWORD, size_t)> called;
    size_t index = 0;
    {
        const std::lock_guard<std::mutex> guard(lock);
        index = waits.size();
        waits.push_back(waitMs);
        now += waitMs / 1000;
        tick += waitMs;
        called = handler;
    }
    if (called)
        called(waitMs, index);
}

const Clock testClock = {Now, Tick, SleepOnTestClock};
}  // namespace

TestClock::TestClock()
{
    Set(std::time(nullptr));
    ClockReplace(&testClock);
}

TestClock::~TestClock()
{
    ClockReplace(nullptr);
    const std::lock_guard<std::mutex> guard(lock);
    waits.clear();
    handler = nullptr;
    tickStep = 0;
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
    const std::lock_guard<std::mutex> guard(lock);
    now += seconds;
}

void TestClock::Set(int64_t unixTime)
{
    const std::lock_guard<std::mutex> guard(lock);
    now = unixTime;
}

void TestClock::StepTicks(DWORD ms)
{
    const std::lock_guard<std::mutex> guard(lock);
    tickStep = ms;
}

void TestClock::OnSleep(std::function<void(DWORD waitMs, size_t index)> called)
{
    const std::lock_guard<std::mutex> guard(lock);
    handler = std::move(called);
}
