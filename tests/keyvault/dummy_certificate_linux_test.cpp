// The placeholder certificate field by field, and platform calls that fail.
#include "keyvault/dummy_certificate.h"

#include <atomic>
#include <fstream>

#include "keyvault/key_creation.h"
#include "support/guards.h"
#include "tests/common/threads.h"
#include "tests/keyvault/client_fixture.h"
#include "tests/platform/openssl_objects.h"

namespace {

// The platform call that fails. SignNothing: signing succeeds, and the certificate is empty.
enum class Call { None, Open, Create, SetLength, Finalize, Sign, SignAgain, SignNothing };
Call failing = Call::None;
std::atomic<int> opened{0};  // objects of the platform's provider
std::atomic<int> signings{0};

}  // namespace

// The platform's calls pass through here, on several threads at once.
#define WRAPPED(result, name, symbol, ...)                       \
    result Real##name(__VA_ARGS__) __asm__("__real_" symbol);    \
    result Wrapped##name(__VA_ARGS__) __asm__("__wrap_" symbol); \
    result Wrapped##name(__VA_ARGS__)

WRAPPED(SECURITY_STATUS, Open, "_Z25NCryptOpenStorageProviderPmPKDsj", NCRYPT_PROV_HANDLE* provider, LPCWSTR name,
        DWORD flags)
{
    return failing == Call::Open ? NTE_PERM : (++opened, RealOpen(provider, name, flags));
}
WRAPPED(SECURITY_STATUS, Create, "_Z24NCryptCreatePersistedKeymPmPKDsS1_jj", NCRYPT_PROV_HANDLE provider,
        NCRYPT_KEY_HANDLE* key, LPCWSTR algorithm, LPCWSTR name, DWORD spec, DWORD flags)
{
    EXPECT_EQ(nullptr, name) << "a key with a name would be stored";
    return failing == Call::Create ? NTE_PERM : (++opened, RealCreate(provider, key, algorithm, name, spec, flags));
}
WRAPPED(SECURITY_STATUS, SetProperty, "_Z17NCryptSetPropertymPKDsPhjj", NCRYPT_HANDLE object, LPCWSTR property,
        PBYTE input, DWORD size, DWORD flags)
{
    return failing == Call::SetLength ? NTE_PERM : RealSetProperty(object, property, input, size, flags);
}
WRAPPED(SECURITY_STATUS, Finalize, "_Z17NCryptFinalizeKeymj", NCRYPT_KEY_HANDLE key, DWORD flags)
{
    return failing == Call::Finalize ? NTE_PERM : RealFinalize(key, flags);
}
WRAPPED(SECURITY_STATUS, FreeObject, "_Z16NCryptFreeObjectm", NCRYPT_HANDLE object)
{
    --opened;
    return RealFreeObject(object);
}
WRAPPED(BOOL, Sign, "_Z29CryptSignAndEncodeCertificatemjjPKcPKvP26CRYPT_ALGORITHM_IDENTIFIERS2_PhPj",
        HCRYPTPROV_OR_NCRYPT_KEY_HANDLE key, DWORD spec, DWORD encoding, LPCSTR type, const void* structure,
        PCRYPT_ALGORITHM_IDENTIFIER algorithm, const void* auxiliary, BYTE* encoded, DWORD* size)
{
    ++signings;
    if (failing == Call::SignNothing || failing == (encoded ? Call::SignAgain : Call::Sign))
        return failing == Call::SignNothing;
    return RealSign(key, spec, encoding, type, structure, algorithm, auxiliary, encoded, size);
}

namespace {

class DummyCertificateTest : public VaultTest {
  protected:
    void TearDown() override { failing = Call::None; }

