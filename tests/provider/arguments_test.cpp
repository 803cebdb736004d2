// Hosts see the order in which a call tests its arguments. Each row has a fault that decides the status, and often
// others that are tested later. No refusal makes a request, and each logs its line.
#include <algorithm>

#include "tests/provider/provider_fixture.h"

namespace {

constexpr SECURITY_STATUS kHandle = NTE_INVALID_HANDLE;
constexpr SECURITY_STATUS kParameter = NTE_INVALID_PARAMETER;
constexpr SECURITY_STATUS kFlags = NTE_BAD_FLAGS;
constexpr SECURITY_STATUS kUnsupported = NTE_NOT_SUPPORTED;
constexpr DWORD kAll = 0xFFFFFFFF;  // flags, some of which are invalid in every call

// The line that the entry point logs, without its "Kelvaro" and the status; the fault; the statuses expected and got.
using Refusal = Row<const char*, const char*, SECURITY_STATUS, SECURITY_STATUS>;

class ArgumentsTest : public ProviderTest {
  protected:
    void SetUp() override
    {
        ProviderTest::SetUp();
        OpenProvider();
        key = Pending("RSA");
        root.ClearLog();
    }
    void Expect(std::initializer_list<Refusal> rows)
    {
        const Lines logged = ErrorLines();
        auto at = logged.begin();
        for (const auto& [line, fault, expected, got] : rows) {
            EXPECT_EQ(Hex(expected), Hex(got)) << line << ": " << fault;
            at = std::find(at, logged.end(), std::string("Kelvaro") + line + " Error " + Hex(expected));
            ASSERT_NE(logged.end(), at) << line << ": " << fault;
            ++at;
        }
        EXPECT_EQ(0u, sim.Journal().size());
    }

    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE* const& t = table;
    const NCRYPT_PROV_HANDLE& p = provider;
    NCRYPT_KEY_HANDLE key = 0;
    NCRYPT_KEY_HANDLE made = 77;
    const TextString longest = TextString(64, 'p'), tooLong = TextString(65, 'p'), n130 = TextString(130, 'n');
    BYTE bytes[64] = {};
    DWORD size = 7;
};

// The key handle is invalid and must not be read. The lines show that each slot of the table has its own function.
TEST_F(ArgumentsTest, WithoutAProviderNothingElseCounts)
{
    for (const SECURITY_STATUS status :
         {t->PromptUser(8, 8, nullptr, kAll), t->NotifyChangeKey(8, nullptr, 0),
          t->SecretAgreement(8, 8, 8, nullptr, 0), t->DeriveKey(8, 8, nullptr, nullptr, nullptr, 0, nullptr, 0),
          t->FreeSecret(8, 8)})
        EXPECT_EQ(kUnsupported, status);
    EXPECT_EQ((Lines{"KelvaroPromptUser", "KelvaroNotifyChangeKey", "KelvaroSecretAgreement", "KelvaroDeriveKey",
                     "KelvaroFreeSecret"}),
              ErrorLines());
    Expect({
        {"OpenProvider", "", kParameter, t->OpenProvider(nullptr, nullptr, kAll)},
        {"OpenKey Error", "", kHandle, t->OpenKey(0, nullptr, nullptr, 0, kAll)},
        {"CreatePersistedKey", "", kHandle, t->CreatePersistedKey(0, nullptr, nullptr, nullptr, 0, kAll)},
        {"GetProviderProperty", "", kHandle, t->GetProviderProperty(0, nullptr, nullptr, 0, nullptr, kAll)},
        {"GetKeyProperty", "", kHandle, t->GetKeyProperty(0, 8, nullptr, nullptr, 0, nullptr, kAll)},
        {"SetProviderProperty", "", kHandle, t->SetProviderProperty(0, nullptr, nullptr, 0, kAll)},
        {"SetKeyProperty", "", kHandle, t->SetKeyProperty(0, 8, nullptr, nullptr, 0, kAll)},
        {"FinalizeKey", "", kHandle, t->FinalizeKey(0, 8, kAll)},
        {"DeleteKey", "", kHandle, t->DeleteKey(0, 8, kAll)},
        {"FreeProvider", "", kHandle, t->FreeProvider(0)},
        {"FreeKey", "", kHandle, t->FreeKey(0, 8)},
        {"Encrypt", "", kHandle, t->Encrypt(0, 8, nullptr, 0, nullptr, nullptr, 0, nullptr, kAll)},
        {"Decrypt", "", kHandle, t->Decrypt(0, 8, nullptr, 0, nullptr, nullptr, 0, nullptr, kAll)},
        {"IsAlgSupported", "", kHandle, t->IsAlgSupported(0, nullptr, kAll)},
        {"EnumAlgorithms", "", kHandle, t->EnumAlgorithms(0, 0, nullptr, nullptr, kAll)},
        {"EnumKeys", "", kHandle, t->EnumKeys(0, nullptr, nullptr, nullptr, kAll)},
        {"ImportKey", "", kHandle, t->ImportKey(0, 0, nullptr, nullptr, nullptr, nullptr, 0, kAll)},
        {"ExportKey Failed", "", kHandle, t->ExportKey(0, 8, 0, nullptr, nullptr, nullptr, 0, nullptr, kAll)},
        {"SignHash", "", kHandle, t->SignHash(0, 8, nullptr, nullptr, 0, nullptr, 0, nullptr, kAll)},
        {"VerifySignature", "", kHandle, t->VerifySignature(0, 8, nullptr, nullptr, 0, nullptr, 0, kAll)},
    });
}

TEST_F(ArgumentsTest, Handles)
{
    const TextString name(32767, 'n');
    struct {
        DWORD cbLength, dwMagic;
    } heads[] = {{sizeof(KSP_PROVIDER), 0x7866ABCF},
                 {sizeof(KSP_PROVIDER) - 1, 0x7866ABCE},
                 {sizeof(KSP_KEY), 0x7866ABCE},
                 {sizeof(KSP_KEY) - 1, 0x7866ABCF}};
    const auto handle = [&](int i) { return reinterpret_cast<NCRYPT_HANDLE>(&heads[i]); };
    Expect({
        {"OpenProvider", "no name", kParameter, t->OpenProvider(&made, nullptr, 0)},
        {"OpenProvider", "a name over 65534 bytes", kParameter, t->OpenProvider(&made, name.c_str(), 0)},
        {"FreeProvider", "a key", kHandle, t->FreeProvider(handle(0))},
        {"FreeProvider", "a byte short", kHandle, t->FreeProvider(handle(1))},
        {"FreeKey", "a provider", kHandle, t->FreeKey(p, handle(2))},
        {"FreeKey", "a byte short", kHandle, t->FreeKey(p, handle(3))},
        {"FreeKey", "NULL", kHandle, t->FreeKey(p, 0)},
        {"OpenKey Error", "no provider", kHandle, t->OpenKey(handle(1), &made, TEXT("k"), 0, 0)},
    });
    EXPECT_EQ(77u, made);
}

TEST_F(ArgumentsTest, KeysAndLists)
{
    const NCRYPT_KEY_HANDLE done = Pending("RSA");
    ASSERT_EQ(0, Finalize(done));
    DWORD count = 77;
    NCryptAlgorithmName* algorithms = nullptr;
    NCryptKeyName* name = nullptr;
    PVOID state = bytes;
    const auto create = [&](const WCHAR* algorithm, const WCHAR* keyName, DWORD flags) {
        return t->CreatePersistedKey(p, &made, algorithm, keyName, 0, flags);
    };
    Expect({
        {"OpenKey Error", "no output", kParameter, t->OpenKey(p, nullptr, TEXT("k"), 0, 0)},
        {"OpenKey Error", "no name", kParameter, t->OpenKey(p, &made, nullptr, 0, 0)},
        {"OpenKey Error", "a name of 130 characters", kParameter, t->OpenKey(p, &made, n130.c_str(), 0, 0)},
        {"CreatePersistedKey", "no output", kParameter,
         t->CreatePersistedKey(p, nullptr, TEXT("RSA"), TEXT("k"), 0, 0x100)},
        {"CreatePersistedKey", "no algorithm", kParameter, create(nullptr, TEXT("k"), 0x100)},
        {"CreatePersistedKey", "flag 0x100", kFlags, create(TEXT("RSA"), TEXT("k"), 0x100)},
        {"CreatePersistedKey", "flag 1 before the algorithm", kFlags, create(TEXT("none"), TEXT("k"), 1)},
        {"CreatePersistedKey", "letter case", kUnsupported, create(TEXT("ecdsa_p256"), TEXT("k"), 0)},
        {"CreatePersistedKey", "empty algorithm", kUnsupported, create(TEXT(""), n130.c_str(), 0)},
        {"CreatePersistedKey", "a name of 130 characters", kParameter, create(TEXT("RSA"), n130.c_str(), 0)},
        {"FinalizeKey", "no key", kHandle, t->FinalizeKey(p, 0, 0x10)},
        {"FinalizeKey", "finalized already", kHandle, t->FinalizeKey(p, done, 0x10)},
        {"FinalizeKey", "unknown flag before the legacy store", kFlags, t->FinalizeKey(p, key, 0x210)},
        {"FinalizeKey", "legacy store", kUnsupported, t->FinalizeKey(p, key, 0x200)},
        {"DeleteKey", "no key", kHandle, t->DeleteKey(p, 0, kMachine)},
        {"DeleteKey", "machine flag", kFlags, t->DeleteKey(p, key, kMachine)},
        {"EnumKeys", "no name", kParameter, t->EnumKeys(p, nullptr, nullptr, &state, 1)},
        {"EnumKeys", "no state", kParameter, t->EnumKeys(p, nullptr, &name, nullptr, 1)},
        {"EnumKeys", "unknown flag", kFlags, t->EnumKeys(p, nullptr, &name, &state, 0x80)},
        {"EnumAlgorithms", "no count", kParameter, t->EnumAlgorithms(p, 0, nullptr, &algorithms, 1)},
        {"EnumAlgorithms", "no list", kParameter, t->EnumAlgorithms(p, 0, &count, nullptr, 1)},
        {"EnumAlgorithms", "unknown flag", kFlags, t->EnumAlgorithms(p, 1, &count, &algorithms, 0x41)},
        {"EnumAlgorithms", "an operation of none", kUnsupported, t->EnumAlgorithms(p, 0x20, &count, &algorithms, 0)},
        {"IsAlgSupported", "no name", kParameter, t->IsAlgSupported(p, nullptr, 1)},
        {"IsAlgSupported", "unknown flag", kFlags, t->IsAlgSupported(p, TEXT("what"), 1)},
        {"IsAlgSupported", "letter case", kUnsupported, t->IsAlgSupported(p, TEXT("rsa"), 0)},
        {"IsAlgSupported", "empty", kUnsupported, t->IsAlgSupported(p, TEXT(""), 0)},
        {"IsAlgSupported", "a blank behind it", kUnsupported, t->IsAlgSupported(p, TEXT("RSA "), NCRYPT_SILENT_FLAG)},
    });
    EXPECT_EQ(77u, made);
    EXPECT_EQ(77u, count);
    EXPECT_EQ(nullptr, algorithms);
}

TEST_F(ArgumentsTest, Properties)
{
    const WCHAR* const context = TEXT("Use Context");
    const WCHAR* const length = TEXT("Length");
    const auto getProvider = [&](const WCHAR* name, DWORD* result, DWORD flags) {
        return t->GetProviderProperty(p, name, bytes, 3, result, flags);
    };
    const auto getKey = [&](const WCHAR* name, DWORD* result) {
        return t->GetKeyProperty(p, key, name, bytes, 4, result, 0);
    };
    Expect({
        {"GetProviderProperty", "no name", kParameter, getProvider(nullptr, &size, 1)},
        {"GetProviderProperty", "no size", kParameter, getProvider(context, nullptr, 1)},
        {"GetProviderProperty", "a long name", kParameter, getProvider(tooLong.c_str(), &size, 1)},
        {"GetProviderProperty", "unknown flag", kFlags, getProvider(longest.c_str(), &size, 0x41)},
        {"GetProviderProperty", "the longest name", kUnsupported, getProvider(longest.c_str(), &size, 0)},
        {"GetProviderProperty", "letter case", kUnsupported, getProvider(TEXT("impl type"), &size, 0x40)},
        {"GetProviderProperty", "a context not set", NTE_INTERNAL_ERROR, getProvider(context, &size, 0)},
        {"GetProviderProperty", "a short buffer", NTE_BUFFER_TOO_SMALL, getProvider(TEXT("Version"), &size, 0)},
        {"SetProviderProperty", "no name", kParameter, t->SetProviderProperty(p, nullptr, bytes, 4, 1)},
        {"SetProviderProperty", "a long name", kParameter, t->SetProviderProperty(p, tooLong.c_str(), bytes, 4, 1)},
        {"SetProviderProperty", "no value", kParameter, t->SetProviderProperty(p, context, nullptr, 4, 1)},
        {"SetProviderProperty", "unknown flag", kFlags, t->SetProviderProperty(p, longest.c_str(), bytes, 4, 1u << 31)},
        {"SetProviderProperty", "another name", kUnsupported, t->SetProviderProperty(p, TEXT("Name"), bytes, 4, 0x40)},
        {"GetKeyProperty", "a provider", kHandle, t->GetKeyProperty(p, p, nullptr, nullptr, 0, nullptr, 0)},
        {"GetKeyProperty", "no name", kParameter, getKey(nullptr, &size)},
        {"GetKeyProperty", "a long name", kParameter, getKey(tooLong.c_str(), &size)},
        {"GetKeyProperty", "the longest name", kUnsupported, getKey(longest.c_str(), &size)},
        {"GetKeyProperty", "no size", kParameter, getKey(length, nullptr)},
        {"SetKeyProperty", "no key", kHandle, t->SetKeyProperty(p, 0, nullptr, nullptr, 0, 0)},
        {"SetKeyProperty", "no name", kParameter, t->SetKeyProperty(p, key, nullptr, bytes, 4, 0x20)},
        {"SetKeyProperty", "a long name", kParameter, t->SetKeyProperty(p, key, tooLong.c_str(), bytes, 4, 0x20)},
        {"SetKeyProperty", "no value", kParameter, t->SetKeyProperty(p, key, length, nullptr, 4, 0x20)},
        {"SetKeyProperty", "unknown flag", kFlags, t->SetKeyProperty(p, key, longest.c_str(), bytes, 4, 0x20)},
    });
    EXPECT_EQ(4u, size) << "reports the size it needs";
    EXPECT_EQ(0, t->SetKeyProperty(p, key, longest.c_str(), bytes, 4, kOnly));
}

TEST_F(ArgumentsTest, Operations)
{
    // Two keys without a name, so finalized without the vault: one for decryption alone, one for signatures alone.
    const NCRYPT_KEY_HANDLE decrypts = Pending("RSA"), signs = Pending("RSA");
    for (const auto& [handle, usage] : {std::pair(key, 1), std::pair(decrypts, 1), std::pair(signs, 2)})
        EXPECT_EQ(0, SetKey(handle, "Key Usage", Words({static_cast<DWORD>(usage)})));
    EXPECT_EQ(0, Finalize(decrypts));
    EXPECT_EQ(0, Finalize(signs));
    const auto sign = [&](NCRYPT_KEY_HANDLE used, BYTE* hash, DWORD cb, BYTE* out, DWORD* result, DWORD flags) {
        return t->SignHash(p, used, nullptr, hash, cb, out, 64, result, flags);
    };
    const auto verify = [&](NCRYPT_KEY_HANDLE used, BYTE* hash, DWORD cb, DWORD flags) {
        return t->VerifySignature(p, used, nullptr, hash, cb, bytes, 64, flags);
    };
    const auto encrypt = [&](NCRYPT_KEY_HANDLE used, BYTE* in, DWORD cb, DWORD* result, DWORD flags) {
        return t->Encrypt(p, used, in, cb, nullptr, nullptr, 0, result, flags);
    };
    const auto decrypt = [&](NCRYPT_KEY_HANDLE used, BYTE* in, DWORD cb, DWORD* result, DWORD flags) {
        return t->Decrypt(p, used, in, cb, nullptr, nullptr, 0, result, flags);
    };
    Expect({
        {"SignHash", "no key", kHandle, sign(0, nullptr, 0, nullptr, nullptr, 1)},
        {"SignHash", "no result", kParameter, sign(key, nullptr, 0, nullptr, nullptr, 1)},
        {"SignHash", "unknown flag", kFlags, sign(key, nullptr, 0, nullptr, &size, 1)},
        {"SignHash", "OAEP", kFlags, sign(key, nullptr, 0, nullptr, &size, 6)},
        {"SignHash", "not finalized", NTE_BAD_KEY_STATE, sign(key, nullptr, 0, nullptr, &size, 2)},
        {"SignHash", "no usage", NTE_PERM, sign(decrypts, nullptr, 0, nullptr, &size, 2)},
        {"SignHash", "no hash", kParameter, sign(signs, nullptr, 32, bytes, &size, 2)},
        {"SignHash", "empty hash", kParameter, sign(signs, bytes, 0, bytes, &size, 2)},
        {"VerifySignature", "no key", kHandle, verify(0, nullptr, 0, 1)},
        {"VerifySignature", "not finalized", NTE_BAD_KEY_STATE, verify(key, nullptr, 0, 1)},
        {"VerifySignature", "no hash", kParameter, verify(signs, nullptr, 32, 1)},
        {"VerifySignature", "empty hash", kParameter, verify(signs, bytes, 0, 1)},
        {"VerifySignature", "unknown flag", kFlags, verify(signs, bytes, 32, 1)},
        {"VerifySignature", "machine flag", kFlags, verify(signs, bytes, 32, 0x20)},
        {"Encrypt", "no key", kHandle, encrypt(0, nullptr, 0, nullptr, 8)},
        {"Encrypt", "not finalized", NTE_BAD_KEY_STATE, encrypt(key, nullptr, 0, nullptr, 8)},
        {"Encrypt", "no input", kParameter, encrypt(signs, nullptr, 3, &size, 8)},
        {"Encrypt", "empty input", kParameter, encrypt(signs, bytes, 0, &size, 8)},
        {"Encrypt", "no result", kParameter, encrypt(signs, bytes, 3, nullptr, 8)},
        {"Encrypt", "PSS", kFlags, encrypt(signs, bytes, 3, &size, 8)},
        {"Encrypt", "no padding", kFlags, encrypt(signs, bytes, 3, &size, NCRYPT_NO_PADDING_FLAG | 2)},
        {"Decrypt", "no key", kHandle, decrypt(0, nullptr, 0, nullptr, 8)},
        {"Decrypt", "no input", kParameter, decrypt(key, nullptr, 3, &size, 8)},
        {"Decrypt", "empty input", kParameter, decrypt(signs, bytes, 0, &size, 8)},
        {"Decrypt", "no result", kParameter, decrypt(signs, bytes, 3, nullptr, 8)},
        {"Decrypt", "PSS before usage", kFlags, decrypt(signs, bytes, 3, &size, 8)},
        {"Decrypt", "usage before no padding", NTE_PERM, decrypt(signs, bytes, 3, &size, NCRYPT_NO_PADDING_FLAG)},
        {"Decrypt", "no padding", kFlags, decrypt(decrypts, bytes, 3, &size, NCRYPT_NO_PADDING_FLAG | 2)},
    });
    EXPECT_EQ(7u, size);
}

TEST_F(ArgumentsTest, ImportAndExport)
{
    const WCHAR* const rsaBlob = TEXT("RSAPUBLICBLOB");
    const auto import = [&](const WCHAR* type, NCRYPT_KEY_HANDLE* output, BYTE* data, DWORD cb, DWORD flags) {
        return t->ImportKey(p, 0, type, nullptr, output, data, cb, flags);
    };
    const auto exports = [&](NCRYPT_KEY_HANDLE used, const WCHAR* type, DWORD* result, DWORD flags) {
        return t->ExportKey(p, used, 0, type, nullptr, bytes, 64, result, flags);
    };
    Expect({
        {"ImportKey", "no output", kParameter, import(TEXT("x"), nullptr, bytes, 4, 1)},
        {"ImportKey", "no data", kParameter, import(TEXT("x"), &made, nullptr, 4, 1)},
        {"ImportKey", "empty data", kParameter, import(TEXT("x"), &made, bytes, 0, 1)},
        {"ImportKey", "unknown flag before the machine's", kFlags, import(TEXT("x"), &made, bytes, 4, 0x21)},
        {"ImportKey", "flag 0x100", kFlags, import(TEXT("x"), &made, bytes, 4, 0x100)},
        {"ImportKey", "machine flag", kUnsupported, import(TEXT("PUBLICBLOB"), &made, bytes, 3, 0x20)},
        {"ImportKey", "legacy store", kUnsupported, import(TEXT("PUBLICBLOB"), &made, bytes, 3, 0x200)},
        {"ImportKey", "unknown type", kUnsupported, import(TEXT("x"), &made, bytes, 4, 0x6E8 & ~0x220)},
        {"ImportKey", "letter case", kUnsupported, import(TEXT("publicblob"), &made, bytes, 4, 0)},
        {"ImportKey", "no type", kUnsupported, import(nullptr, &made, bytes, 4, 0)},
        {"ExportKey Failed", "no key", kHandle, exports(0, TEXT("what"), nullptr, 1)},
        {"ExportKey Failed", "no result", kParameter, exports(key, TEXT("what"), nullptr, 1)},
        {"ExportKey Failed", "unknown flag", kFlags, exports(key, TEXT("what"), &size, 0x801)},
        {"ExportKey Failed", "legacy", kUnsupported, exports(key, TEXT("what"), &size, 0x840)},
        {"ExportKey Failed", "no type", kParameter, exports(key, nullptr, &size, 0)},
        {"ExportKey Failed", "unknown type", kParameter, exports(key, TEXT("what"), &size, 0)},
        {"ExportKey Failed", "letter case", kParameter, exports(key, TEXT("RsaPublicBlob"), &size, 0)},
        {"ExportKey Failed", "empty type", kParameter, exports(key, TEXT(""), &size, 0)},
        {"ExportKey Failed", "private", kUnsupported, exports(key, TEXT("PRIVATEBLOB"), &size, 0)},
        {"ExportKey Failed", "RSA private", kUnsupported, exports(key, TEXT("RSAPRIVATEBLOB"), &size, 0)},
        {"ExportKey Failed", "full private", kUnsupported, exports(key, TEXT("RSAFULLPRIVATEBLOB"), &size, 0)},
        {"ExportKey Failed", "PKCS#7", kUnsupported, exports(key, TEXT("PKCS7_ENVELOPE"), &size, 0)},
        {"ExportKey Failed", "PKCS#8", kUnsupported, exports(key, TEXT("PKCS8_PRIVATEKEY"), &size, 0x40)},
        {"ExportKey Failed", "not read from the vault", kParameter, exports(key, rsaBlob, &size, 0)},
    });
    EXPECT_EQ(77u, made);
    EXPECT_EQ(7u, size);
}

}  // namespace
