// Every allocation fails once: the call answers as it should and leaves nothing behind. Leaks show in the sanitized
// builds.
#include "provider/buffer_list.h"
#include "provider/property_list.h"
#include "tests/provider/fail_each.h"
#include "tests/provider/provider_fixture.h"

namespace {

// For a call that fails with every one of its allocations.
void ExpectNoMemory(const std::function<SECURITY_STATUS()>& call)
{
    const size_t failures = FailEach(call, [](SECURITY_STATUS status, size_t failAt) {
        EXPECT_EQ(Hex(NTE_NO_MEMORY), Hex(status)) << "allocation " << failAt;
    });
    EXPECT_GT(failures, 0u);
}

// Quiet, since the log's own work allocates on some platforms.
class AllocFailureTest : public ProviderTest {
  protected:
    void SetUp() override
    {
        root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", 0);
        DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
    }
};

TEST_F(AllocFailureTest, OpenFailsOnItsRecordAloneAndLosesNoSecret)
{
    const auto set = [&](const char* secret) { root.SetText(HKEY_LOCAL_MACHINE, "ClientSecret", secret); };
    const auto secretOf = [&] { return Narrow(KVCText(Record(Open())->machineKvc->clientSecret)); };
    size_t refused = 0;
    bool reached = true;
    for (size_t failAt = 0; reached; failAt++) {
        SCOPED_TRACE(failAt);
        set("old");
        ASSERT_EQ("old", secretOf());
        set("new");
        NCRYPT_PROV_HANDLE provider = 0;
        {
            const AllocFault fault(failAt);
            const SECURITY_STATUS status = table->OpenProvider(&provider, kProviderName, 0);
            reached = fault.Seen() > failAt;
            EXPECT_EQ(Hex(provider ? 0 : NTE_NO_MEMORY), Hex(status));
        }
        if (provider) {
            const KVCClient* kvc = Record(provider)->machineKvc;
            EXPECT_TRUE(!kvc || !kvc->clientSecret || Narrow(KVCText(kvc->clientSecret)) == "new");
            EXPECT_EQ(0, table->FreeProvider(provider));
        } else {
            EXPECT_EQ(refused++, failAt) << "the record comes first";
        }
        EXPECT_EQ("new", secretOf());
    }
    EXPECT_GT(refused, 0u);
}

TEST_F(AllocFailureTest, KeyObjectsAndBuffers)
{
    KSP_KEY* key = nullptr;
    ExpectNoMemory([&] { return CreateNewKeyObject(TEXT("name"), TEXT("RSA"), &key, 0); });
    EXPECT_EQ(0, DeleteKeyObject(key));

    void* block = HeapAlloc(GetProcessHeap(), 0, 8);
    ExpectNoMemory([&] { return KelvaroRegisterBuffer(block, BufferKind::KeyName) ? 0 : NTE_NO_MEMORY; });
    EXPECT_EQ(0, table->FreeBuffer(block));
}

TEST_F(AllocFailureTest, StoredPropertyGivesWayBeforeItsSuccessor)
{
    KSP_KEY* key = NewKey("RSA");
    ASSERT_EQ(0, SetKey(key, "mine", {1}, NCRYPT_PERSIST_ONLY_FLAG));
    ASSERT_EQ(0, SetKey(key, "other", {2}, NCRYPT_PERSIST_ONLY_FLAG));
    BYTE value[1] = {3};
    ExpectNoMemory([&] {
        const SECURITY_STATUS status =
            table->SetKeyProperty(First(), Handle(key), TEXT("mine"), value, 1, NCRYPT_PERSIST_ONLY_FLAG);
        KSP_PROPERTY* found = nullptr;
        EXPECT_EQ(status == 0, FindKeyProperty(key, TEXT("mine"), &found) == 0);
        return status;
    });
    EXPECT_EQ(Bytes{3}, GetKey(key, "mine", NCRYPT_PERSIST_ONLY_FLAG).bytes);
    EXPECT_EQ(Bytes{2}, GetKey(key, "other", NCRYPT_PERSIST_ONLY_FLAG).bytes);
}

// What becomes of the value that was there: some are replaced at once, others go first.
TEST_F(AllocFailureTest, BuiltinPropertiesKeepOrLoseTheirOldValue)
{
    KSP_KEY* key = NewKey("RSA");
    Bytes context = TextBytes("first");
    ASSERT_EQ(0, SetKey(key, "Use Context", context));
    context = TextBytes("second");
    ExpectNoMemory([&] {
        const SECURITY_STATUS status =
            table->SetKeyProperty(First(), Handle(key), TEXT("Use Context"), context.data(), 14, 0);
        EXPECT_EQ(status ? "first" : "second", Narrow(key->pszUseContext));
        return status;
    });

    SECURITY_DESCRIPTOR empty = {};
    ASSERT_TRUE(InitializeSecurityDescriptor(&empty, SECURITY_DESCRIPTOR_REVISION));
    BYTE* descriptor = reinterpret_cast<BYTE*>(&empty);
    ASSERT_EQ(0, SetKey(key, "Security Descr", Bytes(descriptor, descriptor + sizeof(empty)), 4));
    ExpectNoMemory([&] {
        const SECURITY_STATUS status =
            table->SetKeyProperty(First(), Handle(key), TEXT("Security Descr"), descriptor, sizeof(empty), 4);
        EXPECT_EQ(status ? 0u : sizeof(empty), key->cbSecurityDescr);
        EXPECT_EQ(status != 0, key->pbSecurityDescr == nullptr);
        return status;
    });

    Bytes blob = RsaBlob(2048);
    ASSERT_EQ(0, SetKey(key, "PRIVATEBLOB", blob));
    const BYTE* kept = key->pbPrivateKey;
    FailEach(
        [&] {
            return table->SetKeyProperty(First(), Handle(key), TEXT("PRIVATEBLOB"), blob.data(),
                                         static_cast<DWORD>(blob.size()), 0);
        },
        [&](SECURITY_STATUS status, size_t) {
            EXPECT_TRUE(status == NTE_NO_MEMORY || status == NTE_INTERNAL_ERROR) << Hex(status);
            EXPECT_EQ(kept, key->pbPrivateKey);
        });
}

TEST_F(AllocFailureTest, ProviderContextIsGoneAfterAFailure)
{
    Bytes context = TextBytes("context");
    ASSERT_EQ(0, table->SetProviderProperty(First(), TEXT("Use Context"), context.data(), 16, 0));
    ExpectNoMemory([&] {
        const SECURITY_STATUS status = table->SetProviderProperty(First(), TEXT("Use Context"), context.data(), 16, 0);
        EXPECT_EQ(status != 0, Record(First())->pszUseContext == nullptr);
        return status;
    });
    EXPECT_EQ(TextBytes("context"), GetProvider("Use Context").bytes);
}

}  // namespace
