// Lists the vault's certificates.
#pragma once

#include "keyvault/kvc.h"

// Characters of a slot in the arrays below, terminator included; a longer text is cut.
constexpr size_t kCertSlotChars = 128;

// Reads the whole certificate collection, whatever the setting CertificatesOrKeys is. kvc: signed in.
// *WCHARCertsArray, *WCHARThumbprintArray: one block of the process heap each, with `count` pointers followed by the
// `count` slots that they point to: the clear names and, in the same order, the thumbprints as the service writes them
// (Base64url). The caller releases both with KVCGetCertsFree.
// False, with nothing to release, unless the last page was read. A malformed element is skipped and logged. Blocks for
// one exchange a page, longer when throttled.
bool KVCGetCerts(KVC* kvc, WCHAR*** WCHARCertsArray, WCHAR*** WCHARThumbprintArray, LONG* count);

// Releases both blocks; either may be NULL.
void KVCGetCertsFree(WCHAR** WCHARCertsArray, WCHAR** WCHARThumbprintArray);
