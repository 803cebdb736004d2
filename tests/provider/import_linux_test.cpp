// Imports that only the Linux build can test: enveloped keys, whose recipient's key is in one of the platform's
// containers, and encrypted keys while allocations fail.
#include <filesystem>

#include "tests/provider/envelopes.h"
#include "tests/provider/fail_each.h"
#include "tests/provider/import_fixture.h"

namespace {

namespace fs = std::filesystem;

constexpr DWORD kMachineContainer = 0x20;

class EnvelopeTest : public ImportTest {
  protected:
    // Puts a private key of tests/data/pkcs7 into a container.
    void PutContainer(const std::string& name, const std::string& file, bool machine = false)
    {
        const std::string folder = root.directory() + (machine ? "/root" : "/root/user") + "/keycontainers/";
        fs::create_directories(folder);
        fs::copy(KELVARO_TEST_DATA "/pkcs7/" + file, folder + name + ".pem", fs::copy_options::overwrite_existing);
    }
    std::string ImportEnvelope(const Bytes& envelope, const Bytes& certificates, DWORD flags = 0)
    {
        Parameters parameters = {{47, certificates}};
        return Import("PKCS7_ENVELOPE", envelope, &parameters, flags);
    }
    static Bytes Envelope(const std::string& name) { return ReadData("pkcs7/" + name + ".der"); }
    // The store with the recipient's certificate, whose key is in that container.
    static Bytes Box(const char* recipient, const char* container = "box", DWORD flags = 0, bool wide = false)
    {
        return SerializedStore(ProviderInfo(container, flags, wide) + CertificateRecord(recipient));
    }
};

TEST_F(EnvelopeTest, EveryCipherAndFormOfStore)
{
    PutContainer("box", "me.pem");
    PutContainer("box", "other.pem", true);
    const Bytes blob = ReadData("pkcs7/blob.bin");
    const Bytes second = SerializedStore(CertificateRecord("other") + StoreRecord(11, {1, 2, 3}) + ProviderInfo("box") +
                                         CertificateRecord("me"));
    const Row<const char*, Bytes, DWORD> rows[] = {
        {"des-ede3-cbc", Box("me"), 0},
        {"aes-128-cbc", Box("me"), NCRYPT_OVERWRITE_KEY_FLAG | NCRYPT_NO_KEY_VALIDATION},
        {"aes-192-cbc", Box("me", "box", 0, true), NCRYPT_SILENT_FLAG},
        {"aes-256-cbc", Box("me"), kLater},
        {"aes-256-cbc", second, 0},
        {"for-other", Box("other", "box", kMachineContainer), 0},
        {"for-other", Box("other", "box", kMachineContainer, true), 0},
    };
    for (const auto& [envelope, store, flags] : rows) {
        SCOPED_TRACE(envelope);
        ASSERT_EQ(kDone, ImportEnvelope(Envelope(envelope), store, flags));
        ExpectNameless(blob, "RSAPRIVATEBLOB", (flags & kLater) == 0, true);
    }
}

TEST_F(EnvelopeTest, ParameterLists)
{
    PutContainer("box", "me.pem");
    const Bytes envelope = Envelope("aes-256-cbc"), store = Box("me");
    ImportRows("PKCS7_ENVELOPE", envelope, 0, store);
    Parameters newer = {{47, store}}, empty = {{47, store}};
    newer.version = 1;
    empty.rows[0].pvBuffer = nullptr;
    for (Parameters* const parameters : {static_cast<Parameters*>(nullptr), &newer, &empty})
        EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), Import("PKCS7_ENVELOPE", envelope, parameters));
}

