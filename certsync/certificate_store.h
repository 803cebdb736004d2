// The personal certificate stores of the machine and of the user, and how a certificate in them names its key.
#pragma once

#include <memory>

#include "platform/platform.h"

constexpr DWORD kCertificateEncodings = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

enum class StoreAccess { Read, Write };

// Opens the store "My". To search it, `Read` is enough, which needs no rights to change it and makes none that is
// missing. NULL with the thread's last error.
HCERTSTORE OpenPersonalStore(bool isMachine, StoreAccess access);

struct CertContextFreer {
    void operator()(const CERT_CONTEXT* context) const { CertFreeCertificateContext(context); }
};
using CertContextPtr = std::unique_ptr<const CERT_CONTEXT, CertContextFreer>;
