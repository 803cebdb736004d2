// Import of CNG's blobs and of PKCS#8 keys.
#include <algorithm>
#include <map>

#include "provider/nt_status.h"
#include "provider/property_list.h"
#include "tests/provider/import_fixture.h"
#include "tests/provider/words.h"

namespace {

TEST_F(ImportTest, BlobsByTypeLengthAndFlag)
{
    for (const auto& row : SectionRows("keys.txt")) {
        SCOPED_TRACE(testing::PrintToString(row));
        const Bytes data = BytesOfWord(row[2]);
        ASSERT_EQ(Hex(StatusOfWord(row[0])), Import(row[1].c_str(), data, nullptr, NumberOfWord(row[3])));
        if (row[4] != "-")
            ExpectNameless(data, row[4].c_str(), false, false);
    }
}

TEST_F(ImportTest, NamesOfPrivateBlobs)
{
    ImportRows("RSAPRIVATEBLOB", RsaBlob(2048), 9);
    Parameters changed = {{45, TextBytes("first")}};
    changed.rows[0].pvBuffer = nullptr;
    ASSERT_EQ(kDone, Import("RSAPRIVATEBLOB", RsaBlob(2048), &changed, kLater));
    EXPECT_EQ(nullptr, imported()->pszKeyName);
    changed.rows[0] = {0x80000000, 45, changed.rows.data()};
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), Import("RSAPRIVATEBLOB", RsaBlob(2048), &changed, kLater));
}

// The vault creates a new key of the same length as the imported one.
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
        {"pbes2-sha1-named", "secret"},
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
    const Bytes parameters = EncryptedForm().Pbes2Parameters();
    const Bytes cut(parameters.begin() + 2, parameters.begin() + 20);
    const Bytes unknown = {0x2A, 3};
    const Row<const char*, Bytes, SECURITY_STATUS> rows[] = {
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
        {"no parameters", EncryptedForm().Pbes2({}), NTE_BAD_DATA},
        {"NULL for parameters", EncryptedForm().Pbes2(kNull), NTE_BAD_DATA},
        {"parameters that end early", EncryptedForm().Pbes2(Der(0x30, cut)), NTE_BAD_DATA},
        {"unknown scheme", EncryptedForm().Whole(unknown, parameters), NTE_INTERNAL_ERROR},
    };
    for (const auto& [name, data, status] : rows)
        EXPECT_EQ(Hex(status), ImportPkcs8(data, &secret)) << name;

    using F = EncryptedForm;
    const std::map<std::string, Bytes F::*> members = {
        {"salt", &F::salt}, {"iterations", &F::iterations}, {"keySize", &F::keySize},
        {"prf", &F::prf},   {"derivation", &F::derivation}, {"cipher", &F::cipher},
        {"iv", &F::iv},     {"encrypted", &F::encrypted},
    };
    for (const auto& row : SectionRows("keys.txt")) {
        F form;
        for (size_t at = 2; at < row.size(); at += 2)
            form.*members.at(row[at]) = BytesOfWord(row[at + 1]);
        const Bytes data = row[1] == "pbes2" ? form.Pbes2() : row[1] == "pkcs12" ? form.Pkcs12() : ReadPkcs8(row[1]);
        EXPECT_EQ(Hex(StatusOfWord(row[0])), ImportPkcs8(data, &secret)) << testing::PrintToString(row);
    }
}

TEST_F(Pkcs8ImportTest, ParameterLists)
{
    const Bytes data = ReadPkcs8("rsa2048");
    ImportRows("PKCS8_PRIVATEKEY", data);
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
    for (const auto& row : SectionRows("keys.txt")) {
        SCOPED_TRACE(testing::PrintToString(row));
        Bytes attributes;
        for (size_t at = 1; at < row.size(); ++at)
            attributes =
                attributes + (row[at] == "other" ? Attribute(kNull, {0x2A, 3}) : Attribute(BytesOfWord(row[at])));
        const bool none = row[0] == "-";  // no property
        const DWORD usage = none ? 3 : NumberOfWord(row[0]);
        ASSERT_EQ(kDone, ImportPkcs8(WithAttributes(attributes)));
        EXPECT_EQ(usage, imported()->dwKeyUsage);
        const PropertyLink& head = imported()->PropertyList;
        ASSERT_EQ(none, head.next == &head);
        if (none)
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
    // Its modulus isn't the imported one, and no request contains parts of the imported key.
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
