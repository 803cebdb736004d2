// Import of CNG's blobs and of PKCS#8 keys.
#include <algorithm>

#include "provider/nt_status.h"
#include "provider/property_list.h"
#include "tests/provider/import_fixture.h"

namespace {

TEST_F(ImportTest, BlobsByTypeLengthAndFlag)
{
    const Bytes good = RsaBlob(2048), small = RsaBlob(1024);
    const Row<const char*, Bytes, DWORD, SECURITY_STATUS, const char*> rows[] = {
        // A public key is never imported.
        {"PUBLICBLOB", Bytes(3), 0, NTE_INVALID_PARAMETER, nullptr},
        {"PUBLICBLOB", Bytes(4), 0, NTE_INTERNAL_ERROR, nullptr},
        {"PUBLICBLOB", Bytes(300), NCRYPT_SILENT_FLAG | NCRYPT_NO_KEY_VALIDATION, NTE_INTERNAL_ERROR, nullptr},
        {"PUBLICBLOB", Bytes(4), NCRYPT_OVERWRITE_KEY_FLAG, NTE_BAD_FLAGS, nullptr},
        {"PUBLICBLOB", Bytes(4), kLater, NTE_BAD_FLAGS, nullptr},
        {"PUBLICBLOB", Bytes(3), kLater, NTE_INVALID_PARAMETER, nullptr},
        {"RSAPUBLICBLOB", Bytes(1), 0, NTE_INTERNAL_ERROR, nullptr},
        {"RSAPUBLICBLOB", Bytes(1), NCRYPT_OVERWRITE_KEY_FLAG, NTE_BAD_FLAGS, nullptr},
        // A private key is, if the host finalizes it. The type gives it its name, not the magic.
        {"RSAPRIVATEBLOB", good, kLater, 0, "RSAPRIVATEBLOB"},
        {"RSAFULLPRIVATEBLOB", RsaBlob(4096, 0x33415352), kLater, 0, "RSAFULLPRIVATEBLOB"},
        {"PRIVATEBLOB", RsaBlob(3072, 0x33415352), kLater, 0, "RSAPRIVATEBLOB"},
        {"RSAFULLPRIVATEBLOB", good, kLater, 0, "RSAFULLPRIVATEBLOB"},
        {"RSAPRIVATEBLOB", good, 0, NTE_INTERNAL_ERROR, nullptr},
        {"RSAPRIVATEBLOB", small, kLater, NTE_NOT_SUPPORTED, nullptr},
        {"RSAPRIVATEBLOB", small, 0, NTE_NOT_SUPPORTED, nullptr},
        {"RSAPRIVATEBLOB", RsaBlob(2048, 0x31415352), kLater, NTE_NOT_SUPPORTED, nullptr},
        {"RSAPRIVATEBLOB", Bytes(1), kLater, NTE_NOT_SUPPORTED, nullptr},
        {"PRIVATEBLOB", Bytes(3), kLater, NTE_INVALID_PARAMETER, nullptr},
        {"PRIVATEBLOB", Bytes(4), kLater, NTE_NOT_SUPPORTED, nullptr},
    };
    for (const auto& [type, data, flags, status, kept] : rows) {
        SCOPED_TRACE(testing::Message() << type << " " << data.size() << " " << flags);
        ASSERT_EQ(Hex(status), Import(type, data, nullptr, flags));
        if (kept)
            ExpectNameless(data, kept, false, false);
    }
}

TEST_F(ImportTest, NamesOfPrivateBlobs)
{
    const Bytes name = TextBytes("first");
    const std::string longest(129, 'n');
    const std::vector<ParameterRow> rows = {
        {"one name", {{45, name}}, 0, "first"},
        {"the last of several", {{45, name}, {41, {1}}, {45, TextBytes("last")}, {99, {1}}}, 0, "last"},
        {"a single byte is ignored", {{45, {0}}}, 0},
        {"an empty name", {{45, {0, 0}}}, 0, ""},
        {"terminator not counted", {{45, TextBytes("abc", false)}}, 0, "abc"},
        {"text behind the terminator", {{45, TextBytes("a") + name}}, 0, "a"},
        {"no zero byte", {{45, {1, 1, 1, 1}}}, NTE_INVALID_PARAMETER},
        {"a bad one before a good one", {{45, {1, 1}}, {45, name}}, NTE_INVALID_PARAMETER},
        {"longest", {{45, TextBytes(longest)}}, 0, longest},
        {"too long", {{45, TextBytes(longest + "n")}}, NTE_INVALID_PARAMETER},
    };
    ImportWith(rows, "RSAPRIVATEBLOB", RsaBlob(2048), kLater, 9);
    Parameters changed = {{45, name}};
    changed.rows[0].pvBuffer = nullptr;
    ASSERT_EQ(kDone, Import("RSAPRIVATEBLOB", RsaBlob(2048), &changed, kLater));
    EXPECT_EQ(nullptr, imported()->pszKeyName);
    changed.rows[0] = {0x80000000, 45, changed.rows.data()};
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), Import("RSAPRIVATEBLOB", RsaBlob(2048), &changed, kLater));
}

