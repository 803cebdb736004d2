#include <gtest/gtest.h>
#include <openssl/x509v3.h>

#include <string>

#include "tests/platform/openssl_maker.h"

namespace {

constexpr DWORD kEncodings = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
constexpr size_t kDecodedRoom = 1000;

struct alignas(8) DecodedRequest {
    BYTE room[kDecodedRoom];
    const CERT_REQUEST_INFO& info() const { return *reinterpret_cast<const CERT_REQUEST_INFO*>(room); }
};

// A key of the platform's own provider, both of which are freed at the end.
struct SigningKey {
    NCRYPT_PROV_HANDLE provider = 0;
    NCRYPT_KEY_HANDLE key = 0;

    SigningKey()
    {
        EXPECT_EQ(NCryptOpenStorageProvider(&provider, MS_KEY_STORAGE_PROVIDER, 0), 0);
        EXPECT_EQ(NCryptCreatePersistedKey(provider, &key, u"RSA", nullptr, AT_SIGNATURE, 0), 0);
    }
    ~SigningKey()
    {
        NCryptFreeObject(key);
        NCryptFreeObject(provider);
    }

    SECURITY_STATUS SetLength(DWORD bits, DWORD size = 4) const
    {
        return NCryptSetProperty(key, u"Length", reinterpret_cast<PBYTE>(&bits), size, 0);
    }
};

CRYPT_ALGORITHM_IDENTIFIER Algorithm(const char* objectId)
{
    return {const_cast<char*>(objectId), {0, nullptr}};
}

FILETIME Time(unsigned long long ticks)
{
    return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

// The certificate, or nothing with the last error.
Der Sign(NCRYPT_KEY_HANDLE key, const CERT_INFO& info, const char* algorithm = "1.2.840.113549.1.1.11")
{
    CRYPT_ALGORITHM_IDENTIFIER outer = Algorithm(algorithm);
    DWORD size = 0;
    if (!CryptSignAndEncodeCertificate(key, AT_SIGNATURE, X509_ASN_ENCODING, X509_CERT_TO_BE_SIGNED, &info, &outer,
                                       nullptr, nullptr, &size))
        return {};
    Der certificate(size);
    EXPECT_TRUE(CryptSignAndEncodeCertificate(key, AT_SIGNATURE, X509_ASN_ENCODING, X509_CERT_TO_BE_SIGNED, &info,
                                              &outer, nullptr, certificate.data(), &size));
    EXPECT_EQ(size, certificate.size());
    DWORD tooSmall = size - 1;
    EXPECT_FALSE(CryptSignAndEncodeCertificate(key, AT_SIGNATURE, X509_ASN_ENCODING, X509_CERT_TO_BE_SIGNED, &info,
                                               &outer, nullptr, certificate.data(), &tooSmall));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
    EXPECT_EQ(tooSmall, size);
    return certificate;
}

std::string AlgorithmName(const X509_ALGOR* algorithm)
{
    const ASN1_OBJECT* object = nullptr;
    int parameterType = 0;
    X509_ALGOR_get0(&object, &parameterType, nullptr, algorithm);
    char text[64];
    OBJ_obj2txt(text, sizeof text, object, 1);
    return std::string(text) + (parameterType == V_ASN1_NULL ? " NULL" : "");
}

std::string TimeText(const ASN1_TIME* time)
{
    return std::string(reinterpret_cast<const char*>(ASN1_STRING_get0_data(time)),
                       static_cast<size_t>(ASN1_STRING_length(time)));
}

}  // namespace

TEST(CertificateSigning, ACertificateSaysWhatItsStructureSaid)
{
    const SigningKey signer;
    ASSERT_EQ(NCryptFinalizeKey(signer.key, NCRYPT_SILENT_FLAG), 0);
    const OpensslPtr<EVP_PKEY> subjectKey = MakeEcKey();
    const Der request = MakeRequest(subjectKey.get(), "web01");
    DecodedRequest decoded;
    DWORD size = kDecodedRoom;
    ASSERT_TRUE(CryptDecodeObject(kEncodings, X509_CERT_REQUEST_TO_BE_SIGNED, request.data(),
                                  static_cast<DWORD>(request.size()), 0, decoded.room, &size));

    BYTE name[100];
    DWORD nameSize = sizeof name;
    ASSERT_TRUE(CertStrToNameA(X509_ASN_ENCODING, "CN=Dummy Certificate Name", CERT_X500_NAME_STR, nullptr, name,
                               &nameSize, nullptr));
    BYTE serial[] = {1, 2, 3, 4, 5, 0x86};
    CERT_INFO info = {};
    info.SerialNumber = {sizeof serial, serial};
    info.SignatureAlgorithm = Algorithm("1.2.840.113549.1.1.5");
    info.Issuer = info.Subject = {nameSize, name};
    info.NotBefore = Time(0x019DB1DED53E8000);
    info.NotAfter = Time(0x02432C37F7578000);
    info.SubjectPublicKeyInfo = decoded.info().SubjectPublicKeyInfo;

    const Der der = Sign(signer.key, info);
    const OpensslPtr<X509> certificate = ParseX509(der);
    ASSERT_NE(certificate, nullptr);
    EXPECT_EQ(X509_get_version(certificate.get()), X509_VERSION_1);
    const ASN1_INTEGER* number = X509_get0_serialNumber(certificate.get());
    EXPECT_EQ(HexText(ASN1_STRING_get0_data(number), static_cast<size_t>(ASN1_STRING_length(number))), "79FAFBFCFDFF")
        << "the highest byte is the sign's: a negative number, by its amount";
    EXPECT_EQ(AlgorithmName(X509_get0_tbs_sigalg(certificate.get())), "1.2.840.113549.1.1.5 NULL");
    const X509_ALGOR* outer = nullptr;
    X509_get0_signature(nullptr, &outer, certificate.get());
    EXPECT_EQ(AlgorithmName(outer), "1.2.840.113549.1.1.11 NULL");
    EXPECT_EQ(TimeText(X509_get0_notBefore(certificate.get())), "700101000000Z");
    EXPECT_EQ(TimeText(X509_get0_notAfter(certificate.get())), "21170807142400Z");
    EXPECT_EQ(EVP_PKEY_eq(X509_get0_pubkey(certificate.get()), subjectKey.get()), 1);
    EXPECT_EQ(X509_NAME_cmp(X509_get_subject_name(certificate.get()), X509_get_issuer_name(certificate.get())), 0);
    WCHAR subject[64];
    CertNameToStrW(X509_ASN_ENCODING, &info.Subject, CERT_SIMPLE_NAME_STR, subject, 64);
    EXPECT_EQ(std::u16string(subject), u"Dummy Certificate Name");

    EXPECT_EQ(Sign(signer.key, info), der) << "one key, one signature";
}

TEST(CertificateSigning, TheSignatureIsThatOfTheNamedAlgorithm)
{
    const SigningKey signer;
    ASSERT_EQ(signer.SetLength(1024), 0);
    ASSERT_EQ(NCryptFinalizeKey(signer.key, 0), 0);
    alignas(8) BYTE room[512];
    DWORD size = sizeof room;
    CERT_PUBLIC_KEY_INFO* publicKey = reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(room);
    ASSERT_TRUE(CryptExportPublicKeyInfo(signer.key, AT_SIGNATURE, X509_ASN_ENCODING, publicKey, &size));

    const Der given = MakeCertificate("web01", 7);
    const PCCERT_CONTEXT context = CertCreateCertificateContext(kEncodings, given.data(), DWORD(given.size()));
    ASSERT_NE(context, nullptr);
    CERT_INFO info = *context->pCertInfo;
    info.SubjectPublicKeyInfo = *publicKey;
    for (const char* algorithm :
         {"1.2.840.113549.1.1.5", "1.2.840.113549.1.1.11", "1.2.840.113549.1.1.12", "1.2.840.113549.1.1.13"}) {
        info.SignatureAlgorithm = Algorithm(algorithm);
        const OpensslPtr<X509> copy = ParseX509(Sign(signer.key, info, algorithm));
        ASSERT_NE(copy, nullptr) << algorithm;
        EXPECT_EQ(X509_verify(copy.get(), X509_get0_pubkey(copy.get())), 1) << algorithm;
        EXPECT_EQ(X509_get_version(copy.get()), X509_VERSION_3);
        EXPECT_EQ(X509_get_key_usage(copy.get()), uint32_t{KU_DIGITAL_SIGNATURE | KU_KEY_ENCIPHERMENT});
        EXPECT_EQ(ASN1_INTEGER_get(X509_get0_serialNumber(copy.get())), 7);
    }
    EXPECT_EQ(Sign(signer.key, info, "1.2.840.10045.4.3.2").size(), 0u);
    EXPECT_EQ(GetLastError(), DWORD(NTE_BAD_ALGID));
    CertFreeCertificateContext(context);
}

TEST(CertificateSigning, KeysGoThroughTheirStates)
{
    SigningKey signer;
    CERT_INFO info = {};
    info.SignatureAlgorithm = info.SubjectPublicKeyInfo.Algorithm = Algorithm("1.2.840.113549.1.1.1");
    EXPECT_TRUE(Sign(signer.key, info).empty());
    EXPECT_EQ(GetLastError(), DWORD(NTE_BAD_KEY_STATE));
    EXPECT_EQ(signer.SetLength(2048, 2), NTE_INVALID_PARAMETER);
    EXPECT_EQ(signer.SetLength(1000), NTE_NOT_SUPPORTED);
    EXPECT_EQ(signer.SetLength(1024), 0);
    EXPECT_EQ(NCryptFinalizeKey(signer.key, 0), 0);
    EXPECT_EQ(NCryptFinalizeKey(signer.key, 0), NTE_BAD_KEY_STATE);
    EXPECT_EQ(signer.SetLength(2048), NTE_BAD_KEY_STATE);

    NCRYPT_KEY_HANDLE other = 1;
    EXPECT_EQ(NCryptCreatePersistedKey(signer.provider, &other, u"RSA", u"a name", 2, 0), NTE_NOT_SUPPORTED);
    EXPECT_EQ(NCryptCreatePersistedKey(signer.provider, &other, u"ECDSA_P256", nullptr, 2, 0), NTE_NOT_SUPPORTED);
    EXPECT_EQ(other, 0u);
    EXPECT_EQ(NCryptOpenStorageProvider(&other, u"Another Provider", 0), NTE_BAD_KEYSET);

    // A key is no provider and the other way round, and neither is a kernel object.
    EXPECT_EQ(NCryptCreatePersistedKey(signer.key, &other, u"RSA", nullptr, 2, 0), NTE_INVALID_HANDLE);
    EXPECT_EQ(NCryptFinalizeKey(signer.provider, 0), NTE_INVALID_HANDLE);
    EXPECT_FALSE(CloseHandle(reinterpret_cast<HANDLE>(signer.key)));
    const NCRYPT_KEY_HANDLE freed = signer.key;
    EXPECT_EQ(NCryptFreeObject(freed), 0);
    EXPECT_EQ(NCryptFreeObject(freed), NTE_INVALID_HANDLE);
    EXPECT_EQ(signer.SetLength(1024), NTE_INVALID_HANDLE);
    EXPECT_TRUE(Sign(freed, info).empty());
    EXPECT_EQ(GetLastError(), DWORD(NTE_INVALID_HANDLE));
}

TEST(RequestDecoding, TheWholeRequestLiesInTheCallersBuffer)
{
    const OpensslPtr<EVP_PKEY> key = MakeRsaPublicKey(4096);
    Der request = MakeRequest(key.get(), "a-key-name-of-forty-two-characters-exactly");
    DecodedRequest decoded;
    DWORD size = 0;
    const auto decode = [&](void* room) {
        return CryptDecodeObject(kEncodings, X509_CERT_REQUEST_TO_BE_SIGNED, request.data(), DWORD(request.size()), 0,
                                 room, &size);
    };
    ASSERT_TRUE(decode(nullptr));
    EXPECT_LE(size, kDecodedRoom);
    const DWORD needed = size;
    size = needed - 1;
    EXPECT_FALSE(decode(decoded.room));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_MORE_DATA});
    EXPECT_EQ(size, needed);
    ASSERT_TRUE(decode(decoded.room));

    request.assign(request.size(), 0xEE);
    const CERT_REQUEST_INFO& info = decoded.info();
    EXPECT_EQ(info.dwVersion, 0u);
    EXPECT_STREQ(info.SubjectPublicKeyInfo.Algorithm.pszObjId, szOID_RSA_RSA);
    EXPECT_EQ(HexText(info.SubjectPublicKeyInfo.Algorithm.Parameters.pbData, 2), "0500");
    const CRYPT_BIT_BLOB& bits = info.SubjectPublicKeyInfo.PublicKey;
    const BYTE* at = bits.pbData;
    const OpensslPtr<EVP_PKEY> read(d2i_PublicKey(EVP_PKEY_RSA, nullptr, &at, long(bits.cbData)));
    EXPECT_EQ(EVP_PKEY_eq(read.get(), key.get()), 1);
    CERT_NAME_BLOB subject = info.Subject;
    WCHAR text[64];
    CertNameToStrW(X509_ASN_ENCODING, &subject, CERT_X500_NAME_STR, text, 64);
    EXPECT_EQ(std::u16string(text), u"CN=a-key-name-of-forty-two-characters-exactly");
    ASSERT_EQ(info.cAttribute, 1u);
    EXPECT_STREQ(info.rgAttribute[0].pszObjId, "1.2.840.113549.1.9.14");
    ASSERT_EQ(info.rgAttribute[0].cValue, 1u);
    EXPECT_EQ(info.rgAttribute[0].rgValue[0].pbData[0], 0x30);
}

