// What goes to the vault for one hash: the algorithm's name and the bytes. Shared by signing and verification.
#pragma once

#include "platform/platform.h"

constexpr DWORD kSignaturePaddingFlags = BCRYPT_PAD_PKCS1 | BCRYPT_PAD_PSS;
constexpr DWORD kSignatureFlags = kSignaturePaddingFlags | NCRYPT_SILENT_FLAG;

constexpr DWORD kHashWorkSize = 64;  // bytes; the longest hash that the vault takes

struct SignatureRequest {
    SignatureRequest() = default;
    SignatureRequest(const SignatureRequest&) = delete;
    SignatureRequest& operator=(const SignatureRequest&) = delete;

    const WCHAR* alg = nullptr;  // the vault's name, a literal
    BYTE* digest = nullptr;      // the host's bytes, or `work` when they have been reshaped
    DWORD cbDigest = 0;
    BYTE work[kHashWorkSize] = {};
};

// The log texts of one entry point.
struct SignatureTexts {
    const WCHAR* entryPoint;
    const WCHAR* noPaddingOrHashName;  // PKCS#1
    const WCHAR* noPadding;            // PSS
    const WCHAR* badHash;
    const WCHAR* resize;
    const WCHAR* resized;
};

// The RSA rows: padding bit, hash name and, for SHA-1, hash size. dwFlags holds one of the padding bits, or both:
// PKCS#1 wins. 0; NTE_NOT_SUPPORTED, logged, when the padding information or its hash name is missing or the row is not
// in the table.
SECURITY_STATUS ChooseRsaSignature(const SignatureTexts& texts, const void* paddingInfo, DWORD dwFlags, BYTE* hash,
                                   DWORD cbHash, SignatureRequest* request);

// The curve rows: the digits in algName decide algorithm and size. A shorter hash gets zeros in front; of a longer one
// the leftmost bytes are taken, as ECDSA truncates. 0; NTE_INVALID_PARAMETER for a hash over 64 bytes that is not of
// the target size.
SECURITY_STATUS ChooseCurveSignature(const SignatureTexts& texts, const WCHAR* algName, BYTE* hash, DWORD cbHash,
                                     SignatureRequest* request);
