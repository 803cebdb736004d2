// Reading one certificate of the vault.
#pragma once

#include "keyvault/kvc.h"
#include "support/guards.h"

// A certificate in DER form. All-zero is a valid empty blob.
struct CertBlob {
    DWORD size;           // bytes
    MallocPtr<BYTE> der;  // NULL without one
};

// Reads the current version of the certificate under its encoded name, which goes into the URL as it is. kvc: signed
// in. certblob: empty. 1 with the certificate in it; 0 when it cannot be read, is no certificate object, or is longer
// than the Base64 decoder takes. Blocks for one exchange, longer when throttled.
int KVCGetCert(KVC* kvc, const WCHAR* certName, CertBlob* certblob);
