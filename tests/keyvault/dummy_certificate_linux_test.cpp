// The placeholder certificate field by field, and platform calls that fail.
#include "keyvault/dummy_certificate.h"

#include <atomic>
#include <fstream>
#include <thread>

#include "keyvault/key_creation.h"
#include "support/guards.h"
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

// The algorithm's identifier and its parameters, if they are NULL.
std::string AlgorithmText(const X509_ALGOR* algorithm)
{
    const ASN1_OBJECT* object = nullptr;
    int parameterType = 0;
    X509_ALGOR_get0(&object, &parameterType, nullptr, algorithm);
    char text[64] = {};
    OBJ_obj2txt(text, sizeof(text), object, 1);
    return std::string(text) + (parameterType == V_ASN1_NULL ? " NULL" : "");
}

std::string TimeText(const ASN1_TIME* time)
{
    return std::string(reinterpret_cast<const char*>(ASN1_STRING_get0_data(time)),
                       static_cast<size_t>(ASN1_STRING_length(time)));
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

    // Several first uses at once make one key: what it signs is the same to the last byte.
    failing = Call::None;
    std::vector<Bytes> certificates(8);
    std::vector<std::thread> threads;
    for (Bytes& certificate : certificates)
        threads.emplace_back([&certificate, &csr] { certificate = SignRequest(csr); });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(2, opened) << "one provider and one key, which stay open";
    EXPECT_NE(Bytes{}, certificates[0]);
    EXPECT_EQ(std::vector<Bytes>(8, certificates[0]), certificates);

    for (const Call step : {Call::Sign, Call::SignAgain}) {
        SCOPED_TRACE(static_cast<int>(step));
        failing = step;
        EXPECT_EQ(Bytes{}, SignRequest(csr));
    }
    // With an empty certificate nothing is merged: the creation goes on with the read-back.
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

        EXPECT_EQ(0, X509_get_version(certificate.get()));
        const ASN1_INTEGER* serial = X509_get0_serialNumber(certificate.get());
        EXPECT_EQ((Bytes{6, 5, 4, 3, 2, 1}), Bytes(serial->data, serial->data + serial->length));
        EXPECT_EQ("1.2.840.113549.1.1.5 NULL", AlgorithmText(X509_get0_tbs_sigalg(certificate.get())));
        const X509_ALGOR* label = nullptr;
        const ASN1_BIT_STRING* signature = nullptr;
        X509_get0_signature(&signature, &label, certificate.get());
        EXPECT_EQ("1.2.840.113549.1.1.11 NULL", AlgorithmText(label));
        EXPECT_EQ(256, ASN1_STRING_length(signature));
        char name[100];
        EXPECT_STREQ("/CN=Dummy Certificate Name",
                     X509_NAME_oneline(X509_get_subject_name(certificate.get()), name, sizeof(name)));
        EXPECT_EQ(0, X509_NAME_cmp(X509_get_subject_name(certificate.get()), X509_get_issuer_name(certificate.get())));
        EXPECT_EQ("700101000000Z", TimeText(X509_get0_notBefore(certificate.get())));
        EXPECT_EQ("21170807142400Z", TimeText(X509_get0_notAfter(certificate.get())));
        EXPECT_EQ(0, X509_get_ext_count(certificate.get()));

        const auto* at = reinterpret_cast<const BYTE*>(csr.data());
        const OpensslPtr<X509_REQ> request(d2i_X509_REQ(nullptr, &at, static_cast<long>(csr.size())));
        EXPECT_EQ(1, X509_PUBKEY_eq(X509_REQ_get_X509_PUBKEY(request.get()), X509_get_X509_PUBKEY(certificate.get())));
    }
}

TEST_F(DummyCertificateTest, RequestsThatCannotBeDecoded)
{
    const std::string csr = Request("p256");
    // A long subject makes it larger than the buffer.
    const auto* at = reinterpret_cast<const BYTE*>(csr.data());
    const OpensslPtr<X509_REQ> request(d2i_X509_REQ(nullptr, &at, static_cast<long>(csr.size())));
    X509_NAME* const name = X509_NAME_dup(X509_REQ_get_subject_name(request.get()));
    const std::string unit(60, 'u');
    for (int i = 0; i < 15; ++i)
        X509_NAME_add_entry_by_txt(name, "OU", MBSTRING_ASC, reinterpret_cast<const BYTE*>(unit.c_str()), -1, -1, 0);
    X509_REQ_set_subject_name(request.get(), name);
    X509_NAME_free(name);
    BYTE* encoded = nullptr;
    const int size = i2d_X509_REQ(request.get(), &encoded);
    const std::string large(encoded, encoded + size);
    OPENSSL_free(encoded);
    signings = 0;
    for (const std::string& bad : {std::string(), std::string("text"), csr.substr(0, csr.size() - 1), large}) {
        EXPECT_EQ(Bytes{}, SignRequest(bad)) << bad.size() << " bytes";
        EXPECT_EQ(0, signings);
    }
}

}  // namespace
