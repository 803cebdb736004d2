// The certificate of a key in the store.
#pragma once

#include "platform/platform.h"

constexpr DWORD kCertificateBytes = 5000;  // one byte more than the largest certificate that is taken
constexpr DWORD kCertificateHashBytes = 64;
constexpr DWORD kSubjectChars = 4000;

// Finds the newest certificate, by the date from which it is valid, that is bound to the key `keyName` of this
// provider. userStore: non-zero for the current user's store, 0 for the local machine's.
// cert: *certSize bytes of room; receives the DER form, and *certSize its size. A certificate that does not leave one
// byte of the room free counts as absent.  hash: *hashSize bytes of room; receives the SHA-1 hash, and *hashSize its
// size, 0 when the hash cannot be had.  subject: kSubjectChars characters; receives the subject in X.500 string form,
// cut when it is longer. 1; 0 when there is no such certificate.
int KVCEvaluateCertsInStore(int userStore, const WCHAR* keyName, BYTE* cert, DWORD* certSize, BYTE* hash,
                            DWORD* hashSize, WCHAR* subject);
