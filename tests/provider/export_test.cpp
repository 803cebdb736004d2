// The public halves of vault keys as CNG blobs.
#include "tests/provider/key_fixture.h"

namespace {

using Lines = std::vector<std::string>;

using ExportTest = KeyTest;

constexpr char kRsa[] = "RSAPUBLICBLOB";
constexpr char kCurve[] = "ECCPUBLICBLOB";

TEST_F(ExportTest, TheModulusAlwaysBeginsWithAZeroByte)
{
    const Bytes e = {1, 0, 1};
    const Bytes zero = {0};
    const struct {
        const char* name;
        Bytes n;
        DWORD bits;
        Bytes written;
    } rows[] = {
        {"256 bytes", Pattern(256), 2048, zero + Pattern(256)},
        {"257 bytes that begin with a zero", zero + Pattern(256), 2056, zero + Pattern(256)},
        {"257 bytes that do not", Pattern(257), 2056, zero + Pattern(257)},
        {"256 bytes that begin with a zero", zero + Pattern(255), 2048, zero + zero + Pattern(255)},
        {"4096 bits", Pattern(512), 4096, zero + Pattern(512)},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const NCRYPT_KEY_HANDLE key = OpenAnswered(RsaAnswer(row.n, e));
        const Bytes expected =
            Words({0x31415352, row.bits, 3, static_cast<DWORD>(row.written.size()), 0, 0}) + e + row.written;
        EXPECT_EQ(expected, Export(key, kRsa).bytes);
        EXPECT_EQ(expected, Export(key, "PUBLICBLOB", NCRYPT_SILENT_FLAG).bytes);
    }
    EXPECT_TRUE(root.Logged("KelvaroExportKey RSAPUBLICBLOB", 4));
    EXPECT_TRUE(root.Logged("KelvaroExportKey Export RSA Key", 8));
    EXPECT_TRUE(root.Logged("KelvaroExportKey Export OK Size 284", 8));
}

TEST_F(ExportTest, TheMagicFollowsTheTagThenOperationsAndCurve)
{
    const std::vector<std::string> signs = {"sign", "verify"};
    const std::vector<std::string> decrypts = {"encrypt", "decrypt"};
    const struct {
        const char* name;
        const char* crv;
        size_t cbCoordinate;
        std::vector<std::string> ops;
        const char* tag;
        DWORD magic;
    } rows[] = {
        {"ECK1 by tag", "P-256", 32, signs, "ECDH_P256", 0x314B4345},
        {"ECK3 by tag", "P-384", 48, signs, "ECDH_P384", 0x334B4345},
        {"ECK5 by tag", "P-521", 66, signs, "ECDH_P521", 0x354B4345},
        {"ECS1 by tag", "P-256", 32, decrypts, "ECDSA_P256", 0x31534345},
        {"ECS3 by tag", "P-384", 48, decrypts, "ECDSA_P384", 0x33534345},
        {"ECS5 by tag", "P-521", 66, decrypts, "ECDSA_P521", 0x35534345},
        {"a tag of another kind", "curve25519", 32, signs, "ECDSA_X25519", 0},
        {"ECK1 by operations", "P-256", 32, decrypts, "", 0x314B4345},
        {"ECK3 by operations", "P-384", 48, decrypts, "", 0x334B4345},
        {"ECK5 by operations", "P-521", 66, decrypts, "", 0x354B4345},
        {"ECS1 by operations", "P-256", 32, signs, "", 0x31534345},
        {"ECS3 by operations", "P-384", 48, signs, "", 0x33534345},
        {"ECS5 without operations", "P-521", 66, {}, "", 0x35534345},
        {"another curve", "P-256K", 32, signs, "", 0},
        {"a coordinate as it came", "P-384", 49, signs, "ECDSA_P384", 0x33534345},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const Bytes x = Pattern(row.cbCoordinate);
        const Bytes y(x.rbegin(), x.rend());
        const NCRYPT_KEY_HANDLE key = OpenAnswered(CurveAnswer(row.crv, x, y, row.ops, row.tag));
        EXPECT_EQ(Words({row.magic, static_cast<DWORD>(row.cbCoordinate)}) + x + y, Export(key, kCurve).bytes);
    }
    EXPECT_TRUE(root.Logged("KelvaroExportKey Export ECC Key", 8));
}

TEST_F(ExportTest, WhatIsNotExported)
{
    const NCRYPT_KEY_HANDLE rsa = OpenAnswered(RsaAnswer(Pattern(256)));
    const NCRYPT_KEY_HANDLE curve = OpenAnswered(CurveAnswer("P-256", Pattern(32), Pattern(32)));
    const NCRYPT_KEY_HANDLE uneven = OpenAnswered(CurveAnswer("P-256", Pattern(32), Pattern(31)));
    const NCRYPT_KEY_HANDLE large = OpenAnswered(RsaAnswer(Pattern(1973)));  // one byte too much for the blob
    const NCRYPT_KEY_HANDLE largeCurve = OpenAnswered(CurveAnswer("P-256", Pattern(997), Pattern(997)));
    const NCRYPT_KEY_HANDLE unread = OpenAnswered(RsaAnswer(Pattern(256)));
    Record(unread)->kvk.valid = 0;

    const char* const kKind = "KelvaroExportKey KV Key ECC is NOT RSA";
    const char* const kName = "KelvaroExportKey NTE_INVALID_PARAMETER";
    const struct {
        const char* name;
        NCRYPT_KEY_HANDLE key;
        const char* type;
        DWORD flags;
        SECURITY_STATUS status;
        const char* line;  // in front of the status line; NULL for none
    } rows[] = {
        {"no key", 0, kRsa, 1, NTE_INVALID_HANDLE, "KelvaroExportKey pKey == NULL"},
        {"bad flag", rsa, "what", 1, NTE_BAD_FLAGS, "KelvaroExportKey Bad Flags 1"},
        {"legacy", rsa, "what", 0x840, NTE_NOT_SUPPORTED, "KelvaroExportKey Legacy Flag 2112"},
        {"unknown type", unread, "what", 0, NTE_INVALID_PARAMETER, kName},
        {"letter case", rsa, "RsaPublicBlob", 0, NTE_INVALID_PARAMETER, kName},
        {"empty type", rsa, "", 0, NTE_INVALID_PARAMETER, kName},
        {"private", unread, "PRIVATEBLOB", 0, NTE_NOT_SUPPORTED, nullptr},
        {"RSA private", rsa, "RSAPRIVATEBLOB", 0, NTE_NOT_SUPPORTED, nullptr},
        {"RSA full private", curve, "RSAFULLPRIVATEBLOB", 0, NTE_NOT_SUPPORTED, nullptr},
        {"PKCS#7", rsa, "PKCS7_ENVELOPE", 0, NTE_NOT_SUPPORTED, nullptr},
        {"PKCS#8", rsa, "PKCS8_PRIVATEKEY", 0x40, NTE_NOT_SUPPORTED, nullptr},
        {"not read", unread, kCurve, 0, NTE_INVALID_PARAMETER, "KelvaroExportKey KV Key not initialised"},
        {"curve type of an RSA key", rsa, kCurve, 0, NTE_INVALID_PARAMETER, kKind},
        {"RSA type of a curve key", curve, kRsa, 0, NTE_INVALID_PARAMETER, kKind},
        {"generic type of a curve key", curve, "PUBLICBLOB", 0, NTE_INVALID_PARAMETER, kKind},
        {"uneven", uneven, kCurve, 0, NTE_INVALID_PARAMETER, "KelvaroExportKey ECC x_siz != y_siz"},
        {"large modulus", large, kRsa, 0, NTE_INVALID_PARAMETER, nullptr},
        {"large coordinates", largeCurve, kCurve, 0, NTE_INVALID_PARAMETER, nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        root.ClearLog();
        EXPECT_EQ(Hex(row.status), Hex(Export(row.key, row.type, row.flags).status));
        Lines expected = {"KelvaroExportKey Failed Error " + Hex(row.status)};
        if (row.line)
            expected.insert(expected.begin(), row.line);
        EXPECT_EQ(expected, ErrorLines());
    }
    Record(unread)->kvk.valid = 1;  // its buffers are to be released
}

TEST_F(ExportTest, ArgumentsAndTheLargestKeyThatFits)
{
    const NCRYPT_KEY_HANDLE key = OpenAnswered(RsaAnswer(Pattern(1972)));
    const TextString type = Wide(kRsa);
    DWORD cb = 0;
    Bytes out(2000, 0xAA);
    const auto run = [&](NCRYPT_PROV_HANDLE handle, const WCHAR* blobType, DWORD room, DWORD* result) {
        return Hex(table->ExportKey(handle, key, 0, blobType, nullptr, out.data(), room, result, 0));
    };
    EXPECT_EQ(Hex(NTE_INVALID_HANDLE), run(0, type.c_str(), 2000, nullptr));
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), run(provider, type.c_str(), 2000, nullptr));
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), run(provider, nullptr, 2000, &cb));
    EXPECT_EQ((Lines{"KelvaroExportKey pProvider == NULL", "KelvaroExportKey Failed Error 0x80090026",
                     "KelvaroExportKey pcbResult == NULL", "KelvaroExportKey Failed Error 0x80090027",
                     "KelvaroExportKey NTE_INVALID_PARAMETER", "KelvaroExportKey Failed Error 0x80090027"}),
              ErrorLines());
    EXPECT_EQ(0u, cb);

    EXPECT_EQ(Hex(NTE_BUFFER_TOO_SMALL), run(provider, type.c_str(), 1999, &cb));
    EXPECT_EQ(2000u, cb);
    EXPECT_EQ(Bytes(2000, 0xAA), out);
    EXPECT_EQ("0x00000000", run(provider, type.c_str(), 2000, &cb));
    EXPECT_EQ(Pattern(1972), Bytes(out.begin() + 28, out.end()));
}

}  // namespace
