// A key storage router that knows the one provider and calls it through its table: a DLL under the system's name. The
// runtime's router knows its own provider only.
#include <memory>

#include "platform/cng_provider.h"

namespace {

constexpr SECURITY_STATUS kNotRegistered = NTE_NOT_FOUND;
const WCHAR kProviderName[] = L"Zandrel Key Storage Provider for Key Vault";

// A handle of the router: the module's handles of a provider and, for a key, of the key.
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

// By reference: the handles are set by the call that gives `status`.
SECURITY_STATUS Opened(SECURITY_STATUS status, const NCRYPT_PROV_HANDLE& provider, const NCRYPT_KEY_HANDLE& key,
                       NCRYPT_HANDLE* handle)
{
    if (status == ERROR_SUCCESS)
        *handle = reinterpret_cast<NCRYPT_HANDLE>(new Object{provider, key});
    return status;
}

}  // namespace

// The same call of the table with the module's handles, of a provider and of a key.
#define OF_PROVIDER(name, parameters, ...)                         \
    SECURITY_STATUS WINAPI NCrypt##name parameters                 \
    {                                                              \
        return Table()->name(At(provider)->provider, __VA_ARGS__); \
    }
#define OF_KEY(name, parameters, ...)                                       \
    SECURITY_STATUS WINAPI NCrypt##name parameters                          \
    {                                                                       \
        return Table()->name(At(key)->provider, At(key)->key, __VA_ARGS__); \
    }

extern "C" {

SECURITY_STATUS WINAPI NCryptOpenStorageProvider(NCRYPT_PROV_HANDLE* out, LPCWSTR name, DWORD flags)
{
    NCRYPT_PROV_HANDLE provider = 0;
    if (lstrcmpW(name, kProviderName) != 0 || !Table())
        return kNotRegistered;
    return Opened(Table()->OpenProvider(&provider, name, flags), provider, 0, out);
}

SECURITY_STATUS WINAPI NCryptFreeObject(NCRYPT_HANDLE handle)
{
    const std::unique_ptr<Object> object(At(handle));
    return object->key ? Table()->FreeKey(object->provider, object->key) : Table()->FreeProvider(object->provider);
}

SECURITY_STATUS WINAPI NCryptFreeBuffer(PVOID block)
{
    return Table()->FreeBuffer(block);
}

SECURITY_STATUS WINAPI NCryptOpenKey(NCRYPT_PROV_HANDLE provider, NCRYPT_KEY_HANDLE* out, LPCWSTR name, DWORD legacy,
                                     DWORD flags)
{
    NCRYPT_KEY_HANDLE key = 0;
    return Opened(Table()->OpenKey(At(provider)->provider, &key, name, legacy, flags), At(provider)->provider, key,
                  out);
}

SECURITY_STATUS WINAPI NCryptCreatePersistedKey(NCRYPT_PROV_HANDLE provider, NCRYPT_KEY_HANDLE* out, LPCWSTR algorithm,
                                                LPCWSTR name, DWORD legacy, DWORD flags)
{
    NCRYPT_KEY_HANDLE key = 0;
    return Opened(Table()->CreatePersistedKey(At(provider)->provider, &key, algorithm, name, legacy, flags),
                  At(provider)->provider, key, out);
}

SECURITY_STATUS WINAPI NCryptGetProperty(NCRYPT_HANDLE handle, LPCWSTR name, PBYTE value, DWORD room, DWORD* size,
                                         DWORD flags)
{
    const Object& object = *At(handle);
    return object.key ? Table()->GetKeyProperty(object.provider, object.key, name, value, room, size, flags)
                      : Table()->GetProviderProperty(object.provider, name, value, room, size, flags);
}

SECURITY_STATUS WINAPI NCryptSetProperty(NCRYPT_HANDLE handle, LPCWSTR name, PBYTE value, DWORD size, DWORD flags)
{
    const Object& object = *At(handle);
    return object.key ? Table()->SetKeyProperty(object.provider, object.key, name, value, size, flags)
                      : Table()->SetProviderProperty(object.provider, name, value, size, flags);
}

SECURITY_STATUS WINAPI NCryptDeleteKey(NCRYPT_KEY_HANDLE key, DWORD flags)
{
    const SECURITY_STATUS status = Table()->DeleteKey(At(key)->provider, At(key)->key, flags);
    if (status == ERROR_SUCCESS)
        delete At(key);
    return status;
}

SECURITY_STATUS WINAPI NCryptImportKey(NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE, LPCWSTR, NCryptBufferDesc*,
                                       NCRYPT_KEY_HANDLE*, PBYTE, DWORD, DWORD)
{
    return NTE_NOT_SUPPORTED;
}

OF_PROVIDER(EnumKeys, (NCRYPT_PROV_HANDLE provider, LPCWSTR scope, NCryptKeyName** name, PVOID* state, DWORD flags),
            scope, name, state, flags)
OF_PROVIDER(EnumAlgorithms,
            (NCRYPT_PROV_HANDLE provider, DWORD operations, DWORD* count, NCryptAlgorithmName** list, DWORD flags),
            operations, count, list, flags)
OF_PROVIDER(IsAlgSupported, (NCRYPT_PROV_HANDLE provider, LPCWSTR algorithm, DWORD flags), algorithm, flags)
OF_KEY(FinalizeKey, (NCRYPT_KEY_HANDLE key, DWORD flags), flags)
OF_KEY(ExportKey,
       (NCRYPT_KEY_HANDLE key, NCRYPT_KEY_HANDLE, LPCWSTR type, NCryptBufferDesc* parameters, PBYTE blob, DWORD room,
        DWORD* size, DWORD flags),
       0, type, parameters, blob, room, size, flags)
OF_KEY(SignHash,
       (NCRYPT_KEY_HANDLE key, VOID* padding, PBYTE hash, DWORD hashSize, PBYTE signature, DWORD room, DWORD* size,
        DWORD flags),
       padding, hash, hashSize, signature, room, size, flags)
OF_KEY(VerifySignature,
       (NCRYPT_KEY_HANDLE key, VOID* padding, PBYTE hash, DWORD hashSize, PBYTE signature, DWORD size, DWORD flags),
       padding, hash, hashSize, signature, size, flags)
OF_KEY(Encrypt,
       (NCRYPT_KEY_HANDLE key, PBYTE input, DWORD inputSize, VOID* padding, PBYTE output, DWORD room, DWORD* size,
        DWORD flags),
       input, inputSize, padding, output, room, size, flags)
OF_KEY(Decrypt,
       (NCRYPT_KEY_HANDLE key, PBYTE input, DWORD inputSize, VOID* padding, PBYTE output, DWORD room, DWORD* size,
        DWORD flags),
       input, inputSize, padding, output, room, size, flags)

}  // extern "C"
