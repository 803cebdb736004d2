// Finds a key's certificate in the store.
#pragma once

#include "platform/platform.h"

constexpr DWORD kCertificateBytes = 5000;  // one byte more than the largest certificate that is accepted
constexpr DWORD kCertificateHashBytes = 64;
constexpr DWORD kSubjectChars = 4000;

// Finds the newest certificate, by the start of its validity, that is bound to the key `keyName` of this provider.
// userStore: non-zero for the current user's store, 0 for the local machine's.
// cert: room for *certSize bytes; receives the DER form, and *certSize its size. A certificate that doesn't leave one
// byte free counts as absent.  hash: room for *hashSize bytes; receives the SHA-1 hash, and *hashSize its size, 0 if
// there is none.  subject: room for kSubjectChars characters; receives the subject as an X.500 string, cut if it is
// longer. False: no such certificate.
bool KVCEvaluateCertsInStore(int userStore, const WCHAR* keyName, BYTE* cert, DWORD* certSize, BYTE* hash,
                             DWORD* hashSize, WCHAR* subject);
