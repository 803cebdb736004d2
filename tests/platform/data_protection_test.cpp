#include <gtest/gtest.h>
#include <stdlib.h>

#include <vector>

#include "tests/platform/platform_root.h"

namespace {

using Bytes = std::vector<BYTE>;

const Bytes kEntropy = {1, 2, 3, 4, 5};

DATA_BLOB BlobOf(const Bytes& bytes)
{
    return {static_cast<DWORD>(bytes.size()), const_cast<BYTE*>(bytes.data())};
}

Bytes Taken(DATA_BLOB* blob)
{
    Bytes bytes(blob->pbData, blob->pbData + blob->cbData);
    LocalFree(blob->pbData);
    return bytes;
}

Bytes Protected(const std::string& secret, DWORD flags, LPCWSTR description = nullptr, const Bytes& entropy = kEntropy)
{
    DATA_BLOB data = {static_cast<DWORD>(secret.size()), reinterpret_cast<BYTE*>(const_cast<char*>(secret.data()))};
    DATA_BLOB salt = BlobOf(entropy);
    DATA_BLOB out = {};
    EXPECT_TRUE(CryptProtectData(&data, description, &salt, nullptr, nullptr, flags, &out)) << GetLastError();
    return out.pbData == nullptr ? Bytes() : Taken(&out);
}

// The secret, or "error N" in hexadecimal.
std::string Unprotected(const Bytes& blob, const Bytes& entropy = kEntropy, std::u16string* description = nullptr)
{
    DATA_BLOB data = BlobOf(blob);
    DATA_BLOB salt = BlobOf(entropy);
    DATA_BLOB out = {};
    LPWSTR text = nullptr;
    if (!CryptUnprotectData(&data, description == nullptr ? nullptr : &text, &salt, nullptr, nullptr,
                            CRYPTPROTECT_UI_FORBIDDEN, &out)) {
        char name[32];
        snprintf(name, sizeof name, "error %x", GetLastError());
        return name;
    }
    if (description != nullptr) {
        *description = text;
        LocalFree(text);
    }
    const Bytes plain = Taken(&out);
    return std::string(plain.begin(), plain.end());
}

}  // namespace

TEST(DataProtection, BothScopesGiveTheSecretAndItsDescriptionBack)
{
    const PlatformRoot root;
    for (const DWORD flags : {CRYPTPROTECT_LOCAL_MACHINE, CRYPTPROTECT_UI_FORBIDDEN}) {
        std::u16string description;
        const Bytes blob = Protected("tiger", flags, u"Private Key");
        EXPECT_EQ(std::string(blob.begin(), blob.end()).find("tiger"), std::string::npos);
        EXPECT_EQ(Unprotected(blob, kEntropy, &description), "tiger");
        EXPECT_EQ(description, u"Private Key");
        EXPECT_NE(Protected("tiger", flags, u"Private Key"), blob) << "the nonce is fresh each time";
        EXPECT_EQ(Unprotected(Protected("", flags), kEntropy, &description), "");
        EXPECT_EQ(description, u"");
    }
    EXPECT_EQ(ModeOf(root.File("dpapi/master.key")), 0600u);
    EXPECT_EQ(ModeOf(root.File("dpapi")), 0700u);
    EXPECT_EQ(ModeOf(root.UserFile("dpapi/master.key")), 0600u);
    EXPECT_NE(ReadFileText(root.File("dpapi/master.key")), ReadFileText(root.UserFile("dpapi/master.key")));
}

TEST(DataProtection, EveryByteOfTheBlobCounts)
{
    const PlatformRoot root;
    const Bytes blob = Protected("tiger", CRYPTPROTECT_LOCAL_MACHINE, u"note");
    Protected("so that the other scope has a key too", 0);
    for (size_t i = 0; i < blob.size(); i++) {
        Bytes changed = blob;
        changed[i] ^= 1;
        EXPECT_EQ(Unprotected(changed).compare(0, 6, "error "), 0) << "byte " << i;
    }
    for (size_t size = 0; size < blob.size(); size++)
        EXPECT_EQ(Unprotected(Bytes(blob.begin(), blob.begin() + static_cast<long>(size))).compare(0, 6, "error "), 0)
            << size << " bytes";
    Bytes longer = blob;
    longer.push_back(0);
    EXPECT_EQ(Unprotected(longer), "error d");
    EXPECT_EQ(Unprotected(blob), "tiger");
}

TEST(DataProtection, OtherEntropyOrAnotherKeyIsRefused)
{
    const PlatformRoot root;
    const Bytes blob = Protected("tiger", 0);
    EXPECT_EQ(Unprotected(blob, {1, 2, 3, 4, 6}), "error d");
    EXPECT_EQ(Unprotected(blob, {}), "error d");
    EXPECT_EQ(Unprotected(Protected("lion", 0, nullptr, {}), {}), "lion");

    // Another user: first without a key, then with one.
    setenv("KELVARO_USER_ROOT", root.File("other").c_str(), 1);
    EXPECT_EQ(Unprotected(blob), "error 8009000b");
    EXPECT_EQ(ReadFileText(root.File("other/dpapi/master.key")), "") << "reading makes no key";
    const Bytes machine = Protected("zebra", CRYPTPROTECT_LOCAL_MACHINE);
    Protected("cat", 0);
    EXPECT_EQ(Unprotected(blob), "error 8009000b");
    EXPECT_EQ(Unprotected(machine), "zebra");
}

TEST(DataProtection, ADamagedMasterKeyIsReportedAndKept)
{
    const PlatformRoot root;
    const Bytes blob = Protected("tiger", CRYPTPROTECT_LOCAL_MACHINE);
    WriteFileText(root.File("dpapi/master.key"), "short");
    EXPECT_EQ(Unprotected(blob), "error 80090016");
    BYTE byte = 1;
    DATA_BLOB data = {1, &byte};
    DATA_BLOB out = {};
    EXPECT_FALSE(CryptProtectData(&data, nullptr, nullptr, nullptr, nullptr, CRYPTPROTECT_LOCAL_MACHINE, &out));
    EXPECT_EQ(ReadFileText(root.File("dpapi/master.key")), "short");
}

TEST(DataProtection, FirstUsesAtOnceAgreeOnOneKey)
{
    const PlatformRoot root;
    std::vector<Bytes> blobs(8);
    OnThreads(8, [&blobs](int i) { blobs[static_cast<size_t>(i)] = Protected("tiger", 0); });
    for (const Bytes& blob : blobs)
        EXPECT_EQ(Unprotected(blob), "tiger");
}
