// The built module: it is loaded, used and unloaded without a trace, and a process may end while it is in use.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "platform/cng_provider.h"
#include "tests/common/host.h"
#include "tests/common/leftovers.h"

namespace fs = std::filesystem;

namespace {

class ModuleLoadingTest : public testing::Test {
  protected:
    void SetUp() override
    {
        sim.Reset();
        sim.AddKey(Simulator::kVault, {{"name", "web"}, {"kty", "EC"}, {"crv", "P-256"}});
        WriteClientSettings(root);
        root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", 4);
    }
    // Loads the module; the table of its export.
    static const NCRYPT_KEY_STORAGE_FUNCTION_TABLE* Load(HMODULE* module)
    {
        *module = LoadLibraryW(Wide(KELVARO_MODULE_PATH).c_str());
        const auto get = reinterpret_cast<GetKeyStorageInterfaceFn>(
            reinterpret_cast<void (*)()>(GetProcAddress(*module, "GetKeyStorageInterface")));
        NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table = nullptr;
        return get && get(TEXT("any name"), &table, 0) == 0 ? table : nullptr;
    }
    // Loads the module, uses what needs no network, and unloads it.
    static void UseOnce(bool signs)
    {
        HMODULE module = nullptr;
        const NCRYPT_KEY_STORAGE_FUNCTION_TABLE* const table = Load(&module);
        ASSERT_NE(nullptr, table);
        NCRYPT_PROV_HANDLE provider = 0;
        ASSERT_EQ(0, table->OpenProvider(&provider, TEXT("any name"), 0));
        DWORD algorithms = 0;
        NCryptAlgorithmName* names = nullptr;
        EXPECT_EQ(0, table->EnumAlgorithms(provider, 0, &algorithms, &names, 0));
        EXPECT_GT(algorithms, 0u);
        EXPECT_EQ(0, table->FreeBuffer(names));
        if (signs)
            SignOnce(table, provider);
        EXPECT_EQ(0, table->FreeProvider(provider));
        EXPECT_TRUE(FreeLibrary(module));
    }
    static void SignOnce(const NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table, NCRYPT_PROV_HANDLE provider)
    {
        NCRYPT_KEY_HANDLE key = 0;
        EXPECT_EQ("0x00000000", Hex(table->OpenKey(provider, &key, TEXT("web"), 0, NCRYPT_MACHINE_KEY_FLAG)));
        BYTE digest[32] = {};
        BYTE signature[132];
        DWORD size = 0;
        EXPECT_EQ(0, table->SignHash(provider, key, nullptr, digest, 32, signature, sizeof(signature), &size, 0));
        EXPECT_EQ(64u, size);
        EXPECT_EQ(0, table->FreeKey(provider, key));
    }

    Simulator& sim = Simulator::Get();
    TestRoot root;
};

// The libraries below fill their caches in the first rounds and vary a little afterwards. A leak of the module would
// grow with each round.
TEST_F(ModuleLoadingTest, AHundredRoundsLeaveNothingBehind)
{
    // On a separate thread, so that the C library's per-thread data is freed with it.
    const auto rounds = [](int count) {
        std::thread([count] {
            for (int i = 0; i < count; i++)
                UseOnce(i % 5 == 0);
        }).join();
    };
    rounds(10);
    const Holdings before = TakeStock();
    rounds(100);
    const Holdings after = TakeStock();
    EXPECT_LT(after.threads, before.threads + 10);
    EXPECT_LT(after.handles, before.handles + 10);
    // A block counts two units at least, and 20 rounds sign. Freed blocks in the C library's caches are up to 25 units.
    EXPECT_LT(after.heap, before.heap + 40);
}

TEST_F(ModuleLoadingTest, LeavesNoSecretOnTheDisk)
{
    for (const char* level : {"LoggingLevel", "EVLoggingLevel"})
        root.SetNumber(HKEY_LOCAL_MACHINE, level, 10);
    UseOnce(true);
    UseOnce(true);  // now with the protected secret
    std::string token;
    for (const auto& request : sim.Journal()) {
        for (const std::string header : request["headers"]) {
            if (header.rfind("Authorization: Bearer ", 0) == 0)
                token = header.substr(22);
        }
    }
    ASSERT_GT(token.size(), 100u);
    ASSERT_NE(std::string::npos, root.WholeLog().find("KVCDoKVRESTCall url")) << "logs everything";

    // On Linux this folder also has the hives, the event log and the master keys.
    for (const auto& entry : fs::recursive_directory_iterator(root.directory())) {
        if (!entry.is_regular_file())
            continue;
        std::ostringstream content;
        content << std::ifstream(entry.path(), std::ios::binary).rdbuf();
        for (const std::string& secret : {token, std::string(Simulator::kClientSecret)}) {
            std::string wide;
            for (const char ch : secret)
                wide += std::string{ch, '\0'};
            EXPECT_EQ(std::string::npos, content.str().find(secret)) << entry.path();
            EXPECT_EQ(std::string::npos, content.str().find(wide)) << entry.path();
        }
    }
    EXPECT_EQ("", root.GetText(HKEY_LOCAL_MACHINE, "ClientSecret"));
    EXPECT_NE("", root.GetText(HKEY_LOCAL_MACHINE, "ClientDPAPISecret"));
}

// Frees nothing: the test program itself must end normally.
TEST_F(ModuleLoadingTest, AProcessMayEndWithEverythingOpen)
{
    static HMODULE module;
    static NCRYPT_PROV_HANDLE provider;
    static NCRYPT_KEY_HANDLE key;
    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE* const table = Load(&module);
    ASSERT_NE(nullptr, table);
    EXPECT_EQ(0, table->OpenProvider(&provider, TEXT("any name"), 0));
    EXPECT_EQ(0, table->OpenKey(provider, &key, TEXT("web"), 0, NCRYPT_MACHINE_KEY_FLAG));
}

}  // namespace