// The vault makes a new key with the length of the imported one.
TEST_F(ImportTest, ANamedBlobBecomesAVaultKeyWhenItIsFinalized)
{
    Parameters parameters = {{45, TextBytes("fresh")}};
    ASSERT_EQ(kDone, Import("RSAFULLPRIVATEBLOB", RsaBlob(3072, 0x33415352), &parameters, kLater));
    EXPECT_EQ(0u, sim.Journal().size());
    Answer("/create?", 403, "", 2);
    EXPECT_EQ(Hex(NTE_FAIL), Hex(Finalize(imported_)));
    EXPECT_EQ("3072", Bodies("create").at(0)["key_size"]);
}

// These need a platform that decodes PKCS#8.
class Pkcs8ImportTest : public ImportTest {
  protected:
    Parameters secret = {{46, TextBytes("secret")}};  // the password of most files

    // The parts of the kept blob are those of `der`, each number with its bytes in the other order.
    void ExpectBlobOf(const Bytes& der, DWORD bits)
    {
        const Bytes blob = KeptBlob(*imported());
        const DWORD whole = bits / 8, half = (bits + 15) / 16;
        const BCRYPT_RSAKEY_BLOB header = {BCRYPT_RSAFULLPRIVATE_MAGIC, bits, 3, whole, half, half};
        ASSERT_EQ(sizeof(header) + 3 + 2 * whole + 5 * half, blob.size());
        EXPECT_EQ(BytesOf(header), Bytes(blob.begin(), blob.begin() + sizeof(header)));
        // Exponent, modulus, primes, exponents, coefficient, private exponent.
        auto at = blob.begin() + sizeof(header);
        for (const DWORD size : {DWORD{3}, whole, half, half, half, half, half, whole}) {
            Bytes number(at, at + static_cast<ptrdiff_t>(size));
            while (!number.empty() && number.back() == 0)
                number.pop_back();
            std::reverse(number.begin(), number.end());
            EXPECT_NE(der.end(), std::search(der.begin(), der.end(), number.begin(), number.end())) << size;
            EXPECT_LT(size / 2, number.size());
            at += static_cast<ptrdiff_t>(size);
        }
    }
};

const Bytes kRsaId = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x01};
const Bytes kNull = {5, 0};

TEST_F(Pkcs8ImportTest, PlainKeysAreKeptAsBlobs)
{
    for (const DWORD bits : {2048u, 2056u, 3072u}) {
        SCOPED_TRACE(bits);
        const Bytes der = ReadPkcs8("rsa" + std::to_string(bits));
        ASSERT_EQ(kDone, ImportPkcs8(der, &secret, bits == 3072 ? kLater : 0));  // needs no password
        ExpectBlobOf(der, bits);
        ExpectNameless(KeptBlob(*imported()), "RSAPRIVATEBLOB", bits != 3072, true);
    }
}

