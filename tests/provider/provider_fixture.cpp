#include "tests/provider/provider_fixture.h"

#include <cstring>

DWORD Answer::number() const
{
    DWORD value = 0;
    EXPECT_EQ(bytes.size(), sizeof(value));
    if (bytes.size() == sizeof(value))
        std::memcpy(&value, bytes.data(), sizeof(value));
    return value;
}

std::string Answer::text() const
{
    TextString wide(bytes.size() / sizeof(WCHAR), 0);
    if (!bytes.empty())
        std::memcpy(wide.data(), bytes.data(), wide.size() * sizeof(WCHAR));
    EXPECT_TRUE(!wide.empty() && wide.back() == 0) << "no terminator";
    return Narrow(wide.substr(0, wide.size() - 1));
}

Bytes WordBytes(DWORD value)
{
    Bytes bytes(sizeof(value));
    std::memcpy(bytes.data(), &value, sizeof(value));
    return bytes;
}

Bytes TextBytes(const std::string& text)
{
    const TextString wide = Wide(text);
    Bytes bytes((wide.size() + 1) * sizeof(WCHAR));
    std::memcpy(bytes.data(), wide.c_str(), bytes.size());
    return bytes;
}

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

Answer ProviderTest::GetProvider(const std::string& name)
{
    const TextString wide = Wide(name);
    DWORD size = 0;
    SECURITY_STATUS status = table->GetProviderProperty(First(), wide.c_str(), nullptr, 0, &size, 0);
    if (status)
        return {status, {}};
    Bytes bytes(size);
    DWORD read = 0;
    status = table->GetProviderProperty(First(), wide.c_str(), bytes.data(), size, &read, 0);
    EXPECT_EQ(size, read) << name;
    return {status, bytes};
}

Answer ProviderTest::GetKey(KSP_KEY* key, const std::string& name, DWORD flags)
{
    const TextString wide = Wide(name);
    const auto handle = Handle(key);
    DWORD size = 0;
    SECURITY_STATUS status = table->GetKeyProperty(First(), handle, wide.c_str(), nullptr, 0, &size, flags);
    if (status)
        return {status, {}};
    // One byte at the least, since a NULL buffer would ask for the size once more.
    Bytes bytes(size + 1);
    DWORD read = 0;
    status = table->GetKeyProperty(First(), handle, wide.c_str(), bytes.data(), size, &read, flags);
    EXPECT_EQ(size, read) << name;
    bytes.resize(size);
    return {status, bytes};
}

SECURITY_STATUS ProviderTest::SetKey(KSP_KEY* key, const std::string& name, const Bytes& value, DWORD flags)
{
    BYTE nothing = 0;
    BYTE* bytes = value.empty() ? &nothing : const_cast<BYTE*>(value.data());
    return table->SetKeyProperty(First(), Handle(key), Wide(name).c_str(), bytes, static_cast<DWORD>(value.size()),
                                 flags);
}

SECURITY_STATUS ProviderTest::SetKeyWord(KSP_KEY* key, const std::string& name, DWORD value, DWORD flags)
{
    return SetKey(key, name, WordBytes(value), flags);
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
