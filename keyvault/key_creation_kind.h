// What to request from the vault for an algorithm name.
#pragma once

#include "platform/platform.h"

struct KeyKind {
    const WCHAR* kty;  // without the hardware suffix
    const WCHAR* crv;  // NULL for RSA
    LONG bits;         // fixed for a curve
};

// The suffix of key types in hardware.
constexpr const WCHAR* kHsmSuffix = TEXT("-HSM");

// The six curve names, exact; every other name is an RSA key of keyBits.
KeyKind KeyKindOf(const WCHAR* algId, LONG keyBits);

// Whether `status` may mean that the vault has no hardware keys.
bool IsHardwareRefusal(DWORD status);
