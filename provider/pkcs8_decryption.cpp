#include "provider/pkcs8_decryption.h"

#include <string_view>

#include "platform/find_row.h"
#include "provider/nt_status.h"
#include "provider/pkcs8_derivation.h"
#include "provider/pkcs8_scheme.h"

namespace {

// One encryption algorithm.
struct Pkcs8Scheme {
    const char* objectId;
    SECURITY_STATUS (*decodeParameters)(const BYTE* der, DWORD cbDer, Pkcs8Encryption* encryption);
    SECURITY_STATUS (*deriveKey)(const Pkcs8Encryption& encryption, const Pkcs8Password& password, Pkcs8CipherKey* key);
};
constexpr Pkcs8Scheme kSchemes[] = {
    {"1.2.840.113549.1.5.13", DecodePbes2, DeriveByPbkdf2},
    {"1.2.840.113549.1.12.1.3", DecodePkcs12Pbe, DeriveByPkcs12},
};

const Pkcs8Scheme* FindScheme(const char* objectId)
{
    const std::string_view wanted = objectId ? objectId : "";
    return FindRow(kSchemes, [wanted](const Pkcs8Scheme& scheme) { return wanted == scheme.objectId; });
}

// A key of the platform. The members are in the order in which it needs them: it is destroyed before its memory is
// freed and the algorithm closed.
class CipherKey {
  public:
    SECURITY_STATUS Open(const WCHAR* name)
    {
        const SECURITY_STATUS status = OpenAlgorithm(name, 0, &algorithm_);
        if (status != ERROR_SUCCESS)
            return status;
        ULONG cbResult = 0;
        return StatusFromNt(BCryptGetProperty(algorithm_.get(), BCRYPT_OBJECT_LENGTH,
                                              reinterpret_cast<BYTE*>(&cbObject_), sizeof(cbObject_), &cbResult, 0));
    }

    bool AllocateObject() { return object_.Allocate(cbObject_); }

    // The key keeps the initialization vector, since the decryption call passes none.
    SECURITY_STATUS Take(const Pkcs8Cipher& cipher, Pkcs8CipherKey* derived)
    {
        WCHAR mode[] = BCRYPT_CHAIN_MODE_CBC;
        BCRYPT_KEY_HANDLE key = nullptr;
        NTSTATUS result = BCryptGenerateSymmetricKey(algorithm_.get(), &key, object_.data(), cbObject_, derived->key,
                                                     cipher.cbKey, 0);
        key_.reset(key);
        if (BCRYPT_SUCCESS(result))
            result = BCryptSetProperty(key, BCRYPT_CHAINING_MODE, reinterpret_cast<BYTE*>(mode), sizeof(mode), 0);
        if (BCRYPT_SUCCESS(result))
            result = BCryptSetProperty(key, BCRYPT_INITIALIZATION_VECTOR, derived->iv, cipher.cbBlock, 0);
        return StatusFromNt(result);
    }

    SECURITY_STATUS Decrypt(const CRYPT_DATA_BLOB& encrypted, WipedBlock* plain, DWORD* cbPlain)
    {
        ULONG size = 0;
        NTSTATUS result = BCryptDecrypt(key_.get(), encrypted.pbData, encrypted.cbData, nullptr, nullptr, 0, nullptr, 0,
                                        &size, BCRYPT_BLOCK_PADDING);
        if (!BCRYPT_SUCCESS(result))
            return StatusFromNt(result);
        if (!plain->Allocate(size))
            return NTE_NO_MEMORY;
        result = BCryptDecrypt(key_.get(), encrypted.pbData, encrypted.cbData, nullptr, nullptr, 0, plain->data(), size,
                               &size, BCRYPT_BLOCK_PADDING);
        *cbPlain = size;
        return StatusFromNt(result);
    }

  private:
    AlgorithmPtr algorithm_;
    DWORD cbObject_ = 0;
    WipedBlock object_;
    Owner<void, BCryptDestroyKey> key_;
};

}  // namespace

SECURITY_STATUS DecryptPkcs8Key(const BYTE* secret, DWORD cbSecret, const CRYPT_ENCRYPTED_PRIVATE_KEY_INFO& info,
                                WipedBlock* plain, DWORD* cbPlain)
{
    if (!info.EncryptedPrivateKey.pbData || info.EncryptedPrivateKey.cbData == 0)
        return NTE_BAD_DATA;
    const Pkcs8Scheme* scheme = FindScheme(info.EncryptionAlgorithm.pszObjId);
    if (!scheme)
        return NTE_INTERNAL_ERROR;
    Pkcs8Encryption encryption;
    const CRYPT_OBJID_BLOB& parameters = info.EncryptionAlgorithm.Parameters;
    SECURITY_STATUS status = scheme->decodeParameters(parameters.pbData, parameters.cbData, &encryption);
    if (status != ERROR_SUCCESS)
        return status;
    CipherKey key;
    status = key.Open(encryption.cipher->name);
    if (status != ERROR_SUCCESS)
        return status;
    if (!key.AllocateObject())
        return NTE_NO_MEMORY;
    Pkcs8CipherKey derived;
    status = scheme->deriveKey(encryption, Pkcs8Password(secret, cbSecret), &derived);
    if (status != ERROR_SUCCESS)
        return status;
    status = key.Take(*encryption.cipher, &derived);
    if (status != ERROR_SUCCESS)
        return status;
    return key.Decrypt(info.EncryptedPrivateKey, plain, cbPlain);
}
