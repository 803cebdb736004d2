// A serialized certificate store, as an enveloped key brings it along.
#include <stdint.h>
#include <stdlib.h>

#include <vector>

#include "platform/platform.h"

namespace {

void Require(bool holds)
{
    if (!holds)
        abort();
}

void CheckProviderInfo(PCCERT_CONTEXT certificate)
{
    DWORD size = 0;
    if (!CertGetCertificateContextProperty(certificate, CERT_KEY_PROV_INFO_PROP_ID, nullptr, &size))
        return;
    std::vector<uint64_t> room(size / sizeof(uint64_t) + 1);
    Require(CertGetCertificateContextProperty(certificate, CERT_KEY_PROV_INFO_PROP_ID, room.data(), &size) != FALSE);
    const auto* const info = reinterpret_cast<const CRYPT_KEY_PROV_INFO*>(room.data());
    Require(info->pwszContainerName && info->cProvParam == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    CRYPT_DATA_BLOB blob = {static_cast<DWORD>(size), const_cast<uint8_t*>(data)};
    const HCERTSTORE store = CertOpenStore(CERT_STORE_PROV_SERIALIZED, X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, 0,
                                           CERT_STORE_CREATE_NEW_FLAG, &blob);
    if (!store)
        return 0;
    PCCERT_CONTEXT certificate = nullptr;
    while ((certificate = CertEnumCertificatesInStore(store, certificate)) != nullptr)
        CheckProviderInfo(certificate);
    CertCloseStore(store, CERT_CLOSE_STORE_FORCE_FLAG);
    return 0;
}
