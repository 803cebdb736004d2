#include "keyvault/key_algorithms.h"

#include "support/text.h"

const Curve* CurveNamed(const WCHAR* crv)
{
    for (const Curve& curve : kCurves) {
        if (TextEqual(crv, curve.crv))
            return &curve;
    }
    return nullptr;
}

const Curve* CurveOfAlgorithm(const WCHAR* algName)
{
    for (const Curve& curve : kCurves) {
        if (TextEqual(algName, curve.ecdsa) || TextEqual(algName, curve.ecdh))
            return &curve;
    }
    return nullptr;
}

const Curve* CurveInText(const WCHAR* text)
{
    for (const Curve& curve : kCurves) {
        if (TextContains(text, curve.number))
            return &curve;
    }
    return nullptr;
}

bool IsKeyAlgorithm(const WCHAR* algName)
{
    return TextEqual(algName, BCRYPT_RSA_ALGORITHM) || CurveOfAlgorithm(algName);
}

bool SupportedLengths(const WCHAR* algName, NCRYPT_SUPPORTED_LENGTHS* lengths)
{
    const Curve* curve = CurveInText(algName);
    if (TextEqual(algName, BCRYPT_RSA_ALGORITHM))
        *lengths = kRsaLengths;
    else if (curve)
        *lengths = {curve->bits, curve->bits, 0, curve->bits};
    else
        return false;
    return true;
}

bool LengthAllowed(const NCRYPT_SUPPORTED_LENGTHS& lengths, DWORD bits)
{
    return bits >= lengths.dwMinLength && bits <= lengths.dwMaxLength &&
           (lengths.dwIncrement == 0 || (bits - lengths.dwMinLength) % lengths.dwIncrement == 0);
}
