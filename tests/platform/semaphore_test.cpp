#include <gtest/gtest.h>

#include <chrono>

#include "tests/platform/platform_root.h"

TEST(Semaphore, CountsAndTimesOut)
{
    HANDLE semaphore = CreateSemaphoreW(nullptr, 1, 1, nullptr);
    ASSERT_NE(semaphore, nullptr);
    EXPECT_EQ(WaitForSingleObject(semaphore, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(semaphore, 0), WAIT_TIMEOUT);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(WaitForSingleObject(semaphore, 30), WAIT_TIMEOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(29)) << "not before its time";
    LONG previous = 9;
    EXPECT_TRUE(ReleaseSemaphore(semaphore, 1, &previous));
    EXPECT_EQ(previous, 0);
    EXPECT_EQ(ErrorOf(ReleaseSemaphore(semaphore, 1, &previous)), DWORD{ERROR_TOO_MANY_POSTS});
    EXPECT_EQ(ErrorOf(ReleaseSemaphore(semaphore, 0, nullptr)), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(WaitForSingleObject(semaphore, INFINITE), WAIT_OBJECT_0);
    EXPECT_TRUE(CloseHandle(semaphore));
}

TEST(Semaphore, WhatIsNoSemaphoreIsRefused)
{
    const struct {
        const char* name;
        LONG initial, maximum;
        LPCWSTR label;
        LONG error;
    } rows[] = {{"over the maximum", 2, 1, nullptr, ERROR_INVALID_PARAMETER},
                {"negative", -1, 1, nullptr, ERROR_INVALID_PARAMETER},
                {"no room", 0, 0, nullptr, ERROR_INVALID_PARAMETER},
                {"named", 1, 1, u"name", ERROR_NOT_SUPPORTED}};
    for (const auto& row : rows) {
        EXPECT_EQ(CreateSemaphoreW(nullptr, row.initial, row.maximum, row.label), nullptr) << row.name;
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(row.error)) << row.name;
    }
    HANDLE closed = CreateSemaphoreW(nullptr, 1, 1, nullptr);
    CloseHandle(closed);
    // More handles than the table has places: the place comes back, the handle does not.
    for (int i = 0; i < 5000; i++) {
        HANDLE next = CreateSemaphoreW(nullptr, 1, 1, nullptr);
        ASSERT_NE(next, closed);
        CloseHandle(next);
    }
    HANDLE open = CreateSemaphoreW(nullptr, 1, 1, nullptr);
    for (HANDLE handle : {HANDLE{nullptr}, INVALID_HANDLE_VALUE, closed}) {
        EXPECT_EQ(WaitForSingleObject(handle, 0), WAIT_FAILED);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
        EXPECT_FALSE(ReleaseSemaphore(handle, 1, nullptr));
        EXPECT_FALSE(CloseHandle(handle));
    }
    EXPECT_TRUE(CloseHandle(open));
}

TEST(Semaphore, OneAtATimePasses)
{
    HANDLE semaphore = CreateSemaphoreW(nullptr, 1, 1, nullptr);
    int inside = 0;
    int total = 0;
    OnThreads(8, [&](int) {
        for (int turn = 0; turn < 200; turn++) {
            ASSERT_EQ(WaitForSingleObject(semaphore, 60000), WAIT_OBJECT_0);
            EXPECT_EQ(++inside, 1);
            total++;
            inside--;
            ReleaseSemaphore(semaphore, 1, nullptr);
        }
    });
    EXPECT_EQ(total, 1600);
    CloseHandle(semaphore);
}

TEST(SlimLock, AZeroedLockLetsOneInAtATime)
{
    SRWLOCK lock = {};
    int count = 0;
    OnThreads(8, [&](int) {
        for (int turn = 0; turn < 500; turn++) {
            AcquireSRWLockExclusive(&lock);
            count++;
            ReleaseSRWLockExclusive(&lock);
        }
    });
    EXPECT_EQ(count, 4000);
}
