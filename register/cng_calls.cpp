#include "register/cng_calls.h"

namespace kelvaro_register {

template <typename Call>
static bool Find(HMODULE bcrypt, const char* name, Call* call)
{
    *call = reinterpret_cast<Call>(reinterpret_cast<void (*)()>(GetProcAddress(bcrypt, name)));
    return *call != nullptr;
}

const char* FindCngCalls(HMODULE bcrypt, CngCalls* calls)
{
    if (!Find(bcrypt, "BCryptRegisterProvider", &calls->registerProvider))
        return "BCryptRegisterProvider";
    if (!Find(bcrypt, "BCryptUnregisterProvider", &calls->unregisterProvider))
        return "BCryptUnregisterProvider";
    if (!Find(bcrypt, "BCryptQueryProviderRegistration", &calls->queryProviderRegistration))
        return "BCryptQueryProviderRegistration";
    if (!Find(bcrypt, "BCryptAddContextFunctionProvider", &calls->addContextFunctionProvider))
        return "BCryptAddContextFunctionProvider";
    if (!Find(bcrypt, "BCryptRemoveContextFunctionProvider", &calls->removeContextFunctionProvider))
        return "BCryptRemoveContextFunctionProvider";
    if (!Find(bcrypt, "BCryptEnumContextFunctionProviders", &calls->enumContextFunctionProviders))
        return "BCryptEnumContextFunctionProviders";
    if (!Find(bcrypt, "BCryptFreeBuffer", &calls->freeBuffer))
        return "BCryptFreeBuffer";
    return nullptr;
}

}  // namespace kelvaro_register
