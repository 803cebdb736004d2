// The algorithms of keys: RSA, and the three curves of the vault with one row each.
// Order matters: see CurveFor in provider/signature_rules.cpp and CurveInText.
#pragma once

#include "platform/platform.h"

struct Curve {
    const WCHAR* crv;     // the vault's name
    const WCHAR* number;  // its part in the names of algorithms
    DWORD bits;
    DWORD cbCoordinate;
    const WCHAR* ecdsa;  // CNG's names of a key on this curve
    const WCHAR* ecdh;
    ULONG ecdsaMagic;  // of public key blobs
    ULONG ecdhMagic;
    const WCHAR* signatureAlg;  // the vault's name
    DWORD cbHash;               // what the vault signs; P-521 is signed over 64 bytes
};
constexpr Curve kCurves[] = {
    {TEXT("P-256"), TEXT("256"), 256, 32, BCRYPT_ECDSA_P256_ALGORITHM, BCRYPT_ECDH_P256_ALGORITHM,
     BCRYPT_ECDSA_PUBLIC_P256_MAGIC, BCRYPT_ECDH_PUBLIC_P256_MAGIC, TEXT("ES256"), 32},
    {TEXT("P-384"), TEXT("384"), 384, 48, BCRYPT_ECDSA_P384_ALGORITHM, BCRYPT_ECDH_P384_ALGORITHM,
     BCRYPT_ECDSA_PUBLIC_P384_MAGIC, BCRYPT_ECDH_PUBLIC_P384_MAGIC, TEXT("ES384"), 48},
    {TEXT("P-521"), TEXT("521"), 521, 66, BCRYPT_ECDSA_P521_ALGORITHM, BCRYPT_ECDH_P521_ALGORITHM,
     BCRYPT_ECDSA_PUBLIC_P521_MAGIC, BCRYPT_ECDH_PUBLIC_P521_MAGIC, TEXT("ES512"), 64},
};

constexpr NCRYPT_SUPPORTED_LENGTHS kRsaLengths = {2048, 4096, 8, 2048};

// The row of the curve that the vault calls `crv`. NULL: no such curve, as in the next two.
const Curve* CurveNamed(const WCHAR* crv);

// The row of a CNG algorithm name, ECDSA or ECDH, compared exactly.
const Curve* CurveOfAlgorithm(const WCHAR* algName);

// The first row whose number is anywhere in `text`.
const Curve* CurveInText(const WCHAR* text);

// Whether a key can be created with this algorithm name, compared exactly.
bool IsKeyAlgorithm(const WCHAR* algName);

// The lengths of keys with this algorithm name: RSA, or a name that contains a curve's number. False: any length is
// allowed.
bool SupportedLengths(const WCHAR* algName, NCRYPT_SUPPORTED_LENGTHS* lengths);

// Whether `bits` is one of `lengths`.
bool LengthAllowed(const NCRYPT_SUPPORTED_LENGTHS& lengths, DWORD bits);
