#include "kelvaroctl/failure.h"
#include "kelvaroctl/provider_binding.h"
#include "kelvaroctl/text.h"

namespace kelvaroctl {

// The router's calls with the provider's signatures: the router finds the provider by the key's handle.

static SECURITY_STATUS WINAPI OpenProvider(NCRYPT_PROV_HANDLE* provider, LPCWSTR name, DWORD flags)
{
    const SECURITY_STATUS status = NCryptOpenStorageProvider(provider, name, flags);
    if (status != ERROR_SUCCESS) {
        throw ConfigurationFailure("the key storage router cannot open the provider (" +
                                   HexNumber(static_cast<DWORD>(status)) + "): check 'kelvaro-register status'");
    }
    return status;
}

static SECURITY_STATUS WINAPI GetProviderProperty(NCRYPT_PROV_HANDLE provider, LPCWSTR name, PBYTE output, DWORD room,
                                                  DWORD* size, DWORD flags)
{
    return NCryptGetProperty(provider, name, output, room, size, flags);
}

static SECURITY_STATUS WINAPI GetKeyProperty(NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE key, LPCWSTR name, PBYTE output,
                                             DWORD room, DWORD* size, DWORD flags)
{
    return NCryptGetProperty(key, name, output, room, size, flags);
}

static SECURITY_STATUS WINAPI SetProviderProperty(NCRYPT_PROV_HANDLE provider, LPCWSTR name, PBYTE input, DWORD size,
                                                  DWORD flags)
{
    return NCryptSetProperty(provider, name, input, size, flags);
}

static SECURITY_STATUS WINAPI SetKeyProperty(NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE key, LPCWSTR name, PBYTE input,
                                             DWORD size, DWORD flags)
{
    return NCryptSetProperty(key, name, input, size, flags);
}

static SECURITY_STATUS WINAPI FinalizeKey(NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE key, DWORD flags)
{
    return NCryptFinalizeKey(key, flags);
}

static SECURITY_STATUS WINAPI DeleteKey(NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE key, DWORD flags)
{
    return NCryptDeleteKey(key, flags);
}

static SECURITY_STATUS WINAPI FreeProvider(NCRYPT_PROV_HANDLE provider)
{
    return NCryptFreeObject(provider);
}

static SECURITY_STATUS WINAPI FreeKey(NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE key)
{
    return NCryptFreeObject(key);
}

static SECURITY_STATUS WINAPI Encrypt(NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE key, PBYTE input, DWORD inputSize,
                                      VOID* padding, PBYTE output, DWORD room, DWORD* size, DWORD flags)
{
    return NCryptEncrypt(key, input, inputSize, padding, output, room, size, flags);
}

static SECURITY_STATUS WINAPI Decrypt(NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE key, PBYTE input, DWORD inputSize,
                                      VOID* padding, PBYTE output, DWORD room, DWORD* size, DWORD flags)
{
    return NCryptDecrypt(key, input, inputSize, padding, output, room, size, flags);
}

static SECURITY_STATUS WINAPI ExportKey(NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE key, NCRYPT_KEY_HANDLE exportKey,
                                        LPCWSTR type, NCryptBufferDesc* parameters, PBYTE output, DWORD room,
                                        DWORD* size, DWORD flags)
{
    return NCryptExportKey(key, exportKey, type, parameters, output, room, size, flags);
}

static SECURITY_STATUS WINAPI SignHash(NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE key, VOID* padding, PBYTE hash,
                                       DWORD hashSize, PBYTE signature, DWORD room, DWORD* size, DWORD flags)
{
    return NCryptSignHash(key, padding, hash, hashSize, signature, room, size, flags);
}

static SECURITY_STATUS WINAPI VerifySignature(NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE key, VOID* padding, PBYTE hash,
                                              DWORD hashSize, PBYTE signature, DWORD signatureSize, DWORD flags)
{
    return NCryptVerifySignature(key, padding, hash, hashSize, signature, signatureSize, flags);
}

static NCRYPT_KEY_STORAGE_FUNCTION_TABLE RouterTable()
{
    // Calls that this tool never makes stay NULL.
    NCRYPT_KEY_STORAGE_FUNCTION_TABLE table = {};
    table.Version = NCRYPT_KEY_STORAGE_INTERFACE_VERSION;
    table.OpenProvider = OpenProvider;
    table.OpenKey = NCryptOpenKey;
    table.CreatePersistedKey = NCryptCreatePersistedKey;
    table.GetProviderProperty = GetProviderProperty;
    table.GetKeyProperty = GetKeyProperty;
    table.SetProviderProperty = SetProviderProperty;
    table.SetKeyProperty = SetKeyProperty;
    table.FinalizeKey = FinalizeKey;
    table.DeleteKey = DeleteKey;
    table.FreeProvider = FreeProvider;
    table.FreeKey = FreeKey;
    table.FreeBuffer = NCryptFreeBuffer;
    table.Encrypt = Encrypt;
    table.Decrypt = Decrypt;
    table.IsAlgSupported = NCryptIsAlgSupported;
    table.EnumAlgorithms = NCryptEnumAlgorithms;
    table.EnumKeys = NCryptEnumKeys;
    table.ImportKey = NCryptImportKey;
    table.ExportKey = ExportKey;
    table.SignHash = SignHash;
    table.VerifySignature = VerifySignature;
    return table;
}

namespace {
class RouterBinding : public ProviderBinding {
  public:
    RouterBinding()
    {
        static const NCRYPT_KEY_STORAGE_FUNCTION_TABLE table = RouterTable();
        table_ = &table;
        place_ = "the one registered with the key storage router";
    }
};
}  // namespace

std::unique_ptr<ProviderBinding> OpenRouter()
{
    return std::make_unique<RouterBinding>();
}

}  // namespace kelvaroctl
