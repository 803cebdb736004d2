#include "keyvault/key_creation_kind.h"

#include "support/text.h"

namespace {

struct CurveRow {
    const WCHAR* algId;
    const WCHAR* crv;
    LONG bits;
};
constexpr CurveRow kCurves[] = {
    {BCRYPT_ECDSA_P256_ALGORITHM, TEXT("P-256"), 256}, {BCRYPT_ECDH_P256_ALGORITHM, TEXT("P-256"), 256},
    {BCRYPT_ECDSA_P384_ALGORITHM, TEXT("P-384"), 384}, {BCRYPT_ECDH_P384_ALGORITHM, TEXT("P-384"), 384},
    {BCRYPT_ECDSA_P521_ALGORITHM, TEXT("P-521"), 521}, {BCRYPT_ECDH_P521_ALGORITHM, TEXT("P-521"), 521},
};

}  // namespace

KeyKind KeyKindOf(const WCHAR* algId, LONG keyBits)
{
    for (const CurveRow& row : kCurves) {
        if (TextEqual(algId, row.algId))
            return {TEXT("EC"), row.crv, row.bits};
    }
    return {TEXT("RSA"), nullptr, keyBits};
}

bool IsHardwareRefusal(DWORD status)
{
    return status >= 400 && status <= 410;
}
