#include "provider/pkcs8_scheme.h"

#include "provider/pkcs8_der.h"

namespace {

constexpr DWORD kCbAesBlock = 16;
constexpr Pkcs8Cipher kTripleDes = {BCRYPT_3DES_ALGORITHM, 24, 8};

// Object ids as in DER.
constexpr std::string_view kPbkdf2("\x2A\x86\x48\x86\xF7\x0D\x01\x05\x0C", 9);

struct CipherRow {
    std::string_view objectId;
    Pkcs8Cipher cipher;
};
constexpr CipherRow kCiphers[] = {
    {{"\x2A\x86\x48\x86\xF7\x0D\x03\x07", 8}, kTripleDes},
    {{"\x60\x86\x48\x01\x65\x03\x04\x01\x02", 9}, {BCRYPT_AES_ALGORITHM, 16, kCbAesBlock}},
    {{"\x60\x86\x48\x01\x65\x03\x04\x01\x16", 9}, {BCRYPT_AES_ALGORITHM, 24, kCbAesBlock}},
    {{"\x60\x86\x48\x01\x65\x03\x04\x01\x2A", 9}, {BCRYPT_AES_ALGORITHM, 32, kCbAesBlock}},
};

struct HashRow {
    std::string_view objectId;  // of the HMAC
    const WCHAR* name;
};
constexpr HashRow kHashes[] = {
    {{"\x2A\x86\x48\x86\xF7\x0D\x02\x07", 8}, BCRYPT_SHA1_ALGORITHM},
    {{"\x2A\x86\x48\x86\xF7\x0D\x02\x09", 8}, BCRYPT_SHA256_ALGORITHM},
    {{"\x2A\x86\x48\x86\xF7\x0D\x02\x0A", 8}, BCRYPT_SHA384_ALGORITHM},
    {{"\x2A\x86\x48\x86\xF7\x0D\x02\x0B", 8}, BCRYPT_SHA512_ALGORITHM},
};

// The salt and the iterations after it, in both schemes.
bool TakeSaltAndIterations(Pkcs8Der* parameters, Pkcs8Encryption* encryption)
{
    Pkcs8Der salt;
    if (!parameters->Take(kDerTagOctetString, &salt) || salt.size() > kLongestSalt)
        return false;
    encryption->salt = salt.bytes();
    encryption->cbSalt = static_cast<DWORD>(salt.size());
    return parameters->TakeNumber(&encryption->iterations) && encryption->iterations >= 1 &&
           encryption->iterations <= kMostIterations;
}

// SHA-1 if none is named.
SECURITY_STATUS TakeHash(Pkcs8Der* parameters, Pkcs8Encryption* encryption)
{
    encryption->hash = BCRYPT_SHA1_ALGORITHM;
    if (parameters->AtEnd())
        return ERROR_SUCCESS;
    Pkcs8Der algorithm;
    Pkcs8Der objectId;
    if (!parameters->Take(kDerTagSequence, &algorithm) || !algorithm.Take(kDerTagObjectId, &objectId))
        return NTE_BAD_DATA;
    for (const HashRow& row : kHashes) {
        if (objectId.view() == row.objectId) {
            encryption->hash = row.name;
            return ERROR_SUCCESS;
        }
    }
    return NTE_INTERNAL_ERROR;
}

// *cbKey: the key's size if the parameters have it, else 0.
SECURITY_STATUS TakePbkdf2(Pkcs8Der algorithm, Pkcs8Encryption* encryption, DWORD* cbKey)
{
    Pkcs8Der objectId;
    if (!algorithm.Take(kDerTagObjectId, &objectId))
        return NTE_BAD_DATA;
    if (objectId.view() != kPbkdf2)
        return NTE_INTERNAL_ERROR;
    Pkcs8Der parameters;
    if (!algorithm.Take(kDerTagSequence, &parameters) || !TakeSaltAndIterations(&parameters, encryption))
        return NTE_BAD_DATA;
    *cbKey = 0;
    if (parameters.NextTag() == kDerTagInteger && !parameters.TakeNumber(cbKey))
        return NTE_BAD_DATA;
    return TakeHash(&parameters, encryption);
}

SECURITY_STATUS TakeCipher(Pkcs8Der algorithm, Pkcs8Encryption* encryption)
{
    Pkcs8Der objectId;
    Pkcs8Der iv;
    if (!algorithm.Take(kDerTagObjectId, &objectId))
        return NTE_BAD_DATA;
    for (const CipherRow& row : kCiphers) {
        if (objectId.view() != row.objectId)
            continue;
        if (!algorithm.Take(kDerTagOctetString, &iv) || iv.size() != row.cipher.cbBlock)
            return NTE_BAD_DATA;
        encryption->cipher = &row.cipher;
        encryption->iv = iv.bytes();
        return ERROR_SUCCESS;
    }
    return NTE_INTERNAL_ERROR;
}

}  // namespace

SECURITY_STATUS DecodePbes2(const BYTE* der, DWORD cbDer, Pkcs8Encryption* encryption)
{
    Pkcs8Der outer(der, cbDer);
    Pkcs8Der parameters;
    Pkcs8Der derivation;
    Pkcs8Der cipher;
    if (!outer.Take(kDerTagSequence, &parameters) || !parameters.Take(kDerTagSequence, &derivation) ||
        !parameters.Take(kDerTagSequence, &cipher))
        return NTE_BAD_DATA;
    DWORD cbKey = 0;
    SECURITY_STATUS status = TakePbkdf2(derivation, encryption, &cbKey);
    if (status != ERROR_SUCCESS)
        return status;
    status = TakeCipher(cipher, encryption);
    if (status != ERROR_SUCCESS)
        return status;
    return cbKey == 0 || cbKey == encryption->cipher->cbKey ? ERROR_SUCCESS : NTE_BAD_DATA;
}

SECURITY_STATUS DecodePkcs12Pbe(const BYTE* der, DWORD cbDer, Pkcs8Encryption* encryption)
{
    Pkcs8Der outer(der, cbDer);
    Pkcs8Der parameters;
    if (!outer.Take(kDerTagSequence, &parameters) || !TakeSaltAndIterations(&parameters, encryption))
        return NTE_BAD_DATA;
    encryption->cipher = &kTripleDes;
    encryption->hash = BCRYPT_SHA1_ALGORITHM;
    return ERROR_SUCCESS;
}
