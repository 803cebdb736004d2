#include "provider/imported_key.h"

#include "provider/entry_points.h"

SECURITY_STATUS MakeImportedKey(const KSP_PROVIDER* provider, const WCHAR* name, DWORD machineFlag, KeyPtr* key)
{
    KSP_KEY* record = nullptr;
    const SECURITY_STATUS status = CreateNewKeyObject(name, BCRYPT_RSA_ALGORITHM, &record, machineFlag);
    if (status != ERROR_SUCCESS)
        return status;
    record->kvc = ProviderClient(provider, record->fMachineKey);
    key->reset(record);
    return ERROR_SUCCESS;
}

SECURITY_STATUS FinalizeImportedKey(const ImportRequest& request, KSP_KEY* key, DWORD flags)
{
    if (request.flags & NCRYPT_DO_NOT_FINALIZE_FLAG)
        return ERROR_SUCCESS;
    return KelvaroFinalizeKey(reinterpret_cast<NCRYPT_PROV_HANDLE>(request.provider),
                              reinterpret_cast<NCRYPT_KEY_HANDLE>(key), flags);
}
