#include <gtest/gtest.h>
#include <openssl/x509v3.h>

#include <string>

#include "platform/linux/software_key.h"
#include "tests/platform/openssl_maker.h"
#include "tests/platform/platform_root.h"

namespace {

constexpr size_t kDecodedRoom = 1000;

struct DecodedRequest {
    alignas(8) BYTE room[kDecodedRoom];
    DWORD size = 0;
    const CERT_REQUEST_INFO& info() const { return *reinterpret_cast<const CERT_REQUEST_INFO*>(room); }

    // With `given` bytes of room.
    BOOL Read(const Der& request, DWORD given = kDecodedRoom, LPCSTR type = X509_CERT_REQUEST_TO_BE_SIGNED)
    {
        size = given;
        return CryptDecodeObject(kEncodings, type, request.data(), DWORD(request.size()), 0,
                                 given == 0 ? nullptr : room, &size);
    }
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

// The certificate, or nothing with the last error.
Der Sign(NCRYPT_KEY_HANDLE key, const CERT_INFO& info, const char* algorithm = "1.2.840.113549.1.1.11")
{
    CRYPT_ALGORITHM_IDENTIFIER outer = Algorithm(algorithm);
    const auto sign = [&](BYTE* certificate, DWORD* size) {
        return CryptSignAndEncodeCertificate(key, AT_SIGNATURE, X509_ASN_ENCODING, X509_CERT_TO_BE_SIGNED, &info,
                                             &outer, nullptr, certificate, size);
    };
    DWORD needed = 0;
    if (!sign(nullptr, &needed))
        return {};
    Der certificate(needed);
    DWORD size = needed - 1;
    EXPECT_EQ(ErrorOf(sign(certificate.data(), &size)), DWORD{ERROR_MORE_DATA});
    EXPECT_EQ(size, needed);
    EXPECT_TRUE(sign(certificate.data(), &size));
    EXPECT_EQ(size, needed);
    return certificate;
}

std::string SignatureOf(const X509* certificate)
{
    const ASN1_BIT_STRING* signature = nullptr;
    X509_get0_signature(&signature, nullptr, certificate);
    return std::string(reinterpret_cast<const char*>(ASN1_STRING_get0_data(signature)),
                       static_cast<size_t>(ASN1_STRING_length(signature)));
}

// What the key makes of the part that is signed. PKCS#1 signatures are the same each time.
std::string SignatureOver(X509* certificate, NCRYPT_KEY_HANDLE key, const char* digest)
{
    BYTE* signedPart = nullptr;
    const int size = i2d_re_X509_tbs(certificate, &signedPart);
    const std::string message(reinterpret_cast<const char*>(signedPart), static_cast<size_t>(size));
    OPENSSL_free(signedPart);
    std::string signature;
    EXPECT_EQ(SignWithSoftwareKey(key, digest, message, &signature), ERROR_SUCCESS);
    return signature;
}

}  // namespace

TEST(CertificateSigning, TheSignatureIsThatOfTheNamedAlgorithm)
{
    const SigningKey signer;
    ASSERT_EQ(signer.SetLength(1024), 0);
    ASSERT_EQ(NCryptFinalizeKey(signer.key, 0), 0);

    const Der given = MakeCertificate("web01", 7);
    const PCCERT_CONTEXT context = CertCreateCertificateContext(kEncodings, given.data(), DWORD(given.size()));
    ASSERT_NE(context, nullptr);
    CERT_INFO info = *context->pCertInfo;
    BYTE serial[] = {1, 2, 3, 4, 5, 0x86};
    info.SerialNumber = {sizeof serial, serial};
    const struct {
        const char* algorithm;
        const char* digest;
    } rows[] = {{"1.2.840.113549.1.1.5", "SHA1"},
                {"1.2.840.113549.1.1.11", "SHA256"},
                {"1.2.840.113549.1.1.12", "SHA384"},
                {"1.2.840.113549.1.1.13", "SHA512"}};
    for (const auto& row : rows) {
        info.SignatureAlgorithm = Algorithm(row.algorithm);
        const OpensslPtr<X509> copy = ParseX509(Sign(signer.key, info, row.algorithm));
        ASSERT_NE(copy, nullptr) << row.algorithm;
        EXPECT_EQ(X509_get_signature_nid(copy.get()), OBJ_txt2nid(row.algorithm));
        EXPECT_EQ(SignatureOf(copy.get()), SignatureOver(copy.get(), signer.key, row.digest)) << row.algorithm;
        EXPECT_EQ(X509_get_version(copy.get()), X509_VERSION_3);
        EXPECT_EQ(X509_get_key_usage(copy.get()), uint32_t{KU_DIGITAL_SIGNATURE | KU_KEY_ENCIPHERMENT});
        const ASN1_INTEGER* number = X509_get0_serialNumber(copy.get());
        EXPECT_EQ(HexText(ASN1_STRING_get0_data(number), static_cast<size_t>(ASN1_STRING_length(number))),
                  "79FAFBFCFDFF")
            << "the highest byte is the sign's: a negative number, by its amount";
    }
    EXPECT_EQ(ErrorOf(Sign(signer.key, info, "1.2.840.10045.4.3.2").size() != 0), DWORD(NTE_BAD_ALGID));
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
    Der request = MakeRequest(MakeRsaPublicKey(4096).get(), "a-key-name-of-forty-two-characters-exactly");
    DecodedRequest decoded;
    ASSERT_TRUE(decoded.Read(request, 0));
    EXPECT_LE(decoded.size, kDecodedRoom);
    const DWORD needed = decoded.size;
    EXPECT_EQ(ErrorOf(decoded.Read(request, needed - 1)), DWORD{ERROR_MORE_DATA});
    EXPECT_EQ(decoded.size, needed);
    ASSERT_TRUE(decoded.Read(request, needed));

    request.assign(request.size(), 0xEE);
    const CERT_REQUEST_INFO& info = decoded.info();
    EXPECT_EQ(info.dwVersion, 0u);
    EXPECT_STREQ(info.SubjectPublicKeyInfo.Algorithm.pszObjId, szOID_RSA_RSA);
    EXPECT_EQ(HexText(info.SubjectPublicKeyInfo.Algorithm.Parameters.pbData, 2), "0500");
    ASSERT_EQ(info.cAttribute, 1u);
    EXPECT_STREQ(info.rgAttribute[0].pszObjId, "1.2.840.113549.1.9.14");
    ASSERT_EQ(info.rgAttribute[0].cValue, 1u);
    EXPECT_EQ(info.rgAttribute[0].rgValue[0].pbData[0], 0x30);
}

TEST(RequestDecoding, WhatIsNoRequestIsRefused)
{
    const Der request = MakeRequest(MakeEcKey().get(), "web01");
    DecodedRequest decoded;
    for (size_t length = 0; length < request.size(); length++) {
        const Der cut(request.begin(), request.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_FALSE(decoded.Read(cut)) << length;
        EXPECT_EQ(GetLastError(), DWORD(CRYPT_E_ASN1_EOD)) << length;
        EXPECT_EQ(decoded.size, 0u);
    }
    for (size_t i = 0; i < request.size(); i++) {
        Der changed = request;
        changed[i] ^= 0x5A;
        // Whether it can be read depends on the byte; what counts is that nothing is read or written beyond the ends.
        const BOOL decodes = decoded.Read(changed);
        EXPECT_LE(decoded.size, kDecodedRoom) << i;
        EXPECT_EQ(decoded.size == 0, decodes == FALSE) << i;
    }
    EXPECT_EQ(ErrorOf(decoded.Read({'-', '-', '-', '-'})), DWORD(CRYPT_E_ASN1_BADTAG));
    EXPECT_EQ(ErrorOf(decoded.Read(request, kDecodedRoom, X509_CERT_TO_BE_SIGNED)), DWORD{ERROR_FILE_NOT_FOUND});
}
