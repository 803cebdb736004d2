// CertSync: the registry text that lists the hashes of the certificates that are in step with the vault, for both
// directions. Each hash is written in upper-case hexadecimal digits; the text is searched, never parsed.
#pragma once

#include "support/bldstr.h"

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

// The list of a hive, empty if there is none. NULL: no memory; the caller must then give up, since writing a list
// replaces the whole value.
BldStrPtr ReadCertSync(bool isMachine);

// Replaces the whole value, best effort.
void WriteCertSync(bool isMachine, const BldStr* list);
