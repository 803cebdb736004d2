#include "tests/certsync/certs_fixture.h"

#include <algorithm>
#include <ostream>
#include <stdexcept>

#include "support/base64.h"

using nlohmann::json;

bool operator==(const Stored& left, const Stored& right)
{
    return left.hash == right.hash && left.container == right.container && left.provider == right.provider &&
           left.flags == right.flags;
}

void PrintTo(const Stored& stored, std::ostream* out)
{
    *out << stored.hash << " '" << stored.container << "' of '" << stored.provider << "' flags " << stored.flags;
}

static std::string HexText(const BYTE* bytes, size_t size)
{
    std::string text;
    for (size_t i = 0; i < size; i++) {
        text += "0123456789ABCDEF"[bytes[i] >> 4];
        text += "0123456789ABCDEF"[bytes[i] & 15];
    }
    return text;
}

static std::string HashOf(PCCERT_CONTEXT context)
{
    BYTE hash[20];
    DWORD size = sizeof(hash);
    return CertGetCertificateContextProperty(context, CERT_SHA1_HASH_PROP_ID, hash, &size) ? HexText(hash, size) : "";
}

static Bytes FromBase64(const std::string& text)
{
    Bytes bytes(text.size());
    DWORD size = static_cast<DWORD>(bytes.size());
    if (!BldBinFromBase64(Wide(text).c_str(), bytes.data(), &size))
        throw std::runtime_error("no Base64: " + text);
    bytes.resize(size);
    return bytes;
}

static std::string VaultPath(const std::string& rest)
{
    return std::string("/vaults/") + Simulator::kVault + rest;
}

static HCERTSTORE OpenStore(bool machine)
{
    const DWORD location = machine ? CERT_SYSTEM_STORE_LOCAL_MACHINE : CERT_SYSTEM_STORE_CURRENT_USER;
    const HCERTSTORE store = CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, location, TEXT("My"));
    if (!store)
        throw std::runtime_error("no certificate store: " + std::to_string(GetLastError()));
    return store;
}

static void ClearStore(bool machine)
{
    const std::string place = "Software\\Microsoft\\SystemCertificates\\My\\Certificates\\";
    const HCERTSTORE store = OpenStore(machine);
    // The deletion frees the context. A walk does not go on from one that is gone: each begins anew.
    for (PCCERT_CONTEXT first; (first = CertEnumCertificatesInStore(store, nullptr)) != nullptr;) {
        const std::string hash = HashOf(first);
        if (!CertDeleteCertificateFromStore(first))
            throw std::runtime_error("a certificate cannot be deleted: " + std::to_string(GetLastError()));
        // Where Windows keeps it. Not every runtime deletes there what was deleted from the store; elsewhere nothing is
        // there.
        RegDeleteKeyW(machine ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER, Wide(place + hash).c_str());
    }
    CertCloseStore(store, 0);
}

void CertsTest::SetUp()
{
    HostTest::SetUp();
    for (const HKEY hive : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER})
        root.SetNumber(hive, "CertificatesOrKeys", 0);
    ClearStores();  // those of Windows outlive a test
}

void CertsTest::TearDown()
{
    HostTest::TearDown();
    ClearStores();
}

void ClearStores()
{
    ClearStore(true);
    ClearStore(false);
}

Issued CertsTest::Issue(const json& spec)
{
    const json answer = sim.Control("POST", VaultPath("/issue"), spec);
    return {FromBase64(answer["der"]), answer["der"], answer["pem"], answer["hash"]};
}

void CertsTest::AddVaultCertificate(const std::string& name, const std::string& kty, const std::string& subject)
{
    json body = {{"name", name}, {"kty", kty}, {"crv", "P-256"}};
    if (!subject.empty())
        body["subject"] = subject;
    sim.Control("POST", VaultPath("/certificates"), body);
}

void CertsTest::AddVaultCertificate(const std::string& name, const Issued& issued)
{
    sim.Control("POST", VaultPath("/certificates"), {{"name", name}, {"pem", issued.pem}, {"kty", "EC"}});
}

Strings CertsTest::VaultHashes(const std::string& name)
{
    Strings hashes;
    const json vault = sim.Control("GET", VaultPath(""));
    for (const json& certificate : vault["certificates"]) {
        if (!name.empty() && certificate["name"] != name)
            continue;
        for (const json& version : certificate["versions"]) {
            const Bytes hash = FromBase64(version["x5t"]);
            hashes.push_back(HexText(hash.data(), hash.size()));
        }
    }
    if (hashes.empty())
        throw std::runtime_error("no certificate in the vault: " + name);
    return hashes;
}

static Stored Describe(PCCERT_CONTEXT context)
{
    Stored stored;
    stored.hash = HashOf(context);
    alignas(CRYPT_KEY_PROV_INFO) BYTE block[2000];
    DWORD size = sizeof(block);
    if (CertGetCertificateContextProperty(context, CERT_KEY_PROV_INFO_PROP_ID, block, &size)) {
        const auto* info = reinterpret_cast<const CRYPT_KEY_PROV_INFO*>(block);
        stored.container = Narrow(info->pwszContainerName);
        stored.provider = Narrow(info->pwszProvName);
        stored.flags = info->dwFlags;
        EXPECT_EQ(0u, info->dwProvType);
        EXPECT_EQ(0u, info->cProvParam);
        EXPECT_EQ(0u, info->dwKeySpec);
    }
    return stored;
}

std::vector<Stored> CertsTest::StoreInOrder(bool machine) const
{
    std::vector<Stored> found;
    const HCERTSTORE store = OpenStore(machine);
    for (PCCERT_CONTEXT at = nullptr; (at = CertEnumCertificatesInStore(store, at)) != nullptr;)
        found.push_back(Describe(at));
    CertCloseStore(store, 0);
    return found;
}

std::vector<Stored> CertsTest::Sorted(std::vector<Stored> stored)
{
    std::sort(stored.begin(), stored.end(),
              [](const Stored& left, const Stored& right) { return left.hash < right.hash; });
    return stored;
}

void CertsTest::AddToStore(const Issued& issued, const std::string& container, bool machine,
                           const std::string& provider)
{
    const HCERTSTORE store = OpenStore(machine);
    PCCERT_CONTEXT context = nullptr;
    ASSERT_TRUE(CertAddEncodedCertificateToStore(store, X509_ASN_ENCODING, issued.der.data(),
                                                 static_cast<DWORD>(issued.der.size()), CERT_STORE_ADD_USE_EXISTING,
                                                 &context));
    TextString name = Wide(container);
    TextString providerName = Wide(provider);
    CRYPT_KEY_PROV_INFO info = {};
    info.pwszContainerName = name.data();
    info.pwszProvName = providerName.data();
    info.dwFlags = machine ? NCRYPT_MACHINE_KEY_FLAG : 0;
    // Without a provider the certificate has no key.
    EXPECT_TRUE(provider.empty() || CertSetCertificateContextProperty(context, CERT_KEY_PROV_INFO_PROP_ID, 0, &info));
    CertFreeCertificateContext(context);
    CertCloseStore(store, 0);
}

Strings CertsTest::TakeRequests()
{
    Strings requests = sim.VaultRequests();
    for (std::string& request : requests)
        request.erase(std::min(request.find('?'), request.size()));
    sim.ClearJournal();
    return requests;
}

Strings CertsTest::LinesUpTo(int level, const std::string& from) const
{
    Strings lines;
    for (const std::string& line : root.LogLines()) {
        if (line.rfind(from, 0) == 0 && std::stoi(line.substr(line.rfind(' ') + 1)) <= level)
            lines.push_back(line);
    }
    return lines;
}