TEST_F(EnvelopeTest, RefusedEnvelopes)
{
    for (const auto& [name, file] : {std::pair("box", "me.pem"),
                                     {"other", "other.pem"},
                                     {"locked", "locked.pem"},
                                     {"damaged", "me.crt"},
                                     {"../../outside", "me.pem"}})
        PutContainer(name, file);
    const Bytes store = Box("me"), certificate = ReadData("pkcs7/me.crt"), sealed = Envelope("des-ede3-cbc");
    Bytes rc2 = sealed;
    const Bytes tripleDes = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x03, 0x07};
    std::search(rc2.begin(), rc2.end(), tripleDes.begin(), tripleDes.end())[7] = 0x02;
    const Row<const char*, Bytes, Bytes, SECURITY_STATUS> rows[] = {
        {"a blob of 1024 bits", Envelope("short"), store, NTE_BAD_KEY},
        {"no blob", Envelope("no-blob"), store, NTE_BAD_KEY},
        {"a public blob", Envelope("public"), store, NTE_BAD_KEY},
        {"for somebody else", Envelope("for-other"), store, NTE_BAD_DATA},
        {"no such container", sealed, Box("me", "missing"), NTE_BAD_DATA},
        {"a container under a password", sealed, Box("me", "locked"), NTE_BAD_DATA},
        {"a damaged container", sealed, Box("me", "damaged"), NTE_BAD_DATA},
        {"a container outside of its folder", sealed, Box("me", "../../outside"), NTE_BAD_DATA},
        {"no container of the machine", sealed, Box("me", "box", kMachineContainer), NTE_BAD_DATA},
        {"another key", sealed, Box("me", "other"), NTE_BAD_DATA},
        {"a certificate without a container", sealed, SerializedStore(CertificateRecord("me")), NTE_BAD_DATA},
        {"no certificate", sealed, SerializedStore({}), NTE_BAD_DATA},
        {"RC2", rc2, store, NTE_BAD_DATA},
        {"half an envelope", Bytes(sealed.begin(), sealed.begin() + 300), store, NTE_BAD_DATA},
        {"one byte", {0x30}, store, NTE_BAD_DATA},
        {"no store", sealed, {1, 2, 3}, NTE_INVALID_PARAMETER},
        {"a certificate alone", sealed, certificate, NTE_INVALID_PARAMETER},
        {"a damaged certificate", sealed, SerializedStore(StoreRecord(32, {0x30, 0x03, 2, 1, 1})),
         NTE_INVALID_PARAMETER},
        {"container's name without an end", sealed,
         SerializedStore(StoreRecord(2, Bytes(28, 28)) + CertificateRecord("me")), NTE_INVALID_PARAMETER},
        {"a size beyond the store", sealed, SerializedStore({32, 0, 0, 0, 1, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}),
         NTE_INVALID_PARAMETER},
    };
    for (const auto& [name, envelope, certificates, status] : rows)
        EXPECT_EQ(Hex(status), ImportEnvelope(envelope, certificates)) << name;
    SetLogLevel(0);
    for (size_t size = 1; size < store.size(); size++) {
        Parameters parameters = {{47, Bytes(store.begin(), store.begin() + static_cast<ptrdiff_t>(size))}};
        NCRYPT_KEY_HANDLE key = 0;
        ASSERT_EQ(Hex(NTE_INVALID_PARAMETER), Hex(ImportInto(&key, "PKCS7_ENVELOPE", {0x30}, parameters.list())))
            << size;
    }
}

// What the platform can't decode without memory counts as malformed.
TEST_F(EnvelopeTest, EveryAllocationOfAnImportMayFail)
{
    SetLogLevel(0);
    PutContainer("box", "me.pem");
    const Bytes secret = TextBytes("secret");
    const Row<const char*, Bytes, DWORD, Bytes> rows[] = {
        {"PKCS8_PRIVATEKEY", WithAttributes(Attribute(Der(0x03, {7, 0x80}))), 46, secret},
        {"PKCS8_PRIVATEKEY", ReadPkcs8("pbes2-sha256-aes256"), 46, secret},
        {"PKCS8_PRIVATEKEY", ReadPkcs8("pkcs12-sha1-3des"), 46, secret},
        {"PKCS7_ENVELOPE", Envelope("aes-256-cbc"), 47, Box("me")},
    };
    for (const auto& [type, data, parameter, value] : rows) {
        Parameters parameters = {{parameter, value}};
        NCRYPT_KEY_HANDLE key = 0;
        const auto import = [&, &blobType = type, &bytes = data] {
            return ImportInto(&key, blobType, bytes, parameters.list());
        };
        const auto judge = [&](SECURITY_STATUS status, size_t failAt) {
            EXPECT_TRUE(status == NTE_NO_MEMORY || status == NTE_BAD_DATA || status == NTE_INTERNAL_ERROR ||
                        status == NTE_INVALID_PARAMETER)
                << failAt << " " << Hex(status);
            EXPECT_EQ(0u, key);
        };
        for (const bool allAfter : {false, true}) {
            EXPECT_GT(FailEach(import, judge, allAfter), 4u);
            EXPECT_EQ(0, table->FreeKey(provider, std::exchange(key, 0)));
        }
    }
}

}  // namespace
