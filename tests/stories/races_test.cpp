// Two threads on one handle: fields that a host replaces while it reads them, and a finalization that isn't over yet.
#include <atomic>
#include <functional>
#include <thread>

#include "tests/provider/key_fixture.h"

namespace {

constexpr DWORD kOnly = NCRYPT_PERSIST_ONLY_FLAG;

class RaceTest : public KeyTest {
  protected:
    void SetUp() override
    {
        KeyTest::SetUp();
        root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", 0);
        Reattach();
        OpenProvider();
    }

    NCRYPT_KEY_HANDLE Pending(const WCHAR* name)
    {
        NCRYPT_KEY_HANDLE key = 0;
        EXPECT_EQ(0, table->CreatePersistedKey(provider, &key, TEXT("RSA"), name, 0, NCRYPT_MACHINE_KEY_FLAG));
        return key;
    }
};

// One of two values of a field, and what a reader may see while it is set.
struct FieldValue {
    Bytes set;
    Bytes read;
    DWORD flags = 0;
};

struct Field {
    const char* name;
    const char* readName;  // "" when nothing can be read
    FieldValue values[2];
    int rounds;
};

// A descriptor with an owner, longer than its parts need.
Bytes Descriptor(size_t size, BYTE filling)
{
    SECURITY_DESCRIPTOR_RELATIVE head = {};
    head.Revision = SECURITY_DESCRIPTOR_REVISION;
    head.Control = SE_SELF_RELATIVE;
    head.Owner = sizeof(head);
    Bytes bytes = BytesOf(head) + Bytes{1, 2, 0, 0, 0, 0, 0, 5, 32, 0, 0, 0, 0, 0, 0, 0};
    bytes.resize(size, filling);
    return bytes;
}

Bytes Unsealed(const KSP_KEY& key)
{
    DATA_BLOB sealed = {key.cbPrivateKey, key.pbPrivateKey};
    DATA_BLOB plain = {};
    if (!CryptUnprotectData(&sealed, nullptr, nullptr, nullptr, nullptr, 0, &plain))
        return {};
    const Bytes blob(plain.pbData, plain.pbData + plain.cbData);
    LocalFree(plain.pbData);
    return blob;
}

TEST_F(RaceTest, AFieldThatThreadsReplaceIsAlwaysOneOfItsValues)
{
    const Bytes few = TextBytes(std::string(20, 'a')), many = TextBytes(std::string(400, 'b'));
    const Bytes small = RsaBlob(2048), large = RsaBlob(4096, BCRYPT_RSAFULLPRIVATE_MAGIC);
    const Field fields[] = {
        {"Use Context", "Use Context", {{few, few}, {many, many}}, 20000},
        {"Security Descr", "", {{Descriptor(36, 0), {}, 1}, {Descriptor(900, 7), {}, 4}}, 20000},
        {"PRIVATEBLOB", "Length", {{small, Words({2048})}, {large, Words({4096})}}, 200},
        {"mine", "mine", {{few, few, kOnly}, {many, many, kOnly}}, 5000},
        {"the provider's", "Use Context", {{few, few}, {many, many}}, 20000},
    };
    const NCRYPT_KEY_HANDLE key = Pending(nullptr);
    for (const Field& field : fields) {
        SCOPED_TRACE(field.name);
        const bool ofProvider = &field == &fields[4];
        const TextString name = Wide(ofProvider ? field.readName : field.name);
        const TextString readName = Wide(field.readName);
        const auto set = [&](const FieldValue& value) {
            BYTE* const bytes = const_cast<BYTE*>(value.set.data());
            const DWORD size = static_cast<DWORD>(value.set.size());
            return ofProvider ? table->SetProviderProperty(provider, name.c_str(), bytes, size, 0)
                              : table->SetKeyProperty(provider, key, name.c_str(), bytes, size, value.flags);
        };
        const auto read = [&] {
            Bytes room(2000);
            DWORD size = 0;
            const SECURITY_STATUS status =
                ofProvider ? table->GetProviderProperty(provider, readName.c_str(), room.data(), 2000, &size, 0)
                           : table->GetKeyProperty(provider, key, readName.c_str(), room.data(), 2000, &size,
                                                   field.values[0].flags & kOnly);
            room.resize(status == 0 ? size : 0);
            return room;
        };
        ASSERT_EQ(0, set(field.values[0]));

        std::atomic<int> setting{2}, refused{0};
        std::vector<std::thread> threads;
        for (const FieldValue& value : field.values) {
            threads.emplace_back([&, value] {
                for (int i = 0; i < field.rounds; ++i)
                    refused += set(value) != 0;
                --setting;
            });
        }
        int torn = 0;
        while (setting > 0) {
            const Bytes answer = *field.readName ? read() : Bytes();
            torn += answer != field.values[0].read && answer != field.values[1].read;
        }
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_EQ(0, refused);
        EXPECT_EQ(0, torn);
    }

    const KSP_KEY& record = *Record(key);
    const FieldValue& descriptor = fields[1].values[record.dwSecurityInfo == 1 ? 0 : 1];
    EXPECT_EQ(descriptor.flags, record.dwSecurityInfo);
    EXPECT_EQ(descriptor.set, Bytes(record.pbSecurityDescr, record.pbSecurityDescr + record.cbSecurityDescr));
    EXPECT_EQ(record.dwBitLength == 2048 ? small : large, Unsealed(record));
    EXPECT_EQ(record.dwBitLength == 2048 ? "RSAPRIVATEBLOB" : "RSAFULLPRIVATEBLOB", Narrow(record.pszPrivateBlobType));
    EXPECT_EQ(0, table->FreeKey(provider, key));
}

// The vault throttles the creation, and while the first finalization waits there, the key is used once more.
TEST_F(RaceTest, OneFinalizationMakesTheKeyAndHoldsNoLockOverTheNetwork)
{
    const NCRYPT_KEY_HANDLE key = Pending(TEXT("made-once"));
    int waits = 0;
    clock.OnSleep([&](DWORD, size_t) {
        waits++;
        Bytes context = TextBytes("meanwhile");
        std::thread([&] {
            EXPECT_EQ(Hex(NTE_INVALID_HANDLE), Hex(table->FinalizeKey(provider, key, 0)));
            EXPECT_EQ(Hex(NTE_INVALID_HANDLE), Hex(table->FinalizeKey(provider, key, 0x10))) << "bad flags too";
            EXPECT_EQ(0, table->SetKeyProperty(provider, key, TEXT("Use Context"), context.data(), 20, 0));
            EXPECT_EQ(Hex(NTE_BAD_KEY_STATE), Hex(Sign(key, nullptr, Pattern(32), 0).status));
            EXPECT_NE(0, Export(key, "RSAPUBLICBLOB").status);
        }).join();
    });
    sim.Fault({{"path", "/keys/made-once/create?"}, {"action", "status"}, {"status", 429}, {"times", 6}});
    EXPECT_EQ(Hex(NTE_FAIL), Hex(table->FinalizeKey(provider, key, 0)));
    EXPECT_EQ(5, waits);
    EXPECT_EQ(0u, Record(key)->fFinalized);

    EXPECT_EQ(0, table->FinalizeKey(provider, key, 0)) << "one that failed may be tried again";
    EXPECT_EQ(6, waits);
    EXPECT_EQ(1u, sim.Control("GET", "/vaults/contoso-keys")["keys"][0]["versions"].size());
    EXPECT_EQ(0, Export(key, "RSAPUBLICBLOB").status);
    EXPECT_EQ(0, table->FreeKey(provider, key));
}

}  // namespace
