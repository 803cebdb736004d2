// Signatures on the whole road, and what of them is settled before anything leaves the machine.
#include "tests/provider/key_fixture.h"

namespace {

using SignTest = KeyTest;
using Lines = std::vector<std::string>;

const Bytes kSha1DigestInfo = {0x30, 0x21, 0x30, 0x09, 0x06, 0x05, 0x2B, 0x0E,
                               0x03, 0x02, 0x1A, 0x05, 0x00, 0x04, 0x14};

TEST_F(SignTest, EveryRowOfTheDecisionTable)
{
    constexpr DWORD kPkcs1 = BCRYPT_PAD_PKCS1;
    constexpr DWORD kPss = BCRYPT_PAD_PSS;
    const struct {
        const char* name;
        const char* key;
        DWORD flags;
        const char* hash;
        size_t cbHash;
        const char* alg;
        Bytes front;    // what the vault gets in front of the hash
        size_t cbKept;  // of the hash
        size_t cbSignature;
    } rows[] = {
        {"PKCS#1 SHA-1", "rsa", kPkcs1, "SHA1", 20, "RSNULL", kSha1DigestInfo, 20, 256},
        {"PKCS#1 SHA-384", "rsa", kPkcs1, "SHA384", 48, "RS384", {}, 48, 256},
        {"PKCS#1 SHA-512", "rsa", kPkcs1, "SHA512", 64, "RS512", {}, 64, 256},
        {"name in lower case", "rsa", kPkcs1, "sha256", 32, "RS256", {}, 32, 256},
        {"silent", "rsa", kPkcs1 | NCRYPT_SILENT_FLAG, "SHA1", 20, "RSNULL", kSha1DigestInfo, 20, 256},
        {"PKCS#1 wins", "rsa", kPkcs1 | kPss, "SHA256", 32, "RS256", {}, 32, 256},
        {"PSS SHA-256", "rsa", kPss, "SHA256", 32, "PS256", {}, 32, 256},
        {"PSS SHA-384", "rsa", kPss, "SHA384", 48, "PS384", {}, 48, 256},
        {"PSS SHA-512", "rsa", kPss, "sha512", 64, "PS512", {}, 64, 256},
        {"P-256", "p256", 0, nullptr, 32, "ES256", {}, 32, 64},
        {"P-384", "p384", 0, nullptr, 48, "ES384", {}, 48, 96},
        {"P-521", "p521", 0, nullptr, 64, "ES512", {}, 64, 132},
        {"P-256, short", "p256", 0, nullptr, 20, "ES256", Bytes(12), 20, 64},
        {"P-384, short", "p384", 0, nullptr, 20, "ES384", Bytes(28), 20, 96},
        {"P-521, one byte", "p521", 0, nullptr, 1, "ES512", Bytes(63), 1, 132},
        {"P-521, SHA-384", "p521", 0, nullptr, 48, "ES512", Bytes(16), 48, 132},
        {"P-256, long", "p256", 0, nullptr, 33, "ES256", {}, 32, 64},
        {"P-256, SHA-512", "p256", 0, nullptr, 64, "ES256", {}, 32, 64},
        {"P-384, SHA-512", "p384", 0, nullptr, 64, "ES384", {}, 48, 96},
    };
    AddOneOfEach();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        sim.ClearJournal();
        const NCRYPT_KEY_HANDLE key = OpenKey(row.key);
        Padding padding(row.flags, row.hash);
        void* info = row.hash ? padding.info() : nullptr;
        const Bytes hash = Pattern(row.cbHash);
        const Result signature = Sign(key, info, hash, row.flags);
        ASSERT_EQ("0x00000000", Hex(signature.status));
        EXPECT_EQ(row.cbSignature, signature.bytes.size());

        const std::string sent = Base64(row.front + Bytes(hash.begin(), hash.begin() + static_cast<long>(row.cbKept)));
        EXPECT_EQ(Lines{std::string("{\"alg\":\"") + row.alg + "\",\"value\":\"" + sent + "\"}"}, Bodies("sign"));
        const std::string version = Narrow(Record(key)->kvk.version);
        EXPECT_EQ("POST /keys/" + std::string(row.key) + "/" + version + "/sign?api-version=7.0",
                  sim.VaultRequests().back());

        EXPECT_EQ("0x00000000", Hex(Verify(key, info, hash, signature.bytes, row.flags)));
        EXPECT_EQ(Lines{std::string("{\"alg\":\"") + row.alg + "\",\"digest\":\"" + sent + "\",\"value\":\"" +
                        Base64(signature.bytes) + "\"}"},
                  Bodies("verify"));
        Bytes other = hash;
        other[0] ^= 1;
        EXPECT_EQ(Hex(NTE_BAD_SIGNATURE), Hex(Verify(key, info, other, signature.bytes, row.flags)));
    }
}

