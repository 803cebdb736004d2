// New certificates of the vault on their way into the machine's store.
#pragma once

#include "keyvault/kvc.h"

// Brings the certificates that this machine has not seen yet into the local machine's personal store, bound to the
// provider and to the key of the same name. kvc: a signed-in call record of the machine's client. Runs at most once in
// 1200 seconds across the machine. No result: failures are logged, and what could not be brought is tried again on a
// later run. Blocks for a listing and one exchange for each new certificate.
void KVCSyncCertsFromKVToMachine(KVC* kvc);

// Puts one certificate into the store. certName: its clear name. 1 when it counts as handled: it stands in the store,
// bound, or is the dummy certificate of a key without a real one; 0 when it has to be tried again.
int KVCPropogateCertificateFromKeyVault(const WCHAR* certName, DWORD certSize, const BYTE* certBytes);
