#include "platform/linux/win_kernel.h"

LONG WINAPI InterlockedExchange(volatile LONG* target, LONG value)
{
    return __atomic_exchange_n(target, value, __ATOMIC_SEQ_CST);
}

LONG WINAPI InterlockedCompareExchange(volatile LONG* target, LONG exchange, LONG comparand)
{
    __atomic_compare_exchange_n(target, &comparand, exchange, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
    return comparand;
}

LONG WINAPI InterlockedIncrement(volatile LONG* target)
{
    return __atomic_add_fetch(target, 1, __ATOMIC_SEQ_CST);
}

LONG WINAPI InterlockedDecrement(volatile LONG* target)
{
    return __atomic_sub_fetch(target, 1, __ATOMIC_SEQ_CST);
}

PVOID WINAPI InterlockedCompareExchangePointer(PVOID volatile* target, PVOID exchange, PVOID comparand)
{
    __atomic_compare_exchange_n(target, &comparand, exchange, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
    return comparand;
}
