#include "kelvaroctl/failure.h"
#include "kelvaroctl/module_host.h"
#include "kelvaroctl/text.h"

namespace kelvaroctl {

static SECURITY_STATUS WINAPI OpenProvider(NCRYPT_PROV_HANDLE* provider, LPCWSTR name, DWORD flags)
{
    const SECURITY_STATUS status = NCryptOpenStorageProvider(provider, name, flags);
    if (status != ERROR_SUCCESS) {
        throw ConfigurationFailure("the key storage router cannot open the provider (" +
                                   HexNumber(static_cast<DWORD>(status)) + "): check 'kelvaro-register status'");
    }
    return status;
}

// One of the router's calls with the provider's signature: the router finds the provider by the key's handle.
template <auto call, typename... Rest>
static SECURITY_STATUS WINAPI OnKey(NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE key, Rest... rest)
{
    return call(key, rest...);
}

static NCRYPT_KEY_STORAGE_FUNCTION_TABLE RouterTable()
{
    // Calls that this tool never makes stay NULL.
    NCRYPT_KEY_STORAGE_FUNCTION_TABLE table = {};
    table.Version = NCRYPT_KEY_STORAGE_INTERFACE_VERSION;
    table.OpenProvider = OpenProvider;
    table.OpenKey = NCryptOpenKey;
    table.CreatePersistedKey = NCryptCreatePersistedKey;
    table.GetProviderProperty = NCryptGetProperty;
    table.GetKeyProperty = OnKey<NCryptGetProperty>;
    table.SetKeyProperty = OnKey<NCryptSetProperty>;
    table.FinalizeKey = OnKey<NCryptFinalizeKey>;
    table.DeleteKey = OnKey<NCryptDeleteKey>;
    table.FreeProvider = NCryptFreeObject;
    table.FreeKey = OnKey<NCryptFreeObject>;
    table.FreeBuffer = NCryptFreeBuffer;
    table.Encrypt = OnKey<NCryptEncrypt>;
    table.Decrypt = OnKey<NCryptDecrypt>;
    table.EnumAlgorithms = NCryptEnumAlgorithms;
    table.EnumKeys = NCryptEnumKeys;
    table.ImportKey = NCryptImportKey;
    table.ExportKey = OnKey<NCryptExportKey>;
    table.SignHash = OnKey<NCryptSignHash>;
    table.VerifySignature = OnKey<NCryptVerifySignature>;
    return table;
}

ProviderBinding OpenRouter()
{
    static const NCRYPT_KEY_STORAGE_FUNCTION_TABLE table = RouterTable();
    return {nullptr, &table, "the one registered with the key storage router"};
}

}  // namespace kelvaroctl
