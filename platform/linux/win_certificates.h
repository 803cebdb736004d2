// CRYPT32's certificates, names and certificate stores for the Linux build.
#pragma once

#include "platform/linux/win_crypt.h"
#include "platform/linux/win_ncrypt.h"

using CRYPT_OBJID_BLOB = CRYPT_INTEGER_BLOB;
using CERT_NAME_BLOB = CRYPT_INTEGER_BLOB;
using CRYPT_ATTR_BLOB = CRYPT_INTEGER_BLOB;
using PCERT_NAME_BLOB = CERT_NAME_BLOB*;
using HCERTSTORE = void*;
using HCRYPTPROV_LEGACY = ULONG_PTR;

struct CRYPT_BIT_BLOB {
    DWORD cbData;
    BYTE* pbData;
    DWORD cUnusedBits;
};

// Parameters: one DER element, or empty.
struct CRYPT_ALGORITHM_IDENTIFIER {
    LPSTR pszObjId;
    CRYPT_OBJID_BLOB Parameters;
};
using PCRYPT_ALGORITHM_IDENTIFIER = CRYPT_ALGORITHM_IDENTIFIER*;

struct CERT_PUBLIC_KEY_INFO {
    CRYPT_ALGORITHM_IDENTIFIER Algorithm;
    CRYPT_BIT_BLOB PublicKey;
};

struct CERT_EXTENSION {
    LPSTR pszObjId;
    BOOL fCritical;
    CRYPT_OBJID_BLOB Value;
};
using PCERT_EXTENSION = CERT_EXTENSION*;

// SerialNumber begins with the least significant byte. Names are whole DER elements.
struct CERT_INFO {
    DWORD dwVersion;
    CRYPT_INTEGER_BLOB SerialNumber;
    CRYPT_ALGORITHM_IDENTIFIER SignatureAlgorithm;
    CERT_NAME_BLOB Issuer;
    FILETIME NotBefore;
    FILETIME NotAfter;
    CERT_NAME_BLOB Subject;
    CERT_PUBLIC_KEY_INFO SubjectPublicKeyInfo;
    CRYPT_BIT_BLOB IssuerUniqueId;
    CRYPT_BIT_BLOB SubjectUniqueId;
    DWORD cExtension;
    PCERT_EXTENSION rgExtension;
};
using PCERT_INFO = CERT_INFO*;

struct CRYPT_ATTRIBUTE {
    LPSTR pszObjId;
    DWORD cValue;
    CRYPT_ATTR_BLOB* rgValue;
};
using PCRYPT_ATTRIBUTE = CRYPT_ATTRIBUTE*;

struct CERT_REQUEST_INFO {
    DWORD dwVersion;
    CERT_NAME_BLOB Subject;
    CERT_PUBLIC_KEY_INFO SubjectPublicKeyInfo;
    DWORD cAttribute;
    PCRYPT_ATTRIBUTE rgAttribute;
};

#define szOID_RSA_RSA "1.2.840.113549.1.1.1"
#define szOID_RSA_SHA1RSA "1.2.840.113549.1.1.5"
#define szOID_RSA_SHA256RSA "1.2.840.113549.1.1.11"

// ---- decoding, encoding, signing ----

#define X509_CERT_TO_BE_SIGNED (reinterpret_cast<LPCSTR>(2))
#define X509_CERT_REQUEST_TO_BE_SIGNED (reinterpret_cast<LPCSTR>(4))

// Only X509_CERT_REQUEST_TO_BE_SIGNED: a CERT_REQUEST_INFO followed, in the same buffer, by what it points to;
// nothing points into `encoded`. The buffer must be aligned for the structure. The request may have a
// signature, which is not verified. Flags are ignored. *size: bytes; without a buffer the size needed.
// ERROR_MORE_DATA: *size is what is needed. CRYPT_E_ASN1_...: malformed. ERROR_FILE_NOT_FOUND: an unsupported
// structure.
BOOL WINAPI CryptDecodeObject(DWORD encodingType, LPCSTR structType, const BYTE* encoded, DWORD encodedSize,
                              DWORD flags, void* structure, DWORD* size);

// Only X509_CERT_TO_BE_SIGNED, a CERT_INFO without unique identifiers, and keys of the platform's own provider. The
// signature is RSA PKCS#1 with the hash of `signatureAlgorithm`; CERT_INFO's own SignatureAlgorithm is written as it is
// and has no other effect. Empty parameters become NULL. keySpec and auxiliary are ignored. *size as above.
// NTE_INVALID_HANDLE, NTE_BAD_KEY_STATE: the key; NTE_BAD_ALGID: the algorithm; E_INVALIDARG: the structure;
// ERROR_FILE_NOT_FOUND: an unsupported structure.
BOOL WINAPI CryptSignAndEncodeCertificate(HCRYPTPROV_OR_NCRYPT_KEY_HANDLE key, DWORD keySpec, DWORD encodingType,
                                          LPCSTR structType, const void* structure,
                                          PCRYPT_ALGORITHM_IDENTIFIER signatureAlgorithm, const void* auxiliary,
                                          BYTE* encoded, DWORD* size);

// ---- names ----

