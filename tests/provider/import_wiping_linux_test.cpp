// Secrets in freed memory: every block that the system gives back to the process heap during an import, or when a
// host's property is replaced or released, is searched first.
#include <malloc.h>

#include <algorithm>
#include <cstring>

#include "tests/common/alloc_fault.h"
#include "tests/provider/import_fixture.h"

namespace {

// Searches freed blocks while one of these lives.
class HeapWatch {
  public:
    explicit HeapWatch(std::vector<Bytes> needles) : needles_(std::move(needles)) { current_ = this; }
    ~HeapWatch() { current_ = nullptr; }
    HeapWatch(const HeapWatch&) = delete;
    HeapWatch& operator=(const HeapWatch&) = delete;

    static void Look(const void* block)
    {
        if (!current_ || !block)
            return;
        const BYTE* at = static_cast<const BYTE*>(block);
        const BYTE* const end = at + malloc_usable_size(const_cast<void*>(block));
        current_->looks++;
        for (const Bytes& needle : current_->needles_) {
            if (std::search(at, end, needle.begin(), needle.end()) != end)
                current_->found++;
        }
    }

    size_t looks = 0;
    size_t found = 0;

  private:
    static HeapWatch* current_;
    std::vector<Bytes> needles_;
};
HeapWatch* HeapWatch::current_ = nullptr;

// Pieces out of the numbers of a key, in both orders of their bytes. plain: bytes in which they stand.
std::vector<Bytes> Pieces(const Bytes& plain, const std::vector<size_t>& offsets)
{
    std::vector<Bytes> pieces;
    for (const size_t offset : offsets) {
        const auto at = plain.begin() + static_cast<ptrdiff_t>(offset);
        pieces.emplace_back(at, at + 16);
        pieces.emplace_back(pieces.back().rbegin(), pieces.back().rend());
    }
    return pieces;
}

// Private exponent, primes and coefficient of a PKCS#8 file of 2048 bits.
std::vector<Bytes> PrivatePieces(const Bytes& der)
{
    return Pieces(der, {400, 700, 850, 1100});
}

using WipingTest = ImportTest;

TEST_F(WipingTest, TheWatchSeesWhatIsLeft)
{
    HeapWatch watch(Pieces(Pattern(200), {100}));
    void* const block = HeapAlloc(GetProcessHeap(), 0, 300);
    std::memcpy(static_cast<BYTE*>(block) + 50, Pattern(200).data(), 200);
    HeapFree(GetProcessHeap(), 0, block);
    EXPECT_EQ(1u, watch.found);
}

TEST_F(WipingTest, OfPkcs8KeysOnEveryWayOut)
{
    const Bytes der = ReadPkcs8("rsa2048");
    const Bytes encrypted = ReadPkcs8("pbes2-sha256-aes256");
    std::vector<Bytes> needles = PrivatePieces(der);
    needles.push_back(TextBytes("secret"));
    needles.push_back({'s', 'e', 'c', 'r', 'e', 't'});
    needles.push_back({0, 's', 0, 'e', 0, 'c', 0, 'r', 0, 'e', 0, 't'});
    const Bytes usage = KeyUsageAttribute(Der(0x03, {7, 0x80}));
    const Bytes badUsage = KeyUsageAttribute({5, 0});
    const struct {
        const char* name;
        Bytes data;
        const char* keyName;
        SECURITY_STATUS status;
    } rows[] = {
        {"plain", der, nullptr, 0},
        {"encrypted", encrypted, nullptr, 0},
        {"encrypted by PKCS#12", ReadPkcs8("pkcs12-sha1-3des"), nullptr, 0},
        {"with a usage", WithAttributes(usage), nullptr, 0},
        {"bad usage", WithAttributes(badUsage), nullptr, NTE_BAD_DATA},
        {"a name that is too long", encrypted, "130", NTE_INVALID_PARAMETER},
        {"a key that the vault does not make", encrypted, "refused", NTE_FAIL},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        sim.Fault({{"path", "/keys/refused/create?"}, {"action", "status"}, {"status", 403}, {"times", 2}});
        Parameters parameters = {{46, Secret()}};
        if (row.keyName)
            parameters.Add(45, TextBytes(row.keyName == std::string("130") ? std::string(130, 'n') : row.keyName));
        NCRYPT_KEY_HANDLE key = 0;
        HeapWatch watch(needles);
        EXPECT_EQ(Hex(row.status), Hex(ImportInto(&key, "PKCS8_PRIVATEKEY", row.data, parameters.list())));
        if (key) {
            EXPECT_EQ(0, table->FreeKey(provider, key));
        }
        EXPECT_GT(watch.looks, 0u);
        EXPECT_EQ(0u, watch.found);
    }
}

// The failures in between: each allocation of an import fails once, and nothing is left behind.
TEST_F(WipingTest, WithoutMemory)
{
    root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", 0);
    Reattach();
    const Bytes der = WithAttributes(KeyUsageAttribute(Der(0x03, {7, 0x80})));
    for (const char* file : {"", "pbes2-sha256-aes256", "pkcs12-sha1-3des"}) {
        const Bytes data = *file ? ReadPkcs8(file) : der;
        NCRYPT_KEY_HANDLE key = 0;
        Parameters parameters = {{46, Secret()}};
        HeapWatch watch(PrivatePieces(ReadPkcs8("rsa2048")));
        const size_t failures = FailEach(
            [&] {
                key = 0;
                return ImportInto(&key, "PKCS8_PRIVATEKEY", data, parameters.list());
            },
            [&](SECURITY_STATUS status, size_t failAt) {
                // What the platform cannot decode for want of memory is as good as malformed.
                EXPECT_TRUE(status == NTE_NO_MEMORY || status == NTE_BAD_DATA || status == NTE_INTERNAL_ERROR)
                    << file << failAt << Hex(status);
                EXPECT_EQ(0u, key);
            });
        EXPECT_GT(failures, 4u);
        EXPECT_EQ(0, table->FreeKey(provider, key));
        EXPECT_EQ(0u, watch.found) << file;
    }
}

TEST_F(WipingTest, OfPropertiesThatAHostReplacesOrReleases)
{
    Bytes secret = TextBytes("a PIN of the host's");
    Bytes descriptor(20 + 16);
    SECURITY_DESCRIPTOR_RELATIVE head = {};
    head.Revision = SECURITY_DESCRIPTOR_REVISION;
    head.Control = SE_SELF_RELATIVE;
    std::memcpy(descriptor.data(), &head, sizeof(head));
    descriptor = descriptor + secret;
    const struct {
        const char* name;
        const Bytes& value;
        DWORD flags;
    } rows[] = {
        {"SmartCardPin", secret, NCRYPT_PERSIST_ONLY_FLAG},
        {"PRIVATEBLOB", secret, NCRYPT_PERSIST_ONLY_FLAG},
        {"Use Context", secret, NCRYPT_PERSIST_FLAG},
        {"Security Descr", descriptor, 4},
    };
    NCRYPT_PROV_HANDLE opened = 0;
    NCRYPT_KEY_HANDLE key = 0;
    ASSERT_EQ(0, table->OpenProvider(&opened, TEXT("any name"), 0));
    ASSERT_EQ(0, table->CreatePersistedKey(opened, &key, TEXT("RSA"), nullptr, 0, 0));
    HeapWatch watch({Bytes(secret.begin(), secret.end() - 2)});
    for (int times = 0; times < 2; times++) {
        for (const auto& row : rows) {
            EXPECT_EQ(0, table->SetKeyProperty(opened, key, Wide(row.name).c_str(), const_cast<BYTE*>(row.value.data()),
                                               static_cast<DWORD>(row.value.size()), row.flags))
                << row.name;
        }
        EXPECT_EQ(0, table->SetProviderProperty(opened, TEXT("Use Context"), secret.data(),
                                                static_cast<DWORD>(secret.size()), 0));
    }
    EXPECT_EQ(0, table->FreeKey(opened, key));
    EXPECT_EQ(0, table->FreeProvider(opened));
    EXPECT_GE(watch.looks, 2 * 6u);
    EXPECT_EQ(0u, watch.found);
}

}  // namespace

// HeapFree of the Linux build under its linker name.
BOOL RealHeapFree(HANDLE heap, DWORD flags, LPVOID block) __asm__("__real__Z8HeapFreePvjS_");
BOOL WrapHeapFree(HANDLE heap, DWORD flags, LPVOID block) __asm__("__wrap__Z8HeapFreePvjS_");

BOOL WrapHeapFree(HANDLE heap, DWORD flags, LPVOID block)
{
    HeapWatch::Look(block);
    return RealHeapFree(heap, flags, block);
}
