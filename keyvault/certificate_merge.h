// Completing a pending certificate of the vault.
#pragma once

#include "keyvault/kvc.h"

// Merges a certificate of certSize bytes in DER form into the vault's pending certificate. kvc: signed in.
// Returns nothing: failures are logged, and reading the key back shows the result. Blocks for one exchange, longer if
// throttled.
void KVCImportCertificate(KVC* kvc, const WCHAR* encodedName, const BYTE* cert, DWORD certSize);
