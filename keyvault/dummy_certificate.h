// Throw-away certificates: they complete a certificate of the vault so that its key can be used, and nobody relies on
// their signature.
#pragma once

#include "platform/platform.h"

// Makes a certificate for the public key of a certificate request of csrSize bytes in DER form, signed by a key of this
// process that lives as long as the process. 1: *dummyCert holds *dummyCertSize bytes in DER form, released by the
// caller with free, or is NULL when the platform makes an empty one. 0, logged: no certificate, NULL and 0.
// The first call of a process makes the key, which takes a while; two first calls at once make one key.
int KVCSignDummyCert(const BYTE* csr, DWORD csrSize, BYTE** dummyCert, DWORD* dummyCertSize);
