#pragma once

#include <gtest/gtest.h>

#include <functional>

#include "tests/common/alloc_fault.h"
#include "tests/common/host.h"

// Runs a call with allocation number `failAt` failing, and all later ones too if allAfter is set. What a test does
// before and after the call doesn't fail.
struct Armed {
    size_t failAt = SIZE_MAX;
    bool allAfter = false;
    size_t seen = 0;  // allocations of the last call

    template <class Call>
    SECURITY_STATUS operator()(Call call)
    {
        const AllocFault fault(failAt, allAfter);
        const SECURITY_STATUS status = call();
        seen = fault.Seen();
        return status;
    }
};

// Runs `run`, which makes its calls through `armed`, with allocation 0, 1, 2... failing until none fails any more. That
// last run must succeed; `judge` gets the outcome of the others. Returns the number of those.
inline size_t FailEach(Armed* armed, const std::function<SECURITY_STATUS()>& run,
                       const std::function<void(SECURITY_STATUS, size_t)>& judge, bool allAfter = false)
{
    for (size_t failAt = 0;; failAt++) {
        *armed = {failAt, allAfter};
        const SECURITY_STATUS status = run();
        if (armed->seen <= failAt) {
            EXPECT_EQ(0, status);
            *armed = {};
            return failAt;
        }
        judge(status, failAt);
    }
}

// The same for a run that may fail everywhere.
inline size_t FailEach(const std::function<SECURITY_STATUS()>& call,
                       const std::function<void(SECURITY_STATUS, size_t)>& judge, bool allAfter = false)
{
    Armed armed;
    return FailEach(
        &armed, [&] { return armed(call); }, judge, allAfter);
}
