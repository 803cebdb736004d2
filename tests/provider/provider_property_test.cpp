// Provider properties as a host reads and sets them.
#include <cstring>
#include <thread>

#include "tests/provider/provider_fixture.h"

namespace {

TEST_F(ProviderTest, ProviderPropertiesRead)
{
    const std::pair<std::string, DWORD> rows[] = {
        {"Impl Type", 1}, {"Max Name Length", 42}, {"Version", 0x10000}, {"Security Descr Support", 0}};
    for (const auto& [property, value] : rows) {
        EXPECT_EQ(Words({value}), GetProvider(property).bytes) << property;
        EXPECT_TRUE(root.Logged("KelvaroGetProviderProperty " + property, 4));
        EXPECT_TRUE(root.Logged("KelvaroGetProviderProperty " + property + " " + std::to_string(value), 10));
    }
    EXPECT_EQ(TextBytes(Narrow(kProviderName)), GetProvider("Name").bytes);
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
    // With the terminator, without it, with half of it, a part, nothing, and the whole once more.
    const std::pair<size_t, const char*> rows[] = {{16, "context"}, {14, "context"}, {15, "context"},
                                                   {4, "co"},       {0, ""},         {16, "context"}};
    for (const auto& [size, text] : rows) {
        SCOPED_TRACE(size);
        // A block of exactly that size, so that a read behind it shows.
        const std::unique_ptr<BYTE[]> bytes(new BYTE[size]);
        if (size)
            std::memcpy(bytes.get(), whole.data(), size);
        EXPECT_EQ(0, table->SetProviderProperty(provider, TEXT("Use Context"), bytes.get(), static_cast<DWORD>(size),
                                                NCRYPT_SILENT_FLAG));
        EXPECT_EQ(TextBytes(text), GetProvider("Use Context").bytes);
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
        {"get: name", NTE_INVALID_PARAMETER, table->GetProviderProperty(provider, nullptr, value, 4, &size, 1)},
        {"get: size", NTE_INVALID_PARAMETER, table->GetProviderProperty(provider, context, value, 4, nullptr, 1)},
        {"get: long name", NTE_INVALID_PARAMETER,
         table->GetProviderProperty(provider, tooLong.c_str(), value, 4, &size, 1)},
        {"get: flags", NTE_BAD_FLAGS, table->GetProviderProperty(provider, longest.c_str(), value, 4, &size, 0x41)},
        {"get: unknown", NTE_NOT_SUPPORTED, table->GetProviderProperty(provider, longest.c_str(), value, 4, &size, 0)},
        {"get: short", NTE_BUFFER_TOO_SMALL, table->GetProviderProperty(provider, TEXT("Version"), value, 3, &size, 0)},
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
    EXPECT_EQ(6u, LinesWith("KelvaroGetProviderProperty Error 0x80090").size());
    EXPECT_EQ(5u, LinesWith("KelvaroSetProviderProperty Error 0x80090").size());
}

TEST_F(ProviderTest, ProviderUseContextStandsReadersAndWriters)
{
    Quiet();
    const NCRYPT_PROV_HANDLE provider = First();
    const Bytes texts[2] = {TextBytes(std::string(20, 'a')), TextBytes(std::string(20, 'b'))};
    const auto set = [&](Bytes bytes) {
        EXPECT_EQ(0, table->SetProviderProperty(provider, TEXT("Use Context"), bytes.data(),
                                                static_cast<DWORD>(bytes.size()), 0));
    };
    set(texts[0]);
    std::thread writer([&] {
        for (int i = 0; i < 500; i++)
            set(texts[i % 2]);
    });
    for (int i = 0; i < 500; i++) {
        const Bytes read = GetProvider("Use Context").bytes;
        EXPECT_TRUE(read == texts[0] || read == texts[1]);
    }
    writer.join();
}

}  // namespace
