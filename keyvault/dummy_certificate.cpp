#include "keyvault/dummy_certificate.h"

#include "support/fail.h"
#include "support/guards.h"

namespace {

constexpr DWORD kSigningKeyBits = 2048;
constexpr DWORD kRequestEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
constexpr DWORD kCertificateEncoding = X509_ASN_ENCODING;
// Certificates with this subject are recognized as dummies.
constexpr char kSubject[] = "CN=Dummy Certificate Name";
constexpr DWORD kLargestRequest = 1000;  // decoded, in bytes
constexpr DWORD kLargestName = 100;      // encoded, in bytes

constexpr uint64_t kNotBefore = 0x019DB1DED53E8000;  // 1970-01-01 00:00:00 UTC
constexpr uint64_t kNotAfter = 0x02432C37F7578000;   // 2117-08-07 14:24:00 UTC

SRWLOCK signingKeyLock = SRWLOCK_INIT;    // guards the next two
NCRYPT_KEY_HANDLE dummySigningKey;        // 0 until the first use, then never released
NCRYPT_PROV_HANDLE dummySigningProvider;  // the key's provider; stays open too

// Releases a handle of the platform's provider.
class NcryptObject : private NonCopyable {
  public:
    ~NcryptObject()
    {
        if (handle)
            NCryptFreeObject(handle);
    }

    NCRYPT_HANDLE Release()
    {
        const NCRYPT_HANDLE released = handle;
        handle = 0;
        return released;
    }

    NCRYPT_HANDLE handle = 0;
};

bool Failed(SECURITY_STATUS status, const WCHAR* message)
{
    if (status == ERROR_SUCCESS)
        return false;
    LogError(message, status, LOG_ERROR_LEVEL);
    return true;
}

// The caller holds the lock. The key has no name, so it isn't stored and ends with the process.
int KVCCreateDummySigningKey()
{
    NcryptObject provider;
    if (Failed(NCryptOpenStorageProvider(&provider.handle, MS_KEY_STORAGE_PROVIDER, 0),
               TEXT("KVCCreateDummySigningKey NCryptOpenStorageProvider Failed")))
        return 0;
    NcryptObject key;
    if (Failed(NCryptCreatePersistedKey(provider.handle, &key.handle, BCRYPT_RSA_ALGORITHM, nullptr, AT_SIGNATURE, 0),
               TEXT("KVCCreateDummySigningKey NCryptCreatePersistedKey Failed")))
        return 0;
    DWORD bits = kSigningKeyBits;
    if (Failed(NCryptSetProperty(key.handle, NCRYPT_LENGTH_PROPERTY, reinterpret_cast<BYTE*>(&bits), sizeof(bits), 0),
               TEXT("KVCCreateDummySigningKey NCryptSetProperty Failed")))
        return 0;
    if (Failed(NCryptFinalizeKey(key.handle, NCRYPT_SILENT_FLAG),
               TEXT("KVCCreateDummySigningKey NCryptFinalizeKey Failed")))
        return 0;
    dummySigningKey = key.Release();
    dummySigningProvider = provider.Release();
    return 1;
}

// 0 if it can't be created; the next call tries again.
NCRYPT_KEY_HANDLE SigningKey()
{
    const ExclusiveLock lock(&signingKeyLock);
    if (!dummySigningKey && !KVCCreateDummySigningKey())
        LogError(TEXT("KVCSignDummyCert CreateDummySigningKey Failed"), DWORD{0}, LOG_ERROR_LEVEL);
    return dummySigningKey;
}

FILETIME FileTime(uint64_t ticks)
{
    FILETIME time;
    time.dwLowDateTime = static_cast<DWORD>(ticks & 0xFFFFFFFF);
    time.dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    return time;
}

// Calls the platform twice: for the size, then for the bytes.
int SignAndEncode(NCRYPT_KEY_HANDLE signingKey, const CERT_INFO& info, BYTE** dummyCert, DWORD* dummyCertSize)
{
    // Deliberately not the algorithm named in the signed part, which is SHA-1.
    char objectId[] = szOID_RSA_SHA256RSA;
    CRYPT_ALGORITHM_IDENTIFIER algorithm = {};
    algorithm.pszObjId = objectId;
    DWORD size = 0;
    if (!CryptSignAndEncodeCertificate(signingKey, AT_SIGNATURE, kCertificateEncoding, X509_CERT_TO_BE_SIGNED, &info,
                                       &algorithm, nullptr, nullptr, &size))
        return Fail(0, TEXT("KVCSignDummyCert CryptSignAndEncodeCertificate 1 Failed"), GetLastError());
    if (size == 0)
        return 1;
    MallocPtr<BYTE> certificate(static_cast<BYTE*>(calloc(1, size)));
    if (!certificate)
        return Fail(0, TEXT("KVCSignDummyCert Out of memory"));
    if (!CryptSignAndEncodeCertificate(signingKey, AT_SIGNATURE, kCertificateEncoding, X509_CERT_TO_BE_SIGNED, &info,
                                       &algorithm, nullptr, certificate.get(), &size))
        return Fail(0, TEXT("KVCSignDummyCert CryptSignAndEncodeCertificate 2 Failed"), GetLastError());
    *dummyCert = certificate.release();
    *dummyCertSize = size;
    return 1;
}

}  // namespace

int KVCSignDummyCert(const BYTE* csr, DWORD csrSize, BYTE** dummyCert, DWORD* dummyCertSize)
{
    *dummyCert = nullptr;
    *dummyCertSize = 0;
    const NCRYPT_KEY_HANDLE signingKey = SigningKey();
    if (!signingKey)
        return 0;

    alignas(CERT_REQUEST_INFO) BYTE request[kLargestRequest];
    DWORD cbRequest = sizeof(request);
    if (!CryptDecodeObject(kRequestEncoding, X509_CERT_REQUEST_TO_BE_SIGNED, csr, csrSize, 0, request, &cbRequest))
        return Fail(0, TEXT("KVCSignDummyCert CryptDecodeObject Failed"), GetLastError());
    BYTE name[kLargestName];
    DWORD cbName = sizeof(name);
    if (!CertStrToNameA(kCertificateEncoding, kSubject, CERT_X500_NAME_STR, nullptr, name, &cbName, nullptr))
        return Fail(0, TEXT("KVCSignDummyCert CertStrToNameA Failed"), GetLastError());

    char declaredObjectId[] = szOID_RSA_SHA1RSA;
    BYTE serial[] = {1, 2, 3, 4, 5, 6};
    CERT_INFO info = {};
    info.dwVersion = CERT_V1;
    info.SerialNumber = {sizeof(serial), serial};
    info.SignatureAlgorithm.pszObjId = declaredObjectId;
    info.Issuer = {cbName, name};
    info.NotBefore = FileTime(kNotBefore);
    info.NotAfter = FileTime(kNotAfter);
    info.Subject = info.Issuer;
    info.SubjectPublicKeyInfo = reinterpret_cast<const CERT_REQUEST_INFO*>(request)->SubjectPublicKeyInfo;
    return SignAndEncode(signingKey, info, dummyCert, dummyCertSize);
}
