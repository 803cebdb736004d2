#pragma once

#include <gtest/gtest.h>

#include <functional>

#include "tests/common/alloc_fault.h"
#include "tests/common/host.h"

// Runs `call` with allocation 0, 1, 2... failing, with all that follow too if allAfter is set, until it has got through
// untouched; `judge` sees the outcome of each failing run. How many runs failed an allocation.
inline size_t FailEach(const std::function<SECURITY_STATUS()>& call,
                       const std::function<void(SECURITY_STATUS, size_t)>& judge, bool allAfter = false)
{
    for (size_t failAt = 0;; failAt++) {
        SECURITY_STATUS status;
        size_t seen;
        {
            const AllocFault fault(failAt, allAfter);
            status = call();
            seen = fault.Seen();
        }
        if (seen <= failAt) {
            EXPECT_EQ(0, status);
            return failAt;
        }
        judge(status, failAt);
    }
}
