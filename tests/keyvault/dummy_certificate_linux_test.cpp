// The placeholder certificate field by field, and what happens when a call of the platform fails.
#include "keyvault/dummy_certificate.h"

#include <atomic>
#include <thread>

#include "keyvault/key_creation.h"
#include "support/base64.h"
#include "support/guards.h"
#include "tests/keyvault/client_fixture.h"
#include "tests/platform/openssl_objects.h"

using nlohmann::json;

namespace {

// The platform's calls pass through here, on several threads at once; `failing` names the one that fails, or makes an
// empty certificate.
enum class Call { None, Open, Create, SetLength, Finalize, Name, Sign, SignAgain, SignNothing };
Call failing = Call::None;
std::atomic<int> opened{0};  // objects of the platform's provider
std::atomic<int> signings{0};

}  // namespace

#define WRAPPED(result, name, symbol, ...)                       \
    result Real##name(__VA_ARGS__) __asm__("__real_" symbol);    \
    result Wrapped##name(__VA_ARGS__) __asm__("__wrap_" symbol); \
    result Wrapped##name(__VA_ARGS__)

WRAPPED(SECURITY_STATUS, Open, "_Z25NCryptOpenStorageProviderPmPKDsj", NCRYPT_PROV_HANDLE* provider, LPCWSTR name,
        DWORD flags)
{
    if (failing == Call::Open)
        return NTE_PERM;
    ++opened;
    return RealOpen(provider, name, flags);
}
WRAPPED(SECURITY_STATUS, Create, "_Z24NCryptCreatePersistedKeymPmPKDsS1_jj", NCRYPT_PROV_HANDLE provider,
        NCRYPT_KEY_HANDLE* key, LPCWSTR algorithm, LPCWSTR name, DWORD spec, DWORD flags)
{
    if (failing == Call::Create)
        return NTE_PERM;
    ++opened;
    EXPECT_EQ("RSA", Narrow(algorithm));
    EXPECT_EQ(nullptr, name) << "a key with a name would be kept";
    return RealCreate(provider, key, algorithm, name, spec, flags);
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
WRAPPED(BOOL, Name, "_Z14CertStrToNameAjPKcjPvPhPjPS0_", DWORD encoding, LPCSTR text, DWORD type, void* reserved,
        BYTE* encoded, DWORD* size, LPCSTR* errorAt)
{
    if (failing != Call::Name)
        return RealName(encoding, text, type, reserved, encoded, size, errorAt);
    SetLastError(ERROR_MORE_DATA);
    return FALSE;
}
WRAPPED(BOOL, Sign, "_Z29CryptSignAndEncodeCertificatemjjPKcPKvP26CRYPT_ALGORITHM_IDENTIFIERS2_PhPj",
        HCRYPTPROV_OR_NCRYPT_KEY_HANDLE key, DWORD spec, DWORD encoding, LPCSTR type, const void* structure,
        PCRYPT_ALGORITHM_IDENTIFIER algorithm, const void* auxiliary, BYTE* encoded, DWORD* size)
{
    ++signings;
    if (failing == Call::SignNothing)
        return TRUE;
    if (failing != (encoded ? Call::SignAgain : Call::Sign))
        return RealSign(key, spec, encoding, type, structure, algorithm, auxiliary, encoded, size);
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
}

namespace {

class DummyCertificateTest : public VaultTest {
  protected:
    struct Outcome {
        int result = -1;
        Bytes certificate;
    };

    void TearDown() override { failing = Call::None; }

    // A request of the vault, for a new certificate of that policy.
    Bytes Request(const json& keyProperties, const std::string& subject = "CN=CertificateDummySubject")
    {
        const std::string name = "request" + std::to_string(requests_++);
        const json body = {{"policy", {{"key_props", keyProperties}, {"x509_props", {{"subject", subject}}}}}};
        EXPECT_EQ(1, KVCDoKVRESTCall(call.get(), nullptr, 1, Wide(name).c_str(), TEXT("POST"), TEXT("create"),
                                     body.dump().c_str(), kApiVersionWrite));
        const std::string text = json::parse(call->lastBody)["csr"];
        BYTE* bytes = nullptr;
        DWORD size = 0;
        EXPECT_EQ(1, KVCKelvaro_FromBase64(Wide(text).c_str(), &bytes, &size, 1));
        const MallocPtr<BYTE> block(bytes);
        return Bytes(bytes, bytes + size);
    }
    Bytes CurveRequest() { return Request({{"kty", "EC"}, {"crv", "P-256"}}); }

    static Outcome SignRequest(const Bytes& csr)
    {
        BYTE* certificate = nullptr;
        DWORD size = 77;
        Outcome outcome;
        outcome.result = KVCSignDummyCert(csr.data(), static_cast<DWORD>(csr.size()), &certificate, &size);
        const MallocPtr<BYTE> block(certificate);
        EXPECT_TRUE(certificate || size == 0);
        outcome.certificate.assign(certificate, certificate + size);
        return outcome;
    }

  private:
    int requests_ = 0;
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
TEST_F(DummyCertificateTest, AFailedStepLeavesNothingBehindAndTheNextTryWorks)
{
    const Bytes csr = CurveRequest();
    for (const Call step : {Call::Open, Call::Create, Call::SetLength, Call::Finalize}) {
        SCOPED_TRACE(static_cast<int>(step));
        failing = step;
        root.ClearLog();
        EXPECT_EQ(0, SignRequest(csr).result);
        EXPECT_EQ(1u, LinesWith("KVCCreateDummySigningKey NCrypt"));
        EXPECT_EQ(1u, LinesWith(" Failed Error 0x80090010 1"));
        EXPECT_EQ(0, opened) << "handles that are still open";
        EXPECT_EQ(0, signings);
    }

    // Two first uses at once make one key: what it signs is the same to the last byte.
    failing = Call::None;
    std::vector<Outcome> outcomes(8);
    std::vector<std::thread> threads;
    for (Outcome& outcome : outcomes)
        threads.emplace_back([&outcome, &csr] { outcome = SignRequest(csr); });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(2, opened) << "one provider and one key, which stay";
    for (const Outcome& outcome : outcomes) {
        EXPECT_EQ(1, outcome.result);
        EXPECT_FALSE(outcome.certificate.empty());
        EXPECT_EQ(outcomes[0].certificate, outcome.certificate);
    }

    for (const auto& [step, error] : {std::pair(Call::Name, "0xea"), {Call::Sign, "0x57"}, {Call::SignAgain, "0x57"}}) {
        SCOPED_TRACE(static_cast<int>(step));
        failing = step;
        root.ClearLog();
        const Outcome outcome = SignRequest(csr);
        EXPECT_TRUE(outcome.result == 0 && outcome.certificate.empty());
        EXPECT_EQ(1u, LinesWith(std::string(" Failed Error ") + error + " 1"));
    }
    failing = Call::SignNothing;
    const Outcome nothing = SignRequest(csr);
    EXPECT_TRUE(nothing.result == 1 && nothing.certificate.empty());
    failing = Call::None;
    EXPECT_EQ(outcomes[0].certificate, SignRequest(csr).certificate);
    EXPECT_EQ(2, opened);

    // Nothing to merge, then: the creation goes on with the read-back.
    failing = Call::SignNothing;
    sim.ClearJournal();
    call->certificateMode = 1;
    OwnKey key;
    EXPECT_EQ(0, KVCCreateKey(call.get(), TEXT("unsigned"), TEXT("ECDSA_P256"), 256, &key, 0));
    EXPECT_EQ(
        (Strings{"POST /certificates/unsigned/create?api-version=7.0", "GET /keys/unsigned?api-version=2016-10-01"}),
        sim.VaultRequests());
}

TEST_F(DummyCertificateTest, EveryFieldIsAsItMustBe)
{
    const Row<const char*, json> rows[] = {
        {"RSA 2048", {{"kty", "RSA"}, {"key_size", 2048}}}, {"RSA 4096", {{"kty", "RSA"}, {"key_size", 4096}}},
        {"P-256", {{"kty", "EC"}, {"crv", "P-256"}}},       {"P-384", {{"kty", "EC"}, {"crv", "P-384"}}},
        {"P-521", {{"kty", "EC"}, {"crv", "P-521"}}},
    };
    for (const auto& [title, keyProperties] : rows) {
        SCOPED_TRACE(title);
        const Bytes csr = Request(keyProperties);
        const Outcome outcome = SignRequest(csr);
        ASSERT_EQ(1, outcome.result);
        const OpensslPtr<X509> certificate = ParseX509({outcome.certificate.begin(), outcome.certificate.end()});
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

        const BYTE* at = csr.data();
        const OpensslPtr<X509_REQ> request(d2i_X509_REQ(nullptr, &at, static_cast<long>(csr.size())));
        EXPECT_EQ(1, X509_PUBKEY_eq(X509_REQ_get_X509_PUBKEY(request.get()), X509_get_X509_PUBKEY(certificate.get())));
    }
}

TEST_F(DummyCertificateTest, RequestsThatAreNone)
{
    Bytes cut = CurveRequest();
    cut.pop_back();
    std::string longSubject = "CN=x";
    for (int i = 0; i < 15; ++i)
        longSubject += ", OU=" + std::string(60, 'u');
    const std::pair<const char*, Bytes> rows[] = {
        {"nothing", {}},
        {"no DER", {1, 2, 3}},
        {"cut", cut},
        {"over a thousand bytes when decoded", Request({{"kty", "EC"}, {"crv", "P-256"}}, longSubject)},
    };
    for (const auto& [name, csr] : rows) {
        SCOPED_TRACE(name);
        root.ClearLog();
        signings = 0;
        EXPECT_EQ(0, SignRequest(csr).result);
        EXPECT_EQ(1u, LinesWith("KVCSignDummyCert CryptDecodeObject Failed Error 0x"));
        EXPECT_EQ(0, signings);
    }
}

}  // namespace
