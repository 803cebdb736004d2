#include "keyvault/retry.h"

#include <algorithm>
#include <iterator>

#include "support/clock.h"

bool Retry::After(DWORD status)
{
    constexpr DWORD kLongestWaitMs = 64000;
    const auto begin = std::begin(rule_.statuses);
    const auto row = std::find_if(begin, std::end(rule_.statuses),
                                  [&](const RetryStatus& each) { return each.status != 0 && each.status == status; });
    if (row == std::end(rule_.statuses))
        return false;
    LogError(rule_.message, status, rule_.level);
    if (waitMs_ > row->longestWaitMs)
        return false;
    ClockSleep(waitMs_);
    waitMs_ = std::min(2 * waitMs_, kLongestWaitMs);
    return waitMs_ <= row->longestWaitMs && ++answers_[row - begin] != row->most;
}
