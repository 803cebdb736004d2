// Many threads of a host on one provider, one key or one property.
#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "provider/buffer_list.h"
#include "tests/provider/provider_fixture.h"

namespace {

class ThreadsTest : public ProviderTest {
  protected:
    void SetUp() override
    {
        ProviderTest::SetUp();
        SetLogLevel(1);
        OpenProvider();
    }
    // Runs work(number) on each of `count` threads, and `meanwhile` on this one until all are done.
    static void Run(
        int count, const std::function<void(int)>& work,
        const std::function<void()>& meanwhile = [] { std::this_thread::sleep_for(std::chrono::milliseconds(1)); })
    {
        std::atomic<int> working{count};
        std::vector<std::thread> threads;
        for (int i = 0; i < count; ++i) {
            threads.emplace_back([&, i] {
                work(i);
                --working;
            });
        }
        while (working > 0)
            meanwhile();
        for (std::thread& thread : threads)
            thread.join();
    }
    // Opens a key, signs, verifies and frees; false if a call failed.
    bool UseAKey(int number)
    {
        const bool rsa = number % 2 == 0;
        const DWORD flags = rsa ? BCRYPT_PAD_PSS : 0;
        NCRYPT_KEY_HANDLE key = 0;
        if (table->OpenKey(provider, &key, rsa ? TEXT("rsa") : TEXT("p256"), 0, kMachine) != 0)
            return false;
        const Bytes hash(32, static_cast<BYTE>(number));
        const Result signature = Sign(key, hash, flags, "SHA256");
        const bool good = signature.status == 0 && Verify(key, hash, signature.bytes, flags, "SHA256") == kDone;
        return table->FreeKey(provider, key) == 0 && good;
    }
};

TEST_F(ThreadsTest, OneThreadSignsInWhenTheTokenExpires)
{
    AddKey("rsa", "RSA");
    AddKey("p256", "P-256");
    const int before = sim.SignIns();
    std::atomic<int> failed{0};
    int expiries = 0;
    const auto uses = [&](int number) {
        for (int i = 0; i < 4; ++i)
            failed += !UseAKey(number);
    };
    Run(16, uses, [&] {
        clock.Advance(3600);
        ++expiries;
        EXPECT_LE(sim.SignIns() - before, expiries + 1);  // this exchange with the simulator paces the jumps
    });
    EXPECT_GT(sim.SignIns(), before + 1);
    EXPECT_EQ(0, failed);
    for (const std::string& line : ErrorLines()) {
        // Wine's Schannel sometimes fails a handshake when many begin at once; the exchange was repeated.
        EXPECT_EQ("KVCDoWebCall WinHttpSendRequest Failed Error 0x80090304", line);
    }
}

TEST_F(ThreadsTest, ConcurrentFirstOpensAllGetTheSecret)
{
    FreeProvider(provider);
    root.SetText(HKEY_LOCAL_MACHINE, "ClientSecret", "shared");
    std::vector<std::string> secrets(4);
    Run(4, [&](int number) {
        NCRYPT_PROV_HANDLE opened = 0;
        EXPECT_EQ(0, table->OpenProvider(&opened, TEXT("name"), 0));
        secrets[static_cast<size_t>(number)] =
            Narrow(KVCText(reinterpret_cast<KSP_PROVIDER*>(opened)->machineKvc->clientSecret));
        EXPECT_EQ(0, table->FreeProvider(opened));
    });
    EXPECT_EQ(Lines(4, "shared"), secrets);
    EXPECT_EQ("", root.GetText(HKEY_LOCAL_MACHINE, "ClientSecret"));
    EXPECT_EQ("shared", Narrow(KVCText(ProviderRecord()->machineKvc->clientSecret)));
}

TEST_F(ThreadsTest, BuffersAreListedAndFreed)
{
    Run(4, [&](int) {
        for (int round = 0; round < 300; round++) {
            void* blocks[50];
            for (void*& block : blocks) {
                block = HeapAlloc(GetProcessHeap(), 0, 16);
                EXPECT_NE(nullptr, KelvaroRegisterBuffer(block, BufferKind::KeyName));
            }
            for (void* block : blocks)
                EXPECT_EQ(0, table->FreeBuffer(block));
        }
    });
}

// One of two values of a field, and what a reader gets for it.
struct FieldValue {
    Bytes set;
    Bytes read;
    DWORD flags = 0;
};

TEST_F(ThreadsTest, AReplacedFieldIsNeverTorn)
{
    SetLogLevel(0);
    const Bytes few = TextBytes(std::string(20, 'a')), many = TextBytes(std::string(400, 'b'));
    const Bytes small = RsaBlob(2048), large = RsaBlob(4096, BCRYPT_RSAFULLPRIVATE_MAGIC);
    const struct Field {
        const char* name;
        const char* readName;  // "" when nothing can be read
        FieldValue values[2];
        int rounds;
    } fields[] = {
        {"Use Context", "Use Context", {{few, few}, {many, many}}, 10000},
        {"Security Descr", "", {{Descriptor(), {}, 1}, {Descriptor() + Bytes(900, 7), {}, 4}}, 10000},
        {"PRIVATEBLOB", "Length", {{small, Words({2048})}, {large, Words({4096})}}, 200},
        {"mine", "mine", {{few, few, kOnly}, {many, many, kOnly}}, 5000},
        {"Use Context", "Use Context", {{few, few}, {many, many}}, 10000},  // the provider's
    };
    const NCRYPT_KEY_HANDLE key = Pending("RSA");
    for (const Field& field : fields) {
        SCOPED_TRACE(field.name);
        const NCRYPT_KEY_HANDLE of = &field == &fields[4] ? 0 : key;
        const auto set = [&](const FieldValue& value) { return SetKey(of, field.name, value.set, value.flags); };
        const auto read = [&] {
            Bytes room(2000);
            DWORD size = 0;
            const TextString name = Wide(field.readName);
            const SECURITY_STATUS status =
                of ? table->GetKeyProperty(provider, of, name.c_str(), room.data(), 2000, &size,
                                           field.values[0].flags & kOnly)
                   : table->GetProviderProperty(provider, name.c_str(), room.data(), 2000, &size, 0);
            room.resize(status == 0 ? size : 0);
            return room;
        };
        ASSERT_EQ(0, set(field.values[0]));
        std::atomic<int> refused{0};
        int torn = 0;
        const auto replace = [&](int number) {
            for (int i = 0; i < field.rounds; ++i)
                refused += set(field.values[number]) != 0;
        };
        Run(2, replace, [&] {
            const Bytes answer = *field.readName ? read() : Bytes();
            torn += answer != field.values[0].read && answer != field.values[1].read;
        });
        EXPECT_EQ(0, refused + torn);
    }
    const KSP_KEY& record = *Record(key);
    const FieldValue& descriptor = fields[1].values[record.dwSecurityInfo == 1 ? 0 : 1];
    EXPECT_EQ(descriptor.flags, record.dwSecurityInfo);
    EXPECT_EQ(descriptor.set, Bytes(record.pbSecurityDescr, record.pbSecurityDescr + record.cbSecurityDescr));
    EXPECT_EQ(record.dwBitLength == 2048 ? small : large, KeptBlob(record));
    EXPECT_EQ(record.dwBitLength == 2048 ? "RSAPRIVATEBLOB" : "RSAFULLPRIVATEBLOB", Narrow(record.pszPrivateBlobType));
}

// The vault throttles the creation; another thread uses the key while the first finalization waits.
TEST_F(ThreadsTest, OneFinalizationMakesTheKeyAndHoldsNoLockOverTheNetwork)
{
    const NCRYPT_KEY_HANDLE key = Pending("RSA", "made-once");
    clock.OnSleep([&](DWORD, size_t) {
        std::thread([&] {
            EXPECT_EQ(Hex(NTE_INVALID_HANDLE), Hex(Finalize(key)));
            EXPECT_EQ(Hex(NTE_INVALID_HANDLE), Hex(Finalize(key, 0x10))) << "bad flags too";
            EXPECT_EQ(0, SetKey(key, "Use Context", TextBytes("meanwhile")));
            EXPECT_EQ(Hex(NTE_BAD_KEY_STATE), Hex(Sign(key, Pattern(32)).status));
            EXPECT_NE(0, Export(key, "RSAPUBLICBLOB").status);
        }).join();
    });
    Answer("/keys/made-once/create?", 429, "", 6);
    EXPECT_EQ(Hex(NTE_FAIL), Hex(Finalize(key)));
    EXPECT_EQ(5u, clock.Waits().size());
    EXPECT_EQ(0u, Record(key)->fFinalized);
    EXPECT_EQ(0, Finalize(key)) << "a failed one may be retried";
    EXPECT_EQ(6u, clock.Waits().size());
    EXPECT_EQ(1u, sim.Control("GET", "/vaults/contoso-keys")["keys"][0]["versions"].size());
    EXPECT_EQ(0, Export(key, "RSAPUBLICBLOB").status);
}

}  // namespace