TEST(RequestDecoding, WhatIsNoRequestIsRefused)
{
    const OpensslPtr<EVP_PKEY> key = MakeEcKey();
    const Der request = MakeRequest(key.get(), "web01");
    DecodedRequest decoded;
    for (size_t length = 0; length < request.size(); length++) {
        const Der cut(request.begin(), request.begin() + static_cast<std::ptrdiff_t>(length));
        DWORD size = kDecodedRoom;
        EXPECT_FALSE(CryptDecodeObject(kEncodings, X509_CERT_REQUEST_TO_BE_SIGNED, cut.data(), DWORD(length), 0,
                                       decoded.room, &size))
            << length;
        EXPECT_EQ(GetLastError(), DWORD(CRYPT_E_ASN1_EOD)) << length;
        EXPECT_EQ(size, 0u);
    }
    for (size_t i = 0; i < request.size(); i++) {
        Der changed = request;
        changed[i] ^= 0x5A;
        DWORD size = kDecodedRoom;
        // Whether it can be read depends on the byte; what counts is that nothing is read or written beyond the ends.
        const BOOL decodes = CryptDecodeObject(kEncodings, X509_CERT_REQUEST_TO_BE_SIGNED, changed.data(),
                                               DWORD(changed.size()), 0, decoded.room, &size);
        EXPECT_LE(size, kDecodedRoom) << i;
        EXPECT_EQ(size == 0, decodes == FALSE) << i;
    }
    DWORD size = kDecodedRoom;
    const std::string text = "-----BEGIN CERTIFICATE REQUEST-----";
    EXPECT_FALSE(CryptDecodeObject(kEncodings, X509_CERT_REQUEST_TO_BE_SIGNED,
                                   reinterpret_cast<const BYTE*>(text.data()), DWORD(text.size()), 0, decoded.room,
                                   &size));
    EXPECT_EQ(GetLastError(), DWORD(CRYPT_E_ASN1_BADTAG));
    EXPECT_FALSE(CryptDecodeObject(kEncodings, X509_CERT_TO_BE_SIGNED, request.data(), DWORD(request.size()), 0,
                                   decoded.room, &size));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
}
