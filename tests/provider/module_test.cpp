// What a host finds when it loads the module: attach and detach, the table, the refusing entry points, freed buffers.
#include <cstring>
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
    uint32_t version = 0;
    static_assert(sizeof(table->Version) == sizeof(version));
    std::memcpy(&version, &table->Version, sizeof(version));
    EXPECT_EQ(1u, version);
    EXPECT_TRUE(root.Logged("GetKeyStorageInterface Zandrel Key Storage Provider for Key Vault", 4));
    EXPECT_TRUE(root.Logged("GetKeyStorageInterface (NULL)", 4));
}

// Every slot is called with nothing, and the last line that the call logs tells who answered.
TEST_F(ProviderTest, SlotsLeadToTheirEntryPoints)
{
    using Table = const NCRYPT_KEY_STORAGE_FUNCTION_TABLE*;
    struct Row {
        const char* name;
        void (*call)(Table t);
    };
    const Row rows[] = {
        {"OpenProvider", [](Table t) { t->OpenProvider(nullptr, nullptr, 0); }},
        {"OpenKey", [](Table t) { t->OpenKey(0, nullptr, nullptr, 0, 0); }},
        {"CreatePersistedKey", [](Table t) { t->CreatePersistedKey(0, nullptr, nullptr, nullptr, 0, 0); }},
        {"GetProviderProperty", [](Table t) { t->GetProviderProperty(0, nullptr, nullptr, 0, nullptr, 0); }},
        {"GetKeyProperty", [](Table t) { t->GetKeyProperty(0, 0, nullptr, nullptr, 0, nullptr, 0); }},
        {"SetProviderProperty", [](Table t) { t->SetProviderProperty(0, nullptr, nullptr, 0, 0); }},
        {"SetKeyProperty", [](Table t) { t->SetKeyProperty(0, 0, nullptr, nullptr, 0, 0); }},
        {"FinalizeKey", [](Table t) { t->FinalizeKey(0, 0, 0); }},
        {"DeleteKey", [](Table t) { t->DeleteKey(0, 0, 0); }},
        {"FreeProvider", [](Table t) { t->FreeProvider(0); }},
        {"FreeKey", [](Table t) { t->FreeKey(0, 0); }},
        {"FreeBuffer", [](Table t) { t->FreeBuffer(nullptr); }},
        {"Encrypt", [](Table t) { t->Encrypt(0, 0, nullptr, 0, nullptr, nullptr, 0, nullptr, 0); }},
        {"Decrypt", [](Table t) { t->Decrypt(0, 0, nullptr, 0, nullptr, nullptr, 0, nullptr, 0); }},
        {"IsAlgSupported", [](Table t) { t->IsAlgSupported(0, nullptr, 0); }},
        {"EnumAlgorithms", [](Table t) { t->EnumAlgorithms(0, 0, nullptr, nullptr, 0); }},
        {"EnumKeys", [](Table t) { t->EnumKeys(0, nullptr, nullptr, nullptr, 0); }},
        {"ImportKey", [](Table t) { t->ImportKey(0, 0, nullptr, nullptr, nullptr, nullptr, 0, 0); }},
        {"ExportKey", [](Table t) { t->ExportKey(0, 0, 0, nullptr, nullptr, nullptr, 0, nullptr, 0); }},
        {"SignHash", [](Table t) { t->SignHash(0, 0, nullptr, nullptr, 0, nullptr, 0, nullptr, 0); }},
        {"VerifySignature", [](Table t) { t->VerifySignature(0, 0, nullptr, nullptr, 0, nullptr, 0, 0); }},
        {"PromptUser", [](Table t) { t->PromptUser(0, 0, nullptr, 0); }},
        {"NotifyChangeKey", [](Table t) { t->NotifyChangeKey(0, nullptr, 0); }},
        {"SecretAgreement", [](Table t) { t->SecretAgreement(0, 0, 0, nullptr, 0); }},
        {"DeriveKey", [](Table t) { t->DeriveKey(0, 0, nullptr, nullptr, nullptr, 0, nullptr, 0); }},
        {"FreeSecret", [](Table t) { t->FreeSecret(0, 0); }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        root.ClearLog();
        row.call(table);
        const std::vector<std::string> lines = root.LogLines();
        ASSERT_FALSE(lines.empty());
        EXPECT_TRUE(StartsWith(lines.back(), std::string("Kelvaro") + row.name + " ")) << lines.back();
    }
}

TEST_F(ProviderTest, RefusingEntryPointsRefuseWhateverTheyAreGiven)
{
    auto* nowhere = reinterpret_cast<WCHAR*>(8);
    struct Row {
        const char* line;
        SECURITY_STATUS status;
    };
    const Row rows[] = {
        {"KelvaroPromptUser 1", table->PromptUser(8, 8, nowhere, 0xFFFFFFFF)},
        {"KelvaroNotifyChangeKey 1", table->NotifyChangeKey(0, reinterpret_cast<HANDLE*>(8), 0)},
        {"KelvaroSecretAgreement 1", table->SecretAgreement(8, 8, 8, nullptr, 0)},
        {"KelvaroDeriveKey 1", table->DeriveKey(0, 8, nowhere, nullptr, nullptr, 8, nullptr, 0)},
        {"KelvaroFreeSecret 1", table->FreeSecret(8, 8)},
    };
    const std::vector<std::string> lines = LinesWith("");
    const size_t first = lines.size() - std::size(rows);
    for (size_t i = 0; i < std::size(rows); i++) {
        EXPECT_EQ(Hex(NTE_NOT_SUPPORTED), Hex(rows[i].status)) << rows[i].line;
        EXPECT_EQ(rows[i].line, lines[first + i]);
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
        EXPECT_NE(nullptr, KelvaroRegisterBuffer(block));
    EXPECT_EQ(nullptr, KelvaroRegisterBuffer(listed[1])) << "no block stands in the list twice";

    EXPECT_EQ(0, table->FreeBuffer(NewBlock()));
    EXPECT_EQ(0, table->FreeBuffer(nullptr));
    EXPECT_EQ(0, table->FreeBuffer(listed[1]));
    EXPECT_FALSE(KelvaroIsRegistered(listed[1]));
    EXPECT_TRUE(KelvaroIsRegistered(listed[0]));
    EXPECT_TRUE(KelvaroIsRegistered(listed[2]));
    EXPECT_EQ(0, table->FreeBuffer(listed[2]));
    EXPECT_EQ(0, table->FreeBuffer(listed[0]));
    EXPECT_EQ(5u, LinesWith("KelvaroFreeBuffer 4").size());
}

TEST_F(ProviderTest, BufferListStandsManyThreads)
{
    DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
    root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", 0);
    DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++) {
        threads.emplace_back([this] {
            for (int round = 0; round < 200; round++) {
                void* blocks[2] = {NewBlock(), NewBlock()};
                for (void* block : blocks)
                    EXPECT_NE(nullptr, KelvaroRegisterBuffer(block));
                for (void* block : blocks)
                    EXPECT_EQ(0, table->FreeBuffer(block));
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

}  // namespace
