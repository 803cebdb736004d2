// Import of PKCS#8 keys.
#include "provider/nt_status.h"
#include "provider/property_list.h"
#include "tests/provider/import_fixture.h"

namespace {

// By a name of its own: these need a platform that decodes PKCS#8.
using Pkcs8ImportTest = ImportTest;

const Bytes kRsaId = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x01};
const Bytes kPbes2Id = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x05, 0x0D};
const Bytes kNull = {5, 0};

// The private key of rsa2048, PKCS#1.
Bytes Pkcs1()
{
    const Bytes plain = ReadPkcs8("rsa2048");
    return Bytes(plain.begin() + 26, plain.end());
}

Bytes PrivateKeyInfo(const Bytes& algorithm, const Bytes& key)
{
    return Der(0x30, Bytes{2, 1, 0} + algorithm + Der(0x04, key));
}

TEST_F(Pkcs8ImportTest, PlainKeysAreKeptAsBlobs)
{
    for (const DWORD bits : {2048u, 2056u, 3072u}) {
        SCOPED_TRACE(bits);
        const Bytes der = ReadPkcs8("rsa" + std::to_string(bits));
        ASSERT_EQ("0x00000000", Hex(ImportPkcs8(der, nullptr, bits == 3072 ? kLater : 0)));
        ExpectBlobOf(der, bits);
        EXPECT_EQ(bits == 3072 ? 0u : 1u, imported()->fFinalized);
        EXPECT_EQ(bits, imported()->dwBitLength);
        EXPECT_EQ("RSAPRIVATEBLOB", Narrow(imported()->pszPrivateBlobType));
        EXPECT_EQ(1u, imported()->fMachineKey);
        EXPECT_EQ(ProviderRecord()->machineKvc, imported()->kvc);
        EXPECT_EQ(nullptr, imported()->pszKeyName);
        EXPECT_EQ(3u, imported()->dwKeyUsage);
        EXPECT_EQ(&imported()->PropertyList, imported()->PropertyList.next);
    }
    EXPECT_EQ(0u, sim.Journal().size());
}

TEST_F(Pkcs8ImportTest, EveryEncryptionThatIsServed)
{
    const std::string unicode = "p\xC3\xA4ssw\xC3\xB6rd \xE2\x82\xAC\xF0\x9D\x84\x9E";
    const struct {
        const char* file;
        std::string password;
    } rows[] = {
        {"pbes2-sha1-3des", "secret"},
        {"pbes2-sha1-aes128", "secret"},
        {"pbes2-sha256-aes256", "secret"},
        {"pbes2-sha384-aes192", "secret"},
        {"pbes2-sha512-aes256", "secret"},
        {"pkcs12-sha1-3des", "secret"},
        {"pbes2-unicode", unicode},
        {"pkcs12-unicode", unicode},
        {"pbes2-empty", ""},
        {"pkcs12-empty", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.file);
        Parameters parameters = {{46, Secret(row.password)}};
        ASSERT_EQ("0x00000000", Hex(ImportPkcs8(ReadPkcs8(row.file), &parameters)));
        ExpectBlobOf(ReadPkcs8("rsa2048"), 2048);
        Parameters wrong = {{46, Secret(row.password + "x")}};
        EXPECT_EQ(Hex(NTE_INTERNAL_ERROR), Hex(ImportPkcs8(ReadPkcs8(row.file), &wrong)));
    }
    // The password need not be terminated, and none at all is as good as an empty one where it is UTF-8.
    Parameters bare = {{46, TextBytes("secret", false)}};
    EXPECT_EQ("0x00000000", Hex(ImportPkcs8(ReadPkcs8("pbes2-sha256-aes256"), &bare)));
    EXPECT_EQ("0x00000000", Hex(ImportPkcs8(ReadPkcs8("pbes2-empty"))));
    EXPECT_EQ(Hex(NTE_INTERNAL_ERROR), Hex(ImportPkcs8(ReadPkcs8("pkcs12-empty"))));
    Parameters endless = {{46, Bytes(70000, 1)}};
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), Hex(ImportPkcs8(ReadPkcs8("pkcs12-empty"), &endless)));
    // An unencrypted key needs none.
    Parameters useless = {{46, Secret("useless")}};
    EXPECT_EQ("0x00000000", Hex(ImportPkcs8(ReadPkcs8("rsa2048"), &useless)));
}

