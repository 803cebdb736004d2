// What to ask of the vault for an algorithm name.
#pragma once

#include "platform/platform.h"

struct KeyKind {
    const WCHAR* kty;  // without the hardware suffix
    const WCHAR* crv;  // NULL for RSA
    LONG bits;         // for a curve fixed
};

// The suffix of key types in hardware.
constexpr const WCHAR* kHsmSuffix = TEXT("-HSM");

// The six curve names, exact; every other name is an RSA key of keyBits.
KeyKind KeyKindOf(const WCHAR* algId, LONG keyBits);

// Whether `status` may mean that the vault has no such hardware.
bool IsHardwareRefusal(DWORD status);
