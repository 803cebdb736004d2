#include <openssl/rsa.h>
#include <string.h>

#include <mutex>

#include "platform/linux/handles.h"
#include "platform/linux/openssl_errors.h"
#include "platform/linux/openssl_pointers.h"
#include "platform/linux/outcome.h"
#include "platform/linux/software_key.h"
#include "platform/linux/text.h"

namespace {

constexpr DWORD kMinBits = 512;
constexpr DWORD kMaxBits = 16384;
constexpr DWORD kBitsStep = 64;

using DigestContext = Owner<EVP_MD_CTX, EVP_MD_CTX_free>;

class KeyStorageProvider : public KernelObject {
  public:
    static constexpr Kind kKind = Kind::keyStorageProvider;
    KeyStorageProvider() : KernelObject(kKind) {}
};

class SoftwareKey : public KernelObject {
  public:
    static constexpr Kind kKind = Kind::softwareKey;
    SoftwareKey() : KernelObject(kKind) {}

    SECURITY_STATUS SetLength(DWORD bits)
    {
        const std::lock_guard<std::mutex> hold(mutex_);
        if (key_)
            return NTE_BAD_KEY_STATE;
        bits_ = bits;
        return ERROR_SUCCESS;
    }

    SECURITY_STATUS Make()
    {
        const std::lock_guard<std::mutex> hold(mutex_);
        if (key_)
            return NTE_BAD_KEY_STATE;
        const QuietOpenssl quiet;
        key_.reset(EVP_RSA_gen(static_cast<unsigned>(bits_)));
        return key_ ? ERROR_SUCCESS : NTE_FAIL;
    }

    // NULL until the key is made; never changes after that.
    EVP_PKEY* Made()
    {
        const std::lock_guard<std::mutex> hold(mutex_);
        return key_.get();
    }

  private:
    std::mutex mutex_;
    DWORD bits_ = 2048;
    KeyPointer key_;
};

HANDLE AsHandle(NCRYPT_HANDLE object)
{
    return reinterpret_cast<HANDLE>(object);
}

// NULL when it isn't an open key's handle.
ObjectRef<SoftwareKey> FindKey(NCRYPT_KEY_HANDLE key)
{
    return FindObject<SoftwareKey>(AsHandle(key));
}

// Runs `use` on a finalized key and keeps the key alive meanwhile.
template <typename Use>
LONG WithMadeKey(NCRYPT_KEY_HANDLE key, Use use)
{
    const ObjectRef<SoftwareKey> found = FindKey(key);
    if (!found)
        return NTE_INVALID_HANDLE;
    EVP_PKEY* made = found->Made();
    return made ? use(made) : NTE_BAD_KEY_STATE;
}

SECURITY_STATUS Publish(KernelObject* object, NCRYPT_HANDLE* handle)
{
    if (!object)
        return NTE_NO_MEMORY;
    *handle = reinterpret_cast<NCRYPT_HANDLE>(PublishHandle(ObjectRef<KernelObject>(object)));
    return *handle == 0 ? NTE_NO_MEMORY : ERROR_SUCCESS;
}

// Frees leaked keys when the module is unloaded or the process exits.
struct KeysReleaser {
    ~KeysReleaser() { RetireHandles({KernelObject::Kind::softwareKey, KernelObject::Kind::keyStorageProvider}); }
};

// Called after OpenSSL has registered its own cleanup, which therefore runs later.
void ReleaseKeysAtTheEnd()
{
    static KeysReleaser releaser;
}

}  // namespace

LONG SoftwareSignatureSize(NCRYPT_KEY_HANDLE key, size_t* size)
{
    return WithMadeKey(key, [size](EVP_PKEY* made) -> LONG {
        *size = static_cast<size_t>(EVP_PKEY_get_size(made));
        return ERROR_SUCCESS;
    });
}