TEST_F(SignTest, RefusalsBeforeAnythingLeaves)
{
    constexpr SECURITY_STATUS kUnsupported = NTE_NOT_SUPPORTED;
    constexpr SECURITY_STATUS kParameter = NTE_INVALID_PARAMETER;
    const char* const kNothing = "pPaddingInfo or pszAlgId NULL";
    const char* const kNoPadding = "Non ECC but not BCRYPT_PAD_PKCS1 or BCRYPT_PAD_PSS";  // of a verification
    const struct {
        const char* name;
        const char* key;
        DWORD flags;
        bool padding;
        const char* hash;
        size_t cbHash;
        SECURITY_STATUS sign, verify;
        std::string line;  // in front of the status line; verifications that differ in status have kNoPadding
    } rows[] = {
        {"RSA without padding", "rsa", 0, true, "SHA256", 32, kParameter, kUnsupported, "Bad Flag 0"},
        {"RSA, silent alone", "rsa", 0x40, true, "SHA256", 32, kParameter, kUnsupported, "Bad Flag 64"},
        {"curve with padding", "p256", 2, true, "SHA256", 32, kParameter, kUnsupported, "Bad Flag 2"},
        {"PKCS#1, no information", "rsa", 2, false, nullptr, 32, kUnsupported, kUnsupported, kNothing},
        {"PKCS#1, no hash name", "rsa", 2, true, nullptr, 32, kUnsupported, kUnsupported, kNothing},
        {"PSS, no information", "rsa", 8, false, nullptr, 32, kUnsupported, kUnsupported, "pPaddingInfo NULL"},
        {"PSS, no hash name", "rsa", 8, true, nullptr, 32, kUnsupported, kUnsupported, "phashinfo->pszAlgId == NULL"},
        {"SHA-1 of 16 bytes", "rsa", 2, true, "SHA1", 16, kUnsupported, kUnsupported, "Bad Hash Algorithm SHA1"},
        {"SHA-1 with PSS", "rsa", 8, true, "sha1", 20, kUnsupported, kUnsupported, "Bad Hash Algorithm sha1"},
        {"MD5", "rsa", 2, true, "MD5", 16, kUnsupported, kUnsupported, "Bad Hash Algorithm MD5"},
        {"begins alike", "rsa", 2, true, "SHA2565", 32, kUnsupported, kUnsupported, "Bad Hash Algorithm SHA2565"},
        {"curve, 65 bytes", "p256", 0, false, nullptr, 65, kParameter, kParameter, ""},
        {"P-521, 66 bytes", "p521", 0, false, nullptr, 66, kParameter, kParameter, ""},
        {"OAEP bit", "rsa", 6, true, "SHA256", 32, NTE_BAD_FLAGS, NTE_BAD_FLAGS, ""},
        {"machine key bit", "p256", 0x20, true, "SHA256", 32, NTE_BAD_FLAGS, NTE_BAD_FLAGS, ""},
    };
    AddOneOfEach();
    const auto expected = [](const std::string& entryPoint, const std::string& line, SECURITY_STATUS status) {
        Lines lines = {entryPoint + " Error " + Hex(status)};
        if (!line.empty())
            lines.insert(lines.begin(), entryPoint + " " + line);
        return lines;
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const NCRYPT_KEY_HANDLE key = OpenKey(row.key);
        sim.ClearJournal();
        Padding padding(row.flags, row.hash);
        void* info = row.padding ? padding.info() : nullptr;

        root.ClearLog();
        EXPECT_EQ(Hex(row.sign), Hex(Sign(key, info, Pattern(row.cbHash), row.flags).status));
        EXPECT_EQ(expected("KelvaroSignHash", row.line, row.sign), ErrorLines());
        root.ClearLog();
        EXPECT_EQ(Hex(row.verify), Hex(Verify(key, info, Pattern(row.cbHash), Pattern(64), row.flags)));
        const std::string line = row.sign == row.verify ? row.line : kNoPadding;
        EXPECT_EQ(expected("KelvaroVerifySignature", line, row.verify), ErrorLines());
        EXPECT_EQ(0u, sim.Journal().size());
    }
}

