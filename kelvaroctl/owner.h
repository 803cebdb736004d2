// Smart pointers for what functions of the platform free.
#pragma once

#include "platform/owner.h"
#include "platform/platform.h"
#include "platform/registry_key.h"

namespace kelvaroctl {

using CertificateContext = Owner<const CERT_CONTEXT, CertFreeCertificateContext>;
using LocalBlock = Owner<void, LocalFree>;

}  // namespace kelvaroctl
