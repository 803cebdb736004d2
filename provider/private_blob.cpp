#include <string.h>

#include <utility>

#include "provider/kept_buffer.h"
#include "provider/key_object.h"
#include "support/text.h"

// What the parts of a blob need, the header not counted.
static uint64_t PartsSize(const BCRYPT_RSAKEY_BLOB& header)
{
    const uint64_t modulus = header.cbModulus;
    const uint64_t prime1 = header.cbPrime1;
    const uint64_t prime2 = header.cbPrime2;
    uint64_t size = modulus + prime1 + prime2 + header.cbPublicExp;
    if (header.Magic == BCRYPT_RSAFULLPRIVATE_MAGIC)
        size += 2 * prime1 + prime2 + modulus;
    return size;
}

SECURITY_STATUS CheckRsaBlob(KSP_KEY* pKey, const BYTE* pbBlob, DWORD cbBlob)
{
    BCRYPT_RSAKEY_BLOB header;
    if (cbBlob < sizeof(header))
        return NTE_BAD_KEY;
    memcpy(&header, pbBlob, sizeof(header));
    if (header.Magic != BCRYPT_RSAPRIVATE_MAGIC && header.Magic != BCRYPT_RSAFULLPRIVATE_MAGIC)
        return NTE_BAD_KEY;
    if (header.BitLength < 2048 || header.BitLength > 4096 || header.BitLength % 8 != 0)
        return NTE_BAD_KEY;
    // The sum in 64 bits is over cbBlob in every case in which one of 32 bits would have wrapped.
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
    HeapPtr<BYTE> kept(static_cast<BYTE*>(HeapAlloc(GetProcessHeap(), 0, sealed.cbData)));
    if (!kept)
        return NTE_NO_MEMORY;
    memcpy(kept.get(), sealed.pbData, sealed.cbData);
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
