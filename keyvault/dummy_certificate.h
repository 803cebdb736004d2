// Dummy certificates. They complete a pending certificate of the vault so that its key can be used; nothing relies on
// their signature.
#pragma once

#include "platform/platform.h"

// Makes a certificate for the public key of a certificate request of csrSize bytes (DER), signed with a key that lives
// as long as the process. 1: *dummyCert has *dummyCertSize bytes (DER), which the caller frees (free); it is NULL if
// the platform made an empty certificate. 0, logged: NULL and 0. The first call in a process creates the key, which
// takes a while. Safe to call from several threads.
int KVCSignDummyCert(const BYTE* csr, DWORD csrSize, BYTE** dummyCert, DWORD* dummyCertSize);
