#include "support/secrets.h"

#include <string.h>

#include "platform/product.h"
#include "support/base64.h"
#include "support/guards.h"
#include "support/log.h"

namespace {

void BuildEntropy(BYTE (&entropy)[20])
{
    for (size_t i = 0; i < 20; i++)
        entropy[i] = static_cast<BYTE>(kSecretEntropy[i / 4] >> (8 * (i % 4)));
}

}  // namespace

bool ProtectSecret(const BYTE* secret, bool forMachine, WCHAR* text, DWORD cchText)
{
    BYTE entropyBytes[20];
    BuildEntropy(entropyBytes);
    DATA_BLOB plain = {kSecretBufferSize, const_cast<BYTE*>(secret)};
    DATA_BLOB entropy = {sizeof(entropyBytes), entropyBytes};
    DATA_BLOB sealed = {};
    const DWORD flags = forMachine ? CRYPTPROTECT_LOCAL_MACHINE : CRYPTPROTECT_UI_FORBIDDEN;
    if (!CryptProtectData(&plain, nullptr, &entropy, nullptr, nullptr, flags, &sealed) || !sealed.pbData)
        return false;
    const LocalPtr<BYTE> owner(sealed.pbData);
    DWORD cch = cchText;
    return sealed.cbData > 0 &&
           CryptBinaryToStringW(sealed.pbData, sealed.cbData, CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF | 0x80000000u,
                                text, &cch);
}

int GetSecretFromDPAPI(const WCHAR* protectedText, BYTE* buffer, DWORD bufferSize)
{
    if (!protectedText || !protectedText[0])
        return 0;
    BYTE sealedBytes[4096];
    BYTE entropyBytes[20];
    BuildEntropy(entropyBytes);
    DATA_BLOB sealed = {sizeof(sealedBytes), sealedBytes};
    // Text that isn't Base64 gives an empty blob, which the platform refuses.
    if (!Kelvaro_FromBase64(protectedText, sealedBytes, &sealed.cbData))
        sealed.cbData = 0;
    DATA_BLOB entropy = {sizeof(entropyBytes), entropyBytes};
    DATA_BLOB plain = {};
    LPWSTR description = nullptr;
    if (!CryptUnprotectData(&sealed, &description, &entropy, nullptr, nullptr, CRYPTPROTECT_UI_FORBIDDEN, &plain)) {
        LogNumber(TEXT("GetSecretFromDPAPI Failed to decrypt secret - CryptUnprotectData"), TEXT(""),
                  static_cast<LONG>(GetLastError()), LOG_ERROR_LEVEL);
        return 0;
    }
    const LocalPtr<WCHAR> descriptionOwner(description);
    const LocalPtr<BYTE> plainOwner(plain.pbData);
    const bool any = plain.pbData && plain.cbData > 0;
    if (any) {
        memcpy(buffer, plain.pbData, plain.cbData < bufferSize ? plain.cbData : bufferSize);
        Wipe(plain.pbData, plain.cbData);
    }
    return any ? 1 : 0;
}