TEST_F(Pkcs8ImportTest, KeysThatAreRefused)
{
    const Bytes plain = ReadPkcs8("rsa2048");
    const Bytes rsa = Der(0x30, Der(0x06, kRsaId) + kNull);
    Bytes threePrimes = Pkcs1();
    threePrimes[6] = 1;
    Bytes negative = Pkcs1();
    negative[11] |= 0x80;  // the modulus' zero byte in front
    const struct {
        const char* name;
        Bytes data;
        SECURITY_STATUS status;
    } rows[] = {
        {"curve", ReadPkcs8("p256"), NTE_NOT_SUPPORTED},
        {"1024 bits", ReadPkcs8("rsa1024"), NTE_NOT_SUPPORTED},
        {"cut in the middle", Bytes(plain.begin(), plain.begin() + 600), NTE_BAD_DATA},
        {"one byte short", Bytes(plain.begin(), plain.end() - 1), NTE_BAD_DATA},
        {"one byte", {0x30}, NTE_BAD_DATA},
        {"PKCS#1 alone", Pkcs1(), NTE_BAD_DATA},
        {"length beyond the data", {0x30, 0x84, 0xFF, 0xFF, 0xFF, 0xFF, 2, 1, 0}, NTE_BAD_DATA},
        {"indefinite length", {0x30, 0x80, 2, 1, 0, 0, 0}, NTE_BAD_DATA},
        {"no private key", PrivateKeyInfo(rsa, {}), NTE_BAD_KEY},
        {"another algorithm", PrivateKeyInfo(Der(0x30, Der(0x06, {0x2A, 3})), Pkcs1()), NTE_NOT_SUPPORTED},
        {"malformed key inside", PrivateKeyInfo(rsa, {0x30, 0x03, 2, 1, 0}), NTE_BAD_DATA},
        {"three primes", PrivateKeyInfo(rsa, threePrimes), NTE_BAD_DATA},
        {"negative number", PrivateKeyInfo(rsa, negative), NTE_BAD_DATA},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(Hex(row.status), Hex(ImportPkcs8(row.data)));
    }
}

// An encrypted form with parameters of the test's own; what is encrypted never decrypts.
struct EncryptedForm {
    Bytes salt = Bytes(8, 1);
    Bytes iterations = {2, 1, 1};
    Bytes keySize, prf;
    Bytes derivation = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x05, 0x0C};
    Bytes cipher = {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x01, 0x2A};
    Bytes iv = Bytes(16, 2);
    Bytes encrypted = Bytes(64, 3);

    Bytes Pbes2Parameters() const
    {
        const Bytes pbkdf2 = Der(0x30, Der(0x04, salt) + iterations + keySize + prf);
        return Der(0x30, Der(0x30, Der(0x06, derivation) + pbkdf2) + Der(0x30, Der(0x06, cipher) + Der(0x04, iv)));
    }
    Bytes Pbes2() const { return Whole(kPbes2Id, Pbes2Parameters()); }
    Bytes Pkcs12() const
    {
        return Whole({0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x0C, 0x01, 0x03},
                     Der(0x30, Der(0x04, salt) + iterations));
    }
    Bytes Whole(const Bytes& scheme, const Bytes& parameters) const
    {
        return Der(0x30, Der(0x30, Der(0x06, scheme) + parameters) + Der(0x04, encrypted));
    }
};

// One member changed.
EncryptedForm Bent(Bytes EncryptedForm::*member, const Bytes& value)
{
    EncryptedForm form;
    form.*member = value;
    return form;
}

