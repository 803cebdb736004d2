#include "tests/common/host.h"

#include <algorithm>
#include <cstdio>

#include "provider/entry_points.h"

std::string Hex(SECURITY_STATUS status)
{
    char text[16];
    std::snprintf(text, sizeof(text), "0x%08lx", static_cast<unsigned long>(static_cast<DWORD>(status)));
    return text;
}

void HostTest::SetUp()
{
    sim.Reset();
    WriteClientSettings(root);
    root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", 10);
    DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
    NCRYPT_KEY_STORAGE_FUNCTION_TABLE* found = nullptr;
    ASSERT_EQ(0, GetKeyStorageInterface(TEXT("Zandrel Key Storage Provider for Key Vault"), &found, 0));
    table = found;
}

void HostTest::TearDown()
{
    while (!keys.empty())
        FreeKey(keys.back());
    if (provider)
        FreeProvider(provider);
    DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
}

void HostTest::Reattach()
{
    DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
    DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
}

NCRYPT_PROV_HANDLE HostTest::OpenProvider()
{
    if (!provider) {
        EXPECT_EQ("0x00000000",
                  Hex(table->OpenProvider(&provider, TEXT("Zandrel Key Storage Provider for Key Vault"), 0)));
    }
    return provider;
}

void HostTest::FreeProvider(NCRYPT_PROV_HANDLE opened)
{
    EXPECT_EQ("0x00000000", Hex(table->FreeProvider(opened)));
    if (opened == provider)
        provider = 0;
}

NCRYPT_KEY_HANDLE HostTest::OpenKey(const std::string& name, DWORD flags)
{
    NCRYPT_KEY_HANDLE key = 0;
    EXPECT_EQ("0x00000000", Hex(table->OpenKey(OpenProvider(), &key, Wide(name).c_str(), 0, flags))) << name;
    if (key)
        keys.push_back(key);
    return key;
}

void HostTest::FreeKey(NCRYPT_KEY_HANDLE key)
{
    EXPECT_EQ("0x00000000", Hex(table->FreeKey(provider, key)));
    keys.erase(std::remove(keys.begin(), keys.end(), key), keys.end());
}