TEST_F(Pkcs8ImportTest, EverySupportedEncryption)
{
    const std::string unicode = "p\xC3\xA4ssw\xC3\xB6rd \xE2\x82\xAC\xF0\x9D\x84\x9E";
    const std::pair<const char*, std::string> rows[] = {
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
    for (const auto& [file, password] : rows) {
        SCOPED_TRACE(file);
        Parameters right = {{46, TextBytes(password)}}, wrong = {{46, TextBytes(password + "x")}};
        ASSERT_EQ(kDone, ImportPkcs8(ReadPkcs8(file), &right));
        ExpectBlobOf(ReadPkcs8("rsa2048"), 2048);
        EXPECT_EQ(Hex(NTE_INTERNAL_ERROR), ImportPkcs8(ReadPkcs8(file), &wrong));
    }
    // The password needs no terminator, and PBES2, which takes UTF-8, treats a missing one as an empty one.
    Parameters bare = {{46, TextBytes("secret", false)}}, endless = {{46, Bytes(70000, 1)}};
    EXPECT_EQ(kDone, ImportPkcs8(ReadPkcs8("pbes2-sha256-aes256"), &bare));
    EXPECT_EQ(kDone, ImportPkcs8(ReadPkcs8("pbes2-empty")));
    EXPECT_EQ(Hex(NTE_INTERNAL_ERROR), ImportPkcs8(ReadPkcs8("pkcs12-empty")));
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), ImportPkcs8(ReadPkcs8("pkcs12-empty"), &endless));
}

TEST_F(Pkcs8ImportTest, CutShort)
{
    SetLogLevel(0);
    for (const char* name : {"rsa2048", "pbes2-sha256-aes256", "pkcs12-sha1-3des"}) {
        const Bytes whole = ReadPkcs8(name);
        for (size_t size = 1; size < whole.size(); size += size < 150 || size + 98 > whole.size() ? 1 : 97) {
            const Bytes cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
            NCRYPT_KEY_HANDLE key = 0;
            EXPECT_EQ(Hex(NTE_BAD_DATA), Hex(ImportInto(&key, "PKCS8_PRIVATEKEY", cut, secret.list())))
                << name << " " << size;
        }
    }
}

// An encrypted form with made-up parameters. It never decrypts.
struct EncryptedForm {
    Bytes salt = Bytes(8, 1);
    Bytes iterations = {2, 1, 1};
    Bytes keySize, prf;
    Bytes derivation = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x05, 0x0C};
    Bytes cipher = {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x01, 0x2A};
    Bytes iv = Bytes(16, 2);
    Bytes encrypted = Bytes(64, 3);

    // One member changed.
    EncryptedForm With(Bytes EncryptedForm::*member, const Bytes& value) const
    {
        EncryptedForm form = *this;
        form.*member = value;
        return form;
    }
    Bytes Pbes2Parameters() const
    {
        const Bytes pbkdf2 = Der(0x30, Der(0x04, salt) + iterations + keySize + prf);
        return Der(0x30, Der(0x30, Der(0x06, derivation) + pbkdf2) + Der(0x30, Der(0x06, cipher) + Der(0x04, iv)));
    }
    Bytes Pbes2() const { return Pbes2(Pbes2Parameters()); }
    Bytes Pbes2(const Bytes& parameters) const
    {
        return Whole({0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x05, 0x0D}, parameters);
    }
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

