#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/linux/win_kernel.h"

void WINAPI AcquireSRWLockExclusive(PSRWLOCK lock)
{
    const uint32_t held = static_cast<uint32_t>(getpid()) * 2;
    const uint32_t awaited = held + 1;
    for (uint32_t wanted = held;;) {
        uint32_t seen = lock->state.load(std::memory_order_relaxed);
        // A state of another process was copied by a fork, which copies no thread that could release the lock.
        if (seen != held && seen != awaited) {
            if (lock->state.compare_exchange_weak(seen, wanted, std::memory_order_acquire, std::memory_order_relaxed))
                return;
        } else if (seen == awaited || lock->state.compare_exchange_weak(seen, awaited, std::memory_order_relaxed)) {
            syscall(SYS_futex, &lock->state, FUTEX_WAIT_PRIVATE, awaited, nullptr, nullptr, 0);
            // Others may still wait.
            wanted = awaited;
        }
    }
}

void WINAPI ReleaseSRWLockExclusive(PSRWLOCK lock)
{
    if (lock->state.exchange(0, std::memory_order_release) % 2 != 0)
        syscall(SYS_futex, &lock->state, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}
