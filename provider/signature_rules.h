// What is sent to the vault for a hash: the algorithm's name and the bytes. Shared by signing and verification.
#pragma once

#include "platform/owner.h"
#include "platform/platform.h"

constexpr DWORD kSignaturePaddingFlags = BCRYPT_PAD_PKCS1 | BCRYPT_PAD_PSS;
constexpr DWORD kSignatureFlags = kSignaturePaddingFlags | NCRYPT_SILENT_FLAG;

constexpr DWORD kHashWorkSize = 64;  // bytes; the longest hash that the vault accepts

// A hash as the host passed it.
struct HostHash {
    const void* paddingInfo;  // may be NULL
    DWORD dwFlags;
    BYTE* bytes;
    DWORD size;
};

struct SignatureRequest : private NonCopyable {
    const WCHAR* alg = nullptr;  // the vault's name, a literal
    BYTE* digest = nullptr;      // the host's bytes, or `work` if they were reshaped
    DWORD cbDigest = 0;
    bool reshaped = false;
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

// Chooses by padding, hash name and, for SHA-1, hash size. dwFlags has one of the padding bits, or both: then PKCS#1
// wins. 0; NTE_NOT_SUPPORTED, logged, if the padding information or its hash name is missing, or for any other
// combination.
SECURITY_STATUS ChooseRsaSignature(const SignatureTexts& texts, const HostHash& hash, SignatureRequest* request);

// Chooses by the curve's number in algName. A shorter hash gets zeros in front; of a longer one the leftmost bytes are
// taken, as ECDSA truncates. 0; NTE_INVALID_PARAMETER for a hash over 64 bytes that isn't of the target size.
SECURITY_STATUS ChooseCurveSignature(const SignatureTexts& texts, const WCHAR* algName, const HostHash& hash,
                                     SignatureRequest* request);