TEST_F(Pkcs8ImportTest, RefusedKeys)
{
    const Bytes plain = ReadPkcs8("rsa2048");
    const Bytes pkcs1(plain.begin() + 26, plain.end());
    Bytes threePrimes = pkcs1, negative = pkcs1;
    threePrimes[6] = 1;
    negative[11] |= 0x80;  // the modulus's leading zero byte
    const Bytes rsa = Der(0x30, Der(0x06, kRsaId) + kNull);
    const auto info = [](const Bytes& algorithm, const Bytes& key) {
        return Der(0x30, Bytes{2, 1, 0} + algorithm + Der(0x04, key));
    };
    using F = EncryptedForm;
    const F form;
    const Bytes parameters = form.Pbes2Parameters();
    const Bytes cut(parameters.begin() + 2, parameters.begin() + 20);
    const Bytes unknown = {0x2A, 3};
    const Bytes huge = {2, 4, 0x7F, 0xFF, 0xFF, 0xFF}, tenMillionAndOne = {2, 4, 0, 0x98, 0x96, 0x81};
    const Row<const char*, Bytes, SECURITY_STATUS> rows[] = {
        {"curve", ReadPkcs8("p256"), NTE_NOT_SUPPORTED},
        {"1024 bits", ReadPkcs8("rsa1024"), NTE_NOT_SUPPORTED},
        {"PKCS#1 alone", pkcs1, NTE_BAD_DATA},
        {"length beyond the data", {0x30, 0x84, 0xFF, 0xFF, 0xFF, 0xFF, 2, 1, 0}, NTE_BAD_DATA},
        {"indefinite length", {0x30, 0x80, 2, 1, 0, 0, 0}, NTE_BAD_DATA},
        {"no private key", info(rsa, {}), NTE_BAD_KEY},
        {"another algorithm", info(Der(0x30, Der(0x06, unknown)), pkcs1), NTE_NOT_SUPPORTED},
        {"malformed key inside", info(rsa, {0x30, 0x03, 2, 1, 0}), NTE_BAD_DATA},
        {"three primes", info(rsa, threePrimes), NTE_BAD_DATA},
        {"negative number", info(rsa, negative), NTE_BAD_DATA},
        {"usage that isn't a bit string", WithAttributes(Attribute(kNull)), NTE_BAD_DATA},
        {"usage with eight unused bits", WithAttributes(Attribute(Der(0x03, {8, 0x80}))), NTE_BAD_DATA},
        {"nothing wrong but the bytes", form.Pbes2(), NTE_INTERNAL_ERROR},
        {"the same with PKCS#12", form.Pkcs12(), NTE_INTERNAL_ERROR},
        {"no encrypted bytes", form.With(&F::encrypted, {}).Pbes2(), NTE_BAD_DATA},
        {"no whole blocks", form.With(&F::encrypted, Bytes(63, 3)).Pbes2(), NTE_INTERNAL_ERROR},
        {"no iterations", form.With(&F::iterations, {2, 1, 0}).Pbes2(), NTE_BAD_DATA},
        {"negative iterations", form.With(&F::iterations, {2, 1, 0xFF}).Pbes2(), NTE_BAD_DATA},
        {"empty iterations", form.With(&F::iterations, {2, 0}).Pbes2(), NTE_BAD_DATA},
        {"two thousand million", form.With(&F::iterations, huge).Pbes2(), NTE_BAD_DATA},
        {"the same with PKCS#12", form.With(&F::iterations, huge).Pkcs12(), NTE_BAD_DATA},
        {"ten million and one", form.With(&F::iterations, tenMillionAndOne).Pkcs12(), NTE_BAD_DATA},
        {"a count of five bytes", form.With(&F::iterations, {2, 5, 1, 0, 0, 0, 1}).Pbes2(), NTE_BAD_DATA},
        {"salt of 1025 bytes", form.With(&F::salt, Bytes(1025, 1)).Pbes2(), NTE_BAD_DATA},
        {"salt of 1025 bytes with PKCS#12", form.With(&F::salt, Bytes(1025, 1)).Pkcs12(), NTE_BAD_DATA},
        {"salt of 1024 bytes", form.With(&F::salt, Bytes(1024, 1)).Pkcs12(), NTE_INTERNAL_ERROR},
        {"empty salt", form.With(&F::salt, {}).Pkcs12(), NTE_INTERNAL_ERROR},
        {"key size of the cipher", form.With(&F::keySize, {2, 1, 32}).Pbes2(), NTE_INTERNAL_ERROR},
        {"another key size", form.With(&F::keySize, {2, 1, 16}).Pbes2(), NTE_BAD_DATA},
        {"unknown derivation", form.With(&F::derivation, unknown).Pbes2(), NTE_INTERNAL_ERROR},
        {"unknown cipher", form.With(&F::cipher, unknown).Pbes2(), NTE_INTERNAL_ERROR},
        {"unknown PRF", form.With(&F::prf, Der(0x30, Der(0x06, unknown))).Pbes2(), NTE_INTERNAL_ERROR},
        {"something else for the PRF", form.With(&F::prf, {4, 0}).Pbes2(), NTE_BAD_DATA},
        {"short initialization vector", form.With(&F::iv, Bytes(15, 2)).Pbes2(), NTE_BAD_DATA},
        {"no parameters", form.Pbes2({}), NTE_BAD_DATA},
        {"NULL for parameters", form.Pbes2(kNull), NTE_BAD_DATA},
        {"parameters that end early", form.Pbes2(Der(0x30, cut)), NTE_BAD_DATA},
        {"unknown scheme", form.Whole(unknown, parameters), NTE_INTERNAL_ERROR},
        {"Camellia", ReadPkcs8("pbes2-camellia"), NTE_INTERNAL_ERROR},
        {"HMAC with SHA-224", ReadPkcs8("pbes2-sha224"), NTE_INTERNAL_ERROR},
        {"scrypt", ReadPkcs8("pbes2-scrypt"), NTE_INTERNAL_ERROR},
        {"PKCS#12 with two keys", ReadPkcs8("pkcs12-sha1-2des"), NTE_INTERNAL_ERROR},
    };
    for (const auto& [name, data, status] : rows)
        EXPECT_EQ(Hex(status), ImportPkcs8(data, &secret)) << name;
}

