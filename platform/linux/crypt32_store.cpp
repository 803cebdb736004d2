// Certificate stores.
#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "platform/linux/certificate_context.h"
#include "platform/linux/file_store.h"
#include "platform/linux/outcome.h"
#include "platform/linux/paths.h"
#include "platform/linux/serialized_store.h"
#include "platform/linux/text.h"

namespace {

constexpr std::u16string_view kMyStore = u"My";

using ContextPtr = std::unique_ptr<CertificateContext>;

CertificateStore* StoreOf(HCERTSTORE store)
{
    return static_cast<CertificateStore*>(store);
}

// Empty for an unsupported location.
std::string DirectoryOf(DWORD flags)
{
    switch (flags & ~CERT_STORE_READONLY_FLAG) {
        case CERT_SYSTEM_STORE_LOCAL_MACHINE:
            return RootDirectory() + "/certstore/My";
        case CERT_SYSTEM_STORE_CURRENT_USER:
            return UserDirectory() + "/certstore/My";
        default:
            return "";
    }
}

void PrepareDirectory(const std::string& directory, bool readOnly)
{
    if (!readOnly)
        Check(MakeDirectories(directory));
    const int wanted = R_OK | X_OK | (readOnly ? 0 : W_OK);
    if (faccessat(AT_FDCWD, directory.c_str(), wanted, AT_EACCESS) != 0 && !(errno == ENOENT && readOnly))
        throw Failure(ErrorFromErrno(errno));
}

// The context of a certificate of the store.
ContextPtr MakeStoreContext(CertificateStore* store, DWORD encodingType, CertificateRecord stored, LONG* error)
{
    ContextPtr context = CertificateContext::Make(encodingType, stored.der, store, error);
    if (context)
        context->KeepKeyProvider(std::move(stored.keyProvider));
    return context;
}

// The position after `previous`, or the start of a new enumeration.
void FindPlace(CertificateStore* store, const CertificateContext* previous, StoreListing* listing, size_t* position)
{
    if (previous && previous->listing) {
        *listing = previous->listing;
        *position = previous->position + 1;
        return;
    }
    std::vector<std::string> names;
    Check(store->List(&names));
    const auto next = previous ? std::upper_bound(names.begin(), names.end(), previous->FileName()) : names.begin();
    *position = static_cast<size_t>(next - names.begin());
    *listing = std::make_shared<const std::vector<std::string>>(std::move(names));
}

LONG FindNext(CertificateStore* store, const CertificateContext* previous, ContextPtr* next)
{
    if (previous && previous->store() != store)
        return E_INVALIDARG;
    StoreListing listing;
    size_t position = 0;
    FindPlace(store, previous, &listing, &position);
    for (; position < listing->size(); position++) {
        CertificateRecord stored;
        LONG parsed = ERROR_SUCCESS;
        if (store->Load((*listing)[position], &stored) != ERROR_SUCCESS)
            continue;
        *next = MakeStoreContext(store, X509_ASN_ENCODING, std::move(stored), &parsed);
        if (!*next)
            continue;
        (*next)->listing = listing;
        (*next)->position = position;
        return ERROR_SUCCESS;
    }
    return CRYPT_E_NOT_FOUND;
}

void AddToStore(CertificateContext* added)
{
    std::optional<KeyProviderInfo> kept;
    Check(added->store()->Rewrite(added->FileName(), [&](LONG loaded, CertificateRecord* stored, bool* changed) {
        // A file that can't be read may name a key.
        if (loaded != ERROR_SUCCESS && loaded != ERROR_FILE_NOT_FOUND && loaded != ERROR_INVALID_DATA)
            return loaded;
        *changed = loaded != ERROR_SUCCESS;
        if (*changed)
            *stored = {std::string(reinterpret_cast<const char*>(added->pbCertEncoded), added->cbCertEncoded), {}};
        kept = stored->keyProvider;
        return LONG{ERROR_SUCCESS};
    }));
    added->KeepKeyProvider(std::move(kept));
}

}  // namespace

HCERTSTORE WINAPI CertOpenStore(LPCSTR provider, DWORD, HCRYPTPROV_LEGACY, DWORD flags, const void* name)
{
    return ResultOf([&] {
        if (provider == CERT_STORE_PROV_SERIALIZED)
            return OpenSerializedStore(static_cast<const CRYPT_DATA_BLOB*>(name));
        const std::string directory = DirectoryOf(flags);
        if (directory.empty())
            throw Failure(E_INVALIDARG);
        if (provider != CERT_STORE_PROV_SYSTEM_W || !EqualIgnoringCase(ViewOf(static_cast<LPCWSTR>(name)), kMyStore))
            throw Failure(ERROR_FILE_NOT_FOUND);
        const bool readOnly = (flags & CERT_STORE_READONLY_FLAG) != 0;
        PrepareDirectory(directory, readOnly);
        return new CertificateStore(directory, readOnly);
    });
}

BOOL WINAPI CertCloseStore(HCERTSTORE store, DWORD)
{
    if (store)
        StoreOf(store)->DropReference();
    return TRUE;
}

PCCERT_CONTEXT WINAPI CertEnumCertificatesInStore(HCERTSTORE store, PCCERT_CONTEXT previous)
{
    const ContextPtr freed(CertificateContext::From(previous));
    ContextPtr next;
    Succeeds([&]() -> LONG { return store ? FindNext(StoreOf(store), freed.get(), &next) : E_INVALIDARG; });
    return next.release();
}

BOOL WINAPI CertAddEncodedCertificateToStore(HCERTSTORE store, DWORD encodingType, const BYTE* encoded, DWORD size,
                                             DWORD disposition, PCCERT_CONTEXT* context)
{
    if (context)
        *context = nullptr;
    if (!store || (encodingType & X509_ASN_ENCODING) == 0 || (!encoded && size != 0) ||
        disposition != CERT_STORE_ADD_USE_EXISTING)
        return Fail(E_INVALIDARG);
    return Succeeds([&]() -> LONG {
        LONG error = ERROR_SUCCESS;
        CertificateRecord given;
        given.der = BytesOf(encoded, size);
        ContextPtr added = MakeStoreContext(StoreOf(store), encodingType, std::move(given), &error);
        if (!added)
            return error;
        AddToStore(added.get());
        if (context)
            *context = added.release();
        return ERROR_SUCCESS;
    });
}

BOOL WINAPI CertDeleteCertificateFromStore(PCCERT_CONTEXT context)
{
    const ContextPtr freed(CertificateContext::From(context));
    if (!freed || !freed->store())
        return Fail(E_INVALIDARG);
    return Succeeds([&]() -> LONG { return freed->store()->Remove(freed->FileName()); });
}
