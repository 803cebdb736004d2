#include "tests/provider/import_fixture.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>

Bytes ReadPkcs8(const std::string& name)
{
    std::ifstream file(std::string(KELVARO_TEST_DATA "/pkcs8/") + name + ".der", std::ios::binary);
    EXPECT_TRUE(file.good()) << name;
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

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

Bytes Attribute(const Bytes& objectId, const Bytes& value)
{
    return Der(0x30, Der(0x06, objectId) + Der(0x31, value));
}

Bytes KeyUsageAttribute(const Bytes& value)
{
    return Attribute({0x55, 0x1D, 0x0F}, value);
}

void Parameters::Add(DWORD type, const Bytes& bytes)
{
    bytes_.push_back(bytes);
    rows.push_back({static_cast<ULONG>(bytes.size()), type, bytes_.back().data()});
}

NCryptBufferDesc* Parameters::list()
{
    list_ = {version, static_cast<ULONG>(rows.size()), rows.data()};
    return &list_;
}

void ImportTest::SetUp()
{
    KeyTest::SetUp();
    OpenProvider();
    root.ClearLog();
}

void ImportTest::TearDown()
{
    FreeImported();
    KeyTest::TearDown();
}

void ImportTest::FreeImported()
{
    if (imported_) {
        EXPECT_EQ(0, table->FreeKey(provider, imported_));
    }
    imported_ = 0;
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

SECURITY_STATUS ImportTest::Import(const char* type, const Bytes& data, Parameters* parameters, DWORD flags)
{
    FreeImported();
    root.ClearLog();
    NCRYPT_KEY_HANDLE key = 77;
    const SECURITY_STATUS status = ImportInto(&key, type, data, parameters ? parameters->list() : nullptr, flags);
    if (status == 0) {
        EXPECT_EQ(std::vector<std::string>{}, ErrorLines());
        imported_ = key;
    } else {
        EXPECT_EQ(std::vector<std::string>{"KelvaroImportKey Error " + Hex(status)}, ErrorLines());
        EXPECT_EQ(77u, key);
        EXPECT_EQ(0u, sim.Journal().size());
    }
    EXPECT_TRUE(root.Logged("KelvaroImportKey", 4));
    return status;
}

void ImportTest::ImportWith(const std::vector<ParameterRow>& rows, const char* type, const Bytes& data, DWORD flags,
                            ULONG version)
{
    for (const ParameterRow& row : rows) {
        SCOPED_TRACE(row.name);
        Parameters parameters;
        parameters.version = version;
        for (const auto& [bufferType, bytes] : row.buffers)
            parameters.Add(bufferType, bytes);
        ASSERT_EQ(Hex(row.status), Hex(Import(type, data, &parameters, flags)));
        if (row.status == 0) {
            EXPECT_EQ(row.keyName, imported()->pszKeyName ? Narrow(imported()->pszKeyName) : "(none)");
        }
    }
}

Bytes ImportTest::KeptBlob() const
{
    const KSP_KEY* key = imported();
    if (!key->pbPrivateKey)
        return {};
    DATA_BLOB sealed = {key->cbPrivateKey, key->pbPrivateKey};
    DATA_BLOB plain = {};
    LPWSTR description = nullptr;
    EXPECT_TRUE(CryptUnprotectData(&sealed, &description, nullptr, nullptr, nullptr, 0, &plain));
    EXPECT_EQ("Private Key", Narrow(description));
    LocalFree(description);
    const Bytes blob(plain.pbData, plain.pbData + plain.cbData);
    LocalFree(plain.pbData);
    // Not even the header stands there as it is.
    EXPECT_EQ(sealed.pbData + sealed.cbData, std::search(sealed.pbData, sealed.pbData + sealed.cbData, blob.begin(),
                                                         blob.begin() + sizeof(BCRYPT_RSAKEY_BLOB)));
    return blob;
}

void ImportTest::ExpectBlobOf(const Bytes& der, DWORD bits) const
{
    const Bytes blob = KeptBlob();
    BCRYPT_RSAKEY_BLOB header = {};
    ASSERT_LT(sizeof(header), blob.size());
    std::memcpy(&header, blob.data(), sizeof(header));
    EXPECT_EQ(DWORD{BCRYPT_RSAFULLPRIVATE_MAGIC}, header.Magic);
    EXPECT_EQ(bits, header.BitLength);
    const DWORD whole = bits / 8;
    const DWORD half = (bits + 15) / 16;
    // In the order of the blob: exponent, modulus, primes, exponents, coefficient, private exponent.
    auto at = blob.begin() + sizeof(header);
    for (const DWORD size : {DWORD{3}, whole, half, half, half, half, half, whole}) {
        ASSERT_GE(blob.end() - at, static_cast<ptrdiff_t>(size));
        Bytes number(at, at + static_cast<ptrdiff_t>(size));
        while (!number.empty() && number.back() == 0)
            number.pop_back();
        std::reverse(number.begin(), number.end());
        EXPECT_NE(der.end(), std::search(der.begin(), der.end(), number.begin(), number.end())) << size;
        EXPECT_LT(size / 2, number.size());
        at += static_cast<ptrdiff_t>(size);
    }
    EXPECT_EQ(blob.end(), at);
}
