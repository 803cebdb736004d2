// Smart pointers for what functions of the platform free.
#pragma once

#include "platform/owner.h"
#include "platform/platform.h"

namespace kelvaroctl {

using CertificateContext = Owner<const CERT_CONTEXT, CertFreeCertificateContext>;
using LocalBlock = Owner<void, LocalFree>;
using RegistryKey = Owner<std::remove_pointer_t<HKEY>, RegCloseKey>;

}  // namespace kelvaroctl
