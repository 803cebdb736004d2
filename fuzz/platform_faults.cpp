// Makes platform calls fail. They are numbered together with the allocations.
#include <errno.h>

#include <type_traits>
#include <utility>

#include "platform/platform.h"
#include "tests/common/alloc_fault.h"

namespace {

bool inPlatform;  // calls that the platform itself makes don't fail: it may rely on them

template <typename Function, Function& real, intptr_t result>
struct Failing;
template <typename Result, typename... Parameters, Result (&real)(Parameters...), intptr_t result>
struct Failing<Result(Parameters...), real, result> {
    static Result Call(Parameters... parameters)
    {
        const bool fails = !inPlatform && AllocFaultDue();
        Result value{};
        // The store is closed even if this fails.
        if (!fails || std::is_same_v<Result(Parameters...), decltype(CertCloseStore)>) {
            const bool outer = std::exchange(inPlatform, true);
            value = real(parameters...);
            inPlatform = outer;
        }
        if (!fails)
            return value;
        SetLastError(ERROR_ACCESS_DENIED);
        return (Result)result;  // a number or a pointer
    }
};

}  // namespace

// A template can't have the name that the linker requires for the wrapper, so a resolver picks the function.
#define FAILS(function, symbol, result)                                              \
    decltype(function) Real_##function __asm__("__real_" symbol);                    \
    extern "C" decltype(&(function)) Pick_##function()                               \
    {                                                                                \
        return Failing<decltype(function), Real_##function, intptr_t{result}>::Call; \
    }                                                                                \
    decltype(function) Wrap_##function __asm__("__wrap_" symbol) __attribute__((ifunc("Pick_" #function)));

#include "fuzz/failing_calls.inc"
