// A PKCS#8 key from an untrusted source, read as an import reads it.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "provider/pkcs1_blob.h"
#include "provider/pkcs8_decryption.h"
#include "provider/pkcs8_scheme.h"
#include "provider/pkcs8_usage.h"
#include "provider/private_blob.h"

namespace {

// More iterations would only slow the search.
constexpr DWORD kIterations = 100;

void Require(bool holds)
{
    if (!holds)
        abort();
}

void CheckPlain(const BYTE* plain, DWORD cbPlain)
{
    DecodedStructure<CRYPT_PRIVATE_KEY_INFO> info;
    if (!info.Decode(PKCS_PRIVATE_KEY_INFO, plain, cbPlain))
        return;
    Require(info->Algorithm.pszObjId && strlen(info->Algorithm.pszObjId) > 0);
    DWORD usage = 0;
    const SECURITY_STATUS read = ReadPkcs8Usage(*info.get(), &usage);
    Require(read != ERROR_SUCCESS || usage <= 7 || usage == NCRYPT_ALLOW_ALL_USAGES);
    WipedBlock blob;
    if (RsaBlobFromPkcs1(info->PrivateKey.pbData, info->PrivateKey.cbData, &blob) != ERROR_SUCCESS)
        return;
    KSP_KEY key = {};
    Require(CheckRsaBlob(&key, blob.data(), static_cast<DWORD>(blob.size())) == ERROR_SUCCESS);
    Require(key.dwBitLength >= 2048 && key.dwBitLength <= 4096);
}

void CheckEncryption(const Pkcs8Encryption& encryption)
{
    Require(encryption.cipher && encryption.hash && encryption.salt && encryption.cbSalt <= kLongestSalt);
    Require(encryption.iterations >= 1 && encryption.iterations <= kMostIterations);
    Require(encryption.cipher->cbKey <= kLargestCipherKey && encryption.cipher->cbBlock <= kLargestCipherBlock);
}

bool Quick(const CRYPT_OBJID_BLOB& parameters)
{
    Pkcs8Encryption pbes2;
    if (DecodePbes2(parameters.pbData, parameters.cbData, &pbes2) == ERROR_SUCCESS) {
        CheckEncryption(pbes2);
        return pbes2.iterations <= kIterations;
    }
    Pkcs8Encryption pkcs12;
    if (DecodePkcs12Pbe(parameters.pbData, parameters.cbData, &pkcs12) == ERROR_SUCCESS) {
        CheckEncryption(pkcs12);
        return pkcs12.iterations <= kIterations;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const DWORD cbData = static_cast<DWORD>(size);
    CheckPlain(data, cbData);
    DecodedStructure<CRYPT_ENCRYPTED_PRIVATE_KEY_INFO> encrypted;
    if (!encrypted.Decode(PKCS_ENCRYPTED_PRIVATE_KEY_INFO, data, cbData) ||
        !Quick(encrypted->EncryptionAlgorithm.Parameters))
        return 0;
    const BYTE secret[] = {'s', 0, 'e', 0, 'c', 0, 'r', 0, 'e', 0, 't', 0};
    WipedBlock plain;
    DWORD cbPlain = 0;
    if (DecryptPkcs8Key(secret, sizeof(secret), *encrypted.get(), &plain, &cbPlain) == ERROR_SUCCESS) {
        Require(cbPlain <= plain.size());
        CheckPlain(plain.data(), cbPlain);
    }
    return 0;
}
