// Provider properties as a host reads and sets them.
#include <cstring>
#include <thread>

#include "tests/provider/provider_fixture.h"

namespace {

TEST_F(ProviderTest, ProviderPropertiesRead)
{
    struct Row {
        const char* property;
        DWORD value;
    };
    const Row rows[] = {{"Impl Type", 1}, {"Max Name Length", 42}, {"Version", 0x10000}, {"Security Descr Support", 0}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.property);
        const Answer answer = GetProvider(row.property);
        EXPECT_EQ(0, answer.status);
        EXPECT_EQ(row.value, answer.number());
        EXPECT_TRUE(root.Logged("KelvaroGetProviderProperty " + std::string(row.property), 4));
        EXPECT_TRUE(root.Logged(
            "KelvaroGetProviderProperty " + std::string(row.property) + " " + std::to_string(row.value), 10));
    }
    EXPECT_EQ(Narrow(kProviderName), GetProvider("Name").text());
    EXPECT_TRUE(root.Logged("KelvaroGetProviderProperty Name " + Narrow(kProviderName), 10));
    EXPECT_EQ(Hex(NTE_NOT_SUPPORTED), Hex(GetProvider("impl type").status));
    EXPECT_EQ(Hex(NTE_NOT_SUPPORTED), Hex(GetProvider("Length").status));
    EXPECT_EQ(Hex(NTE_INTERNAL_ERROR), Hex(GetProvider("Use Context").status));
    EXPECT_TRUE(root.Logged("KelvaroGetProviderProperty Error 0x8009002d", 1));
}

TEST_F(ProviderTest, ProviderUseContextIsMeasuredInsideItsBytes)
{
    const NCRYPT_PROV_HANDLE provider = First();
    const Bytes whole = TextBytes("context");
    struct Row {
        const char* name;
        size_t size;
        const char* text;
    };
    const Row rows[] = {
        {"with its terminator", 16, "context"},
        {"without it", 14, "context"},
        {"half of it", 15, "context"},
        {"a part", 4, "co"},
        {"nothing", 0, ""},
        {"again", 16, "context"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        // A block of exactly that size, so that a read behind it shows.
        const std::unique_ptr<BYTE[]> bytes(new BYTE[row.size]);
        if (row.size)
            std::memcpy(bytes.get(), whole.data(), row.size);
        EXPECT_EQ(0, table->SetProviderProperty(provider, TEXT("Use Context"), bytes.get(),
                                                static_cast<DWORD>(row.size), NCRYPT_SILENT_FLAG));
        EXPECT_EQ(row.text, GetProvider("Use Context").text());
    }
    EXPECT_TRUE(root.Logged("KelvaroSetProviderProperty", 4));
    EXPECT_TRUE(root.Logged("KelvaroSetProviderProperty Use Context co", 10));
}

TEST_F(ProviderTest, ProviderPropertyCallsTestTheirArgumentsInOrder)
{
    const NCRYPT_PROV_HANDLE provider = First();
    const TextString longest(64, 'p'), tooLong(65, 'p');
    const WCHAR* context = TEXT("Use Context");
    BYTE value[4] = {};
    DWORD size = 0;
    struct Row {
        const char* name;
        SECURITY_STATUS expected, got;
    };
    const Row rows[] = {
        {"get: handle", NTE_INVALID_HANDLE, table->GetProviderProperty(0, nullptr, nullptr, 0, nullptr, 1)},
        {"get: name", NTE_INVALID_PARAMETER, table->GetProviderProperty(provider, nullptr, value, 4, &size, 1)},
        {"get: size", NTE_INVALID_PARAMETER, table->GetProviderProperty(provider, context, value, 4, nullptr, 1)},
        {"get: long name", NTE_INVALID_PARAMETER,
         table->GetProviderProperty(provider, tooLong.c_str(), value, 4, &size, 1)},
        {"get: flags", NTE_BAD_FLAGS, table->GetProviderProperty(provider, longest.c_str(), value, 4, &size, 0x41)},
        {"get: unknown", NTE_NOT_SUPPORTED, table->GetProviderProperty(provider, longest.c_str(), value, 4, &size, 0)},
        {"get: short", NTE_BUFFER_TOO_SMALL, table->GetProviderProperty(provider, TEXT("Version"), value, 3, &size, 0)},
        {"set: handle", NTE_INVALID_HANDLE, table->SetProviderProperty(0, nullptr, nullptr, 0, 1)},
        {"set: name", NTE_INVALID_PARAMETER, table->SetProviderProperty(provider, nullptr, value, 4, 1)},
        {"set: long name", NTE_INVALID_PARAMETER, table->SetProviderProperty(provider, tooLong.c_str(), value, 4, 1)},
        {"set: value", NTE_INVALID_PARAMETER, table->SetProviderProperty(provider, context, nullptr, 4, 1)},
        {"set: flags", NTE_BAD_FLAGS,
         table->SetProviderProperty(provider, longest.c_str(), value, 4, NCRYPT_PERSIST_FLAG)},
        {"set: other name", NTE_NOT_SUPPORTED, table->SetProviderProperty(provider, TEXT("Name"), value, 4, 0x40)},
    };
    for (const Row& row : rows)
        EXPECT_EQ(Hex(row.expected), Hex(row.got)) << row.name;
    EXPECT_EQ(4u, size) << "too small a buffer is told the size";
    EXPECT_EQ(7u, LinesWith("KelvaroGetProviderProperty Error 0x80090").size());
    EXPECT_EQ(6u, LinesWith("KelvaroSetProviderProperty Error 0x80090").size());
}

TEST_F(ProviderTest, ProviderUseContextStandsReadersAndWriters)
{
    DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
    root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", 0);
    DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
    const NCRYPT_PROV_HANDLE provider = First();
    const std::string texts[2] = {std::string(20, 'a'), std::string(20, 'b')};
    const auto set = [&](const std::string& text) {
        Bytes bytes = TextBytes(text);
        EXPECT_EQ(0, table->SetProviderProperty(provider, TEXT("Use Context"), bytes.data(),
                                                static_cast<DWORD>(bytes.size()), 0));
    };
    set(texts[0]);
    std::thread writer([&] {
        for (int i = 0; i < 500; i++)
            set(texts[i % 2]);
    });
    for (int i = 0; i < 500; i++) {
        const std::string read = GetProvider("Use Context").text();
        EXPECT_TRUE(read == texts[0] || read == texts[1]) << read;
    }
    writer.join();
}

}  // namespace
