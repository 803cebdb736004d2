// Certificate contexts and their properties.
#include <utility>

#include "platform/linux/certificate_context.h"
#include "platform/linux/outcome.h"
#include "platform/linux/structure_block.h"
#include "platform/linux/text.h"
#include "platform/linux/two_call.h"

namespace {

LONG GiveOutKeyProvider(const std::optional<KeyProviderInfo>& info, void* data, DWORD* size)
{
    if (!info.has_value())
        return CRYPT_E_NOT_FOUND;
    CRYPT_KEY_PROV_INFO published = {};
    StructureBlock block(data);
    const size_t offset = block.Reserve(sizeof published);
    published.pwszContainerName = block.AppendText(info->containerName);
    published.pwszProvName = block.AppendText(info->providerName);
    published.dwProvType = info->providerType;
    published.dwFlags = info->flags;
    published.dwKeySpec = info->keySpec;
    block.Put(offset, published);
    return GiveOut(block.bytes(), data, size);
}

KeyProviderInfo ReadKeyProvider(const void* data)
{
    const CRYPT_KEY_PROV_INFO* published = static_cast<const CRYPT_KEY_PROV_INFO*>(data);
    if (!published || published->cProvParam != 0)
        throw Failure(E_INVALIDARG);
    return {std::u16string(ViewOf(published->pwszContainerName)), std::u16string(ViewOf(published->pwszProvName)),
            published->dwProvType, published->dwFlags, published->dwKeySpec};
}

}  // namespace

std::unique_ptr<CertificateContext> CertificateContext::Make(DWORD encodingType, std::string_view encoded,
                                                             CertificateStore* store, LONG* error)
{
    std::unique_ptr<CertificateContext> context(new CertificateContext);
    *error = context->certificate_.Parse(encoded);
    if (*error != ERROR_SUCCESS)
        return nullptr;
    context->sha1_ = Sha1Of(context->certificate_.der());
    context->dwCertEncodingType = encodingType;
    context->pbCertEncoded = context->certificate_.data();
    context->cbCertEncoded = static_cast<DWORD>(context->certificate_.der().size());
    context->pCertInfo = context->certificate_.info();
    context->hCertStore = store;
    context->store_ = NewReference(store);
    return context;
}

std::optional<KeyProviderInfo> CertificateContext::keyProvider() const
{
    const std::lock_guard<std::mutex> hold(mutex_);
    return keyProvider_;
}

void CertificateContext::KeepKeyProvider(std::optional<KeyProviderInfo> info)
{
    const std::lock_guard<std::mutex> hold(mutex_);
    keyProvider_ = std::move(info);
}

void CertificateContext::StoreKeyProvider(KeyProviderInfo info)
{
    if (store_) {
        Check(store_->Rewrite(FileName(), [&](LONG loaded, CertificateRecord* stored, bool* changed) {
            // A certificate deleted meanwhile stays deleted.
            if (loaded != ERROR_SUCCESS && loaded != ERROR_INVALID_DATA)
                return loaded;
            stored->der = certificate_.der();
            stored->keyProvider = info;
            *changed = true;
            return LONG{ERROR_SUCCESS};
        }));
    }
    KeepKeyProvider(std::move(info));
}

PCCERT_CONTEXT WINAPI CertCreateCertificateContext(DWORD encodingType, const BYTE* encoded, DWORD size)
{
    std::unique_ptr<CertificateContext> context;
    Succeeds([&]() -> LONG {
        if ((encodingType & X509_ASN_ENCODING) == 0 || (!encoded && size != 0))
            return E_INVALIDARG;
        LONG error = ERROR_SUCCESS;
        context = CertificateContext::Make(encodingType, BytesOf(encoded, size), nullptr, &error);
        return error;
    });
    return context.release();
}

BOOL WINAPI CertFreeCertificateContext(PCCERT_CONTEXT context)
{
    delete CertificateContext::From(context);
    return TRUE;
}

BOOL WINAPI CertGetCertificateContextProperty(PCCERT_CONTEXT context, DWORD property, void* data, DWORD* size)
{
    if (!context || !size)
        return Fail(E_INVALIDARG);
    return Succeeds([&]() -> LONG {
        const CertificateContext* certificate = CertificateContext::From(context);
        if (property == CERT_KEY_PROV_INFO_PROP_ID)
            return GiveOutKeyProvider(certificate->keyProvider(), data, size);
        if (property == CERT_SHA1_HASH_PROP_ID)
            return GiveOut(certificate->sha1(), data, size);
        return CRYPT_E_NOT_FOUND;
    });
}

BOOL WINAPI CertSetCertificateContextProperty(PCCERT_CONTEXT context, DWORD property, DWORD flags, const void* data)
{
    if (!context || property != CERT_KEY_PROV_INFO_PROP_ID || flags != 0)
        return Fail(E_INVALIDARG);
    return Succeeds([&] { CertificateContext::From(context)->StoreKeyProvider(ReadKeyProvider(data)); });
}
