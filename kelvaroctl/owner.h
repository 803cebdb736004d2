// Smart pointers for what a function of the platform frees.
#pragma once

#include <memory>

#include "platform/platform.h"

namespace kelvaroctl {

template <auto kFree>
struct Freer {
    template <typename T>
    void operator()(T* owned) const
    {
        kFree(owned);
    }
};
template <typename T, auto kFree>
using Owner = std::unique_ptr<T, Freer<kFree>>;

using CertificateContext = Owner<const CERT_CONTEXT, CertFreeCertificateContext>;
using LocalBlock = Owner<void, LocalFree>;
using RegistryKey = Owner<std::remove_pointer_t<HKEY>, RegCloseKey>;

}  // namespace kelvaroctl
