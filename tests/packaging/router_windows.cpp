// A key storage router, as much of one as the tool needs: a DLL under the system's name that finds the one provider and
// calls it through its table. The runtime's own knows no provider but its own.
#include <memory>

#include "platform/cng_provider.h"

namespace {

constexpr SECURITY_STATUS kNotRegistered = NTE_NOT_FOUND;
const WCHAR kProviderName[] = L"Zandrel Key Storage Provider for Key Vault";

// What a handle of the router stands for. A key's handle keeps its provider's.
struct Object {
    NCRYPT_PROV_HANDLE provider;
    NCRYPT_KEY_HANDLE key;
};

const NCRYPT_KEY_STORAGE_FUNCTION_TABLE* Table()
{
    static const NCRYPT_KEY_STORAGE_FUNCTION_TABLE* const table = [] {
        NCRYPT_KEY_STORAGE_FUNCTION_TABLE* found = nullptr;
        const HMODULE module = LoadLibraryW(L"kelvaro.dll");
        const auto entry = reinterpret_cast<GetKeyStorageInterfaceFn>(
            reinterpret_cast<void (*)()>(GetProcAddress(module, "GetKeyStorageInterface")));
        if (entry)
            entry(kProviderName, &found, 0);
        return found;
    }();
    return table;
}

Object* At(NCRYPT_HANDLE handle)
{
    return reinterpret_cast<Object*>(handle);
}

NCRYPT_HANDLE NewHandle(NCRYPT_PROV_HANDLE provider, NCRYPT_KEY_HANDLE key)
{
    return reinterpret_cast<NCRYPT_HANDLE>(new Object{provider, key});
}

}  // namespace

extern "C" {

SECURITY_STATUS WINAPI NCryptOpenStorageProvider(NCRYPT_PROV_HANDLE* phProvider, LPCWSTR pszProviderName, DWORD dwFlags)
{
    if (lstrcmpW(pszProviderName, kProviderName) != 0 || !Table())
        return kNotRegistered;
    NCRYPT_PROV_HANDLE provider = 0;
    const SECURITY_STATUS status = Table()->OpenProvider(&provider, pszProviderName, dwFlags);
    if (status == ERROR_SUCCESS)
        *phProvider = NewHandle(provider, 0);
    return status;
}

SECURITY_STATUS WINAPI NCryptFreeObject(NCRYPT_HANDLE hObject)
{
    const std::unique_ptr<Object> object(At(hObject));
    return object->key ? Table()->FreeKey(object->provider, object->key) : Table()->FreeProvider(object->provider);
}

SECURITY_STATUS WINAPI NCryptFreeBuffer(PVOID pvInput)
{
    return Table()->FreeBuffer(pvInput);
}

SECURITY_STATUS WINAPI NCryptOpenKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE* phKey, LPCWSTR pszKeyName,
                                     DWORD dwLegacyKeySpec, DWORD dwFlags)
{
    NCRYPT_KEY_HANDLE key = 0;
    const SECURITY_STATUS status =
        Table()->OpenKey(At(hProvider)->provider, &key, pszKeyName, dwLegacyKeySpec, dwFlags);
    if (status == ERROR_SUCCESS)
        *phKey = NewHandle(At(hProvider)->provider, key);
    return status;
}

SECURITY_STATUS WINAPI NCryptCreatePersistedKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE* phKey,
                                                LPCWSTR pszAlgId, LPCWSTR pszKeyName, DWORD dwLegacyKeySpec,
                                                DWORD dwFlags)
{
    NCRYPT_KEY_HANDLE key = 0;
    const SECURITY_STATUS status =
        Table()->CreatePersistedKey(At(hProvider)->provider, &key, pszAlgId, pszKeyName, dwLegacyKeySpec, dwFlags);
    if (status == ERROR_SUCCESS)
        *phKey = NewHandle(At(hProvider)->provider, key);
    return status;
}

SECURITY_STATUS WINAPI NCryptGetProperty(NCRYPT_HANDLE hObject, LPCWSTR pszProperty, PBYTE pbOutput, DWORD cbOutput,
                                         DWORD* pcbResult, DWORD dwFlags)
{
    const Object& object = *At(hObject);
    return object.key
               ? Table()->GetKeyProperty(object.provider, object.key, pszProperty, pbOutput, cbOutput, pcbResult,
                                         dwFlags)
               : Table()->GetProviderProperty(object.provider, pszProperty, pbOutput, cbOutput, pcbResult, dwFlags);
}

SECURITY_STATUS WINAPI NCryptSetProperty(NCRYPT_HANDLE hObject, LPCWSTR pszProperty, PBYTE pbInput, DWORD cbInput,
                                         DWORD dwFlags)
{
    const Object& object = *At(hObject);
    return object.key ? Table()->SetKeyProperty(object.provider, object.key, pszProperty, pbInput, cbInput, dwFlags)
                      : Table()->SetProviderProperty(object.provider, pszProperty, pbInput, cbInput, dwFlags);
}