TEST_F(SignTest, TheOrderOfTheTests)
{
    AddRsaKey("rsa");
    const NCRYPT_KEY_HANDLE key = OpenKey("rsa");
    Padding padding(BCRYPT_PAD_PKCS1, "SHA256");
    BYTE hash[32] = {};
    BYTE signature[256] = {};
    BYTE noKey[sizeof(KSP_KEY)] = {};
    DWORD cb = 7;
    const auto sign = [&](NCRYPT_KEY_HANDLE used, BYTE* hashBytes, DWORD cbHash, BYTE* out, DWORD* result,
                          DWORD flags) {
        return Hex(table->SignHash(provider, used, padding.info(), hashBytes, cbHash, out, 256, result, flags));
    };
    const auto verify = [&](NCRYPT_KEY_HANDLE used, BYTE* hashBytes, DWORD cbHash, DWORD flags) {
        return Hex(table->VerifySignature(provider, used, padding.info(), hashBytes, cbHash, signature, 256, flags));
    };
    Record(key)->fFinalized = 0;
    Record(key)->dwKeyUsage = NCRYPT_ALLOW_DECRYPT_FLAG;

    EXPECT_EQ(Hex(NTE_INVALID_HANDLE),
              sign(reinterpret_cast<NCRYPT_KEY_HANDLE>(noKey), hash, 32, signature, nullptr, 1));
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), sign(key, hash, 32, signature, nullptr, 1));
    EXPECT_EQ(Hex(NTE_BAD_FLAGS), sign(key, hash, 32, signature, &cb, 1));
    EXPECT_EQ(Hex(NTE_BAD_KEY_STATE), sign(key, nullptr, 0, nullptr, &cb, 2));
    EXPECT_EQ(Hex(NTE_INVALID_HANDLE), verify(0, nullptr, 0, 1));
    EXPECT_EQ(Hex(NTE_BAD_KEY_STATE), verify(key, nullptr, 0, 1));

    Record(key)->fFinalized = 1;
    EXPECT_EQ(Hex(NTE_PERM), sign(key, nullptr, 0, nullptr, &cb, 2));
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), verify(key, nullptr, 32, 1));
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), verify(key, hash, 0, 1));
    EXPECT_EQ(Hex(NTE_BAD_FLAGS), verify(key, hash, 32, 1));
    EXPECT_EQ(Hex(NTE_BAD_SIGNATURE), verify(key, hash, 32, 2));  // no usage is needed to verify

    Record(key)->dwKeyUsage = NCRYPT_ALLOW_SIGNING_FLAG;
    EXPECT_EQ(7u, cb);
    EXPECT_EQ("0x00000000", sign(key, nullptr, 0, nullptr, &cb, 2));
    EXPECT_EQ(256u, cb);
    root.ClearLog();
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), sign(key, nullptr, 0, signature, &cb, 2));
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), sign(key, hash, 0, signature, &cb, 2));
    EXPECT_EQ((Lines{"KelvaroSignHash pbHashValue is NULL", "KelvaroSignHash Error 0x80090027",
                     "KelvaroSignHash cbHashValue is 0", "KelvaroSignHash Error 0x80090027"}),
              ErrorLines());
    EXPECT_EQ("0x00000000", sign(key, hash, 32, signature, &cb, 2));
}

TEST_F(SignTest, TheSizeIsToldWithoutTraffic)
{
    const struct {
        const char* name;
        nlohmann::json answer;
        DWORD size;
    } rows[] = {
        {"RSA 2048", RsaAnswer(Pattern(256)), 256},
        {"RSA 4096", RsaAnswer(Pattern(512)), 512},
        {"RSA without a modulus", RsaAnswer({}), 512},
        {"P-256", CurveAnswer("P-256", Pattern(32), Pattern(32)), 132},
        {"P-384", CurveAnswer("P-384", Pattern(48), Pattern(48)), 132},
        {"P-521", CurveAnswer("P-521", Pattern(66), Pattern(66)), 132},
        {"a coordinate with a leading zero", CurveAnswer("P-384", Bytes{0} + Pattern(48), Pattern(48)), 512},
        {"no coordinate", CurveAnswer("P-256", {}, {}), 512},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const NCRYPT_KEY_HANDLE key = OpenAnswered(row.answer);
        sim.ClearJournal();
        clock.Advance(3601);
        const Result asked = Sign(key, nullptr, {}, 0, 0);
        EXPECT_EQ("0x00000000", Hex(asked.status));
        EXPECT_EQ(row.size, asked.needed);
        EXPECT_EQ(0u, sim.Journal().size());
    }
    EXPECT_TRUE(root.Logged("KelvaroSignHash pbSignature is NULL - return kvk.n_siz bytes", 8));
}

