#include "stress/operations.h"

#include <ctime>

#include "certsync/vault_to_machine.h"
#include "support/base64.h"

namespace stress {

using nlohmann::json;

namespace {

const HKEY kMachine = HKEY_LOCAL_MACHINE;
constexpr SECURITY_STATUS kListFailed = static_cast<SECURITY_STATUS>(0x801B8002);

constexpr Statuses kSignIn = {0, SEC_E_LOGON_DENIED, SEC_E_LOGON_DENIED, SEC_E_LOGON_DENIED};
constexpr Statuses kRead = {0, NTE_NOT_FOUND, 0, 0};
constexpr Statuses kList = {0, kListFailed, NTE_NO_MORE_ITEMS, NTE_NO_MORE_ITEMS};
constexpr Statuses kCrypto = {0, NTE_FAIL, NTE_INVALID_PARAMETER, NTE_FAIL};
constexpr Statuses kVerify = {0, NTE_FAIL, NTE_INVALID_PARAMETER, NTE_BAD_SIGNATURE};
constexpr Statuses kCreate = {0, NTE_FAIL, 0, 0};
// Without a request in its answer nothing is merged, and the key can't be read.
constexpr Statuses kCreateCertificate = {0, NTE_FAIL, NTE_FAIL, NTE_FAIL};
// A deletion goes by the status alone.
constexpr Statuses kDelete = {0, NTE_FAIL, 0, 0};
constexpr Statuses kHidden = {0, 0, 0, 0};

std::string InVault(const std::string& rest)
{
    return std::string("/vaults/") + Simulator::kVault + rest;
}

void Closed(Stage& stage)
{
    stage.provider = stage.host.OpenProvider();
}

// With the machine's identity; no other service is asked.
void ClosedIdentity(Stage& stage)
{
    stage.host.root.SetNumber(kMachine, "AuthenticationType", 1);
    Closed(stage);
}

void ClosedArc(Stage& stage)
{
    SetEnvironmentVariableW(TEXT("IDENTITY_ENDPOINT"), TEXT("http://127.0.0.1:40342/metadata/identity/oauth2/token"));
    ClosedIdentity(stage);
}

void SignedIn(Stage& stage)
{
    stage.SignIn(1);
}

void WithRsa(Stage& stage)
{
    SignedIn(stage);
    stage.host.table->FreeKey(stage.provider, stage.key);
    stage.key = stage.host.OpenKey(stage.provider, "rsa");
}

SECURITY_STATUS Encrypt(Stage& stage)
{
    stage.other.resize(256);
    return stage.host.table->Encrypt(stage.provider, stage.key, stage.input.data(), 32, nullptr, stage.other.data(),
                                     256, &stage.size, NCRYPT_PAD_PKCS1_FLAG);
}

SECURITY_STATUS Decrypt(Stage& stage)
{
    stage.input.resize(256);
    return stage.host.table->Decrypt(stage.provider, stage.key, stage.other.data(), 256, nullptr, stage.input.data(),
                                     256, &stage.size, NCRYPT_PAD_PKCS1_FLAG);
}

void Encrypted(Stage& stage)
{
    WithRsa(stage);
    Require(Encrypt(stage) == 0, "cannot encrypt");
    stage.input.assign(256, 9);  // where the plain text goes
}

SECURITY_STATUS Sign(Stage& stage)
{
    return stage.host.table->SignHash(stage.provider, stage.key, nullptr, stage.input.data(), 32, stage.other.data(),
                                      64, &stage.size, 0);
}

void Signed(Stage& stage)
{
    SignedIn(stage);
    Require(Sign(stage) == 0, "cannot sign");
}

SECURITY_STATUS Verify(Stage& stage)
{
    return stage.host.table->VerifySignature(stage.provider, stage.key, nullptr, stage.input.data(), 32,
                                             stage.other.data(), 64, 0);
}

SECURITY_STATUS Open(Stage& stage)
{
    return stage.host.table->OpenKey(stage.provider, &stage.opened, TEXT("p256"), 0, NCRYPT_MACHINE_KEY_FLAG);
}

SECURITY_STATUS List(Stage& stage)
{
    PVOID walk = nullptr;
    NCryptKeyName* name = nullptr;
    const SECURITY_STATUS status =
        stage.host.table->EnumKeys(stage.provider, nullptr, &name, &walk, NCRYPT_MACHINE_KEY_FLAG);
    stage.listed = name ? Narrow(name->pszName) : "";
    for (PVOID block : {static_cast<PVOID>(name), walk}) {
        if (block)
            stage.host.table->FreeBuffer(block);
    }
    return status;
}

void Pending(Stage& stage, DWORD certificatesOrKeys)
{
    stage.SignIn(certificatesOrKeys);
    stage.host.table->FreeKey(stage.provider, stage.key);
    stage.key = stage.host.NewKey(stage.provider, "made");
}

SECURITY_STATUS Finalize(Stage& stage)
{
    return stage.host.table->FinalizeKey(stage.provider, stage.key, 0);
}

SECURITY_STATUS Delete(Stage& stage)
{
    const SECURITY_STATUS status = stage.host.table->DeleteKey(stage.provider, stage.key, 0);
    if (status == 0)
        stage.key = 0;
    return status;
}

// A certificate in the vault, and its key opened.
void WithCertificate(Stage& stage)
{
    stage.host.sim.Control("POST", InVault("/certificates"), {{"name", "web"}, {"kty", "EC-HSM"}, {"crv", "P-256"}});
    stage.SignIn(0);
    stage.host.table->FreeKey(stage.provider, stage.key);
    stage.key = stage.host.OpenKey(stage.provider, "web");
}

// The next open of a key on this machine looks for new certificates.
void WithNewCertificate(Stage& stage)
{
    WithCertificate(stage);
    stage.host.root.SetNumber(kMachine, "FromKVLastSyncTime", 0);
    stage.host.table->FreeKey(stage.provider, std::exchange(stage.key, 0));
    stage.host.table->FreeProvider(stage.provider);
    // A provider that has its token, and hasn't looked yet: a user's key signs in nobody else.
    stage.provider = stage.host.OpenProvider();
    List(stage);
}

// A certificate of the key in the machine's store, which the key's release will publish.
void ToPublish(Stage& stage)
{
    WithCertificate(stage);
    const json issued = stage.host.sim.Control("POST", InVault("/issue"), {{"key", "web"}, {"subject", "CN=web"}});
    const std::string der = issued.at("der");
    std::vector<BYTE> bytes(der.size());
    DWORD size = static_cast<DWORD>(bytes.size());
    Require(BldBinFromBase64(Wide(der).c_str(), bytes.data(), &size) &&
                KVCPropogateCertificateFromKeyVault(TEXT("web"), size, bytes.data()),
            "cannot store a certificate");
    DWORD unused = 0;
    stage.host.table->GetKeyProperty(stage.provider, stage.key, TEXT("SmartCardKeyCertificate"), nullptr, 0, &unused,
                                     0);
}

SECURITY_STATUS Release(Stage& stage)
{
    return stage.host.table->FreeKey(stage.provider, std::exchange(stage.key, 0));
}

}  // namespace

Stage::~Stage()
{
    if (opened != kUntouched)
        host.table->FreeKey(another != kUntouched ? another : provider, opened);
    if (another != kUntouched)
        host.table->FreeProvider(another);
    if (key)
        host.table->FreeKey(provider, key);
    if (provider)
        host.table->FreeProvider(provider);
    SetEnvironmentVariableW(TEXT("IDENTITY_ENDPOINT"), nullptr);
}

void Stage::SignIn(DWORD certificatesOrKeys)
{
    host.root.SetNumber(kMachine, "CertificatesOrKeys", certificatesOrKeys);
    host.root.SetNumber(kMachine, "FromKVLastSyncTime", static_cast<DWORD>(std::time(nullptr)) + 600);
    provider = host.OpenProvider();
    key = host.OpenKey(provider, "p256");
}

const std::vector<Operation>& Operations()
{
    const auto keyPending = [](Stage& stage) { Pending(stage, 1); };
    const auto certificatePending = [](Stage& stage) { Pending(stage, 0); };
    using S = Service;
    using K = Kind;
    static const std::vector<Operation> kOperations = {
        {"sign-in", K::SignIn, kSignIn, S::Directory, 0, "POST", "/oauth2/token", Closed, Open},
        {"managed identity", K::Identity, kSignIn, S::Metadata, 0, "GET", "/metadata/", ClosedIdentity, Open},
        {"Arc", K::Arc, kSignIn, S::Arc, 0, "GET", "/metadata/", ClosedArc, Open},
        {"key read", K::Read, kRead, S::Vault, 0, "GET", "/keys/p256?", SignedIn, Open},
        {"key list", K::List, kList, S::Vault, 0, "GET", "/keys?", SignedIn, List},
        {"sign", K::Crypto, kCrypto, S::Vault, 0, "POST", "/sign?", SignedIn, Sign},
        {"verify", K::Verify, kVerify, S::Vault, 0, "POST", "/verify?", Signed, Verify},
        {"encrypt", K::Crypto, kCrypto, S::Vault, 0, "POST", "/encrypt?", WithRsa, Encrypt},
        {"decrypt", K::Crypto, kCrypto, S::Vault, 0, "POST", "/decrypt?", Encrypted, Decrypt},
        {"key creation", K::Create, kCreate, S::Vault, 0, "POST", "/create?", keyPending, Finalize},
        {"certificate creation", K::CreateCertificate, kCreateCertificate, S::Vault, 0, "POST", "/create?",
         certificatePending, Finalize},
        {"its merge", K::Merge, kCreateCertificate, S::Vault, 1, "POST", "/merge?", certificatePending, Finalize},
        {"its key's reading", K::Read, kCreate, S::Vault, 2, "GET", "/keys/made?", certificatePending, Finalize},
        {"key deletion", K::Delete, kDelete, S::Vault, 0, "DELETE", "/keys/p256?", SignedIn, Delete},
        {"its purge", K::Purge, kHidden, S::Vault, 1, "DELETE", "/deletedkeys/p256?", SignedIn, Delete},
        {"certificate deletion", K::Delete, kDelete, S::Vault, 0, "DELETE", "/certificates/web?", WithCertificate,
         Delete},
        {"its purge (certificate)", K::Purge, kHidden, S::Vault, 1, "DELETE", "/deletedcertificates/web?",
         WithCertificate, Delete},
        {"certificate list", K::BestEffort, kHidden, S::Vault, 0, "GET", "/certificates?", WithNewCertificate, Open},
        {"certificate fetch", K::BestEffort, kHidden, S::Vault, 1, "GET", "/certificates/web?", WithNewCertificate,
         Open},
        {"publication: fetch", K::BestEffort, kHidden, S::Vault, 0, "GET", "/certificates/web?", ToPublish, Release},
        {"publication: creation", K::CreateCertificate, kHidden, S::Vault, 1, "POST", "/create?", ToPublish, Release},
        {"publication: merge", K::BestEffort, kHidden, S::Vault, 2, "POST", "/merge?", ToPublish, Release},
        {"publication: key's reading", K::BestEffort, kHidden, S::Vault, 3, "GET", "/keys/web?", ToPublish, Release},
    };
    return kOperations;
}

}  // namespace stress