TEST_F(Pkcs8ImportTest, ParameterLists)
{
    const Bytes data = ReadPkcs8("rsa2048");
    const std::vector<ParameterRow> rows = {
        {"a name", {{45, TextBytes("name")}}, 0, "name"},
        {"name without its terminator", {{45, TextBytes("abc", false)}}, 0, "abc"},
        {"an object id", {{41, {'1', 0}}, {42, {1}}, {43, {1}}, {44, {1}}, {47, {1}}, {99, {1}}}, 0},
        {"name without a zero byte", {{45, {1, 1}}}, NTE_INVALID_PARAMETER},
        {"one byte for a name", {{45, {0}}}, 0, ""},
        {"object id without a zero byte", {{41, {'1'}}}, NTE_INVALID_PARAMETER},
        {"an empty list", {}, NTE_INVALID_PARAMETER},
        {"a name that is too long", {{45, TextBytes(std::string(130, 'n'))}}, NTE_INVALID_PARAMETER},
    };
    ImportWith(rows, "PKCS8_PRIVATEKEY", data, kLater);
    Parameters changed = {{45, {1, 1}}};
    changed.rows[0].cbBuffer = 0;
    EXPECT_EQ(kDone, ImportPkcs8(data, &changed));
    changed.version = 1;
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), ImportPkcs8(data, &changed));
    NCryptBufferDesc noRows = {0, 1, nullptr};
    NCRYPT_KEY_HANDLE key = 0;
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), Hex(ImportInto(&key, "PKCS8_PRIVATEKEY", data, &noRows)));
}

