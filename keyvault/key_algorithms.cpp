#include "keyvault/key_algorithms.h"

#include "platform/find_row.h"
#include "support/text.h"

const Curve* CurveNamed(const WCHAR* crv)
{
    return FindRow(kCurves, [=](const Curve& curve) { return TextEqual(crv, curve.crv); });
}

const Curve* CurveOfAlgorithm(const WCHAR* algName)
{
    return FindRow(
        kCurves, [=](const Curve& curve) { return TextEqual(algName, curve.ecdsa) || TextEqual(algName, curve.ecdh); });
}

const Curve* CurveInText(const WCHAR* text)
{
    return FindRow(kCurves, [=](const Curve& curve) { return TextContains(text, curve.number); });
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
