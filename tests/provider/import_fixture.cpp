#include "tests/provider/import_fixture.h"

#include <algorithm>

#include "tests/provider/words.h"

Bytes Der(BYTE tag, const Bytes& contents)
{
    const size_t size = contents.size();
    Bytes head = {tag};
    if (size < 0x80)
        head.push_back(static_cast<BYTE>(size));
    else
        head = head + Bytes{0x82, static_cast<BYTE>(size >> 8), static_cast<BYTE>(size & 0xFF)};
    return head + contents;
}

Bytes WithAttributes(const Bytes& attributes)
{
    const Bytes plain = ReadPkcs8("rsa2048");
    return Der(0x30, Bytes(plain.begin() + 4, plain.end()) + Der(0xA0, attributes));
}

Bytes Attribute(const Bytes& value, const Bytes& objectId)
{
    return Der(0x30, Der(0x06, objectId) + Der(0x31, value));
}

SECURITY_STATUS ImportTest::ImportInto(NCRYPT_KEY_HANDLE* key, const char* type, const Bytes& data,
                                       NCryptBufferDesc* list, DWORD flags)
{
    Bytes copy = data;
    const SECURITY_STATUS status = table->ImportKey(provider, 0, Wide(type).c_str(), list, key, copy.data(),
                                                    static_cast<DWORD>(copy.size()), flags);
    EXPECT_EQ(data, copy);
    return status;
}

std::string ImportTest::Import(const char* type, const Bytes& data, Parameters* parameters, DWORD flags)
{
    FreeImported();
    root.ClearLog();
    NCRYPT_KEY_HANDLE key = 77;
    const SECURITY_STATUS status = ImportInto(&key, type, data, parameters ? parameters->list() : nullptr, flags);
    if (status == 0) {
        EXPECT_EQ(Lines{}, ErrorLines());
        imported_ = key;
        keys.push_back(key);
    } else {
        EXPECT_EQ(Lines{"KelvaroImportKey Error " + Hex(status)}, ErrorLines());
        EXPECT_EQ(77u, key);
        EXPECT_EQ(0u, sim.Journal().size());
    }
    return Hex(status);
}

void ImportTest::ImportRows(const char* type, const Bytes& data, ULONG version, const Bytes& store)
{
    for (const auto& row : SectionRows("keys.txt")) {
        SCOPED_TRACE(testing::PrintToString(row));
        const SECURITY_STATUS status = StatusOfWord(row[0]);
        Parameters parameters = {};
        parameters.version = version;
        for (size_t at = 2; at < row.size(); at += 2)
            parameters.Add(NumberOfWord(row[at]), row[at + 1] == "store" ? store : BytesOfWord(row[at + 1]));
        ASSERT_EQ(Hex(status), Import(type, data, &parameters, kLater));
        if (status == 0) {
            const WCHAR* const name = imported()->pszKeyName;
            EXPECT_EQ(BytesOfWord(row[1]), name ? TextBytes(Narrow(name)) : Bytes());
        }
    }
}

void ImportTest::ExpectNameless(const Bytes& blob, const char* type, bool finalized, bool machine)
{
    EXPECT_EQ(blob, KeptBlob(*imported()));
    EXPECT_NE(blob, Bytes(imported()->pbPrivateKey, imported()->pbPrivateKey + blob.size()));
    EXPECT_EQ(type, Narrow(imported()->pszPrivateBlobType));
    EXPECT_EQ(finalized ? 1u : 0u, imported()->fFinalized);
    EXPECT_EQ(machine ? 1u : 0u, imported()->fMachineKey);
    EXPECT_EQ(ProviderClient(ProviderRecord(), machine), imported()->kvc);
    EXPECT_EQ(nullptr, imported()->pszKeyName);
    EXPECT_EQ("RSA", Narrow(imported()->pszAlgName));
    EXPECT_EQ(reinterpret_cast<const BCRYPT_RSAKEY_BLOB*>(blob.data())->BitLength, imported()->dwBitLength);
    EXPECT_EQ(3u, imported()->dwKeyUsage);
    EXPECT_EQ(&imported()->PropertyList, imported()->PropertyList.next);
    EXPECT_EQ(0u, sim.Journal().size());
}
