#include <stdlib.h>

#include "tests/platform/platform_root.h"

namespace {

const std::string kEntropy = "salt!";

DATA_BLOB BlobOf(const std::string& bytes)
{
    return {SizeOf(bytes), BytesOf(bytes)};
}

// The result, which is freed, or the error.
std::string Result(BOOL done, const DATA_BLOB& out)
{
    const std::string bytes = done ? std::string(reinterpret_cast<char*>(out.pbData), out.cbData) : ErrorText();
    LocalFree(out.pbData);
    return bytes;
}

std::string Protected(const std::string& secret, DWORD flags, LPCWSTR description = nullptr)
{
    DATA_BLOB data = BlobOf(secret);
    DATA_BLOB salt = BlobOf(kEntropy);
    DATA_BLOB out = {};
    return Result(CryptProtectData(&data, description, &salt, nullptr, nullptr, flags, &out), out);
}

std::string Unprotected(const std::string& blob, const std::string& entropy = kEntropy,
                        std::u16string* description = nullptr)
{
    DATA_BLOB data = BlobOf(blob);
    DATA_BLOB salt = BlobOf(entropy);
    DATA_BLOB out = {};
    LPWSTR text = nullptr;
    const std::string secret = Result(CryptUnprotectData(&data, description == nullptr ? nullptr : &text, &salt,
                                                         nullptr, nullptr, CRYPTPROTECT_UI_FORBIDDEN, &out),
                                      out);
    if (text != nullptr)
        *description = text;
    LocalFree(text);
    return secret;
}

}  // namespace

TEST(DataProtection, BothScopesReturnTheSecretAndItsDescription)
{
    const PlatformRoot root;
    for (const DWORD flags : {CRYPTPROTECT_LOCAL_MACHINE, CRYPTPROTECT_UI_FORBIDDEN}) {
        std::u16string description;
        const std::string blob = Protected("tiger", flags, u"Private Key");
        EXPECT_EQ(blob.find("tiger"), std::string::npos);
        EXPECT_EQ(Unprotected(blob, kEntropy, &description), "tiger");
        EXPECT_EQ(description, u"Private Key");
        EXPECT_NE(Protected("tiger", flags, u"Private Key"), blob) << "the nonce is fresh each time";
    }
    EXPECT_EQ(ModeOf(root.File("dpapi/master.key")), 0600u);
    EXPECT_EQ(ModeOf(root.File("dpapi")), 0700u);
    EXPECT_EQ(ModeOf(root.File("user/dpapi/master.key")), 0600u);
    EXPECT_NE(ReadFileText(root.File("dpapi/master.key")), ReadFileText(root.File("user/dpapi/master.key")));
}

TEST(DataProtection, EveryByteOfTheBlobCounts)
{
    const PlatformRoot root;
    const std::string blob = Protected("tiger", CRYPTPROTECT_LOCAL_MACHINE, u"note");
    Protected("creates the key of the other scope", 0);
    for (size_t i = 0; i < blob.size(); i++) {
        std::string changed = blob;
        changed[i] = static_cast<char>(changed[i] ^ 1);
        for (const std::string& bad : {changed, blob.substr(0, i)})
            EXPECT_EQ(Unprotected(bad).compare(0, 6, "error "), 0) << i;
    }
    EXPECT_EQ(Unprotected(blob + "0"), "error D");
    EXPECT_EQ(Unprotected(blob), "tiger");

    // A damaged master key is reported and kept.
    WriteFileText(root.File("dpapi/master.key"), "short");
    EXPECT_EQ(Unprotected(blob), "error 80090016");
    EXPECT_EQ(Protected("lion", CRYPTPROTECT_LOCAL_MACHINE), "error 80090016");
    EXPECT_EQ(ReadFileText(root.File("dpapi/master.key")), "short");
}

TEST(DataProtection, OtherEntropyOrAnotherKeyIsRefused)
{
    const PlatformRoot root;
    std::vector<std::string> blobs(8);
    OnThreads(8, [&blobs](int i) { blobs[static_cast<size_t>(i)] = Protected("tiger", 0); });
    for (const std::string& one : blobs)
        EXPECT_EQ(Unprotected(one), "tiger") << "concurrent first uses agree on one key";
    const std::string blob = blobs[0];
    EXPECT_EQ(Unprotected(blob, "salt?"), "error D");
    EXPECT_EQ(Unprotected(blob, ""), "error D");

    // Another user: first without a key, then with one.
    setenv("KELVARO_USER_ROOT", root.File("other").c_str(), 1);
    EXPECT_EQ(Unprotected(blob), "error 8009000B");
    EXPECT_EQ(ReadFileText(root.File("other/dpapi/master.key")), "") << "reading makes no key";
    const std::string machine = Protected("zebra", CRYPTPROTECT_LOCAL_MACHINE);
    Protected("cat", 0);
    EXPECT_EQ(Unprotected(blob), "error 8009000B");
    EXPECT_EQ(Unprotected(machine), "zebra");
}
