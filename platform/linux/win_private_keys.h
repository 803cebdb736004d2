// CRYPT32's decoding of private keys and of enveloped messages for the Linux build.
#pragma once

#include "platform/linux/win_certificates.h"

using CRYPT_DER_BLOB = CRYPT_INTEGER_BLOB;
using ALG_ID = unsigned int;

struct CRYPT_ATTRIBUTES {
    DWORD cAttr;
    PCRYPT_ATTRIBUTE rgAttr;
};
using PCRYPT_ATTRIBUTES = CRYPT_ATTRIBUTES*;

struct CRYPT_PRIVATE_KEY_INFO {
    DWORD Version;
    CRYPT_ALGORITHM_IDENTIFIER Algorithm;
    CRYPT_DER_BLOB PrivateKey;
    PCRYPT_ATTRIBUTES pAttributes;
};

struct CRYPT_ENCRYPTED_PRIVATE_KEY_INFO {
    CRYPT_ALGORITHM_IDENTIFIER EncryptionAlgorithm;
    CRYPT_DATA_BLOB EncryptedPrivateKey;
};

// The legacy form of a key: this header, then RSAPUBKEY, then the numbers, each with its least significant byte first.
struct PUBLICKEYSTRUC {
    BYTE bType;
    BYTE bVersion;
    WORD reserved;
    ALG_ID aiKeyAlg;
};
using BLOBHEADER = PUBLICKEYSTRUC;

struct RSAPUBKEY {
    DWORD magic;
    DWORD bitlen;
    DWORD pubexp;
};

#define szOID_KEY_USAGE "2.5.29.15"

// ---- decoding ----

#define X509_BITS (reinterpret_cast<LPCSTR>(26))
#define PKCS_RSA_PRIVATE_KEY (reinterpret_cast<LPCSTR>(43))
#define PKCS_PRIVATE_KEY_INFO (reinterpret_cast<LPCSTR>(44))
#define PKCS_ENCRYPTED_PRIVATE_KEY_INFO (reinterpret_cast<LPCSTR>(45))

using PFN_CRYPT_ALLOC = LPVOID(WINAPI*)(size_t size);
using PFN_CRYPT_FREE = VOID(WINAPI*)(LPVOID block);

struct CRYPT_DECODE_PARA {
    DWORD cbSize;
    PFN_CRYPT_ALLOC pfnAlloc;
    PFN_CRYPT_FREE pfnFree;
};
using PCRYPT_DECODE_PARA = CRYPT_DECODE_PARA*;

// The four structures above, and only with both flags: *structure is one block from para->pfnAlloc, or from LocalAlloc,
// with all that the structure points to; *size is the block's. It holds copies, so wipe a private key's
// block before freeing it. CRYPT_PRIVATE_KEY_INFO's Version is always 0. PKCS_RSA_PRIVATE_KEY gives the legacy form
// with all its numbers. Bytes after the structure are ignored. CRYPT_E_ASN1_CORRUPT: malformed. CRYPT_E_BAD_ENCODE: a
// key that isn't DER or has no legacy form. ERROR_FILE_NOT_FOUND: another structure.
BOOL WINAPI CryptDecodeObjectEx(DWORD encodingType, LPCSTR structType, const BYTE* encoded, DWORD encodedSize,
                                DWORD flags, PCRYPT_DECODE_PARA para, void* structure, DWORD* size);

// ---- enveloped messages ----

// CertOpenStore of a CRYPT_DATA_BLOB with a serialized store: a read-only store in memory. Property 2 is the
// certificates' provider information.
#define CERT_STORE_PROV_SERIALIZED (reinterpret_cast<LPCSTR>(6))

struct CRYPT_DECRYPT_MESSAGE_PARA {
    DWORD cbSize;
    DWORD dwMsgAndCertEncodingType;
    DWORD cCertStore;
    HCERTSTORE* rghCertStore;
    DWORD dwFlags;
};
using PCRYPT_DECRYPT_MESSAGE_PARA = CRYPT_DECRYPT_MESSAGE_PARA*;

// Opens an enveloped message for the first certificate of the stores that is a recipient and whose provider information
// names a container with a key. *size: bytes; without a buffer the size needed. The certificate is not returned: a
// `recipient` is ERROR_NOT_SUPPORTED. CRYPT_E_NO_DECRYPT_CERT: no such certificate. NTE_BAD_KEYSET: no such container.
// NTE_BAD_ALGID: an unsupported cipher. NTE_BAD_DATA: anything else. ERROR_MORE_DATA: *size is what is needed.
BOOL WINAPI CryptDecryptMessage(PCRYPT_DECRYPT_MESSAGE_PARA para, const BYTE* encrypted, DWORD encryptedSize,
                                BYTE* decrypted, DWORD* size, PCCERT_CONTEXT* recipient);
