// Import of CNG's own blobs, and what all imports have in common.
#include "tests/provider/import_fixture.h"

namespace {

TEST_F(ImportTest, TheOrderOfTheTests)
{
    const struct {
        const char* name;
        bool output, data;
        DWORD cbData;
        const char* type;
        DWORD flags;
        SECURITY_STATUS status;
    } rows[] = {
        {"no output", false, true, 4, "x", 0x1, NTE_INVALID_PARAMETER},
        {"no data", true, false, 4, "x", 0x1, NTE_INVALID_PARAMETER},
        {"empty data", true, true, 0, "x", 0x1, NTE_INVALID_PARAMETER},
        {"unknown flag before a refused one", true, true, 4, "x", 0x21, NTE_BAD_FLAGS},
        {"unknown flag 0x100", true, true, 4, "x", 0x100, NTE_BAD_FLAGS},
        {"machine key, whatever the type", true, true, 4, "x", 0x20, NTE_NOT_SUPPORTED},
        {"legacy store", true, true, 4, "PUBLICBLOB", 0x200, NTE_NOT_SUPPORTED},
        {"unknown type", true, true, 4, "x", 0x6E8 & ~0x220, NTE_NOT_SUPPORTED},
        {"type in another case", true, true, 4, "publicblob", 0, NTE_NOT_SUPPORTED},
        {"no type", true, true, 4, nullptr, 0, NTE_NOT_SUPPORTED},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        NCRYPT_KEY_HANDLE key = 77;
        BYTE data[4] = {};
        root.ClearLog();
        const TextString type = Wide(row.type ? row.type : "");
        EXPECT_EQ(Hex(row.status),
                  Hex(table->ImportKey(provider, 0, row.type ? type.c_str() : nullptr, nullptr,
                                       row.output ? &key : nullptr, row.data ? data : nullptr, row.cbData, row.flags)));
        EXPECT_EQ(std::vector<std::string>{"KelvaroImportKey Error " + Hex(row.status)}, ErrorLines());
        EXPECT_EQ(77u, key);
    }
    EXPECT_EQ(0u, sim.Journal().size());
}

TEST_F(ImportTest, PublicKeysNeverGetIn)
{
    const struct {
        const char* type;
        size_t size;
        DWORD flags;
        SECURITY_STATUS status;
    } rows[] = {
        {"PUBLICBLOB", 3, 0, NTE_INVALID_PARAMETER},
        {"PUBLICBLOB", 4, 0, NTE_INTERNAL_ERROR},
        {"PUBLICBLOB", 300, NCRYPT_SILENT_FLAG | NCRYPT_NO_KEY_VALIDATION, NTE_INTERNAL_ERROR},
        {"PUBLICBLOB", 4, NCRYPT_OVERWRITE_KEY_FLAG, NTE_BAD_FLAGS},
        {"PUBLICBLOB", 4, kLater, NTE_BAD_FLAGS},
        {"PUBLICBLOB", 3, kLater, NTE_INVALID_PARAMETER},
        {"RSAPUBLICBLOB", 1, 0, NTE_INTERNAL_ERROR},
        {"RSAPUBLICBLOB", 1, NCRYPT_OVERWRITE_KEY_FLAG, NTE_BAD_FLAGS},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.type + std::to_string(row.size) + " " + Hex(static_cast<LONG>(row.flags)));
        EXPECT_EQ(Hex(row.status), Hex(Import(row.type, Bytes(row.size, 0), nullptr, row.flags)));
        EXPECT_TRUE(root.Logged("DeleteKeyObject Complete", 8) || row.status == NTE_INVALID_PARAMETER);
    }
}

