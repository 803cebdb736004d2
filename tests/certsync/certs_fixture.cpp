#include "tests/certsync/certs_fixture.h"

#include <algorithm>
#include <stdexcept>

#include "tests/common/base64.h"

static std::string HexText(const Bytes& bytes)
{
    std::string text;
    for (const BYTE byte : bytes)
        text += {"0123456789ABCDEF"[byte >> 4], "0123456789ABCDEF"[byte & 15]};
    return text;
}

static std::string HashOf(PCCERT_CONTEXT context)
{
    Bytes hash(20);
    DWORD size = 20;
    EXPECT_TRUE(CertGetCertificateContextProperty(context, CERT_SHA1_HASH_PROP_ID, hash.data(), &size));
    return HexText(hash);
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

void ClearStores()
{
    const std::string place = "Software\\Microsoft\\SystemCertificates\\My\\Certificates\\";
    for (const bool machine : {true, false}) {
        const HCERTSTORE store = OpenStore(machine);
        // An enumeration can't continue from a deleted certificate.
        for (PCCERT_CONTEXT first; (first = CertEnumCertificatesInStore(store, nullptr)) != nullptr;) {
            const std::string hash = HashOf(first);
            if (!CertDeleteCertificateFromStore(first))
                throw std::runtime_error("a certificate can't be deleted: " + std::to_string(GetLastError()));
            // Where Windows keeps the store. Not every runtime deletes it; other systems have none.
            RegDeleteKeyW(machine ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER, Wide(place + hash).c_str());
        }
        CertCloseStore(store, 0);
    }
}

Issued Issue(const json& wanted)
{
    const json answer = Simulator::Get().Control("POST", VaultPath("/issue"), wanted);
    return {FromBase64(answer["der"]), answer["der"], answer["pem"], answer["hash"]};
}

void AddVaultCertificate(const std::string& name, const json& more)
{
    json body = {{"name", name}, {"kty", "EC"}, {"crv", "P-256"}};
    body.update(more);
    Simulator::Get().Control("POST", VaultPath("/certificates"), body);
}

std::string VaultHash(const std::string& name)
{
    const json vault = Simulator::Get().Control("GET", VaultPath(""));
    for (const json& certificate : vault["certificates"]) {
        if (certificate["name"] == name)
            return HexText(FromBase64(certificate["versions"].back()["x5t"]));
    }
    throw std::runtime_error("no certificate in the vault: " + name);
}

static std::string Describe(PCCERT_CONTEXT context)
{
    alignas(CRYPT_KEY_PROV_INFO) BYTE block[2000];
    DWORD size = sizeof(block);
    if (!CertGetCertificateContextProperty(context, CERT_KEY_PROV_INFO_PROP_ID, block, &size))
        return HashOf(context);
    const auto* info = reinterpret_cast<const CRYPT_KEY_PROV_INFO*>(block);
    EXPECT_EQ(0u, info->dwProvType + info->cProvParam + info->dwKeySpec);
    return HashOf(context) + " " + Narrow(info->pwszContainerName) + " of " + Narrow(info->pwszProvName) + ", flags " +
           std::to_string(info->dwFlags);
}

Strings CertsTest::StoreInOrder(bool machine) const
{
    Strings found;
    const HCERTSTORE store = OpenStore(machine);
    for (PCCERT_CONTEXT at = nullptr; (at = CertEnumCertificatesInStore(store, at)) != nullptr;)
        found.push_back(Describe(at));
    CertCloseStore(store, 0);
    return found;
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
