#include "provider/pkcs8_derivation.h"

#include <string.h>

#include "provider/nt_status.h"
#include "provider/pkcs12_kdf.h"

namespace {

constexpr size_t kLongestPassword = 0x7FFF;  // characters

}  // namespace

Pkcs8Password::Pkcs8Password(const BYTE* secret, DWORD cbSecret) : secret_(secret)
{
    const size_t most = secret ? cbSecret / sizeof(WCHAR) : 0;
    for (; length_ < most && length_ <= kLongestPassword; length_++) {
        if (!secret[2 * length_] && !secret[2 * length_ + 1])
            break;
    }
}

SECURITY_STATUS Pkcs8Password::AsUtf8(WipedBlock* bytes) const
{
    if (length_ > kLongestPassword)
        return NTE_INVALID_PARAMETER;
    // At most three bytes a character. The text is copied to align it.
    WipedBlock text;
    WipedBlock room;
    if (!text.Allocate((length_ + 1) * sizeof(WCHAR)) || !room.Allocate(3 * length_ + 1))
        return NTE_NO_MEMORY;
    if (length_ != 0)
        memcpy(text.data(), secret_, length_ * sizeof(WCHAR));
    const int size = length_ == 0 ? 0
                                  : WideCharToMultiByte(CP_UTF8, 0, reinterpret_cast<const WCHAR*>(text.data()),
                                                        static_cast<int>(length_), reinterpret_cast<char*>(room.data()),
                                                        static_cast<int>(3 * length_), nullptr, nullptr);
    if (!bytes->Allocate(static_cast<SIZE_T>(size)))
        return NTE_NO_MEMORY;
    memcpy(bytes->data(), room.data(), static_cast<size_t>(size));
    return ERROR_SUCCESS;
}

SECURITY_STATUS Pkcs8Password::AsBigEndian(WipedBlock* bytes) const
{
    if (length_ > kLongestPassword)
        return NTE_INVALID_PARAMETER;
    const size_t count = secret_ ? length_ + 1 : 0;
    if (!bytes->Allocate(count * sizeof(WCHAR)))
        return NTE_NO_MEMORY;
    if (!secret_)
        return ERROR_SUCCESS;
    // The block is zeroed, so it has the terminator already.
    for (size_t i = 0; i < length_; i++) {
        bytes->data()[2 * i] = secret_[2 * i + 1];
        bytes->data()[2 * i + 1] = secret_[2 * i];
    }
    return ERROR_SUCCESS;
}

SECURITY_STATUS DeriveByPbkdf2(const Pkcs8Encryption& encryption, const Pkcs8Password& password, Pkcs8CipherKey* key)
{
    WipedBlock bytes;
    AlgorithmPtr hmac;
    SECURITY_STATUS status = password.AsUtf8(&bytes);
    if (status == ERROR_SUCCESS)
        status = OpenAlgorithm(encryption.hash, BCRYPT_ALG_HANDLE_HMAC_FLAG, &hmac);
    if (status != ERROR_SUCCESS)
        return status;
    memcpy(key->iv, encryption.iv, encryption.cipher->cbBlock);
    return StatusFromNt(BCryptDeriveKeyPBKDF2(hmac.get(), bytes.data(), static_cast<ULONG>(bytes.size()),
                                              const_cast<BYTE*>(encryption.salt), encryption.cbSalt,
                                              encryption.iterations, key->key, encryption.cipher->cbKey, 0));
}

SECURITY_STATUS DeriveByPkcs12(const Pkcs8Encryption& encryption, const Pkcs8Password& password, Pkcs8CipherKey* key)
{
    WipedBlock bytes;
    SECURITY_STATUS status = password.AsBigEndian(&bytes);
    if (status != ERROR_SUCCESS)
        return status;
    Pkcs12Kdf kdf;
    status = kdf.Prepare(bytes.data(), static_cast<DWORD>(bytes.size()), encryption);
    if (status == ERROR_SUCCESS)
        status = kdf.Derive(Pkcs12Purpose::Key, key->key, encryption.cipher->cbKey);
    if (status == ERROR_SUCCESS)
        status = kdf.Derive(Pkcs12Purpose::Iv, key->iv, encryption.cipher->cbBlock);
    return status;
}