SECURITY_STATUS WINAPI NCryptFinalizeKey(NCRYPT_KEY_HANDLE hKey, DWORD dwFlags)
{
    return Table()->FinalizeKey(At(hKey)->provider, At(hKey)->key, dwFlags);
}

SECURITY_STATUS WINAPI NCryptDeleteKey(NCRYPT_KEY_HANDLE hKey, DWORD dwFlags)
{
    const SECURITY_STATUS status = Table()->DeleteKey(At(hKey)->provider, At(hKey)->key, dwFlags);
    if (status == ERROR_SUCCESS)
        delete At(hKey);
    return status;
}

SECURITY_STATUS WINAPI NCryptEnumKeys(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszScope, NCryptKeyName** ppKeyName,
                                      PVOID* ppEnumState, DWORD dwFlags)
{
    return Table()->EnumKeys(At(hProvider)->provider, pszScope, ppKeyName, ppEnumState, dwFlags);
}

SECURITY_STATUS WINAPI NCryptEnumAlgorithms(NCRYPT_PROV_HANDLE hProvider, DWORD dwAlgOperations, DWORD* pdwAlgCount,
                                            NCryptAlgorithmName** ppAlgList, DWORD dwFlags)
{
    return Table()->EnumAlgorithms(At(hProvider)->provider, dwAlgOperations, pdwAlgCount, ppAlgList, dwFlags);
}

SECURITY_STATUS WINAPI NCryptIsAlgSupported(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszAlgId, DWORD dwFlags)
{
    return Table()->IsAlgSupported(At(hProvider)->provider, pszAlgId, dwFlags);
}

SECURITY_STATUS WINAPI NCryptImportKey(NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE, LPCWSTR, NCryptBufferDesc*,
                                       NCRYPT_KEY_HANDLE*, PBYTE, DWORD, DWORD)
{
    return NTE_NOT_SUPPORTED;
}

SECURITY_STATUS WINAPI NCryptExportKey(NCRYPT_KEY_HANDLE hKey, NCRYPT_KEY_HANDLE, LPCWSTR pszBlobType,
                                       NCryptBufferDesc* pParameterList, PBYTE pbOutput, DWORD cbOutput,
                                       DWORD* pcbResult, DWORD dwFlags)
{
    return Table()->ExportKey(At(hKey)->provider, At(hKey)->key, 0, pszBlobType, pParameterList, pbOutput, cbOutput,
                              pcbResult, dwFlags);
}

SECURITY_STATUS WINAPI NCryptSignHash(NCRYPT_KEY_HANDLE hKey, VOID* pPaddingInfo, PBYTE pbHashValue, DWORD cbHashValue,
                                      PBYTE pbSignature, DWORD cbSignature, DWORD* pcbResult, DWORD dwFlags)
{
    return Table()->SignHash(At(hKey)->provider, At(hKey)->key, pPaddingInfo, pbHashValue, cbHashValue, pbSignature,
                             cbSignature, pcbResult, dwFlags);
}

SECURITY_STATUS WINAPI NCryptVerifySignature(NCRYPT_KEY_HANDLE hKey, VOID* pPaddingInfo, PBYTE pbHashValue,
                                             DWORD cbHashValue, PBYTE pbSignature, DWORD cbSignature, DWORD dwFlags)
{
    return Table()->VerifySignature(At(hKey)->provider, At(hKey)->key, pPaddingInfo, pbHashValue, cbHashValue,
                                    pbSignature, cbSignature, dwFlags);
}

SECURITY_STATUS WINAPI NCryptEncrypt(NCRYPT_KEY_HANDLE hKey, PBYTE pbInput, DWORD cbInput, VOID* pPaddingInfo,
                                     PBYTE pbOutput, DWORD cbOutput, DWORD* pcbResult, DWORD dwFlags)
{
    return Table()->Encrypt(At(hKey)->provider, At(hKey)->key, pbInput, cbInput, pPaddingInfo, pbOutput, cbOutput,
                            pcbResult, dwFlags);
}

SECURITY_STATUS WINAPI NCryptDecrypt(NCRYPT_KEY_HANDLE hKey, PBYTE pbInput, DWORD cbInput, VOID* pPaddingInfo,
                                     PBYTE pbOutput, DWORD cbOutput, DWORD* pcbResult, DWORD dwFlags)
{
    return Table()->Decrypt(At(hKey)->provider, At(hKey)->key, pbInput, cbInput, pPaddingInfo, pbOutput, cbOutput,
                            pcbResult, dwFlags);
}

}  // extern "C"
