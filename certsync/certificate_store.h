// The personal certificate stores of the machine and of the user.
#pragma once

#include "platform/owner.h"
#include "platform/platform.h"

constexpr DWORD kCertificateEncodings = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

enum class StoreAccess { Read, Write };

// Opens the store "My". `Read` is enough for a search: it needs no write access and doesn't create the store. NULL on
// failure, with the thread's last error.
HCERTSTORE OpenPersonalStore(bool isMachine, StoreAccess access);

using CertContextPtr = Owner<const CERT_CONTEXT, CertFreeCertificateContext>;
