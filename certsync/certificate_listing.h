// Listing the vault's certificates.
#pragma once

#include "keyvault/kvc.h"

// Characters of a slot of the arrays below, terminator included; a longer text is cut.
constexpr size_t kCertSlotChars = 128;

// Reads the whole certificate collection, whatever the setting CertificatesOrKeys says. kvc: signed in.
// *WCHARCertsArray, *WCHARThumbprintArray: a block of the process heap each, with `count` pointers to `count` slots
// behind them: the clear names and, in the same order, the thumbprints as the service writes them (Base64url). The
// caller releases both with KVCGetCertsFree.
// 1 when the last page was read; 0, with nothing to release, when it was not. An element that makes no sense is left
// out and logged. Blocks for one exchange a page, longer when throttled.
int KVCGetCerts(KVC* kvc, WCHAR*** WCHARCertsArray, WCHAR*** WCHARThumbprintArray, LONG* count);

// Releases both blocks; either may be NULL.
void KVCGetCertsFree(WCHAR** WCHARCertsArray, WCHAR** WCHARThumbprintArray);
