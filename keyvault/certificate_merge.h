// The answer to a certificate request of the vault.
#pragma once

#include "keyvault/kvc.h"

// Merges a certificate of certSize bytes in DER form into the vault's pending certificate. kvc: signed in.
// Returns nothing: failures are logged, and reading the key back shows what the vault has. Blocks for one exchange,
// longer when throttled.
void KVCImportCertificate(KVC* kvc, const WCHAR* encodedName, const BYTE* cert, DWORD certSize);
