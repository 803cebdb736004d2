// Calls of the platform that fail by the same numbers as allocations.
#include <errno.h>

#include <type_traits>
#include <utility>

#include "platform/platform.h"
#include "tests/common/alloc_fault.h"

namespace {

bool inPlatform;  // whose own calls don't fail: it may rely on them

template <typename Function, Function& real, intptr_t result>
struct Failing;
template <typename Result, typename... Parameters, Result (&real)(Parameters...), intptr_t result>
struct Failing<Result(Parameters...), real, result> {
    static Result Call(Parameters... parameters)
    {
        const bool fails = !inPlatform && AllocFaultDue();
        Result value{};
        // A store that fails to close is closed all the same.
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

// The linker's name for the wrapper can't be given to a template's function, so a resolver picks it.
#define FAILS(function, symbol, result)                                              \
    decltype(function) Real_##function __asm__("__real_" symbol);                    \
    extern "C" decltype(&(function)) Pick_##function()                               \
    {                                                                                \
        return Failing<decltype(function), Real_##function, intptr_t{result}>::Call; \
    }                                                                                \
    decltype(function) Wrap_##function __asm__("__wrap_" symbol) __attribute__((ifunc("Pick_" #function)));

#include "fuzz/failing_calls.inc"
