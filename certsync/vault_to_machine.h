// Copies the vault's new certificates to the machine's store.
#pragma once

#include "keyvault/kvc.h"

// Adds the certificates that this machine doesn't know yet to the local machine's personal store, bound to the provider
// and to the key of the same name. kvc: a signed-in call on the machine's client. Runs at most once every 1200 seconds
// on a machine. Returns nothing: failures are logged, and a later run tries again. Blocks for a listing
// and one exchange for each new certificate.
void KVCSyncCertsFromKVToMachine(KVC* kvc);

// Adds one certificate to the store, bound. certName: its clear name. Also true for the dummy certificate of a key
// without a real one, which is skipped; false if a later run must try again.
bool KVCPropogateCertificateFromKeyVault(const WCHAR* certName, DWORD certSize, const BYTE* certBytes);
