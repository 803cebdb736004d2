#include "provider/pkcs12_kdf.h"

#include <string.h>

#include "provider/nt_status.h"

namespace {

DWORD RoundUp(DWORD size, DWORD step)
{
    return (size + step - 1) / step * step;
}

void Repeat(const BYTE* bytes, DWORD size, BYTE* output, DWORD cbOutput)
{
    for (DWORD i = 0; i < cbOutput; i++)
        output[i] = bytes[i % size];
}

}  // namespace

// Salt and password were bounded when they were read, so no sum wraps.
SECURITY_STATUS Pkcs12Kdf::Prepare(const BYTE* password, DWORD cbPassword, const Pkcs8Encryption& encryption)
{
    password_ = password;
    cbPassword_ = cbPassword;
    encryption_ = &encryption;
    if (!blocks_.Allocate(RoundUp(encryption.cbSalt, kCbBlock) + RoundUp(cbPassword, kCbBlock)))
        return NTE_NO_MEMORY;
    return OpenAlgorithm(encryption.hash, 0, &algorithm_);
}

void Pkcs12Kdf::FillBlocks()
{
    const DWORD cbSaltBlocks = RoundUp(encryption_->cbSalt, kCbBlock);
    Repeat(encryption_->salt, encryption_->cbSalt, blocks_.data(), cbSaltBlocks);
    Repeat(password_, cbPassword_, blocks_.data() + cbSaltBlocks, RoundUp(cbPassword_, kCbBlock));
}

// The result goes into hash_, which may be the input too.
NTSTATUS Pkcs12Kdf::HashOnce(const BYTE* first, DWORD cbFirst, const BYTE* second, DWORD cbSecond)
{
    BCRYPT_HASH_HANDLE hash = nullptr;
    NTSTATUS result = BCryptCreateHash(algorithm_.get(), &hash, nullptr, 0, nullptr, 0, 0);
    if (!BCRYPT_SUCCESS(result))
        return result;
    result = BCryptHashData(hash, const_cast<BYTE*>(first), cbFirst, 0);
    if (BCRYPT_SUCCESS(result) && cbSecond != 0)
        result = BCryptHashData(hash, const_cast<BYTE*>(second), cbSecond, 0);
    if (BCRYPT_SUCCESS(result))
        result = BCryptFinishHash(hash, hash_, sizeof(hash_), 0);
    BCryptDestroyHash(hash);
    return result;
}

NTSTATUS Pkcs12Kdf::HashRound(const BYTE* diversifier)
{
    NTSTATUS result = HashOnce(diversifier, kCbBlock, blocks_.data(), static_cast<DWORD>(blocks_.size()));
    for (DWORD i = 1; i < encryption_->iterations && BCRYPT_SUCCESS(result); i++)
        result = HashOnce(hash_, sizeof(hash_), nullptr, 0);
    return result;
}

// Adds the repeated hash and one to each block, taken as one large number.
void Pkcs12Kdf::AddToBlocks()
{
    for (SIZE_T block = 0; block < blocks_.size(); block += kCbBlock) {
        unsigned carry = 1;
        for (DWORD i = kCbBlock; i-- > 0;) {
            BYTE& digit = blocks_.data()[block + i];
            carry += unsigned{digit} + unsigned{hash_[i % kCbHash]};
            digit = static_cast<BYTE>(carry & 0xFF);
            carry >>= 8;
        }
    }
}

SECURITY_STATUS Pkcs12Kdf::Derive(Pkcs12Purpose purpose, BYTE* output, DWORD cbOutput)
{
    BYTE diversifier[kCbBlock];
    memset(diversifier, static_cast<int>(purpose), sizeof(diversifier));
    FillBlocks();
    for (;;) {
        const NTSTATUS result = HashRound(diversifier);
        if (!BCRYPT_SUCCESS(result))
            return StatusFromNt(result);
        const DWORD part = cbOutput < kCbHash ? cbOutput : kCbHash;
        memcpy(output, hash_, part);
        output += part;
        cbOutput -= part;
        if (cbOutput == 0)
            return ERROR_SUCCESS;
        AddToBlocks();
    }
}
