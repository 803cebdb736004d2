// A certificate store in its serialized form:
//
//     32 bits of 0, "CERT"
//     records: property id, 1, size, each 32 bits, little-endian; then `size` bytes
//     twelve bytes of 0
//
// The properties of a certificate precede the certificate itself, which has id 32. Property 2 is a
// CRYPT_KEY_PROV_INFO with offsets into the property in place of its pointers, of 32 bits as a file has them in every
// process, or as wide as this process's pointers. Other properties are skipped.
#pragma once

#include <string_view>
#include <vector>

#include "platform/linux/certificate_store.h"
#include "platform/linux/win_private_keys.h"

// ERROR_INVALID_DATA: truncated or damaged; CRYPT_E_ASN1_...: a damaged certificate.
LONG ParseSerializedStore(std::string_view serialized, std::vector<CertificateRecord>* certificates);

// The same as a read-only store in memory; the caller owns its one reference. Throws Failure for a damaged store, and
// with E_INVALIDARG for a NULL blob.
CertificateStore* OpenSerializedStore(const CRYPT_DATA_BLOB* blob);