LONG SignWithSoftwareKey(NCRYPT_KEY_HANDLE key, const char* digestName, std::string_view message,
                         std::string* signature)
{
    return WithMadeKey(key, [&](EVP_PKEY* made) -> LONG {
        size_t size = static_cast<size_t>(EVP_PKEY_get_size(made));
        signature->resize(size);
        const QuietOpenssl quiet;
        const DigestContext context(EVP_MD_CTX_new());
        if (!context)
            return NTE_NO_MEMORY;
        // PKCS#1 is the default padding of an RSA key.
        const bool done =
            EVP_DigestSignInit_ex(context.get(), nullptr, digestName, nullptr, nullptr, made, nullptr) == 1 &&
            EVP_DigestSign(context.get(), reinterpret_cast<BYTE*>(signature->data()), &size,
                           reinterpret_cast<const BYTE*>(message.data()), message.size()) == 1;
        return done && size == signature->size() ? ERROR_SUCCESS : NTE_FAIL;
    });
}

SECURITY_STATUS WINAPI NCryptOpenStorageProvider(NCRYPT_PROV_HANDLE* provider, LPCWSTR name, DWORD flags)
{
    if (!provider)
        return NTE_INVALID_PARAMETER;
    *provider = 0;
    if ((flags & ~NCRYPT_SILENT_FLAG) != 0)
        return NTE_BAD_FLAGS;
    if (name && ViewOf(name) != MS_KEY_STORAGE_PROVIDER)
        return NTE_BAD_KEYSET;
    return Publish(new (std::nothrow) KeyStorageProvider, provider);
}

SECURITY_STATUS WINAPI NCryptCreatePersistedKey(NCRYPT_PROV_HANDLE provider, NCRYPT_KEY_HANDLE* key, LPCWSTR algorithm,
                                                LPCWSTR name, DWORD, DWORD flags)
{
    if (!FindObject<KeyStorageProvider>(AsHandle(provider)))
        return NTE_INVALID_HANDLE;
    if (!key || !algorithm)
        return NTE_INVALID_PARAMETER;
    *key = 0;
    if ((flags & ~(NCRYPT_MACHINE_KEY_FLAG | NCRYPT_OVERWRITE_KEY_FLAG)) != 0)
        return NTE_BAD_FLAGS;
    if (name || ViewOf(algorithm) != NCRYPT_RSA_ALGORITHM)
        return NTE_NOT_SUPPORTED;
    return Publish(new (std::nothrow) SoftwareKey, key);
}

SECURITY_STATUS WINAPI NCryptSetProperty(NCRYPT_HANDLE object, LPCWSTR property, PBYTE input, DWORD inputSize,
                                         DWORD flags)
{
    const ObjectRef<SoftwareKey> key = FindKey(object);
    if (!key)
        return NTE_INVALID_HANDLE;
    if (!property || !input)
        return NTE_INVALID_PARAMETER;
    if ((flags & ~(NCRYPT_PERSIST_FLAG | NCRYPT_SILENT_FLAG)) != 0)
        return NTE_BAD_FLAGS;
    if (ViewOf(property) != NCRYPT_LENGTH_PROPERTY)
        return NTE_NOT_SUPPORTED;
    DWORD bits = 0;
    if (inputSize != sizeof bits)
        return NTE_INVALID_PARAMETER;
    memcpy(&bits, input, sizeof bits);
    if (bits < kMinBits || bits > kMaxBits || bits % kBitsStep != 0)
        return NTE_NOT_SUPPORTED;
    return key->SetLength(bits);
}

SECURITY_STATUS WINAPI NCryptFinalizeKey(NCRYPT_KEY_HANDLE key, DWORD flags)
{
    const ObjectRef<SoftwareKey> found = FindKey(key);
    if (!found)
        return NTE_INVALID_HANDLE;
    if ((flags & ~(NCRYPT_SILENT_FLAG | NCRYPT_NO_KEY_VALIDATION)) != 0)
        return NTE_BAD_FLAGS;
    const LONG status = found->Make();
    if (status == ERROR_SUCCESS)
        ReleaseKeysAtTheEnd();
    return status;
}

SECURITY_STATUS WINAPI NCryptFreeObject(NCRYPT_HANDLE object)
{
    const ObjectRef<KernelObject> freed =
        RetireHandle(AsHandle(object), {KernelObject::Kind::keyStorageProvider, KernelObject::Kind::softwareKey});
    return freed ? ERROR_SUCCESS : NTE_INVALID_HANDLE;
}
