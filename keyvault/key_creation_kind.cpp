#include "keyvault/key_creation_kind.h"

#include "keyvault/key_algorithms.h"

KeyKind KeyKindOf(const WCHAR* algId, LONG keyBits)
{
    if (const Curve* curve = CurveOfAlgorithm(algId))
        return {TEXT("EC"), curve->crv, static_cast<LONG>(curve->bits)};
    return {TEXT("RSA"), nullptr, keyBits};
}

bool IsHardwareRefusal(DWORD status)
{
    return status >= 400 && status <= 410;
}
