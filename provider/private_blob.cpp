#include "provider/private_blob.h"

#include <string.h>

#include <utility>

#include "keyvault/key_algorithms.h"
#include "provider/kept_buffer.h"
#include "support/text.h"

namespace {

// Bytes of the blob's parts, without the header.
uint64_t PartsSize(const BCRYPT_RSAKEY_BLOB& header)
{
    const uint64_t modulus = header.cbModulus;
    const uint64_t prime1 = header.cbPrime1;
    const uint64_t prime2 = header.cbPrime2;
    uint64_t size = modulus + prime1 + prime2 + header.cbPublicExp;
    if (header.Magic == BCRYPT_RSAFULLPRIVATE_MAGIC)
        size += 2 * prime1 + prime2 + modulus;
    return size;
}

}  // namespace

SECURITY_STATUS CheckRsaBlob(KSP_KEY* pKey, const BYTE* pbBlob, DWORD cbBlob)
{
    BCRYPT_RSAKEY_BLOB header;
    if (cbBlob < sizeof(header))
        return NTE_BAD_KEY;
    memcpy(&header, pbBlob, sizeof(header));
    if (header.Magic != BCRYPT_RSAPRIVATE_MAGIC && header.Magic != BCRYPT_RSAFULLPRIVATE_MAGIC)
        return NTE_BAD_KEY;
    if (!LengthAllowed(kRsaLengths, header.BitLength))
        return NTE_BAD_KEY;
    // Whenever a sum in 32 bits would wrap, the one in 64 bits is over cbBlob.
    if (PartsSize(header) > cbBlob)
        return NTE_BAD_KEY;
    pKey->dwBitLength = header.BitLength;
    return ERROR_SUCCESS;
}

SECURITY_STATUS ProtectPrivateBlob(KSP_KEY* pKey, const BYTE* pbBlob, DWORD cbBlob, const WCHAR* pszBlobType)
{
    DATA_BLOB plain = {cbBlob, const_cast<BYTE*>(pbBlob)};
    DATA_BLOB sealed = {};
    if (!CryptProtectData(&plain, TEXT("Private Key"), nullptr, nullptr, nullptr, CRYPTPROTECT_UI_FORBIDDEN, &sealed))
        return NTE_INTERNAL_ERROR;
    const LocalPtr<BYTE> sealedOwner(sealed.pbData);
    HeapPtr<BYTE> kept = HeapCopy<BYTE>(sealed.pbData, sealed.cbData);
    if (!kept)
        return NTE_NO_MEMORY;
    BCRYPT_RSAKEY_BLOB header;
    memcpy(&header, pbBlob, sizeof(header));

    const ExclusiveLock lock(&pKey->lock);
    ReplaceBuffer(&pKey->pbPrivateKey, &pKey->cbPrivateKey, std::move(kept), sealed.cbData);
    // Set again with the blob: another thread may have checked a longer one meanwhile.
    pKey->dwBitLength = header.BitLength;
    pKey->pszPrivateBlobType =
        TextEqual(pszBlobType, BCRYPT_RSAFULLPRIVATE_BLOB) ? BCRYPT_RSAFULLPRIVATE_BLOB : BCRYPT_RSAPRIVATE_BLOB;
    return ERROR_SUCCESS;
}

SECURITY_STATUS KeepPrivateBlob(KSP_KEY* pKey, const BYTE* pbBlob, DWORD cbBlob, const WCHAR* pszBlobType)
{
    const SECURITY_STATUS status = CheckRsaBlob(pKey, pbBlob, cbBlob);
    return status == ERROR_SUCCESS ? ProtectPrivateBlob(pKey, pbBlob, cbBlob, pszBlobType) : status;
}
