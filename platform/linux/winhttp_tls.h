// The trusted roots of TLS connections, read once and shared by all of them.
#pragma once

#include <openssl/x509_vfy.h>

namespace winhttp {

// A reference to the store of roots in $SSL_CERT_FILE, or in the system's bundle; the caller frees it.
// The file is read again when it has changed. NULL when it cannot be read or holds no certificate.
X509_STORE* AcquireTrustedRoots();

}  // namespace winhttp
