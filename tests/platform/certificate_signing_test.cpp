// Signing certificates with keys of the platform's own provider, and reading certificate requests.
#include "platform/linux/software_key.h"
#include "tests/platform/openssl_objects.h"
#include "tests/platform/platform_root.h"

namespace {

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

    SECURITY_STATUS SetLength(DWORD bits) const
    {
        return NCryptSetProperty(key, u"Length", reinterpret_cast<PBYTE>(&bits), sizeof(bits), 0);
    }
};

CRYPT_ALGORITHM_IDENTIFIER Algorithm(const char* objectId)
{
    return {const_cast<char*>(objectId), {0, nullptr}};
}

// The error, or 0 and the certificate.
DWORD Sign(NCRYPT_KEY_HANDLE key, const CERT_INFO& info, const char* algorithm, std::string* certificate)
{
    CRYPT_ALGORITHM_IDENTIFIER outer = Algorithm(algorithm);
    return ReadInTwoCalls(certificate, ERROR_MORE_DATA, [&](char* out, DWORD* size) {
        return CryptSignAndEncodeCertificate(key, AT_SIGNATURE, X509_ASN_ENCODING, X509_CERT_TO_BE_SIGNED, &info,
                                             &outer, nullptr, reinterpret_cast<BYTE*>(out), size);
    });
}

// What the key makes of the signed part: PKCS#1 signatures are the same each time.
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

std::string HexOf(const ASN1_STRING* text)
{
    return text ? HexText(ASN1_STRING_get0_data(text), static_cast<size_t>(ASN1_STRING_length(text))) : "none";
}

// The error, or 0 and what was decoded.
DWORD ReadRequest(const std::string& request, std::string* decoded, LPCSTR type = X509_CERT_REQUEST_TO_BE_SIGNED)
{
    return ReadInTwoCalls(decoded, ERROR_MORE_DATA, [&](char* out, DWORD* size) {
        return CryptDecodeObject(kEncodings, type, BytesOf(request), SizeOf(request), 0, out, size);
    });
}

}  // namespace

TEST(CertificateSigning, TheSignatureIsThatOfTheNamedAlgorithm)
{
    const SigningKey signer;
    ASSERT_EQ(signer.SetLength(1024), 0);
    ASSERT_EQ(NCryptFinalizeKey(signer.key, 0), 0);

    const std::string given = TestCertificate();
    const PCCERT_CONTEXT context = CertCreateCertificateContext(kEncodings, BytesOf(given), SizeOf(given));
    ASSERT_NE(context, nullptr);
    CERT_INFO info = *context->pCertInfo;
    BYTE serial[] = {1, 2, 3, 4, 5, 0x86};
    info.SerialNumber = {sizeof serial, serial};
    info.IssuerUniqueId = {2, serial, 0};
    info.SubjectUniqueId = {1, serial + 5, 1};
    std::string made;
    for (const auto& [algorithm, digest] : {std::pair("1.2.840.113549.1.1.5", "SHA1"),
                                            {"1.2.840.113549.1.1.11", "SHA256"},
                                            {"1.2.840.113549.1.1.12", "SHA384"},
                                            {"1.2.840.113549.1.1.13", "SHA512"}}) {
        info.SignatureAlgorithm = Algorithm(algorithm);
        EXPECT_EQ(Sign(signer.key, info, algorithm, &made), 0u);
        const OpensslPtr<X509> copy = ParseX509(made);
        ASSERT_NE(copy, nullptr) << algorithm;
        const ASN1_BIT_STRING* signature = nullptr;
        X509_get0_signature(&signature, nullptr, copy.get());
        EXPECT_EQ(X509_get_signature_nid(copy.get()), OBJ_txt2nid(algorithm));
        int parameters = 0;
        X509_ALGOR_get0(nullptr, &parameters, nullptr, X509_get0_tbs_sigalg(copy.get()));
        EXPECT_EQ(parameters, V_ASN1_NULL);
        EXPECT_EQ(HexOf(signature), SignatureOver(copy.get(), signer.key, digest)) << algorithm;
    }
    const OpensslPtr<X509> copy = ParseX509(made);
    EXPECT_EQ(X509_get_version(copy.get()), X509_VERSION_3);
    EXPECT_EQ(X509_get_key_usage(copy.get()), uint32_t{KU_DIGITAL_SIGNATURE | KU_KEY_ENCIPHERMENT});
    EXPECT_EQ(HexOf(X509_get0_serialNumber(copy.get())), "79FAFBFCFDFF") << "negative, and so shown by its amount";
    const ASN1_BIT_STRING* issuer = nullptr;
    const ASN1_BIT_STRING* subject = nullptr;
    X509_get0_uids(copy.get(), &issuer, &subject);
    EXPECT_EQ(HexOf(issuer) + HexOf(subject), "010286");
    const PCCERT_CONTEXT read = CertCreateCertificateContext(kEncodings, BytesOf(made), SizeOf(made));
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(HexText(read->pCertInfo->IssuerUniqueId.pbData, read->pCertInfo->IssuerUniqueId.cbData), "0102");
    EXPECT_EQ(read->pCertInfo->SubjectUniqueId.cUnusedBits, 1u);
    CertFreeCertificateContext(read);
    EXPECT_EQ(Sign(signer.key, info, "1.2.840.10045.4.3.2", &made), DWORD(NTE_BAD_ALGID));
    CertFreeCertificateContext(context);
}

TEST(CertificateSigning, KeysGoThroughTheirStates)
{
    const SigningKey signer;
    EXPECT_EQ(signer.SetLength(1000), NTE_NOT_SUPPORTED);
    EXPECT_EQ(signer.SetLength(1024), 0);
    EXPECT_EQ(NCryptFinalizeKey(signer.key, 0), 0);
    EXPECT_EQ(NCryptFinalizeKey(signer.key, 0), NTE_BAD_KEY_STATE);
    NCRYPT_KEY_HANDLE other = 1;
    EXPECT_EQ(NCryptCreatePersistedKey(signer.provider, &other, u"RSA", u"a name", 2, 0), NTE_NOT_SUPPORTED);
    EXPECT_EQ(other, 0u);
    EXPECT_EQ(NCryptOpenStorageProvider(&other, u"Another Provider", 0), NTE_BAD_KEYSET);

    // A key isn't a provider and the other way round, and neither is a kernel object.
    EXPECT_EQ(NCryptCreatePersistedKey(signer.key, &other, u"RSA", nullptr, 2, 0), NTE_INVALID_HANDLE);
    EXPECT_EQ(NCryptFinalizeKey(signer.provider, 0), NTE_INVALID_HANDLE);
    EXPECT_FALSE(CloseHandle(reinterpret_cast<HANDLE>(signer.key)));
    EXPECT_EQ(NCryptFreeObject(signer.key), 0);
    EXPECT_EQ(NCryptFreeObject(signer.key), NTE_INVALID_HANDLE);
}

TEST(RequestDecoding, TheWholeRequestLiesInTheCallersBuffer)
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
    EXPECT_EQ(ReadRequest(request, &decoded, X509_CERT_TO_BE_SIGNED), DWORD{ERROR_FILE_NOT_FOUND});
}
