#include "register/cng_calls.h"

#include <type_traits>

namespace kelvaro_register {

const char* FindCngCalls(HMODULE bcrypt, CngCalls* calls)
{
    const char* missing = nullptr;
    const auto find = [&](const char* name, auto* call) {
        *call = reinterpret_cast<std::remove_pointer_t<decltype(call)>>(
            reinterpret_cast<void (*)()>(GetProcAddress(bcrypt, name)));
        if (!*call && !missing)
            missing = name;
    };
    find("BCryptRegisterProvider", &calls->registerProvider);
    find("BCryptUnregisterProvider", &calls->unregisterProvider);
    find("BCryptQueryProviderRegistration", &calls->queryProviderRegistration);
    find("BCryptAddContextFunctionProvider", &calls->addContextFunctionProvider);
    find("BCryptRemoveContextFunctionProvider", &calls->removeContextFunctionProvider);
    find("BCryptEnumContextFunctionProviders", &calls->enumContextFunctionProviders);
    find("BCryptFreeBuffer", &calls->freeBuffer);
    return missing;
}

}  // namespace kelvaro_register