// Encodes a text such as `CN=web01, O="Acme, Inc."` as a name, in the order of the text. A value that begins
// with '#' is the hex form of an OCTET STRING. strType: CERT_X500_NAME_STR; texts with other characters
// than the printable ones become a BMPString, or with CERT_NAME_STR_ENABLE_UTF8_UNICODE_FLAG a UTF8String. *size as
// above. CRYPT_E_INVALID_X500_STRING and similar: *errorAt, if requested, points to the error in `text`; NULL after
// success. E_INVALIDARG: an unsupported form or flag.
BOOL WINAPI CertStrToNameA(DWORD encodingType, LPCSTR text, DWORD strType, void* reserved, BYTE* encoded, DWORD* size,
                           LPCSTR* errorAt);
BOOL WINAPI CertStrToNameW(DWORD encodingType, LPCWSTR text, DWORD strType, void* reserved, BYTE* encoded, DWORD* size,
                           LPCWSTR* errorAt);

// The text of a name, as CERT_SIMPLE_NAME_STR or CERT_X500_NAME_STR without flags. Returns a number of
// characters, terminator included: without room those needed, else those written, truncated to fit. A malformed name
// or an unsupported form gives an empty text and sets the last error.
DWORD WINAPI CertNameToStrW(DWORD encodingType, PCERT_NAME_BLOB name, DWORD strType, LPWSTR text, DWORD room);

// ---- certificate contexts ----

// pCertInfo and all that it points to live as long as the context. hCertStore is the store that it came from, or NULL.
struct CERT_CONTEXT {
    DWORD dwCertEncodingType;
    BYTE* pbCertEncoded;
    DWORD cbCertEncoded;
    PCERT_INFO pCertInfo;
    HCERTSTORE hCertStore;
};
using PCCERT_CONTEXT = const CERT_CONTEXT*;

struct CRYPT_KEY_PROV_PARAM {
    DWORD dwParam;
    BYTE* pbData;
    DWORD cbData;
    DWORD dwFlags;
};
using PCRYPT_KEY_PROV_PARAM = CRYPT_KEY_PROV_PARAM*;

struct CRYPT_KEY_PROV_INFO {
    LPWSTR pwszContainerName;
    LPWSTR pwszProvName;
    DWORD dwProvType;
    DWORD dwFlags;
    DWORD cProvParam;
    PCRYPT_KEY_PROV_PARAM rgProvParam;
    DWORD dwKeySpec;
};

// A context of one DER certificate, without a store; bytes after the certificate are ignored. NULL and
// CRYPT_E_ASN1_... if it is malformed. Freed with CertFreeCertificateContext.
PCCERT_CONTEXT WINAPI CertCreateCertificateContext(DWORD encodingType, const BYTE* encoded, DWORD size);

// Always TRUE; NULL is harmless.
BOOL WINAPI CertFreeCertificateContext(PCCERT_CONTEXT context);

// CERT_KEY_PROV_INFO_PROP_ID: a CRYPT_KEY_PROV_INFO followed by its texts. CERT_SHA1_HASH_PROP_ID: 20 bytes.
// *size as above. CRYPT_E_NOT_FOUND: the certificate has no such property.
BOOL WINAPI CertGetCertificateContextProperty(PCCERT_CONTEXT context, DWORD property, void* data, DWORD* size);

// Only CERT_KEY_PROV_INFO_PROP_ID, without parameters. Written at once if the certificate is in a store.
// E_ACCESSDENIED: the store was opened for reading.
BOOL WINAPI CertSetCertificateContextProperty(PCCERT_CONTEXT context, DWORD property, DWORD flags, const void* data);

// ---- certificate stores ----

#define CERT_STORE_PROV_SYSTEM_W (reinterpret_cast<LPCSTR>(10))

// The system store "My" of the machine or the user. A missing store is created, or is empty
// with CERT_STORE_READONLY_FLAG. NULL on failure: ERROR_FILE_NOT_FOUND for any other store and any other provider,
// E_INVALIDARG for another location or flag.
HCERTSTORE WINAPI CertOpenStore(LPCSTR provider, DWORD encodingType, HCRYPTPROV_LEGACY cryptProvider, DWORD flags,
                                const void* name);

// Contexts of the store stay valid, even with CERT_CLOSE_STORE_FORCE_FLAG. Always TRUE; NULL is harmless.
BOOL WINAPI CertCloseStore(HCERTSTORE store, DWORD flags);

// The certificate after `previous`, which is always freed, or the first one, sorted by SHA-1
// hash. Damaged files are skipped. NULL and CRYPT_E_NOT_FOUND at the end.
PCCERT_CONTEXT WINAPI CertEnumCertificatesInStore(HCERTSTORE store, PCCERT_CONTEXT previous);

// Only CERT_STORE_ADD_USE_EXISTING: if the store has the same certificate, it is kept with its properties. *context, if
// requested, is the store's certificate.
BOOL WINAPI CertAddEncodedCertificateToStore(HCERTSTORE store, DWORD encodingType, const BYTE* encoded, DWORD size,
                                             DWORD disposition, PCCERT_CONTEXT* context);

// Deletes the certificate from its store. The context is always freed.
BOOL WINAPI CertDeleteCertificateFromStore(PCCERT_CONTEXT context);