TEST_F(ImportTest, PrivateBlobsByLengthAndFlag)
{
    const Bytes good = RsaBlob(2048);
    const struct {
        const char* name;
        const char* type;
        Bytes data;
        DWORD flags;
        SECURITY_STATUS status;
        const char* kept;
    } rows[] = {
        {"good", "RSAPRIVATEBLOB", good, kLater, 0, "RSAPRIVATEBLOB"},
        {"full", "RSAFULLPRIVATEBLOB", RsaBlob(4096, 0x33415352), kLater, 0, "RSAFULLPRIVATEBLOB"},
        {"any type of blob is kept under its own name", "PRIVATEBLOB", RsaBlob(3072, 0x33415352), kLater, 0,
         "RSAPRIVATEBLOB"},
        {"the name of the type counts, not the magic", "RSAFULLPRIVATEBLOB", good, kLater, 0, "RSAFULLPRIVATEBLOB"},
        {"not to be left pending", "RSAPRIVATEBLOB", good, 0, NTE_INTERNAL_ERROR, nullptr},
        {"1024 bits", "RSAPRIVATEBLOB", RsaBlob(1024), kLater, NTE_NOT_SUPPORTED, nullptr},
        {"1024 bits come before the flag", "RSAPRIVATEBLOB", RsaBlob(1024), 0, NTE_NOT_SUPPORTED, nullptr},
        {"one byte", "RSAPRIVATEBLOB", Bytes(1, 0), kLater, NTE_NOT_SUPPORTED, nullptr},
        {"three bytes", "PRIVATEBLOB", Bytes(3, 0), kLater, NTE_INVALID_PARAMETER, nullptr},
        {"four bytes", "PRIVATEBLOB", Bytes(4, 0), kLater, NTE_NOT_SUPPORTED, nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ASSERT_EQ(Hex(row.status), Hex(Import(row.type, row.data, nullptr, row.flags)));
        if (row.status != 0)
            continue;
        EXPECT_EQ(row.kept, Narrow(imported()->pszPrivateBlobType));
        EXPECT_EQ(row.data, KeptBlob());
        EXPECT_EQ(0u, imported()->fFinalized);
        EXPECT_EQ(nullptr, imported()->pszKeyName);
        EXPECT_EQ(0u, imported()->fMachineKey);
        EXPECT_EQ(ProviderRecord()->userKvc, imported()->kvc);
        EXPECT_EQ("RSA", Narrow(imported()->pszAlgName));
        EXPECT_EQ(row.data[5] * 256u, imported()->dwBitLength);
    }
    EXPECT_EQ(0u, sim.Journal().size());
}

TEST_F(ImportTest, NamesOfPrivateBlobs)
{
    const Bytes name = TextBytes("first");
    const std::string longest(129, 'n');
    const std::vector<ParameterRow> rows = {
        {"one name", {{45, name}}, 0, "first"},
        {"the last of several", {{45, name}, {41, {1}}, {45, TextBytes("last")}, {99, {1}}}, 0, "last"},
        {"a single byte is passed over", {{45, {0}}}, 0},
        {"an empty name", {{45, {0, 0}}}, 0, ""},
        {"terminator not counted", {{45, TextBytes("abc", false)}}, 0, "abc"},
        {"text behind the terminator", {{45, TextBytes("a") + name}}, 0, "a"},
        {"no zero byte", {{45, {1, 1, 1, 1}}}, NTE_INVALID_PARAMETER},
        {"a bad one before a good one", {{45, {1, 1}}, {45, name}}, NTE_INVALID_PARAMETER},
        {"longest", {{45, TextBytes(longest)}}, 0, longest},
        {"too long", {{45, TextBytes(longest + "n")}}, NTE_INVALID_PARAMETER},
    };
    ImportWith(rows, "RSAPRIVATEBLOB", RsaBlob(2048), kLater, 9);
    Parameters missing = {{45, name}};
    missing.rows[0].pvBuffer = nullptr;
    ASSERT_EQ(0, Import("RSAPRIVATEBLOB", RsaBlob(2048), &missing, kLater));
    EXPECT_EQ(nullptr, imported()->pszKeyName);
    missing.rows[0] = {0x80000000, 45, missing.rows.data()};
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), Hex(Import("RSAPRIVATEBLOB", RsaBlob(2048), &missing, kLater)));
}

// The vault makes a key of its own, of the imported one's length.
TEST_F(ImportTest, APendingNamedBlobBecomesAVaultKey)
{
    Parameters parameters = {{45, TextBytes("fresh")}};
    // Somebody else's operation has signed in.
    AddRsaKey("other");
    OpenKey("other", 0);
    sim.ClearJournal();
    ASSERT_EQ(0, Import("RSAFULLPRIVATEBLOB", RsaBlob(3072, BCRYPT_RSAFULLPRIVATE_MAGIC), &parameters, kLater));
    EXPECT_EQ(0u, sim.Journal().size());
    ASSERT_EQ("0x00000000", Hex(table->FinalizeKey(provider, imported_, 0)));
    ASSERT_EQ(1u, Bodies("create").size());
    const nlohmann::json body = nlohmann::json::parse(Bodies("create")[0]);
    EXPECT_EQ("3072", body["key_size"].is_string() ? body["key_size"].get<std::string>() : body["key_size"].dump());
    EXPECT_EQ(1u, imported()->fFinalized);
    EXPECT_EQ(384u, imported()->kvk.n_siz);
    EXPECT_NE(Bytes(384, 0), Bytes(imported()->kvk.n, imported()->kvk.n + 384));
}

}  // namespace
