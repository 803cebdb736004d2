// What a host finds when it loads the module: attach and detach, the table, the refusing entry points, freed buffers.
#include <functional>
#include <thread>

#include "provider/buffer_list.h"
#include "provider/property_list.h"
#include "support/log.h"
#include "tests/provider/provider_fixture.h"

namespace {

bool StartsWith(const std::string& text, const std::string& start)
{
    return text.compare(0, start.size(), start) == 0;
}

class ModuleTest : public testing::Test {
  protected:
    ~ModuleTest() override { DllMain(nullptr, DLL_PROCESS_DETACH, nullptr); }

    TestRoot root;
};

TEST_F(ModuleTest, AttachWritesItsDateThenItsLine)
{
    struct Row {
        const char* name;
        DWORD file, event;
        bool dateLine, attachLine;
    };
    const Row rows[] = {
        {"nothing is logged", 0, 0, false, false},
        {"a level below entry points", 2, 0, true, false},
        {"entry points", 4, 0, true, true},
        {"the event log's level opens the file too", 0, 8, false, true},
        {"both, the file's above", 10, 4, true, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        root.ClearLog();
        root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", row.file);
        root.SetNumber(HKEY_LOCAL_MACHINE, "EVLoggingLevel", row.event);
        EXPECT_EQ(TRUE, DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr));
        EXPECT_NE(nullptr, KelvaroPropertySemaphore);
        const std::string log = root.WholeLog();
        const size_t attachAt = log.find("DllMain DLL_PROCESS_ATTACH ");
        EXPECT_EQ(row.attachLine, attachAt != std::string::npos) << log;
        EXPECT_EQ(row.dateLine, !log.empty() && !StartsWith(log, "Kelvaro: ")) << log;

        EXPECT_EQ(TRUE, DllMain(nullptr, DLL_PROCESS_DETACH, nullptr));
        EXPECT_EQ(nullptr, KelvaroPropertySemaphore);
        EXPECT_EQ(row.attachLine, root.WholeLog().find("DllMain DLL_PROCESS_DETACH ") != std::string::npos);
    }
}

TEST_F(ModuleTest, AttachLineNamesImageAndUserAndThreadsHaveNone)
{
    root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", 10);
    DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
    WCHAR user[257];
    DWORD size = 257;
    ASSERT_TRUE(GetUserNameW(user, &size));
    const std::vector<std::string> lines = root.LogLines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_NE(std::string::npos, lines[0].find("provider_tests")) << lines[0];
    const std::string end = " " + Narrow(user) + " 4";
    EXPECT_EQ(end, lines[0].substr(lines[0].size() - end.size()));

    const HANDLE semaphore = KelvaroPropertySemaphore;
    root.ClearLog();
    EXPECT_EQ(TRUE, DllMain(nullptr, DLL_THREAD_ATTACH, nullptr));
    EXPECT_EQ(TRUE, DllMain(nullptr, DLL_THREAD_DETACH, nullptr));
    EXPECT_EQ("", root.WholeLog());
    EXPECT_EQ(semaphore, KelvaroPropertySemaphore);
}

TEST_F(ModuleTest, MissingSettingsKeyMeansNoLogAtAll)
{
    root.RemoveKey(HKEY_LOCAL_MACHINE);
    EXPECT_EQ(TRUE, DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr));
    EXPECT_EQ("Application", Narrow(EventSourceName));
    EXPECT_EQ(0, LogLevel);
    EXPECT_EQ(0, EVLoggingLevel);
}

TEST_F(ProviderTest, EveryNameGivesTheOneTable)
{
    for (const WCHAR* name : {kProviderName, TEXT("some other name"), static_cast<const WCHAR*>(nullptr)}) {
        NCRYPT_KEY_STORAGE_FUNCTION_TABLE* found = nullptr;
        EXPECT_EQ(0, GetKeyStorageInterface(name, &found, 0xFFFFFFFF));
        EXPECT_EQ(&KelvaroFunctionTable, found);
    }
    EXPECT_EQ(1u, table->Version.MajorVersion);
    EXPECT_EQ(0u, table->Version.MinorVersion);
    EXPECT_TRUE(root.Logged("GetKeyStorageInterface Zandrel Key Storage Provider for Key Vault", 4));
    EXPECT_TRUE(root.Logged("GetKeyStorageInterface (NULL)", 4));
}