TEST_F(Pkcs8ImportTest, UsageOfTheKey)
{
    const auto bits = [](const Bytes& contents) { return Attribute(Der(0x03, contents)); };
    const Bytes other = Attribute(kNull, {0x2A, 3});
    constexpr DWORD kNone = 99;  // no property
    const std::pair<Bytes, DWORD> rows[] = {
        // Each bit of a key usage, all of them, and none.
        {bits({7, 0x80}), 2},
        {bits({6, 0x40}), 0},
        {bits({5, 0x20}), 1},
        {bits({4, 0x10}), 1},
        {bits({3, 0x08}), 4},
        {bits({2, 0x04}), 2},
        {bits({1, 0x02}), 2},
        {bits({0, 0x01}), 1},
        {bits({7, 0x00, 0x80}), 1},
        {bits({7, 0xFF, 0x80}), 7},
        {bits({0}), 0},
        // The first usage with a value counts.
        {other + bits({7, 0x80}), 2},
        {Attribute({}) + bits({7, 0x80}), 2},
        {bits({7, 0x80}) + bits({5, 0x20}), 2},
        {other, kNone},
    };
    for (const auto& [attributes, usage] : rows) {
        SCOPED_TRACE(testing::PrintToString(attributes));
        ASSERT_EQ(kDone, ImportPkcs8(WithAttributes(attributes)));
        EXPECT_EQ(usage == kNone ? 3 : usage, imported()->dwKeyUsage);
        const PropertyLink& head = imported()->PropertyList;
        ASSERT_EQ(usage == kNone, head.next == &head);
        if (usage == kNone)
            continue;
        EXPECT_EQ(Words({usage}), GetKey(imported_, "Key Usage", kOnly).bytes);
        EXPECT_EQ(1u, PropertyFromLink(head.next)->fPersisted);
        EXPECT_EQ(1u, PropertyFromLink(head.next)->fBuildin);
    }
}

TEST_F(Pkcs8ImportTest, ANamedKeyIsMadeByTheVault)
{
    const Bytes file = ReadPkcs8("pbes2-sha256-aes256"), plain = ReadPkcs8("rsa2048");
    Parameters named = {{45, TextBytes("pkcs8")}, {46, TextBytes("secret")}};
    NCRYPT_KEY_HANDLE key = 77;
    {
        const WithoutClient without(ProviderRecord());
        EXPECT_EQ(Hex(NTE_FAIL), Hex(ImportInto(&key, "PKCS8_PRIVATEKEY", file, named.list())));
        EXPECT_EQ(kDone, ImportPkcs8(plain)) << "without a name";
    }
    // The first sign-in of this provider.
    ASSERT_EQ(kDone, ImportPkcs8(file, &named, NCRYPT_OVERWRITE_KEY_FLAG | NCRYPT_SILENT_FLAG));
    EXPECT_EQ(1u, imported()->fFinalized);
    ASSERT_EQ(256u, imported()->kvk.n_siz);
    // It has a modulus that isn't the imported one, and no request has parts of the imported key.
    const Bytes modulus(imported()->kvk.n, imported()->kvk.n + 256);
    EXPECT_EQ(plain.end(), std::search(plain.begin(), plain.end(), modulus.begin(), modulus.end()));
    EXPECT_EQ(1u, Bodies("create").size());
    EXPECT_LT(Bodies("create").at(0).dump().size(), 300u);
    EXPECT_NE(0u, OpenKey("pkcs8"));

    Answer("/create?", 403, "", 2);
    EXPECT_EQ(Hex(NTE_FAIL), Hex(ImportInto(&key, "PKCS8_PRIVATEKEY", file, named.list())));
    EXPECT_EQ(77u, key);
    EXPECT_EQ("KelvaroImportKey Error 0x80090020", LastErrorLine());
}

TEST(ImportStatusTest, ResultsOfThePlatformsCryptography)
{
    const std::pair<DWORD, SECURITY_STATUS> rows[] = {{0, 0},
                                                      {0xC0000008, NTE_INVALID_HANDLE},
                                                      {0xC000000D, NTE_INVALID_PARAMETER},
                                                      {0xC0000017, NTE_NO_MEMORY},
                                                      {0xC000009A, NTE_NO_MEMORY},
                                                      {0xC0000023, NTE_BUFFER_TOO_SMALL},
                                                      {0xC00000BB, NTE_NOT_SUPPORTED},
                                                      {0xC000A000, NTE_BAD_SIGNATURE},
                                                      {0xC0000001, NTE_INTERNAL_ERROR},
                                                      {1, NTE_INTERNAL_ERROR}};
    for (const auto& [result, status] : rows)
        EXPECT_EQ(Hex(status), Hex(StatusFromNt(static_cast<NTSTATUS>(result))));
}

}  // namespace
