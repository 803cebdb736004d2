// Published constants and structures of CNG for the Linux build.
#pragma once

#include "platform/linux/win_constants.h"

// ---- algorithms ----

#define BCRYPT_RSA_ALGORITHM u"RSA"
#define BCRYPT_SHA1_ALGORITHM u"SHA1"
#define BCRYPT_SHA256_ALGORITHM u"SHA256"
#define BCRYPT_SHA384_ALGORITHM u"SHA384"
#define BCRYPT_SHA512_ALGORITHM u"SHA512"
#define BCRYPT_ECDSA_P256_ALGORITHM u"ECDSA_P256"
#define BCRYPT_ECDSA_P384_ALGORITHM u"ECDSA_P384"
#define BCRYPT_ECDSA_P521_ALGORITHM u"ECDSA_P521"
#define BCRYPT_ECDH_P256_ALGORITHM u"ECDH_P256"
#define BCRYPT_ECDH_P384_ALGORITHM u"ECDH_P384"
#define BCRYPT_ECDH_P521_ALGORITHM u"ECDH_P521"

#define NCRYPT_RSA_ALGORITHM BCRYPT_RSA_ALGORITHM

// ---- versions, handles, buffers ----

struct BCRYPT_INTERFACE_VERSION {
    USHORT MajorVersion;
    USHORT MinorVersion;
};
// clang-format off
#define BCRYPT_MAKE_INTERFACE_VERSION(major, minor) {static_cast<USHORT>(major), static_cast<USHORT>(minor)}
// clang-format on
#define NCRYPT_KEY_STORAGE_INTERFACE_VERSION BCRYPT_MAKE_INTERFACE_VERSION(1, 0)

using NCRYPT_HANDLE = ULONG_PTR;
using NCRYPT_PROV_HANDLE = ULONG_PTR;
using NCRYPT_KEY_HANDLE = ULONG_PTR;
using NCRYPT_SECRET_HANDLE = ULONG_PTR;

struct BCryptBuffer {
    ULONG cbBuffer;
    ULONG BufferType;
    PVOID pvBuffer;
};
using PBCryptBuffer = BCryptBuffer*;

struct BCryptBufferDesc {
    ULONG ulVersion;
    ULONG cBuffers;
    PBCryptBuffer pBuffers;
};

using NCryptBuffer = BCryptBuffer;
using NCryptBufferDesc = BCryptBufferDesc;

struct NCryptAlgorithmName {
    LPWSTR pszName;
    DWORD dwClass;
    DWORD dwAlgOperations;
    DWORD dwFlags;
};

struct NCryptKeyName {
    LPWSTR pszName;
    LPWSTR pszAlgid;
    DWORD dwLegacyKeySpec;
    DWORD dwFlags;
};

// ---- padding ----

struct BCRYPT_PKCS1_PADDING_INFO {
    LPCWSTR pszAlgId;
};

struct BCRYPT_PSS_PADDING_INFO {
    LPCWSTR pszAlgId;
    ULONG cbSalt;
};

struct BCRYPT_OAEP_PADDING_INFO {
    LPCWSTR pszAlgId;
    PUCHAR pbLabel;
    ULONG cbLabel;
};

// ---- key blobs ----

#define BCRYPT_PUBLIC_KEY_BLOB u"PUBLICBLOB"
#define BCRYPT_PRIVATE_KEY_BLOB u"PRIVATEBLOB"
#define BCRYPT_RSAPUBLIC_BLOB u"RSAPUBLICBLOB"
#define BCRYPT_RSAPRIVATE_BLOB u"RSAPRIVATEBLOB"
#define BCRYPT_RSAFULLPRIVATE_BLOB u"RSAFULLPRIVATEBLOB"
#define BCRYPT_ECCPUBLIC_BLOB u"ECCPUBLICBLOB"
#define NCRYPT_PKCS7_ENVELOPE_BLOB u"PKCS7_ENVELOPE"
#define NCRYPT_PKCS8_PRIVATE_KEY_BLOB u"PKCS8_PRIVATEKEY"

struct BCRYPT_RSAKEY_BLOB {
    ULONG Magic;
    ULONG BitLength;
    ULONG cbPublicExp;
    ULONG cbModulus;
    ULONG cbPrime1;
    ULONG cbPrime2;
};

struct BCRYPT_ECCKEY_BLOB {
    ULONG dwMagic;
    ULONG cbKey;
};

// ---- properties ----

#define NCRYPT_NAME_PROPERTY u"Name"
#define NCRYPT_UNIQUE_NAME_PROPERTY u"Unique Name"
#define NCRYPT_ALGORITHM_PROPERTY u"Algorithm Name"
#define NCRYPT_ALGORITHM_GROUP_PROPERTY u"Algorithm Group"
#define NCRYPT_LENGTH_PROPERTY u"Length"
#define NCRYPT_LENGTHS_PROPERTY u"Lengths"
#define NCRYPT_BLOCK_LENGTH_PROPERTY u"Block Length"
#define NCRYPT_UI_POLICY_PROPERTY u"UI Policy"
#define NCRYPT_EXPORT_POLICY_PROPERTY u"Export Policy"
#define NCRYPT_WINDOW_HANDLE_PROPERTY u"HWND Handle"
#define NCRYPT_USE_CONTEXT_PROPERTY u"Use Context"
#define NCRYPT_IMPL_TYPE_PROPERTY u"Impl Type"
#define NCRYPT_KEY_USAGE_PROPERTY u"Key Usage"
#define NCRYPT_KEY_TYPE_PROPERTY u"Key Type"
#define NCRYPT_VERSION_PROPERTY u"Version"
#define NCRYPT_SECURITY_DESCR_SUPPORT_PROPERTY u"Security Descr Support"
#define NCRYPT_SECURITY_DESCR_PROPERTY u"Security Descr"
#define NCRYPT_MAX_NAME_LENGTH_PROPERTY u"Max Name Length"
#define NCRYPT_CERTIFICATE_PROPERTY u"SmartCardKeyCertificate"

struct NCRYPT_UI_POLICY {
    DWORD dwVersion;
    DWORD dwFlags;
    LPCWSTR pszCreationTitle;
    LPCWSTR pszFriendlyName;
    LPCWSTR pszDescription;
};

struct NCRYPT_SUPPORTED_LENGTHS {
    DWORD dwMinLength;
    DWORD dwMaxLength;
    DWORD dwIncrement;
    DWORD dwDefaultLength;
};

// ---- random bytes ----

// Fills `buffer` from the system's generator. Only with BCRYPT_USE_SYSTEM_PREFERRED_RNG and without an algorithm
// handle.
NTSTATUS WINAPI BCryptGenRandom(PVOID algorithm, PUCHAR buffer, ULONG size, ULONG flags);