TEST_F(SignTest, TheNameOfACurveKeyCountsOnlyForAHashOfTargetSize)
{
    AddCurveKey("p256", "P-256");
    const NCRYPT_KEY_HANDLE key = OpenKey("p256");
    const auto rename = [&](const char* name) {
        const TextString wide = Wide(name);
        wide.copy(Record(key)->pszAlgName, wide.size() + 1);
        Record(key)->pszAlgName[wide.size()] = 0;
    };
    rename("ecdh_p256");
    const Result good = Sign(key, nullptr, Pattern(32), 0);
    EXPECT_EQ("0x00000000", Hex(good.status));

    rename("P256K");
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), Hex(Sign(key, nullptr, Pattern(32), 0).status));
    EXPECT_EQ((Lines{"KelvaroSignHash Bad Alg P256K", "KelvaroSignHash Error 0x80090027"}), ErrorLines());
    EXPECT_EQ("0x00000000", Hex(Sign(key, nullptr, Pattern(20), 0).status));
    EXPECT_EQ("0x00000000", Hex(Verify(key, nullptr, Pattern(32), good.bytes, NCRYPT_SILENT_FLAG)));
    EXPECT_TRUE(root.Logged("KelvaroSignHash Resize Hash P256K 20", 8));
    EXPECT_TRUE(root.Logged("KelvaroSignHash Resized the Hash", 10));

    // By the digits in the name the request is one for another curve, which the vault refuses.
    rename("384 and 521");
    EXPECT_EQ(Hex(NTE_FAIL), Hex(Verify(key, nullptr, Pattern(32), good.bytes, 0)));
    EXPECT_NE(std::string::npos, Bodies("verify").back().find("\"alg\":\"ES384\""));
}

TEST_F(SignTest, WhatTheVaultSaysReachesTheHost)
{
    AddRsaKey("rsa");
    const NCRYPT_KEY_HANDLE key = OpenKey("rsa");
    Padding padding(BCRYPT_PAD_PSS, "SHA256");
    const auto sign = [&](DWORD room) { return Sign(key, padding.info(), Pattern(32), BCRYPT_PAD_PSS, room); };
    const auto verify = [&](const Bytes& signature) {
        return Hex(Verify(key, padding.info(), Pattern(32), signature, BCRYPT_PAD_PSS));
    };
    root.ClearLog();
    const Result signature = sign(256);
    EXPECT_EQ("0x00000000", verify(signature.bytes));
    Lines trace;
    for (const std::string& line : root.LogLines()) {
        if (line.rfind("KelvaroSignHash", 0) == 0 || line.rfind("KelvaroVerifySignature", 0) == 0)
            trace.push_back(line);
    }
    EXPECT_EQ((Lines{"KelvaroSignHash 4", "KelvaroSignHash dwFlags 8 8", "KelvaroSignHash RSA cbHashValue 32 8",
                     "KelvaroSignHash SHA256 32 8", "KelvaroSignHash pbSignature is NOT NULL 8",
                     "KelvaroSignHash algId and Data PS256 10", "KelvaroVerifySignature 4",
                     "KelvaroVerifySignature SHA256 32 8"}),
              trace);
    EXPECT_EQ(Hex(NTE_BAD_SIGNATURE), verify(Pattern(256)));
    EXPECT_EQ("KelvaroVerifySignature Error 0x80090006", LastErrorLine());

    EXPECT_EQ(Hex(NTE_FAIL), Hex(sign(255).status));
    EXPECT_EQ(256u, sign(255).needed);
    Answer("/sign?", 403);
    const Result refused = sign(300);
    EXPECT_EQ(Hex(NTE_FAIL), Hex(refused.status));
    EXPECT_EQ(300u, refused.needed);
    EXPECT_EQ("KelvaroSignHash Error 0x80090020", LastErrorLine());
    // A hash of the wrong size is the vault's to judge.
    EXPECT_EQ(Hex(NTE_FAIL), Hex(Sign(key, padding.info(), Pattern(20), BCRYPT_PAD_PSS).status));
}

}  // namespace
