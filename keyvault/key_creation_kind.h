// What an algorithm name asks of the vault.
#pragma once

#include "platform/platform.h"

struct KeyKind {
    const WCHAR* kty;  // without the suffix for hardware
    const WCHAR* crv;  // NULL for RSA
    LONG bits;         // of a curve the curve's own
};

// A key is asked for in hardware first.
constexpr const WCHAR* kHsmSuffix = TEXT("-HSM");

// The six curve names, exact; every other name is an RSA key of keyBits.
KeyKind KeyKindOf(const WCHAR* algId, LONG keyBits);

// Whether a vault that has no such hardware may have answered with `status`.
bool IsHardwareRefusal(DWORD status);
