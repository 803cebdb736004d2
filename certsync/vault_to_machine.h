// Brings the vault's new certificates into the machine's store.
#pragma once

#include "keyvault/kvc.h"

// Puts the certificates that this machine doesn't know yet into the local machine's personal store, bound to the
// provider and to the key of the same name. kvc: a signed-in call on the machine's client. Runs at most once in 1200
// seconds across the machine. Returns nothing: failures are logged, and a later run tries again. Blocks for a listing
// and one exchange for each new certificate.
void KVCSyncCertsFromKVToMachine(KVC* kvc);

// Puts one certificate into the store, bound. certName: its clear name. True also for the dummy certificate of a key
// without a real one, which is skipped; false if a later run has to try again.
bool KVCPropogateCertificateFromKeyVault(const WCHAR* certName, DWORD certSize, const BYTE* certBytes);