    // The certificate, empty if there is none.
    static Bytes SignRequest(const std::string& csr)
    {
        BYTE* certificate = nullptr;
        DWORD size = 77;
        const int result = KVCSignDummyCert(reinterpret_cast<const BYTE*>(csr.data()), static_cast<DWORD>(csr.size()),
                                            &certificate, &size);
        const MallocPtr<BYTE> block(certificate);
        EXPECT_EQ(result == 1, certificate != nullptr);
        EXPECT_EQ(certificate != nullptr, size != 0);
        return Bytes(certificate, certificate + size);
    }
    // A file of tests/data/x509.
    static std::string Request(const std::string& key)
    {
        std::ifstream file(KELVARO_TEST_DATA "/x509/request-" + key + ".der", std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }
};

std::string Printed(X509* certificate)
{
    const std::unique_ptr<BIO, int (*)(BIO*)> bio(BIO_new(BIO_s_mem()), BIO_free);
    X509_print(bio.get(), certificate);
    char* text = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &text);
    return std::string(text, static_cast<size_t>(size));
}

// Runs first: it is the first use of the signing key in this process.
TEST_F(DummyCertificateTest, AFailedStepLeavesNothingOpenAndTheNextTryWorks)
{
    const std::string csr = Request("p256");
    for (const Call step : {Call::Open, Call::Create, Call::SetLength, Call::Finalize}) {
        SCOPED_TRACE(static_cast<int>(step));
        failing = step;
        EXPECT_EQ(Bytes{}, SignRequest(csr));
        EXPECT_EQ(0, opened);
        EXPECT_EQ(0, signings);
    }

    // Concurrent first uses create one key, so what they sign is identical.
    failing = Call::None;
    std::vector<Bytes> certificates(8);
    OnThreads(8, [&](int i) { certificates[static_cast<size_t>(i)] = SignRequest(csr); });
    EXPECT_EQ(2, opened) << "one provider and one key, which stay open";
    EXPECT_NE(Bytes{}, certificates[0]);
    EXPECT_EQ(std::vector<Bytes>(8, certificates[0]), certificates);

    for (const Call step : {Call::Sign, Call::SignAgain}) {
        SCOPED_TRACE(static_cast<int>(step));
        failing = step;
        EXPECT_EQ(Bytes{}, SignRequest(csr));
    }
    // With an empty certificate nothing is merged: the creation continues with the read-back.
    failing = Call::SignNothing;
    sim.ClearJournal();
    call->certificateMode = 1;
    OwnKey key;
    EXPECT_EQ(0, KVCCreateKey(call.get(), TEXT("unsigned"), TEXT("ECDSA_P256"), 256, &key, 0));
    EXPECT_EQ(
        (Strings{"POST /certificates/unsigned/create?api-version=7.0", "GET /keys/unsigned?api-version=2016-10-01"}),
        sim.VaultRequests());
}

TEST_F(DummyCertificateTest, EachField)
{
    for (const std::string& csr : {Request("rsa4096"), Request("p256")}) {
        const Bytes der = SignRequest(csr);
        const OpensslPtr<X509> certificate = ParseX509({der.begin(), der.end()});
        ASSERT_TRUE(certificate);

        const std::string printed = Printed(certificate.get());
        size_t at = 0;
        for (const char* part :
             {"Version: 1 (0x0)", "Serial Number: 6618611909121 (0x60504030201)",
              "Signature Algorithm: sha1WithRSAEncryption", "Issuer: CN=Dummy Certificate Name",
              "Not Before: Jan  1 00:00:00 1970 GMT", "Not After : Aug  7 14:24:00 2117 GMT",
              "Subject: CN=Dummy Certificate Name", "Signature Algorithm: sha256WithRSAEncryption"}) {
            at = printed.find(part, at);
            EXPECT_NE(std::string::npos, at) << part << " isn't in its place in\n" << printed;
        }
        EXPECT_EQ(0, X509_get_ext_count(certificate.get()));
        const ASN1_BIT_STRING* signature = nullptr;
        X509_get0_signature(&signature, nullptr, certificate.get());
        EXPECT_EQ(256, ASN1_STRING_length(signature));

        const auto* bytes = reinterpret_cast<const BYTE*>(csr.data());
        const OpensslPtr<X509_REQ> request(d2i_X509_REQ(nullptr, &bytes, static_cast<long>(csr.size())));
        EXPECT_EQ(1, X509_PUBKEY_eq(X509_REQ_get_X509_PUBKEY(request.get()), X509_get_X509_PUBKEY(certificate.get())));
    }
}

TEST_F(DummyCertificateTest, RequestsThatCannotBeDecoded)
{
    const std::string csr = Request("p256");
    signings = 0;
    for (const std::string& bad : {std::string(), std::string("text"), csr.substr(0, csr.size() - 1)}) {
        EXPECT_EQ(Bytes{}, SignRequest(bad)) << bad.size() << " bytes";
        EXPECT_EQ(0, signings);
    }
}

}  // namespace
