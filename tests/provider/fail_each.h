#pragma once

#include <gtest/gtest.h>

#include <functional>

#include "tests/common/alloc_fault.h"
#include "tests/common/host.h"

// Runs a call with allocation number `failAt` failing, and all later ones too if allAfter is set. Whatever a test does
// before and after the call has memory.
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

// Runs `run` with allocation 0, 1, 2... failing until none fails any more, which must succeed; `judge` gets the outcome
// of each failing run. Returns how many those were.
inline size_t FailEach(const std::function<SECURITY_STATUS(Armed&)>& run,
                       const std::function<void(SECURITY_STATUS, size_t)>& judge, bool allAfter = false)
{
    for (size_t failAt = 0;; failAt++) {
        Armed armed{failAt, allAfter};
        const SECURITY_STATUS status = run(armed);
        if (armed.seen <= failAt) {
            EXPECT_EQ(0, status);
            return failAt;
        }
        judge(status, failAt);
    }
}

inline size_t FailEach(const std::function<SECURITY_STATUS()>& call,
                       const std::function<void(SECURITY_STATUS, size_t)>& judge, bool allAfter = false)
{
    return FailEach([&](Armed& armed) { return armed(call); }, judge, allAfter);
}
