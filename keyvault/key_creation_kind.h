// The kind of key to ask the vault for, by CNG's algorithm name.
#pragma once

#include "platform/platform.h"

struct KeyKind {
    const WCHAR* kty;  // without the hardware suffix
    const WCHAR* crv;  // NULL for RSA
    LONG bits;         // of a curve: the curve's own
};

// The suffix of key types in hardware.
constexpr const WCHAR* kHsmSuffix = TEXT("-HSM");

// An exact ECDSA or ECDH name gives its curve, any other name an RSA key of keyBits.
KeyKind KeyKindOf(const WCHAR* algId, LONG keyBits);

// Whether `status` may mean that the vault has no hardware keys.
bool IsHardwareRefusal(DWORD status);
