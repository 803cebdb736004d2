// Reads one certificate from the vault.
#pragma once

#include "keyvault/kvc.h"
#include "support/guards.h"

// A certificate in DER. All-zero is a valid empty blob.
struct CertBlob {
    DWORD size;           // bytes
    MallocPtr<BYTE> der;  // NULL without one
};

// Reads the current version of a certificate by its encoded name, which goes into the URL unchanged. kvc: signed in.
// certblob: empty; receives the certificate. False: it can't be read, isn't a certificate object, or is longer than the
// Base64 decoder accepts. Blocks for one exchange, longer when throttled.
bool KVCGetCert(KVC* kvc, const WCHAR* certName, CertBlob* certblob);
