#include <errno.h>
#include <sched.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "platform/linux/monotonic.h"
#include "platform/linux/win_kernel.h"

namespace {

constexpr ULONGLONG kUnixEpochAsFileTime = 116444736000000000ULL;
// The end of the year 3000, where the published calls end.
constexpr __time64_t kLastTime = 32535215999;

timespec Now(clockid_t clock)
{
    timespec now;
    clock_gettime(clock, &now);
    return now;
}

bool IsWithinRange(const __time64_t* time)
{
    return time != nullptr && *time >= 0 && *time <= kLastTime;
}

errno_t BreakDown(struct tm* (*convert)(const time_t*, struct tm*), struct tm* result, const __time64_t* time)
{
    if (result == nullptr)
        return EINVAL;
    memset(result, 0xFF, sizeof *result);
    if (!IsWithinRange(time))
        return EINVAL;
    const time_t seconds = static_cast<time_t>(*time);
    return convert(&seconds, result) == nullptr ? EINVAL : 0;
}

}  // namespace

void WINAPI Sleep(DWORD waitMs)
{
    if (waitMs == INFINITE) {
        for (;;)
            pause();
    }
    if (waitMs == 0) {
        sched_yield();
        return;
    }
    const timespec until = MonotonicAfter(waitMs);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
}

void WINAPI GetSystemTimeAsFileTime(LPFILETIME time)
{
    const timespec now = Now(CLOCK_REALTIME);
    const ULONGLONG ticks = kUnixEpochAsFileTime + static_cast<ULONGLONG>(now.tv_sec) * 10000000ULL +
                            static_cast<ULONGLONG>(now.tv_nsec) / 100ULL;
    time->dwLowDateTime = static_cast<DWORD>(ticks);
    time->dwHighDateTime = static_cast<DWORD>(ticks >> 32);
}

void WINAPI GetSystemTime(LPSYSTEMTIME time)
{
    const timespec now = Now(CLOCK_REALTIME);
    struct tm parts;
    memset(&parts, 0, sizeof parts);
    gmtime_r(&now.tv_sec, &parts);
    time->wYear = static_cast<WORD>(parts.tm_year + 1900);
    time->wMonth = static_cast<WORD>(parts.tm_mon + 1);
    time->wDayOfWeek = static_cast<WORD>(parts.tm_wday);
    time->wDay = static_cast<WORD>(parts.tm_mday);
    time->wHour = static_cast<WORD>(parts.tm_hour);
    time->wMinute = static_cast<WORD>(parts.tm_min);
    time->wSecond = static_cast<WORD>(parts.tm_sec);
    time->wMilliseconds = static_cast<WORD>(now.tv_nsec / 1000000);
}

ULONGLONG WINAPI GetTickCount64()
{
    const timespec now = Now(CLOCK_MONOTONIC);
    return static_cast<ULONGLONG>(now.tv_sec) * 1000ULL + static_cast<ULONGLONG>(now.tv_nsec) / 1000000ULL;
}

__time64_t _time64(__time64_t* time)
{
    const __time64_t now = Now(CLOCK_REALTIME).tv_sec;
    if (time != nullptr)
        *time = now;
    return now;
}

errno_t _gmtime64_s(struct tm* result, const __time64_t* time)
{
    return BreakDown(gmtime_r, result, time);
}

errno_t _localtime64_s(struct tm* result, const __time64_t* time)
{
    return BreakDown(localtime_r, result, time);
}

WCHAR* _wctime64(const __time64_t* time)
{
    static const char days[][4] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static const char months[][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    static thread_local WCHAR text[26];
    struct tm parts;
    if (_localtime64_s(&parts, time) != 0)
        return nullptr;
    char narrow[64];
    // Windows fills the day with a zero where the C standard has a blank.
    const int length =
        snprintf(narrow, sizeof narrow, "%s %s %02d %02d:%02d:%02d %04d\n", days[parts.tm_wday], months[parts.tm_mon],
                 parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, parts.tm_year + 1900);
    if (length != 25)
        return nullptr;
    for (size_t i = 0; i < 26; i++)
        text[i] = static_cast<WCHAR>(narrow[i]);
    return text;
}
