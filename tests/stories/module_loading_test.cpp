// The module as the loader meets it: it comes, is used and goes without a trace, and a process may end with it in any
// state.
#include <gtest/gtest.h>

#include <thread>

#include "platform/cng_provider.h"
#include "tests/common/host.h"
#include "tests/common/leftovers.h"

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
    // Loads, uses what needs no network, and unloads; signs with a key as well where `sign` is set.
    static void UseOnce(bool sign)
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
        if (sign)
            SignOnce(table, provider);
        EXPECT_EQ(0, table->FreeProvider(provider));
        EXPECT_TRUE(FreeLibrary(module));
    }
    static void SignOnce(const NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table, NCRYPT_PROV_HANDLE provider)
    {
        NCRYPT_KEY_HANDLE key = 0;
        ASSERT_EQ("0x00000000", Hex(table->OpenKey(provider, &key, TEXT("web"), 0, NCRYPT_MACHINE_KEY_FLAG)));
        BYTE digest[32] = {};
        BYTE signature[64] = {};
        DWORD size = 0;
        EXPECT_EQ(0, table->SignHash(provider, key, nullptr, digest, 32, signature, 64, &size, 0));
        EXPECT_EQ(64u, size);
        EXPECT_EQ(0, table->FreeKey(provider, key));
    }

    Simulator& sim = Simulator::Get();
    TestRoot root;
};

// The system's libraries settle in the first rounds and keep pools that come and go. What a round of the module lost,
// though, would be there at each of them.
TEST_F(ModuleLoadingTest, AHundredTimesLeaveNothingBehind)
{
    // On a thread of its own: what the C library keeps at hand for a thread goes with it.
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
    EXPECT_LT(after.heap, before.heap + 20);
}

// The end of this program is the test: nothing is freed, and it must end as if there had been nothing.
TEST_F(ModuleLoadingTest, TheProcessMayEndWithEverythingOpen)
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
