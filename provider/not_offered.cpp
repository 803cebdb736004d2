#include "provider/entry_points.h"
#include "support/log.h"

namespace {

SECURITY_STATUS Refuse(const WCHAR* entryPoint)
{
    LogLine(entryPoint, LOG_ERROR_LEVEL);
    return NTE_NOT_SUPPORTED;
}

}  // namespace

SECURITY_STATUS WINAPI KelvaroPromptUser(NCRYPT_PROV_HANDLE /*hProvider*/, NCRYPT_KEY_HANDLE /*hKey*/,
                                         LPCWSTR /*pszOperation*/, DWORD /*dwFlags*/)
{
    return Refuse(TEXT("KelvaroPromptUser"));
}

SECURITY_STATUS WINAPI KelvaroNotifyChangeKey(NCRYPT_PROV_HANDLE /*hProvider*/, HANDLE* /*phEvent*/, DWORD /*dwFlags*/)
{
    return Refuse(TEXT("KelvaroNotifyChangeKey"));
}

SECURITY_STATUS WINAPI KelvaroSecretAgreement(NCRYPT_PROV_HANDLE /*hProvider*/, NCRYPT_KEY_HANDLE /*hPrivKey*/,
                                              NCRYPT_KEY_HANDLE /*hPubKey*/, NCRYPT_SECRET_HANDLE* /*phAgreedSecret*/,
                                              DWORD /*dwFlags*/)
{
    return Refuse(TEXT("KelvaroSecretAgreement"));
}

SECURITY_STATUS WINAPI KelvaroDeriveKey(NCRYPT_PROV_HANDLE /*hProvider*/, NCRYPT_SECRET_HANDLE /*hSharedSecret*/,
                                        LPCWSTR /*pwszKDF*/, NCryptBufferDesc* /*pParameterList*/,
                                        PBYTE /*pbDerivedKey*/, DWORD /*cbDerivedKey*/, DWORD* /*pcbResult*/,
                                        ULONG /*dwFlags*/)
{
    return Refuse(TEXT("KelvaroDeriveKey"));
}

SECURITY_STATUS WINAPI KelvaroFreeSecret(NCRYPT_PROV_HANDLE /*hProvider*/, NCRYPT_SECRET_HANDLE /*hSharedSecret*/)
{
    return Refuse(TEXT("KelvaroFreeSecret"));
}
