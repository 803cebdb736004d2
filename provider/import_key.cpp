#include "provider/import_key.h"

#include "provider/entry_points.h"
#include "support/log.h"
#include "support/text.h"

namespace {

constexpr WCHAR kEntryPoint[] = TEXT("KelvaroImportKey");

constexpr DWORD kRefusedFlags = NCRYPT_MACHINE_KEY_FLAG | NCRYPT_WRITE_KEY_TO_LEGACY_STORE_FLAG;
constexpr DWORD kAllowedFlags = NCRYPT_NO_KEY_VALIDATION | NCRYPT_SILENT_FLAG | NCRYPT_OVERWRITE_KEY_FLAG |
                                NCRYPT_DO_NOT_FINALIZE_FLAG | kRefusedFlags;

struct BlobType {
    const WCHAR* name;
    DWORD cbSmallest;
    SECURITY_STATUS (*import)(const ImportRequest& request, KeyPtr* key);
};
constexpr BlobType kBlobTypes[] = {
    {BCRYPT_PUBLIC_KEY_BLOB, 4, ImportPublicBlob},      {BCRYPT_PRIVATE_KEY_BLOB, 4, ImportPrivateBlob},
    {BCRYPT_RSAPUBLIC_BLOB, 1, ImportPublicBlob},       {BCRYPT_RSAPRIVATE_BLOB, 1, ImportPrivateBlob},
    {BCRYPT_RSAFULLPRIVATE_BLOB, 1, ImportPrivateBlob}, {NCRYPT_PKCS7_ENVELOPE_BLOB, 1, ImportEnvelopedKey},
    {NCRYPT_PKCS8_PRIVATE_KEY_BLOB, 1, ImportPkcs8Key},
};

SECURITY_STATUS ImportByType(const ImportRequest& request, KeyPtr* key)
{
    for (const BlobType& type : kBlobTypes) {
        if (TextEqual(request.blobType, type.name))
            return request.cbData < type.cbSmallest ? NTE_INVALID_PARAMETER : type.import(request, key);
    }
    return NTE_NOT_SUPPORTED;
}

}  // namespace

SECURITY_STATUS WINAPI KelvaroImportKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE /*hImportKey*/,
                                        LPCWSTR pszBlobType, NCryptBufferDesc* pParameterList, NCRYPT_KEY_HANDLE* phKey,
                                        PBYTE pbData, DWORD cbData, DWORD dwFlags)
{
    LogLine(kEntryPoint, LOG_ENTRY_LEVEL);
    const KSP_PROVIDER* provider = ProviderFromHandle(hProvider);
    if (!provider)
        return FailStatus(NTE_INVALID_HANDLE, kEntryPoint);
    if (!phKey || !pbData || cbData == 0)
        return FailStatus(NTE_INVALID_PARAMETER, kEntryPoint);
    if ((dwFlags & ~kAllowedFlags) != 0)
        return FailStatus(NTE_BAD_FLAGS, kEntryPoint);
    if ((dwFlags & kRefusedFlags) != 0)
        return FailStatus(NTE_NOT_SUPPORTED, kEntryPoint);

    const ImportRequest request = {provider, pszBlobType, pParameterList, pbData, cbData, dwFlags};
    KeyPtr key;
    const SECURITY_STATUS status = ImportByType(request, &key);
    if (status != ERROR_SUCCESS)
        return FailStatus(status, kEntryPoint);
    *phKey = reinterpret_cast<NCRYPT_KEY_HANDLE>(key.release());  // the host owns it now
    return ERROR_SUCCESS;
}
