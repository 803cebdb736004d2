#include "keyvault/throttle.h"

#include "support/clock.h"
#include "support/log.h"

bool Throttle::WaitAndRetry(const WCHAR* message, DWORD status)
{
    constexpr DWORD kLongestWaitMs = 16000;
    LogError(message, status, LOG_WARNING_LEVEL);
    ClockSleep(waitMs_);
    waitMs_ *= 2;
    return waitMs_ <= kLongestWaitMs;
}
