// Key objects, their property lists and private blobs.
#include "provider/private_blob.h"
#include "provider/property_list.h"
#include "tests/provider/provider_fixture.h"

namespace {

TEST_F(ProviderTest, NewKeyIsPendingWithTheLengthOfItsAlgorithm)
{
    const std::pair<const char*, DWORD> rows[] = {
        {"RSA", 2048},      {"ECDSA_P256", 256}, {"ECDH_P256", 256}, {"ECDSA_P384", 384},
        {"ECDH_P384", 384}, {"ECDSA_P521", 521}, {"ECDH_P521", 521}, {"", 0},
        {"rsa", 0}};
    for (const auto& [algorithm, bits] : rows) {
        KSP_KEY* key = NewKey(algorithm);
        EXPECT_EQ(bits, key->dwBitLength) << algorithm;
        EXPECT_EQ(algorithm, Narrow(key->pszAlgName));
    }
    const KSP_KEY* key = NewKey("RSA");
    EXPECT_EQ(0x7866ABCFu, key->dwMagic);
    EXPECT_EQ(sizeof(KSP_KEY), key->cbLength);
    EXPECT_EQ(0x20u, key->fMachineKey);
    EXPECT_EQ(0u, key->fFinalized);
    EXPECT_EQ(0u, key->publishCert);
    EXPECT_EQ(0u, key->kvk.valid);
}

KSP_KEY* LooseKey()
{
    KSP_KEY* key = nullptr;
    EXPECT_EQ(0, CreateNewKeyObject(TEXT("k"), TEXT("RSA"), &key, 0));
    return key;
}

void Append(KSP_KEY* key, const std::string& name)
{
    KSP_PROPERTY* property = nullptr;
    const BYTE data[] = {1, 2, 3};
    ASSERT_EQ(0, MakeKeyProperty(Wide(name).c_str(), data, sizeof(data), NCRYPT_PERSIST_FLAG, &property));
    PropertyListAppend(&key->PropertyList, property);
}

TEST_F(ProviderTest, DeleteReleasesEverythingAndTellsSo)
{
    KSP_KEY* key = LooseKey();
    for (const char* name : {"one", "two", "three"})
        Append(key, name);
    key->pbPrivateKey = static_cast<BYTE*>(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, 8));
    key->cbPrivateKey = 8;
    root.ClearLog();
    EXPECT_EQ(0, DeleteKeyObject(key));
    const std::string entry = "DeleteKeyObject HeapFree pProperty 8";
    const std::vector<std::string> expected = {
        "DeleteKeyObject HeapFree pszKeyFilePath 4",
        "DeleteKeyObject HeapFree pszKeyName 8",
        "DeleteKeyObject HeapFree pbKeyFile 8",
        "DeleteKeyObject HeapFree pbSecurityDescr 8",
        "DeleteKeyObject HeapFree pbPrivateKey 8",
        "DeleteKeyObject HeapFree PropertyList 8",
        entry,
        entry,
        entry,
        "DeleteKeyObject Complete 8",
    };
    EXPECT_EQ(expected, root.LogLines());
}

TEST_F(ProviderTest, SemaphoreThatCannotBeHadStopsNobody)
{
    KSP_KEY* key = NewKey("RSA");
    KSP_KEY* released = LooseKey();
    Append(released, "one");
    const HANDLE semaphore = KelvaroPropertySemaphore;
    KelvaroPropertySemaphore = nullptr;
    EXPECT_EQ(0, SetKey(key, "mine", {1}, NCRYPT_PERSIST_ONLY_FLAG));
    EXPECT_EQ(Bytes{1}, GetKey(key, "mine", NCRYPT_PERSIST_ONLY_FLAG).bytes);
    EXPECT_EQ(0, DeleteKeyObject(released));
    KelvaroPropertySemaphore = semaphore;
    for (const char* function : {"KelvaroSetKeyProperty", "KelvaroGetKeyProperty", "DeleteKeyObject"})
        EXPECT_TRUE(root.Logged(std::string(function) + " Failed to grab Semaphone - Result Error 0xffffffff", 4));
}