TEST_F(Pkcs8ImportTest, HostileEncryptionParameters)
{
    using F = EncryptedForm;
    const F form;
    const Bytes parameters = form.Pbes2Parameters();
    const Bytes cut(parameters.begin() + 2, parameters.begin() + 20);
    const Bytes unknown = {0x2A, 3};
    const Bytes unknownPrf = Der(0x30, Der(0x06, unknown));
    const Bytes huge = {2, 4, 0x7F, 0xFF, 0xFF, 0xFF};
    const Bytes tenMillionAndOne = {2, 4, 0, 0x98, 0x96, 0x81};
    const struct {
        const char* name;
        Bytes data;
        SECURITY_STATUS status;
    } rows[] = {
        {"nothing wrong but the bytes", form.Pbes2(), NTE_INTERNAL_ERROR},
        {"the same with PKCS#12", form.Pkcs12(), NTE_INTERNAL_ERROR},
        {"no encrypted bytes", Bent(&F::encrypted, {}).Pbes2(), NTE_BAD_DATA},
        {"no whole blocks", Bent(&F::encrypted, Bytes(63, 3)).Pbes2(), NTE_INTERNAL_ERROR},
        {"no iterations", Bent(&F::iterations, {2, 1, 0}).Pbes2(), NTE_BAD_DATA},
        {"negative iterations", Bent(&F::iterations, {2, 1, 0xFF}).Pbes2(), NTE_BAD_DATA},
        {"empty iterations", Bent(&F::iterations, {2, 0}).Pbes2(), NTE_BAD_DATA},
        {"two thousand million", Bent(&F::iterations, huge).Pbes2(), NTE_BAD_DATA},
        {"the same with PKCS#12", Bent(&F::iterations, huge).Pkcs12(), NTE_BAD_DATA},
        {"ten million and one", Bent(&F::iterations, tenMillionAndOne).Pkcs12(), NTE_BAD_DATA},
        {"a count of five bytes", Bent(&F::iterations, {2, 5, 1, 0, 0, 0, 1}).Pbes2(), NTE_BAD_DATA},
        {"salt of 1025 bytes", Bent(&F::salt, Bytes(1025, 1)).Pbes2(), NTE_BAD_DATA},
        {"salt of 1025 bytes with PKCS#12", Bent(&F::salt, Bytes(1025, 1)).Pkcs12(), NTE_BAD_DATA},
        {"salt of 1024 bytes", Bent(&F::salt, Bytes(1024, 1)).Pkcs12(), NTE_INTERNAL_ERROR},
        {"empty salt", Bent(&F::salt, {}).Pkcs12(), NTE_INTERNAL_ERROR},
        {"key size of the cipher", Bent(&F::keySize, {2, 1, 32}).Pbes2(), NTE_INTERNAL_ERROR},
        {"another key size", Bent(&F::keySize, {2, 1, 16}).Pbes2(), NTE_BAD_DATA},
        {"unknown derivation", Bent(&F::derivation, unknown).Pbes2(), NTE_INTERNAL_ERROR},
        {"unknown cipher", Bent(&F::cipher, unknown).Pbes2(), NTE_INTERNAL_ERROR},
        {"unknown PRF", Bent(&F::prf, unknownPrf).Pbes2(), NTE_INTERNAL_ERROR},
        {"something else for the PRF", Bent(&F::prf, {4, 0}).Pbes2(), NTE_BAD_DATA},
        {"short initialization vector", Bent(&F::iv, Bytes(15, 2)).Pbes2(), NTE_BAD_DATA},
        {"no parameters", form.Whole(kPbes2Id, {}), NTE_BAD_DATA},
        {"NULL for parameters", form.Whole(kPbes2Id, kNull), NTE_BAD_DATA},
        {"parameters that end early", form.Whole(kPbes2Id, Der(0x30, cut)), NTE_BAD_DATA},
        {"unknown scheme", form.Whole(unknown, parameters), NTE_INTERNAL_ERROR},
        {"Camellia", ReadPkcs8("pbes2-camellia"), NTE_INTERNAL_ERROR},
        {"HMAC with SHA-224", ReadPkcs8("pbes2-sha224"), NTE_INTERNAL_ERROR},
        {"scrypt", ReadPkcs8("pbes2-scrypt"), NTE_INTERNAL_ERROR},
        {"PKCS#12 with two keys", ReadPkcs8("pkcs12-sha1-2des"), NTE_INTERNAL_ERROR},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Parameters secret = {{46, Secret()}};
        EXPECT_EQ(Hex(row.status), Hex(ImportPkcs8(row.data, &secret)));
    }
}