// Every slot is called without a provider, with a key handle that leads nowhere and must not be read, and with unknown
// flags. The last line that the call logs shows who answered.
TEST_F(ProviderTest, SlotsLeadToTheirEntryPoints)
{
    constexpr DWORD kBad = 0xFFFFFFFF;
    constexpr SECURITY_STATUS kHandle = NTE_INVALID_HANDLE;
    constexpr SECURITY_STATUS kNever = NTE_NOT_SUPPORTED;  // whatever it is given
    const auto* t = table;
    const NCRYPT_KEY_HANDLE key = 8;
    const struct {
        const char* name;
        SECURITY_STATUS status;
        std::function<SECURITY_STATUS()> call;
    } rows[] = {
        {"OpenProvider", NTE_INVALID_PARAMETER, [=] { return t->OpenProvider(nullptr, nullptr, kBad); }},
        {"OpenKey", kHandle, [=] { return t->OpenKey(0, nullptr, nullptr, 0, kBad); }},
        {"CreatePersistedKey", kHandle, [=] { return t->CreatePersistedKey(0, nullptr, nullptr, nullptr, 0, kBad); }},
        {"GetProviderProperty", kHandle, [=] { return t->GetProviderProperty(0, nullptr, nullptr, 0, nullptr, kBad); }},
        {"GetKeyProperty", kHandle, [=] { return t->GetKeyProperty(0, key, nullptr, nullptr, 0, nullptr, kBad); }},
        {"SetProviderProperty", kHandle, [=] { return t->SetProviderProperty(0, nullptr, nullptr, 0, kBad); }},
        {"SetKeyProperty", kHandle, [=] { return t->SetKeyProperty(0, key, nullptr, nullptr, 0, kBad); }},
        {"FinalizeKey", kHandle, [=] { return t->FinalizeKey(0, key, kBad); }},
        {"DeleteKey", kHandle, [=] { return t->DeleteKey(0, key, kBad); }},
        {"FreeProvider", kHandle, [=] { return t->FreeProvider(0); }},
        {"FreeKey", kHandle, [=] { return t->FreeKey(0, key); }},
        {"FreeBuffer", 0, [=] { return t->FreeBuffer(nullptr); }},
        {"Encrypt", kHandle, [=] { return t->Encrypt(0, key, nullptr, 0, nullptr, nullptr, 0, nullptr, kBad); }},
        {"Decrypt", kHandle, [=] { return t->Decrypt(0, key, nullptr, 0, nullptr, nullptr, 0, nullptr, kBad); }},
        {"IsAlgSupported", kHandle, [=] { return t->IsAlgSupported(0, nullptr, kBad); }},
        {"EnumAlgorithms", kHandle, [=] { return t->EnumAlgorithms(0, 0, nullptr, nullptr, kBad); }},
        {"EnumKeys", kHandle, [=] { return t->EnumKeys(0, nullptr, nullptr, nullptr, kBad); }},
        {"ImportKey", kHandle, [=] { return t->ImportKey(0, 0, nullptr, nullptr, nullptr, nullptr, 0, kBad); }},
        {"ExportKey", kHandle, [=] { return t->ExportKey(0, key, 0, nullptr, nullptr, nullptr, 0, nullptr, kBad); }},
        {"SignHash", kHandle, [=] { return t->SignHash(0, key, nullptr, nullptr, 0, nullptr, 0, nullptr, kBad); }},
        {"VerifySignature", kHandle, [=] { return t->VerifySignature(0, key, nullptr, nullptr, 0, nullptr, 0, kBad); }},
        {"PromptUser", kNever, [=] { return t->PromptUser(8, 8, nullptr, kBad); }},
        {"NotifyChangeKey", kNever, [=] { return t->NotifyChangeKey(0, nullptr, 0); }},
        {"SecretAgreement", kNever, [=] { return t->SecretAgreement(8, 8, 8, nullptr, 0); }},
        {"DeriveKey", kNever, [=] { return t->DeriveKey(0, 8, nullptr, nullptr, nullptr, 0, nullptr, 0); }},
        {"FreeSecret", kNever, [=] { return t->FreeSecret(8, 8); }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        root.ClearLog();
        EXPECT_EQ(Hex(row.status), Hex(row.call()));
        const std::vector<std::string> lines = root.LogLines();
        ASSERT_FALSE(lines.empty());
        const std::string entryPoint = std::string("Kelvaro") + row.name;
        EXPECT_TRUE(StartsWith(lines.back(), entryPoint + " ")) << lines.back();
        if (row.status == kHandle) {
            EXPECT_NE(std::string::npos, lines.back().find(" Error 0x80090026 1")) << lines.back();
        }
        if (row.status == kNever) {
            EXPECT_EQ(std::vector<std::string>{entryPoint + " 1"}, lines);
        }
    }
}

void* NewBlock()
{
    return HeapAlloc(GetProcessHeap(), 0, 16);
}

TEST_F(ProviderTest, FreeBufferFreesListedAndUnlistedBlocks)
{
    void* listed[3] = {NewBlock(), NewBlock(), NewBlock()};
    for (void* block : listed)
        EXPECT_NE(nullptr, KelvaroRegisterBuffer(block, BufferKind::KeyName));
    EXPECT_EQ(nullptr, KelvaroRegisterBuffer(listed[1], BufferKind::KeyName)) << "no block is in the list twice";

    EXPECT_EQ(0, table->FreeBuffer(NewBlock()));
    EXPECT_EQ(0, table->FreeBuffer(nullptr));
    EXPECT_EQ(0, table->FreeBuffer(listed[1]));
    EXPECT_FALSE(KelvaroIsRegistered(listed[1], BufferKind::KeyName));
    EXPECT_TRUE(KelvaroIsRegistered(listed[0], BufferKind::KeyName));
    EXPECT_TRUE(KelvaroIsRegistered(listed[2], BufferKind::KeyName));
    EXPECT_EQ(0, table->FreeBuffer(listed[2]));
    EXPECT_EQ(0, table->FreeBuffer(listed[0]));
    EXPECT_EQ(5u, LinesWith("KelvaroFreeBuffer 4").size());
}

TEST_F(ProviderTest, BufferListStandsManyThreads)
{
    Quiet();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++) {
        threads.emplace_back([this] {
            for (int round = 0; round < 200; round++) {
                void* blocks[2] = {NewBlock(), NewBlock()};
                for (void* block : blocks)
                    EXPECT_NE(nullptr, KelvaroRegisterBuffer(block, BufferKind::KeyName));
                for (void* block : blocks)
                    EXPECT_EQ(0, table->FreeBuffer(block));
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

}  // namespace
