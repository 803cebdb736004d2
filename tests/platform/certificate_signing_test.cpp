// Signing certificates with keys of the platform's own provider, and reading certificate requests.
#include "platform/linux/software_key.h"
#include "tests/platform/openssl_objects.h"
#include "tests/platform/platform_root.h"

namespace {

// The key's signature of the signed part: PKCS#1 signatures are the same each time.
std::string SignatureOver(X509* certificate, NCRYPT_KEY_HANDLE key, const char* digest)
{
    BYTE* signedPart = nullptr;
    const int size = i2d_re_X509_tbs(certificate, &signedPart);
    const std::string message(reinterpret_cast<const char*>(signedPart), static_cast<size_t>(size));
    OPENSSL_free(signedPart);
    std::string signature;
    EXPECT_EQ(SignWithSoftwareKey(key, digest, message, &signature), ERROR_SUCCESS);
    return HexText(BytesOf(signature), signature.size());
}

// The error, or 0 and what was decoded.
DWORD ReadRequest(const std::string& request, std::string* decoded)
{
    return ReadInTwoCalls(decoded, ERROR_MORE_DATA, [&](char* out, DWORD* size) {
        return CryptDecodeObject(kEncodings, X509_CERT_REQUEST_TO_BE_SIGNED, BytesOf(request), SizeOf(request), 0, out,
                                 size);
    });
}

}  // namespace

TEST(CertificateSigning, TheSignatureIsThatOfTheNamedAlgorithm)
{
    NCRYPT_PROV_HANDLE provider = 0;
    NCRYPT_KEY_HANDLE key = 0;
    DWORD bits = 1024;
    ASSERT_EQ(NCryptOpenStorageProvider(&provider, MS_KEY_STORAGE_PROVIDER, 0), 0);
    ASSERT_EQ(NCryptCreatePersistedKey(provider, &key, u"RSA", nullptr, AT_SIGNATURE, 0), 0);
    ASSERT_EQ(NCryptSetProperty(key, u"Length", reinterpret_cast<PBYTE>(&bits), sizeof(bits), 0), 0);
    ASSERT_EQ(NCryptFinalizeKey(key, 0), 0);
    const std::string given = TestCertificate();
    const PCCERT_CONTEXT context = CertCreateCertificateContext(kEncodings, BytesOf(given), SizeOf(given));
    ASSERT_NE(context, nullptr);
    CERT_INFO info = *context->pCertInfo;
    BYTE serial[] = {1, 2, 3, 4, 5, 0x86};
    info.SerialNumber = {sizeof serial, serial};
    for (const auto& [algorithm, digest] :
         {std::pair("1.2.840.113549.1.1.11", "SHA256"), {"1.2.840.113549.1.1.13", "SHA512"}}) {
        CRYPT_ALGORITHM_IDENTIFIER outer = {const_cast<char*>(algorithm), {0, nullptr}};
        info.SignatureAlgorithm = outer;
        std::string made;
        EXPECT_EQ(ReadInTwoCalls(&made, ERROR_MORE_DATA,
                                 [&](char* out, DWORD* size) {
                                     return CryptSignAndEncodeCertificate(key, AT_SIGNATURE, X509_ASN_ENCODING,
                                                                          X509_CERT_TO_BE_SIGNED, &info, &outer,
                                                                          nullptr, reinterpret_cast<BYTE*>(out), size);
                                 }),
                  0u);
        const OpensslPtr<X509> copy = ParseX509(made);
        ASSERT_NE(copy, nullptr) << algorithm;
        const ASN1_BIT_STRING* signature = nullptr;
        X509_get0_signature(&signature, nullptr, copy.get());
        EXPECT_EQ(X509_get_signature_nid(copy.get()), OBJ_txt2nid(algorithm));
        EXPECT_EQ(HexText(ASN1_STRING_get0_data(signature), static_cast<size_t>(ASN1_STRING_length(signature))),
                  SignatureOver(copy.get(), key, digest));
        EXPECT_EQ(X509_get_version(copy.get()), X509_VERSION_3);
        EXPECT_EQ(X509_get_key_usage(copy.get()), uint32_t{KU_DIGITAL_SIGNATURE | KU_KEY_ENCIPHERMENT});
        EXPECT_EQ(ASN1_INTEGER_get(X509_get0_serialNumber(copy.get())), -0x79FAFBFCFDFF);
    }
    CertFreeCertificateContext(context);
    NCryptFreeObject(key);
    NCryptFreeObject(provider);
}

TEST(CertificateSigning, OnlyTheStructureOfACertificateIsRead)
{
    struct {
        CERT_REQUEST_INFO request;
        BYTE others[sizeof(CERT_INFO)];
    } memory = {};
    memset(memory.others, 0xEE, sizeof memory.others);
    CRYPT_ALGORITHM_IDENTIFIER algorithm = {const_cast<char*>("1.2.840.113549.1.1.11"), {0, nullptr}};
    DWORD size = 0;
    EXPECT_FALSE(CryptSignAndEncodeCertificate(0, AT_SIGNATURE, X509_ASN_ENCODING, X509_CERT_REQUEST_TO_BE_SIGNED,
                                               &memory, &algorithm, nullptr, nullptr, &size));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
}

TEST(RequestDecoding, TheWholeRequestIsInTheCallersBuffer)
{
    std::string request = ReadFileText(X509File("request-rsa4096.der"));
    std::string decoded;
    ASSERT_EQ(ReadRequest(request, &decoded), 0u);
    EXPECT_LE(decoded.size(), 1000u) << "the client's buffer";
    request.assign(request.size(), '\xEE');
    const CERT_REQUEST_INFO& info = *reinterpret_cast<const CERT_REQUEST_INFO*>(decoded.data());
    EXPECT_EQ(info.dwVersion, 0u);
    EXPECT_STREQ(info.SubjectPublicKeyInfo.Algorithm.pszObjId, szOID_RSA_RSA);
    EXPECT_EQ(HexText(info.SubjectPublicKeyInfo.Algorithm.Parameters.pbData, 2), "0500");
    ASSERT_EQ(info.cAttribute, 1u);
    EXPECT_STREQ(info.rgAttribute[0].pszObjId, "1.2.840.113549.1.9.14");
    ASSERT_EQ(info.rgAttribute[0].cValue, 1u);
    EXPECT_EQ(info.rgAttribute[0].rgValue[0].pbData[0], 0x30);
}

TEST(RequestDecoding, DamagedRequestsAreRefused)
{
    const std::string request = ReadFileText(X509File("request-p256.der"));
    std::string decoded;
    for (size_t i = 0; i < request.size(); i++) {
        EXPECT_EQ(ReadRequest(request.substr(0, i), &decoded), DWORD(CRYPT_E_ASN1_EOD)) << i;
        std::string changed = request;
        changed[i] = static_cast<char>(changed[i] ^ 0x5A);
        // Whether it can be read depends on the byte; nothing may be read or written beyond the ends.
        ReadRequest(changed, &decoded);
        EXPECT_LE(decoded.size(), 1000u) << i;
    }
    EXPECT_EQ(ReadRequest("----", &decoded), DWORD(CRYPT_E_ASN1_BADTAG));
}
