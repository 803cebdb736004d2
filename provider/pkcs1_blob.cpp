#include "provider/pkcs1_blob.h"

#include <string.h>

#include "keyvault/key_algorithms.h"

namespace {

// The header of the legacy form; modulus, primes, exponents, coefficient and private exponent follow without gaps.
struct LegacyHead {
    BLOBHEADER header;
    RSAPUBKEY rsa;
};
static_assert(sizeof(LegacyHead) == 20, "the legacy form has no padding");

DWORD ExponentSize(DWORD exponent)
{
    DWORD size = sizeof(exponent);
    while (size != 0 && exponent >> 8 * (size - 1) == 0)
        size--;
    return size;
}

}  // namespace

SECURITY_STATUS RsaBlobFromPkcs1(const BYTE* der, DWORD cbDer, WipedBlock* blob)
{
    DecodedStructure<LegacyHead> legacy;
    if (!legacy.Decode(PKCS_RSA_PRIVATE_KEY, der, cbDer) || legacy.size() < sizeof(LegacyHead))
        return NTE_BAD_DATA;
    const RSAPUBKEY rsa = legacy->rsa;
    if (!LengthAllowed(kRsaLengths, rsa.bitlen))
        return NTE_NOT_SUPPORTED;
    BCRYPT_RSAKEY_BLOB header = {};
    header.Magic = BCRYPT_RSAFULLPRIVATE_MAGIC;
    header.BitLength = rsa.bitlen;
    header.cbPublicExp = ExponentSize(rsa.pubexp);
    header.cbModulus = rsa.bitlen / 8;
    // Half of an odd number of bytes is rounded up, as the platform does.
    header.cbPrime1 = (rsa.bitlen + 15) / 16;
    header.cbPrime2 = header.cbPrime1;

    const SIZE_T numbers = 2 * SIZE_T{header.cbModulus} + 5 * SIZE_T{header.cbPrime1};
    if (legacy.size() - sizeof(LegacyHead) < numbers)
        return NTE_BAD_DATA;
    if (!blob->Allocate(sizeof(header) + header.cbPublicExp + numbers))
        return NTE_NO_MEMORY;
    BYTE* at = blob->data();
    memcpy(at, &header, sizeof(header));
    at += sizeof(header);
    memcpy(at, &rsa.pubexp, header.cbPublicExp);
    at += header.cbPublicExp;
    memcpy(at, reinterpret_cast<const BYTE*>(legacy.get() + 1), numbers);
    return ERROR_SUCCESS;
}