TEST_F(Pkcs8ImportTest, NoCutOfAFileGetsIn)
{
    root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", 0);
    Reattach();
    for (const char* name : {"rsa2048", "pbes2-sha256-aes256", "pkcs12-sha1-3des"}) {
        const Bytes whole = ReadPkcs8(name);
        Parameters secret = {{46, Secret()}};
        for (size_t size = 1; size < whole.size(); size += size < 150 ? 1 : 97) {
            const Bytes cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
            NCRYPT_KEY_HANDLE key = 0;
            EXPECT_EQ(Hex(NTE_BAD_DATA), Hex(ImportInto(&key, "PKCS8_PRIVATEKEY", cut, secret.list())))
                << name << " " << size;
        }
    }
}

TEST_F(Pkcs8ImportTest, ParameterListsOfPkcs8)
{
    const Bytes name = TextBytes("name");
    const std::vector<ParameterRow> rows = {
        {"a name", {{45, name}}, 0, "name"},
        {"name without its terminator", {{45, TextBytes("abc", false)}}, 0, "abc"},
        {"an object id", {{41, {'1', 0}}, {42, {1}}, {43, {1}}, {44, {1}}, {47, {1}}, {99, {1}}}, 0},
        {"name without a zero byte", {{45, {1, 1}}}, NTE_INVALID_PARAMETER},
        {"one byte for a name", {{45, {0}}}, 0, ""},
        {"object id without a zero byte", {{41, {'1'}}}, NTE_INVALID_PARAMETER},
        {"nothing in the list", {}, NTE_INVALID_PARAMETER},
        {"a name that is too long", {{45, TextBytes(std::string(130, 'n'))}}, NTE_INVALID_PARAMETER},
    };
    ImportWith(rows, "PKCS8_PRIVATEKEY", ReadPkcs8("rsa2048"), kLater);
    Parameters bent = {{45, {1, 1}}};
    bent.rows[0].cbBuffer = 0;
    EXPECT_EQ("0x00000000", Hex(ImportPkcs8(ReadPkcs8("rsa2048"), &bent)));
    bent.version = 1;
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), Hex(ImportPkcs8(ReadPkcs8("rsa2048"), &bent)));
    NCryptBufferDesc noRows = {0, 1, nullptr};
    NCRYPT_KEY_HANDLE key = 0;
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), Hex(ImportInto(&key, "PKCS8_PRIVATEKEY", ReadPkcs8("rsa2048"), &noRows)));
}

TEST_F(Pkcs8ImportTest, KeyUsageOfTheKey)
{
    const auto bits = [](const Bytes& contents) { return KeyUsageAttribute(Der(0x03, contents)); };
    const Bytes other = Attribute({0x2A, 3}, kNull);
    constexpr DWORD kNone = 99;  // no property
    const struct {
        const char* name;
        Bytes attributes;
        DWORD usage;
    } rows[] = {
        {"digital signature", bits({7, 0x80}), 2},
        {"certificate signing", bits({2, 0x04}), 2},
        {"CRL signing", bits({1, 0x02}), 2},
        {"key encipherment", bits({5, 0x20}), 1},
        {"data encipherment", bits({4, 0x10}), 1},
        {"encipher only", bits({0, 0x01}), 1},
        {"decipher only", bits({7, 0x00, 0x80}), 1},
        {"key agreement", bits({3, 0x08}), 4},
        {"all of them", bits({7, 0xFF, 0x80}), 7},
        {"non-repudiation alone", bits({6, 0x40}), 0},
        {"no bits", bits({0}), 0},
        {"behind another attribute", other + bits({7, 0x80}), 2},
        {"an attribute without value counts as none", KeyUsageAttribute({}) + bits({7, 0x80}), 2},
        {"the first one with a value", bits({7, 0x80}) + bits({5, 0x20}), 2},
        {"no usage among the attributes", other, kNone},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ASSERT_EQ("0x00000000", Hex(ImportPkcs8(WithAttributes(row.attributes))));
        EXPECT_EQ(row.usage == kNone ? 3 : row.usage, imported()->dwKeyUsage);
        KSP_PROPERTY* property = nullptr;
        const SECURITY_STATUS found = FindKeyProperty(imported(), TEXT("Key Usage"), &property);
        ASSERT_EQ(row.usage == kNone ? NTE_NOT_FOUND : 0, found);
        if (found != 0)
            continue;
        ASSERT_EQ(4u, property->cbPropertyData);
        EXPECT_EQ(row.usage, property->data()[0]);
        EXPECT_EQ(1u, property->fPersisted);
        EXPECT_EQ(1u, property->fBuildin);
    }
    EXPECT_EQ(Hex(NTE_BAD_DATA), Hex(ImportPkcs8(WithAttributes(KeyUsageAttribute(kNull)))));
    EXPECT_EQ(Hex(NTE_BAD_DATA), Hex(ImportPkcs8(WithAttributes(bits({8, 0x80})))));
}

