// CertSync: the registry text with the hashes of the certificates that are in step with the vault. Both directions
// share it; each hash stands in it as upper-case hexadecimal digits, and it is searched, never parsed.
#pragma once

#include "support/guards.h"

// Room for a decoded thumbprint, in bytes.
constexpr DWORD kLongestHash = 65;

// The hexadecimal form of a hash of at most kLongestHash bytes.
class HashText {
  public:
    HashText(const BYTE* hash, DWORD size);
    const WCHAR* text() const { return text_; }

  private:
    WCHAR text_[2 * kLongestHash + 1];
};

// The list of a hive, empty when there is none. NULL: no memory; there is nothing to go on from then, since a list
// that is written later takes the place of the whole value.
BldStrPtr ReadCertSync(bool isMachine);

// Writes the whole value; a failure is not told.
void WriteCertSync(bool isMachine, const BldStr* list);
