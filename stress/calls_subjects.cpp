#include "stress/calls_subjects.h"

#include <openssl/pkcs12.h>
#include <openssl/x509.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

namespace stress {

using nlohmann::json;

namespace {

using Bytes = std::vector<BYTE>;
using Failures = std::map<SECURITY_STATUS, unsigned>;

constexpr SECURITY_STATUS kListFailed = static_cast<SECURITY_STATUS>(0x801B8002);
constexpr SECURITY_STATUS kAccepted = NTE_EXISTS;  // a wrong signature was accepted

Bytes ReadFile(const std::string& name)
{
    std::ifstream file(KELVARO_TEST_DATA "/" + name, std::ios::binary);
    Require(file.good(), "no " + name);
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

bool IsInVault(Stage& stage, const char* kind, const char* name)
{
    const json vault = stage.host.sim.Control("GET", std::string("/vaults/") + Simulator::kVault);
    for (const json& each : vault.at(kind)) {
        if ((each.is_string() ? each : each.at("name")) == name)
            return true;
    }
    return false;
}

// Whether the vault did what a request of this kind asks for.
bool WasAnswered(Stage& stage, const std::string& target)
{
    for (const json& entry : stage.host.sim.Journal()) {
        if (entry.at("status") < 300 && entry.at("target").get<std::string>().find(target) != std::string::npos)
            return true;
    }
    return false;
}

// The key must sign, and the vault must accept the signature. If the vault described the key and the description could
// not be read or kept, the key is one without an algorithm, and refuses to sign.
Work KeyWorks(Stage& stage, NCRYPT_PROV_HANDLE provider, NCRYPT_KEY_HANDLE key, const char* description)
{
    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table = *stage.host.table;
    const bool described = WasAnswered(stage, description);
    BYTE hash[32] = {1, 2, 3};
    BYTE signature[64];
    DWORD size = 0;
    const SECURITY_STATUS status = table.SignHash(provider, key, nullptr, hash, sizeof(hash), signature, 64, &size, 0);
    if (status == 0)
        return table.VerifySignature(provider, key, nullptr, hash, sizeof(hash), signature, size, 0) == 0
                   ? Work::Done
                   : Work::Missing;
    return described && status == NTE_INVALID_PARAMETER ? Work::Partly : Work::Missing;
}

Work OpenedKeyWorks(Stage& stage)
{
    return KeyWorks(stage, stage.provider, stage.opened, "/keys/p256?");
}

Work OpenedKeyWorksAndCertificateIsStored(Stage& stage)
{
    const Work work = OpenedKeyWorks(stage);
    return work == Work::Done && StoredContainers().count("web") == 0 ? Work::Partly : work;
}

Work MadeKeyWorks(Stage& stage)
{
    return IsInVault(stage, "keys", "made") ? KeyWorks(stage, stage.provider, stage.key, "/keys/made") : Work::Missing;
}

Work MadeCertificateWorks(Stage& stage)
{
    return IsInVault(stage, "certificates", "made") ? MadeKeyWorks(stage) : Work::Missing;
}

// A purge that fails isn't reported.
std::function<Work(Stage&)> IsDeleted(const char* kind, const char* deleted, const char* name)
{
    return [=](Stage& stage) {
        if (IsInVault(stage, kind, name))
            return Work::Missing;
        return IsInVault(stage, deleted, name) ? Work::Partly : Work::Done;
    };
}

Work IsPublished(Stage& stage)
{
    return WasAnswered(stage, "/pending/merge") ? Work::Done : Work::Partly;
}

Work SignatureIsGood(Stage& stage)
{
    return stage.host.table->VerifySignature(stage.provider, stage.key, nullptr, stage.input.data(), 32,
                                             stage.other.data(), stage.size, 0) == 0
               ? Work::Done
               : Work::Missing;
}

Work Decrypts(Stage& stage)
{
    Bytes plain(256);
    DWORD size = 0;
    const bool good = stage.host.table->Decrypt(stage.provider, stage.key, stage.other.data(), stage.size, nullptr,
                                                plain.data(), 256, &size, NCRYPT_PAD_PKCS1_FLAG) == 0;
    plain.resize(size);
    return good && plain == stage.input ? Work::Done : Work::Missing;
}

Work IsDecrypted(Stage& stage)
{
    return stage.size == 32 && Bytes(stage.input.begin(), stage.input.begin() + 32) == Bytes(32, 7) ? Work::Done
                                                                                                    : Work::Missing;
}

Work IsVerified(Stage& stage)
{
    return WasAnswered(stage, "/verify?") ? Work::Done : Work::Missing;
}

Work IsListed(Stage& stage)
{
    return stage.listed == "p256" ? Work::Done : Work::Missing;
}

// An open of a provider that finds a new secret in clear.
void WithClearSecret(Stage& stage)
{
    stage.SignIn(1);
    stage.host.root.SetText(HKEY_LOCAL_MACHINE, "ClientSecret", Simulator::kClientSecret);
}

SECURITY_STATUS OpenAnother(Stage& stage)
{
    return stage.host.table->OpenProvider(&stage.another, TEXT("provider"), 0);
}

// Whatever the other provider could read, the next one must find the secret, protected.
Work KeepsSecret(Stage& stage)
{
    stage.host.table->FreeProvider(stage.another);
    const bool opens =
        OpenAnother(stage) == 0 &&
        stage.host.table->OpenKey(stage.another, &stage.opened, TEXT("p256"), 0, NCRYPT_MACHINE_KEY_FLAG) == 0 &&
        stage.host.root.GetText(HKEY_LOCAL_MACHINE, "ClientSecret").empty();
    return opens ? KeyWorks(stage, stage.another, stage.opened, "/keys/p256?") : Work::Missing;
}

SECURITY_STATUS Import(Stage& stage, const WCHAR* blobType, DWORD parameter, void* value, size_t size)
{
    NCryptBuffer buffer = {static_cast<ULONG>(size), parameter, value};
    NCryptBufferDesc list = {NCRYPTBUFFER_VERSION, 1, &buffer};
    return stage.host.table->ImportKey(stage.provider, 0, blobType, &list, &stage.opened, stage.input.data(),
                                       static_cast<DWORD>(stage.input.size()), NCRYPT_DO_NOT_FINALIZE_FLAG);
}

SECURITY_STATUS ImportPkcs8(Stage& stage)
{
    WCHAR password[] = TEXT("secret");
    return Import(stage, TEXT("PKCS8_PRIVATEKEY"), NCRYPTBUFFER_PKCS_SECRET, password, sizeof(password));
}

void WithPbes2(Stage& stage)
{
    stage.SignIn(1);
    stage.input = ReadFile("pkcs8/pbes2-sha256-aes256.der");
}

// The older encryption makes twelve calls an iteration, so two iterations must do.
void WithPkcs12Encryption(Stage& stage)
{
    stage.SignIn(1);
    const Bytes plain = ReadFile("pkcs8/rsa2048.der");
    const unsigned char* begin = plain.data();
    const std::unique_ptr<PKCS8_PRIV_KEY_INFO, decltype(&PKCS8_PRIV_KEY_INFO_free)> key(
        d2i_PKCS8_PRIV_KEY_INFO(nullptr, &begin, static_cast<long>(plain.size())), PKCS8_PRIV_KEY_INFO_free);
    const std::unique_ptr<X509_SIG, decltype(&X509_SIG_free)> sealed(
        PKCS8_encrypt(NID_pbe_WithSHA1And3_Key_TripleDES_CBC, nullptr, "secret", 6, nullptr, 0, 2, key.get()),
        X509_SIG_free);
    unsigned char* der = nullptr;
    const int size = i2d_X509_SIG(sealed.get(), &der);
    Require(size > 0, "cannot encrypt a key");
    stage.input.assign(der, der + size);
    OPENSSL_free(der);
}

void Append(Bytes& bytes, const void* more, size_t size)
{
    const BYTE* const begin = static_cast<const BYTE*>(more);
    bytes.insert(bytes.end(), begin, begin + size);
}

void AppendRecord(Bytes& store, DWORD id, const Bytes& data)
{
    const DWORD head[] = {id, 1, static_cast<DWORD>(data.size())};
    Append(store, head, sizeof(head));
    Append(store, data.data(), data.size());
}

// A serialized store with the recipient's certificate, whose key is in the container "box".
Bytes RecipientStore()
{
    constexpr WCHAR kContainer[] = TEXT("box");
    constexpr WCHAR kProvider[] = TEXT("Microsoft Software Key Storage Provider");
    const DWORD offsets[] = {28, 28 + sizeof(kContainer), 0, 0, 0, 0, 1};
    Bytes provider;
    Append(provider, offsets, sizeof(offsets));
    Append(provider, kContainer, sizeof(kContainer));
    Append(provider, kProvider, sizeof(kProvider));
    const DWORD begin[] = {0, 0x54524543}, end[] = {0, 0, 0};
    Bytes store;
    Append(store, begin, sizeof(begin));
    AppendRecord(store, CERT_KEY_PROV_INFO_PROP_ID, provider);
    AppendRecord(store, 32, ReadFile("pkcs7/me.crt"));
    Append(store, end, sizeof(end));
    return store;
}

void WithEnvelope(Stage& stage)
{
    stage.SignIn(1);
    const std::string folder = stage.host.root.directory() + "/root/user/keycontainers";
    std::filesystem::create_directories(folder);
    std::filesystem::copy(KELVARO_TEST_DATA "/pkcs7/me.pem", folder + "/box.pem");
    stage.input = ReadFile("pkcs7/aes-256-cbc.der");
    stage.other = RecipientStore();
}

SECURITY_STATUS ImportEnvelope(Stage& stage)
{
    return Import(stage, TEXT("PKCS7_ENVELOPE"), NCRYPTBUFFER_CERT_BLOB, stage.other.data(), stage.other.size());
}

Work IsImported(Stage& stage)
{
    DWORD bits = 0, size = 0;
    const bool reads = stage.opened != Stage::kUntouched &&
                       stage.host.table->GetKeyProperty(stage.provider, stage.opened, TEXT("Length"),
                                                        reinterpret_cast<PBYTE>(&bits), sizeof(bits), &size, 0) == 0;
    return reads && bits == 2048 ? Work::Done : Work::Missing;
}

const Operation& Named(const std::string& name)
{
    for (const Operation& operation : Operations()) {
        if (operation.name == name)
            return operation;
    }
    throw std::runtime_error("no operation " + name);
}

Subject Of(const char* name, std::function<Work(Stage&)> work, Failures failures, DWORD room = Stage::kUntouched)
{
    const Operation& operation = Named(name);
    return {name, operation.prepare, operation.run, std::move(work), std::move(failures), room};
}

// The vault says no, and no failure may turn that into a yes.
Subject WrongSignature(const Failures& failures)
{
    const Operation& verify = Named("verify");
    Subject subject = Of("verify", IsVerified, failures);
    subject.name = "verify a wrong signature";
    subject.prepare = [&verify](Stage& stage) {
        verify.prepare(stage);
        stage.other[40] ^= 1;
    };
    subject.run = [&verify](Stage& stage) -> SECURITY_STATUS {
        const SECURITY_STATUS status = verify.run(stage);
        return status == NTE_BAD_SIGNATURE ? 0 : status == 0 ? kAccepted : status;
    };
    return subject;
}

std::vector<Subject> MakeSubjects()
{
    const Failures reading = {{NTE_NO_MEMORY, kMemory}, {NTE_NOT_FOUND, kMemory | kHttp}};
    // A token that can't be converted is one that can't be kept.
    Failures signingIn = {{NTE_NO_MEMORY, kMemory | kText},
                          {NTE_NOT_FOUND, kMemory | kHttp},
                          {SEC_E_LOGON_DENIED, kMemory | kText | kHttp}};
    const Failures listing = {
        {NTE_NO_MEMORY, kMemory}, {kListFailed, kMemory | kText | kHttp}, {NTE_NO_MORE_ITEMS, kMemory | kHttp}};
    const Failures crypto = {{NTE_NO_MEMORY, kMemory},
                             {NTE_FAIL, kMemory | kText | kHttp | kBase64},
                             {NTE_INVALID_PARAMETER, kMemory | kText | kHttp}};
    const Failures changing = {{NTE_NO_MEMORY, kMemory}, {NTE_FAIL, kMemory | kText | kHttp}};
    const Failures importing = {{NTE_NO_MEMORY, kMemory},
                                {NTE_BAD_DATA, kMemory | kContents},
                                {NTE_INTERNAL_ERROR, kText | kCrypto},
                                {NTE_NOT_SUPPORTED, kMissing}};
    std::vector<Subject> subjects = {
        {"open with a new secret", WithClearSecret, OpenAnother, KeepsSecret, {{NTE_NO_MEMORY, kMemory}}},
        Of("sign-in", OpenedKeyWorks, signingIn),
        Of("managed identity", OpenedKeyWorks, signingIn),
        Of("key read", OpenedKeyWorks, reading),
        Of("certificate list", OpenedKeyWorksAndCertificateIsStored, reading),
        Of("key list", IsListed, listing),
        Of("sign", SignatureIsGood, crypto, 64),
        Of("verify", IsVerified, crypto),
        WrongSignature(crypto),
        Of("encrypt", Decrypts, crypto, 256),
        Of("decrypt", IsDecrypted, crypto, 256),
        Of("key creation", MadeKeyWorks, changing),
        Of("key deletion", IsDeleted("keys", "deletedKeys", "p256"), changing),
        Of("certificate deletion", IsDeleted("certificates", "deletedCertificates", "web"), changing),
        {"PKCS#8 import", WithPbes2, ImportPkcs8, IsImported, importing},
        {"PKCS#8 import, older encryption", WithPkcs12Encryption, ImportPkcs8, IsImported, importing},
        {"envelope import",
         WithEnvelope,
         ImportEnvelope,
         IsImported,
         {{NTE_NO_MEMORY, kMemory},
          {NTE_BAD_DATA, kContents},
          {NTE_INVALID_PARAMETER, kContents},
          {NTE_INTERNAL_ERROR, kCrypto}}},
    };
    // If the answer is lost, the creation is sent again, refused since it is pending, and tried for a software key.
    const Fallback softwareKey = {"WinHttpReceiveResponse", R"("kty":"EC",)"};
    Subject certificate = Of("certificate creation", MadeCertificateWorks, changing);
    certificate.failures[NTE_FAIL] |= kBase64 | kContents;
    certificate.fallbacks = {softwareKey};
    subjects.push_back(certificate);
    Subject publication = Of("publication: fetch", IsPublished, {});
    publication.name = "publication";
    publication.fallbacks = {softwareKey, {"CertNameToStrW", "CN=CertificateDummySubject"}};
    subjects.push_back(publication);
    signingIn[SEC_E_LOGON_DENIED] |= kFile;
    Subject arc = Of("Arc", OpenedKeyWorks, signingIn);
    // Without the agent's address the machine counts as an Azure virtual machine.
    arc.fallbacks = {{"GetEnvironmentVariableW", "Host: 169.254.169.254"},
                     {"WinHttpCrackUrl", "Host: 169.254.169.254"}};
    subjects.push_back(arc);
    return subjects;
}

}  // namespace

unsigned FamilyOf(const std::string& call)
{
    struct Row {
        const char* beginning;
        unsigned family;
    };
    static constexpr Row kRows[] = {
        {"malloc", kMemory},
        {"calloc", kMemory},
        {"realloc", kMemory},
        {"HeapAlloc", kMemory},
        {"BCryptCreateHash", kMemory},
        {"BCryptGenerateSymmetricKey", kMemory},
        {"BCryptSetProperty", kMissing},
        {"BCrypt", kCrypto},
        {"NCrypt", kCrypto},
        {"CryptProtectData", kCrypto},
        {"MultiByteToWideChar", kText},
        {"WideCharToMultiByte", kText},
        {"WinHttp", kHttp},
        {"CryptBinaryToStringW", kBase64},
        {"CryptStringToBinaryW", kBase64},
        {"_wfopen", kFile},
        {"ferror", kFile},
        {"GetFullPathNameW", kFile},
        {"GetDriveTypeW", kFile},
        {"CryptDecodeObject", kContents},
        {"CertStrToNameA", kContents},
        {"CryptSignAndEncodeCertificate", kContents},
        {"CryptDecryptMessage", kContents},
        {"CertOpenStore", kContents},
    };
    for (const Row& row : kRows) {
        if (call.rfind(row.beginning, 0) == 0)
            return row.family;
    }
    return 0;
}

const std::vector<Subject>& Subjects()
{
    static const std::vector<Subject> kSubjects = MakeSubjects();
    return kSubjects;
}

}  // namespace stress
