#include <errno.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "platform/linux/win_kernel.h"

namespace {

// The end of the year 3000, the last time that Windows accepts.
constexpr __time64_t kLastTime = 32535215999;

bool IsWithinRange(const __time64_t* time)
{
    return time && *time >= 0 && *time <= kLastTime;
}

errno_t BreakDown(struct tm* (*convert)(const time_t*, struct tm*), struct tm* result, const __time64_t* time)
{
    if (!result)
        return EINVAL;
    memset(result, 0xFF, sizeof *result);
    if (!IsWithinRange(time))
        return EINVAL;
    const time_t seconds = static_cast<time_t>(*time);
    return convert(&seconds, result) ? 0 : EINVAL;
}

}  // namespace

void WINAPI Sleep(DWORD waitMs)
{
    if (waitMs == INFINITE) {
        for (;;)
            pause();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(waitMs));
}

ULONGLONG WINAPI GetTickCount64()
{
    timespec now;
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<ULONGLONG>(now.tv_sec) * 1000 + static_cast<ULONGLONG>(now.tv_nsec) / 1000000;
}

__time64_t _time64(__time64_t* time)
{
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    if (time)
        *time = now.tv_sec;
    return now.tv_sec;
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
    static thread_local WCHAR text[26];
    struct tm parts;
    char narrow[64];
    if (_localtime64_s(&parts, time) != 0 || !asctime_r(&parts, narrow) || strlen(narrow) != 25)
        return nullptr;
    // Windows pads the day with a zero, the C standard with a space.
    if (narrow[8] == ' ')
        narrow[8] = '0';
    for (size_t i = 0; i < 26; i++)
        text[i] = static_cast<WCHAR>(narrow[i]);
    return text;
}