// A waiter that gave the semaphore back without having had it would have raised its count past 1.
TEST_F(ProviderTest, SemaphoreIsFreeAfterEveryUse)
{
    KSP_KEY* key = NewKey("RSA");
    EXPECT_EQ(0, SetKey(key, "mine", {1}, NCRYPT_PERSIST_ONLY_FLAG));
    EXPECT_EQ(Hex(NTE_NOT_FOUND), Hex(GetKey(key, "other", NCRYPT_PERSIST_ONLY_FLAG).status));
    EXPECT_EQ(0, DeleteKeyObject(LooseKey()));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(KelvaroPropertySemaphore, 0));
    EXPECT_EQ(static_cast<DWORD>(WAIT_TIMEOUT), WaitForSingleObject(KelvaroPropertySemaphore, 0));
    EXPECT_TRUE(ReleaseSemaphore(KelvaroPropertySemaphore, 1, nullptr));
}

TEST_F(ProviderTest, PropertiesKeepTheirFlags)
{
    const struct {
        DWORD flags, persisted, builtin;
    } rows[] = {{0, 0, 1},
                {NCRYPT_PERSIST_FLAG, 1, 1},
                {NCRYPT_PERSIST_ONLY_FLAG, 1, 0},
                {NCRYPT_PERSIST_FLAG | NCRYPT_PERSIST_ONLY_FLAG, 1, 0}};
    const BYTE data[] = {9, 8, 7};
    for (const auto& row : rows) {
        KSP_PROPERTY* property = nullptr;
        ASSERT_EQ(0, MakeKeyProperty(TextString(64, 'p').c_str(), data, sizeof(data), row.flags, &property));
        EXPECT_EQ(row.persisted, property->fPersisted) << std::hex << row.flags;
        EXPECT_EQ(row.builtin, property->fBuildin) << std::hex << row.flags;
        HeapFree(GetProcessHeap(), 0, property);
    }
}

constexpr DWORD kRsa2 = 0x32415352;
constexpr DWORD kRsa3 = 0x33415352;

TEST_F(ProviderTest, PrivateBlobsAreChecked)
{
    struct Row {
        const char* name;
        BCRYPT_RSAKEY_BLOB header;  // magic, bits, exponent, modulus, prime 1, prime 2
        size_t size;
        bool good;
    };
    // 2048 bits: exponent 3, modulus 256, primes 128: 515 bytes, with exponents, coefficient and modulus 1155.
    const Row rows[] = {
        {"exact size", {kRsa2, 2048, 3, 256, 128, 128}, 515, true},
        {"with header", {kRsa2, 2048, 3, 256, 128, 128}, 515 + 24, true},
        {"one byte short", {kRsa2, 2048, 3, 256, 128, 128}, 514, false},
        {"full, exact size", {kRsa3, 2048, 3, 256, 128, 128}, 1155, true},
        {"full, one byte short", {kRsa3, 2048, 3, 256, 128, 128}, 1154, false},
        {"4096 bits", {kRsa2, 4096, 3, 512, 256, 256}, 1100, true},
        {"2056 bits", {kRsa2, 2056, 3, 257, 129, 129}, 1100, true},
        {"public magic", {0x31415352, 2048, 3, 256, 128, 128}, 1155, false},
        {"2040 bits", {kRsa2, 2040, 3, 255, 128, 128}, 1155, false},
        {"4104 bits", {kRsa2, 4104, 3, 513, 257, 257}, 1155, false},
        {"2052 bits", {kRsa2, 2052, 3, 257, 129, 129}, 1155, false},
        {"no parts", {kRsa2, 2048, 0, 0, 0, 0}, 24, true},
        {"shorter than its header", {kRsa2, 2048, 0, 0, 0, 0}, 23, false},
        {"sum wraps to 0", {kRsa2, 2048, 0, 0x80000000, 0x80000000, 0}, 1155, false},
        {"double prime wraps", {kRsa3, 2048, 0, 0, 0x80000000, 0}, 1155, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        KSP_KEY* key = NewKey("RSA");
        key->dwBitLength = 1;
        Bytes blob = BytesOf(row.header);
        blob.resize(row.size, 0x5A);
        EXPECT_EQ(Hex(row.good ? 0 : NTE_BAD_KEY),
                  Hex(CheckRsaBlob(key, blob.data(), static_cast<DWORD>(blob.size()))));
        EXPECT_EQ(row.good ? row.header.BitLength : 1u, key->dwBitLength);
    }
}

}  // namespace