TEST_F(Pkcs8ImportTest, ANamedKeyIsMadeByTheVault)
{
    // Nothing has signed in before.
    Parameters parameters = {{45, TextBytes("pkcs8")}, {46, Secret()}};
    const Bytes file = ReadPkcs8("pbes2-sha256-aes256");
    ASSERT_EQ("0x00000000", Hex(ImportPkcs8(file, &parameters, NCRYPT_OVERWRITE_KEY_FLAG | NCRYPT_SILENT_FLAG)));
    EXPECT_EQ(1u, imported()->fFinalized);
    ASSERT_EQ(256u, imported()->kvk.n_siz);
    // The modulus is not the imported one, and nothing of that went out.
    const Bytes plain = ReadPkcs8("rsa2048");
    const Bytes modulus(imported()->kvk.n, imported()->kvk.n + 256);
    EXPECT_EQ(plain.end(), std::search(plain.begin(), plain.end(), modulus.begin(), modulus.end()));
    ASSERT_EQ(1u, Bodies("create").size());
    EXPECT_LT(Bodies("create")[0].size(), 300u);
    EXPECT_NE(0u, OpenKey("pkcs8"));

    FreeImported();
    sim.Fault({{"path", "/keys/refused/create?"}, {"action", "status"}, {"status", 403}, {"times", 2}});
    Parameters refused = {{45, TextBytes("refused")}};
    NCRYPT_KEY_HANDLE key = 77;
    EXPECT_EQ(Hex(NTE_FAIL), Hex(ImportInto(&key, "PKCS8_PRIVATEKEY", plain, refused.list())));
    EXPECT_EQ(77u, key);
    EXPECT_TRUE(root.Logged("KelvaroImportKey Error 0x80090020", 1));
}

TEST_F(Pkcs8ImportTest, WithoutAClientANamedKeyIsRefused)
{
    const WithoutClient without(ProviderRecord());
    Parameters parameters = {{45, TextBytes("nobody")}};
    const Bytes data = ReadPkcs8("rsa2048");
    NCRYPT_KEY_HANDLE key = 77;
    EXPECT_EQ(Hex(NTE_FAIL), Hex(ImportInto(&key, "PKCS8_PRIVATEKEY", data, parameters.list())));
    EXPECT_EQ(77u, key);
    EXPECT_EQ("0x00000000", Hex(ImportPkcs8(data)));
}

TEST(ImportStatusTest, ResultsOfThePlatformsCryptography)
{
    const struct {
        DWORD result;
        SECURITY_STATUS status;
    } rows[] = {
        {0, 0},
        {0xC0000008, NTE_INVALID_HANDLE},
        {0xC000000D, NTE_INVALID_PARAMETER},
        {0xC0000017, NTE_NO_MEMORY},
        {0xC000009A, NTE_NO_MEMORY},
        {0xC0000023, NTE_BUFFER_TOO_SMALL},
        {0xC00000BB, NTE_NOT_SUPPORTED},
        {0xC000A000, NTE_BAD_SIGNATURE},
        {0xC0000001, NTE_INTERNAL_ERROR},
        {1, NTE_INTERNAL_ERROR},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Hex(row.status), Hex(StatusFromNt(static_cast<NTSTATUS>(row.result))));
}

}  // namespace
