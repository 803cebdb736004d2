#include "tests/provider/provider_fixture.h"

void ProviderTest::SetUp()
{
    root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", 10);
    DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
}

void ProviderTest::TearDown()
{
    for (KSP_KEY* key : keys_)
        EXPECT_EQ(0, DeleteKeyObject(key));
    for (const NCRYPT_PROV_HANDLE provider : providers_)
        EXPECT_EQ(0, table->FreeProvider(provider));
    DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
}

NCRYPT_PROV_HANDLE ProviderTest::Open()
{
    NCRYPT_PROV_HANDLE provider = 0;
    EXPECT_EQ("0x00000000", Hex(table->OpenProvider(&provider, kProviderName, 0)));
    if (provider)
        providers_.push_back(provider);
    return provider;
}

NCRYPT_PROV_HANDLE ProviderTest::First()
{
    return providers_.empty() ? Open() : providers_.front();
}

KSP_KEY* ProviderTest::NewKey(const std::string& algorithm, const std::string& name, DWORD machineFlag)
{
    KSP_KEY* key = nullptr;
    const TextString wideName = Wide(name);
    EXPECT_EQ(
        0, CreateNewKeyObject(name.empty() ? nullptr : wideName.c_str(), Wide(algorithm).c_str(), &key, machineFlag));
    key->kvc = ProviderClient(Record(First()), machineFlag);
    keys_.push_back(key);
    return key;
}

Result ProviderTest::GetProvider(const std::string& name)
{
    return ReadAsked([&](BYTE* output, DWORD size, DWORD* result) {
        return table->GetProviderProperty(First(), Wide(name).c_str(), output, size, result, 0);
    });
}

Result ProviderTest::GetKey(KSP_KEY* key, const std::string& name, DWORD flags)
{
    return ReadAsked([&](BYTE* output, DWORD size, DWORD* result) {
        return table->GetKeyProperty(First(), Handle(key), Wide(name).c_str(), output, size, result, flags);
    });
}

SECURITY_STATUS ProviderTest::SetKey(KSP_KEY* key, const std::string& name, const Bytes& value, DWORD flags)
{
    BYTE nothing = 0;
    BYTE* bytes = value.empty() ? &nothing : const_cast<BYTE*>(value.data());
    return table->SetKeyProperty(First(), Handle(key), Wide(name).c_str(), bytes, static_cast<DWORD>(value.size()),
                                 flags);
}

void ProviderTest::Quiet()
{
    DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
    root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", 0);
    DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
}

void ProviderTest::ClearSettings()
{
    root.RemoveKey(HKEY_LOCAL_MACHINE);
    root.RemoveKey(HKEY_CURRENT_USER);
    root.SetText(HKEY_LOCAL_MACHINE, "LogfilePath", root.logDirectory());
}

std::vector<std::string> ProviderTest::LinesWith(const std::string& part)
{
    std::vector<std::string> found;
    for (const std::string& line : root.LogLines()) {
        if (line.find(part) != std::string::npos)
            found.push_back(line);
    }
    return found;
}
