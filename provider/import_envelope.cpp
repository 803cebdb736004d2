// A key blob in an enveloped message, decrypted with one of the host's certificates.
#include "provider/import_key.h"
#include "provider/import_memory.h"
#include "provider/import_name.h"
#include "provider/private_blob.h"

namespace {

constexpr DWORD kStoreEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
constexpr ULONG kMostBuffers = 2;

struct StoreCloser {
    void operator()(void* store) const { CertCloseStore(store, CERT_CLOSE_STORE_FORCE_FLAG); }
};
using StorePtr = std::unique_ptr<void, StoreCloser>;

// Checks one buffer; the last one with certificates sets *certificates.
SECURITY_STATUS ReadParameter(const NCryptBuffer& buffer, CRYPT_DATA_BLOB* certificates)
{
    const bool empty = !buffer.pvBuffer || buffer.cbBuffer == 0;
    switch (buffer.BufferType) {
        case NCRYPTBUFFER_PKCS_ALG_OID:
        case NCRYPTBUFFER_PKCS_ALG_PARAM:
            return ERROR_SUCCESS;
        case NCRYPTBUFFER_PKCS_KEY_NAME:
            return empty || HasZeroCharacter(buffer) ? ERROR_SUCCESS : NTE_INVALID_PARAMETER;
        case NCRYPTBUFFER_CERT_BLOB:
            if (!empty)
                *certificates = {buffer.cbBuffer, static_cast<BYTE*>(buffer.pvBuffer)};
            return ERROR_SUCCESS;
        default:
            return NTE_INVALID_PARAMETER;
    }
}

SECURITY_STATUS FindCertificates(const NCryptBufferDesc* parameters, CRYPT_DATA_BLOB* certificates)
{
    if (!parameters || parameters->ulVersion != NCRYPTBUFFER_VERSION || parameters->cBuffers == 0 ||
        parameters->cBuffers > kMostBuffers || !parameters->pBuffers)
        return NTE_INVALID_PARAMETER;
    for (ULONG i = 0; i < parameters->cBuffers; i++) {
        const SECURITY_STATUS status = ReadParameter(parameters->pBuffers[i], certificates);
        if (status != ERROR_SUCCESS)
            return status;
    }
    return certificates->pbData ? ERROR_SUCCESS : NTE_INVALID_PARAMETER;
}

// *cbPlain: bytes of plain text; the block may be larger.
SECURITY_STATUS OpenEnvelope(HCERTSTORE store, const BYTE* envelope, DWORD cbEnvelope, WipedBlock* plain,
                             DWORD* cbPlain)
{
    CRYPT_DECRYPT_MESSAGE_PARA how = {};
    how.cbSize = sizeof(how);
    how.dwMsgAndCertEncodingType = PKCS_7_ASN_ENCODING;
    how.cCertStore = 1;
    how.rghCertStore = &store;
    how.dwFlags = CRYPT_MESSAGE_SILENT_KEYSET_FLAG;
    if (!CryptDecryptMessage(&how, envelope, cbEnvelope, nullptr, cbPlain, nullptr))
        return NTE_BAD_DATA;
    if (!plain->Allocate(*cbPlain))
        return NTE_NO_MEMORY;
    return CryptDecryptMessage(&how, envelope, cbEnvelope, plain->data(), cbPlain, nullptr) ? ERROR_SUCCESS
                                                                                            : NTE_BAD_DATA;
}

}  // namespace

SECURITY_STATUS ImportEnvelopedKey(const ImportRequest& request, KeyPtr* key)
{
    CRYPT_DATA_BLOB certificates = {};
    SECURITY_STATUS status = FindCertificates(request.parameters, &certificates);
    if (status != ERROR_SUCCESS)
        return status;
    const StorePtr store(
        CertOpenStore(CERT_STORE_PROV_SERIALIZED, kStoreEncoding, 0, CERT_STORE_CREATE_NEW_FLAG, &certificates));
    if (!store)
        return NTE_INVALID_PARAMETER;
    WipedBlock plain;
    DWORD cbPlain = 0;
    status = OpenEnvelope(store.get(), request.data, request.cbData, &plain, &cbPlain);
    if (status != ERROR_SUCCESS)
        return status;

    // A name in the list is ignored.
    KeyPtr made;
    status = MakeImportedKey(request.provider, nullptr, 1, &made);
    if (status == ERROR_SUCCESS)
        status = KeepPrivateBlob(made.get(), plain.data(), cbPlain, BCRYPT_RSAPRIVATE_BLOB);
    const DWORD flags = request.flags & ~(NCRYPT_DO_NOT_FINALIZE_FLAG | NCRYPT_OVERWRITE_KEY_FLAG);
    if (status == ERROR_SUCCESS)
        status = FinalizeImportedKey(request, made.get(), flags);
    if (status == ERROR_SUCCESS)
        *key = std::move(made);
    return status;
}
