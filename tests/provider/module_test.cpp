// What a host finds when it loads the module: attach and detach, the table, the refusing entry points, freed buffers.
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

TEST_F(ModuleTest, AttachLineNamesImageAndUser)
{
    root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", 4);
    DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
    WCHAR user[257];
    DWORD size = 257;
    ASSERT_TRUE(GetUserNameW(user, &size));
    const std::vector<std::string> lines = root.LogLines();
    ASSERT_EQ(1u, lines.size());
    EXPECT_NE(std::string::npos, lines[0].find("provider_tests")) << lines[0];
    const std::string end = " " + Narrow(user) + " 4";
    EXPECT_EQ(end, lines[0].substr(lines[0].size() - end.size()));
}

TEST_F(ModuleTest, ThreadsComeAndGoWithoutATrace)
{
    root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", 10);
    DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
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

// Every slot is called with nothing or nonsense, and the last line that the call logs tells who answered.
TEST_F(ProviderTest, SlotsLeadToTheirEntryPoints)
{
    using Table = const NCRYPT_KEY_STORAGE_FUNCTION_TABLE*;
    struct Row {
        const char* name;
        bool refuses;  // whatever it is given
        SECURITY_STATUS (*call)(Table t);
    };
    const Row rows[] = {
        {"OpenProvider", false, [](Table t) { return t->OpenProvider(nullptr, nullptr, 0); }},
        {"OpenKey", false, [](Table t) { return t->OpenKey(0, nullptr, nullptr, 0, 0); }},
        {"CreatePersistedKey", false,
         [](Table t) { return t->CreatePersistedKey(0, nullptr, nullptr, nullptr, 0, 0); }},
        {"GetProviderProperty", false,
         [](Table t) { return t->GetProviderProperty(0, nullptr, nullptr, 0, nullptr, 0); }},
        {"GetKeyProperty", false, [](Table t) { return t->GetKeyProperty(0, 0, nullptr, nullptr, 0, nullptr, 0); }},
        {"SetProviderProperty", false, [](Table t) { return t->SetProviderProperty(0, nullptr, nullptr, 0, 0); }},
        {"SetKeyProperty", false, [](Table t) { return t->SetKeyProperty(0, 0, nullptr, nullptr, 0, 0); }},
        {"FinalizeKey", false, [](Table t) { return t->FinalizeKey(0, 0, 0); }},
        {"DeleteKey", false, [](Table t) { return t->DeleteKey(0, 0, 0); }},
        {"FreeProvider", false, [](Table t) { return t->FreeProvider(0); }},
        {"FreeKey", false, [](Table t) { return t->FreeKey(0, 0); }},
        {"FreeBuffer", false, [](Table t) { return t->FreeBuffer(nullptr); }},
        {"Encrypt", false, [](Table t) { return t->Encrypt(0, 0, nullptr, 0, nullptr, nullptr, 0, nullptr, 0); }},
        {"Decrypt", false, [](Table t) { return t->Decrypt(0, 0, nullptr, 0, nullptr, nullptr, 0, nullptr, 0); }},
        {"IsAlgSupported", false, [](Table t) { return t->IsAlgSupported(0, nullptr, 0); }},
        {"EnumAlgorithms", false, [](Table t) { return t->EnumAlgorithms(0, 0, nullptr, nullptr, 0); }},
        {"EnumKeys", false, [](Table t) { return t->EnumKeys(0, nullptr, nullptr, nullptr, 0); }},
        {"ImportKey", false, [](Table t) { return t->ImportKey(0, 0, nullptr, nullptr, nullptr, nullptr, 0, 0); }},
        {"ExportKey", false, [](Table t) { return t->ExportKey(0, 0, 0, nullptr, nullptr, nullptr, 0, nullptr, 0); }},
        {"SignHash", false, [](Table t) { return t->SignHash(0, 0, nullptr, nullptr, 0, nullptr, 0, nullptr, 0); }},
        {"VerifySignature", false,
         [](Table t) { return t->VerifySignature(0, 0, nullptr, nullptr, 0, nullptr, 0, 0); }},
        {"PromptUser", true, [](Table t) { return t->PromptUser(8, 8, nullptr, 0xFFFFFFFF); }},
        {"NotifyChangeKey", true, [](Table t) { return t->NotifyChangeKey(0, nullptr, 0); }},
        {"SecretAgreement", true, [](Table t) { return t->SecretAgreement(8, 8, 8, nullptr, 0); }},
        {"DeriveKey", true, [](Table t) { return t->DeriveKey(0, 8, nullptr, nullptr, nullptr, 0, nullptr, 0); }},
        {"FreeSecret", true, [](Table t) { return t->FreeSecret(8, 8); }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        root.ClearLog();
        const SECURITY_STATUS status = row.call(table);
        const std::vector<std::string> lines = root.LogLines();
        ASSERT_FALSE(lines.empty());
        EXPECT_TRUE(StartsWith(lines.back(), std::string("Kelvaro") + row.name + " ")) << lines.back();
        if (row.refuses) {
            EXPECT_EQ(Hex(NTE_NOT_SUPPORTED), Hex(status));
            EXPECT_EQ(std::vector<std::string>{std::string("Kelvaro") + row.name + " 1"}, lines);
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
        EXPECT_NE(nullptr, KelvaroRegisterBuffer(block, BufferKind::keyName));
    EXPECT_EQ(nullptr, KelvaroRegisterBuffer(listed[1], BufferKind::keyName)) << "no block stands in the list twice";

    EXPECT_EQ(0, table->FreeBuffer(NewBlock()));
    EXPECT_EQ(0, table->FreeBuffer(nullptr));
    EXPECT_EQ(0, table->FreeBuffer(listed[1]));
    EXPECT_FALSE(KelvaroIsRegistered(listed[1], BufferKind::keyName));
    EXPECT_TRUE(KelvaroIsRegistered(listed[0], BufferKind::keyName));
    EXPECT_TRUE(KelvaroIsRegistered(listed[2], BufferKind::keyName));
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
                    EXPECT_NE(nullptr, KelvaroRegisterBuffer(block, BufferKind::keyName));
                for (void* block : blocks)
                    EXPECT_EQ(0, table->FreeBuffer(block));
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

}  // namespace
